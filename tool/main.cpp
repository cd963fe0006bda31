#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "recording/failure.hpp"
#include "run.hpp"
#include "system/interrupt.hpp"

namespace {

constexpr int failed = 1;

/// The parent may have closed them, and the first files that the tool opens would take their
/// places. Each is opened the wrong way round, so that reading or writing it goes on failing.
void openStandardStreams() {
  constexpr std::array<int, 3> modes{O_WRONLY, O_RDONLY, O_WRONLY};
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0)
      open("/dev/null", modes.at(static_cast<std::size_t>(descriptor)));
  }
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    openStandardStreams();
    const int status = zorvel::run(argumentCount, arguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
      throw zorvel::systemFailure("standard output", errno);
    return status;
  } catch (const zorvel::Interrupted& interrupted) {
    // Ends as the signal would have ended it, so that a calling script sees that.
    std::signal(interrupted.signal, SIG_DFL);
    std::raise(interrupted.signal);
  } catch (const std::exception& error) {
    // Not by fmt, which would throw where nothing can be written.
    std::fprintf(stderr, "%s\n", error.what());
  }
  return failed;
}
