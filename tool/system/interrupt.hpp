#ifndef ZORVEL_TOOL_SYSTEM_INTERRUPT_HPP
#define ZORVEL_TOOL_SYSTEM_INTERRUPT_HPP

#include "recording/failure.hpp"

namespace zorvel {

/// From now on these signals no longer end the process, but are seen by `throwIfInterrupted`.
/// Throws Failure when the system has no descriptors left.
void catchInterrupts();

/// Throws Interrupted when such a signal has come in.
void throwIfInterrupted();

/// A descriptor that can be read once such a signal has come in.
int interruptDescriptor();

/// Waits until there is something to read, or the end of the file; not at all for -1. Throws
/// Interrupted when such a signal comes in before. For readers: see WaitForInput.
void waitForInput(int descriptor);

}  // namespace zorvel

#endif
