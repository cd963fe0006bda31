#include "system/interrupt.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace zorvel {
namespace {

volatile std::sig_atomic_t receivedSignal = 0;

// The handler writes into this pipe: a signal that comes in just before the wait begins ends it
// too.
std::array<int, 2> wakeUp = {-1, -1};

void remember(int signal) {
  const int error = errno;
  receivedSignal = signal;
  const char byte = 0;
  [[maybe_unused]] const ssize_t count = write(wakeUp[1], &byte, 1);
  errno = error;
}

}  // namespace

void catchInterrupts() {
  if (pipe2(wakeUp.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw systemFailure("pipe", errno);
  struct sigaction action {};
  action.sa_handler = remember;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    sigaction(signal, nullptr, &present);
    // Whoever started the tool may want it to live on.
    if (present.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
  // A file that grows beyond its limit then fails like a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
}

void throwIfInterrupted() {
  if (receivedSignal != 0) throw Interrupted{receivedSignal};
}

int interruptDescriptor() { return wakeUp[0]; }

void waitForInput(int descriptor) {
  // Without a pipe there is no handler either; poll passes -1 by.
  std::array<pollfd, 2> awaited = {{{descriptor, POLLIN, 0}, {wakeUp[0], POLLIN, 0}}};
  int ready = 0;
  do {
    throwIfInterrupted();
    ready = poll(awaited.data(), awaited.size(), descriptor < 0 ? 0 : -1);
  } while (ready < 0 && errno == EINTR);
  throwIfInterrupted();
}

}  // namespace zorvel
