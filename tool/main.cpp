#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "commands.hpp"
#include "failure.hpp"
#include "interrupt.hpp"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

int run(int argumentCount, char** arguments) {
  CLI::App tool(
      "Estimates the emotional state of the persons a robot perceives.\n"
      "Exit status: 0 done, 1 the data or the system failed, 2 wrong usage.",
      "zorvel");
  tool.set_version_flag("--version", "zorvel " ZORVEL_VERSION);
  tool.require_subcommand(1);
  tool.failure_message(CLI::FailureMessage::help);
  zorvel::addReplay(tool);
  zorvel::addTypes(tool);
  try {
    tool.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return tool.exit(error) == 0 ? EXIT_SUCCESS : wrongUsage;
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    const int status = run(argumentCount, arguments);
    if (std::fflush(stdout) != 0) throw zorvel::systemFailure("standard output", errno);
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
