#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

/// The command that was asked for, and before it the commands that it is in.
std::vector<const CLI::App*> parsedCommands(const CLI::App& tool) {
  std::vector<const CLI::App*> commands{&tool};
  while (!commands.back()->get_subcommands().empty())
    commands.push_back(commands.back()->get_subcommands().front());
  return commands;
}

/// What is wrong: a word that no command knows, or else what the parser says.
std::string describe(const CLI::ParseError& error, const std::vector<const CLI::App*>& commands) {
  for (const auto* command : commands) {
    for (const auto& word : command->remaining()) {
      if (!word.empty() && word != "--") return zorvel::describeUnknown(*command, word);
    }
  }
  return error.what();
}

/// The parser's messages quote what was typed, however long.
std::string withShortQuotes(std::string message, const std::vector<std::string>& arguments) {
  for (const auto& argument : arguments) {
    for (const auto& value : {argument, argument.substr(argument.find('=') + 1)}) {
      if (value.size() > zorvel::longestQuote)
        boost::replace_all(message, value, zorvel::inQuotes(value));
    }
  }
  return zorvel::printable(message);
}

int run(int argumentCount, char** arguments) {
  CLI::App tool;
  zorvel::addCommands(tool);
  try {
    tool.parse(argumentCount, arguments);
  } catch (const CLI::Success& help) {
    tool.exit(help);
  } catch (const CLI::ParseError& error) {
    const auto commands = parsedCommands(tool);
    fmt::print(stderr, "zorvel: {}\nTry \"{} --help\".\n",
               withShortQuotes(describe(error, commands), {arguments, arguments + argumentCount}),
               zorvel::fullName(*commands.back()));
    return wrongUsage;
  }
  return EXIT_SUCCESS;
}

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
