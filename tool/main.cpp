#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "commands.hpp"
#include "recording/failure.hpp"
#include "system/interrupt.hpp"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

int run(int argumentCount, char** arguments) {
  CLI::App tool;
  zorvel::addCommands(tool);
  try {
    tool.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return tool.exit(error) == 0 ? EXIT_SUCCESS : wrongUsage;
  }
  return EXIT_SUCCESS;
}

/// Whoever started the tool may have closed them; without this the first files that it opens would
/// take their numbers. They stay useless, so that to read the one or to write the other fails;
/// messages may get lost.
void openStandardStreams() {
  constexpr std::array<int, 3> modes{O_WRONLY, O_RDONLY, O_WRONLY};
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", modes.at(descriptor));
  }
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    openStandardStreams();
    const int status = run(argumentCount, arguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
      throw zorvel::systemFailure("standard output", errno);
    return status;
  } catch (const zorvel::Interrupted& interrupted) {
    // Ends as the signal would have ended it, so that a calling script sees that.
    std::signal(interrupted.signal, SIG_DFL);
    std::raise(interrupted.signal);
  } catch (const std::exception& error) {
    fmt::print(stderr, "{}\n", error.what());
  }
  return failed;
}
