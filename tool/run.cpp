#include "run.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.hpp"
#include "help.hpp"
#include "recording/printable.hpp"

namespace zorvel {

namespace {

constexpr int wrongUsage = 2;

/// The command that was asked for, and before it the commands that it is in.
std::vector<const CLI::App*> parsedCommands(const CLI::App& tool) {
  std::vector<const CLI::App*> commands{&tool};
  while (!commands.back()->get_subcommands().empty())
    commands.push_back(commands.back()->get_subcommands().front());
  return commands;
}

/// What is wrong: a word that no command knows, or else what the parser or the command says.
std::string describe(const std::string& problem, const std::vector<const CLI::App*>& commands) {
  for (const auto* command : commands) {
    for (const auto& word : command->remaining()) {
      if (!word.empty() && word != "--") return describeUnknown(*command, word);
    }
  }
  return problem;
}

/// The parser's messages quote what was typed, however long.
std::string withShortQuotes(std::string message, const std::vector<std::string>& arguments) {
  for (const auto& argument : arguments) {
    for (const auto& value : {argument, argument.substr(argument.find('=') + 1)}) {
      if (value.size() > longestQuote) boost::replace_all(message, value, inQuotes(value));
    }
  }
  return printable(message);
}

}  // namespace

int run(int argumentCount, char** arguments) {
  CLI::App tool;
  addCommands(Command(tool));
  addHelp(tool);
  std::string problem;
  try {
    tool.parse(argumentCount, arguments);
    return EXIT_SUCCESS;
  } catch (const CLI::Success& help) {
    tool.exit(help);
    return EXIT_SUCCESS;
  } catch (const CLI::ParseError& error) {
    problem = error.what();
  } catch (const WrongUsage& error) {
    problem = error.what();
  }
  const auto commands = parsedCommands(tool);
  const auto message =
      withShortQuotes(describe(problem, commands), {arguments, arguments + argumentCount});
  std::fprintf(stderr, "zorvel: %s\nTry \"%s --help\".\n", message.c_str(),
               fullName(*commands.back()).c_str());
  return wrongUsage;
}

}  // namespace zorvel
