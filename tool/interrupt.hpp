#ifndef ZORVEL_TOOL_INTERRUPT_HPP
#define ZORVEL_TOOL_INTERRUPT_HPP

namespace zorvel {

/// SIGINT or SIGTERM came in: whatever is half written must go.
struct Interrupted {
  int signal;
};

/// From now on SIGINT and SIGTERM no longer end the process, but are seen by `throwIfInterrupted`.
/// They also end a blocking read, with EINTR.
void catchInterrupts();

/// Throws Interrupted when such a signal has come in.
void throwIfInterrupted();

}  // namespace zorvel

#endif
