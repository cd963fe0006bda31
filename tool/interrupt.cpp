#include "interrupt.hpp"

#include <csignal>

namespace zorvel {
namespace {

volatile std::sig_atomic_t receivedSignal = 0;

void remember(int signal) { receivedSignal = signal; }

}  // namespace

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = remember;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void throwIfInterrupted() {
  if (receivedSignal != 0) throw Interrupted{receivedSignal};
}

}  // namespace zorvel
