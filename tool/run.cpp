#include "run.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string_view>
#include <utility>

#include "commands.hpp"
#include "recording/printable.hpp"

namespace zorvel {

namespace {

constexpr int wrongUsage = 2;

/// How many characters must be inserted, deleted or changed to turn one into the other.
std::size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

/// The known word that was most likely meant, perhaps typed in part; empty when none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  std::size_t least = 2 + word.size() / 3;
  for (const auto& candidate : known) {
    const std::size_t distance =
        std::min(editDistance(word, candidate),
                 1 + editDistance(word, std::string_view(candidate).substr(0, word.size())));
    if (distance < least) best = candidate;
    least = std::min(least, distance);
  }
  return best;
}

/// Says that the command does not know the word, and what is nearest to it if anything is near.
std::string describeUnknown(const CLI::App& command, const std::string& word) {
  const bool isOption = word.size() > 1 && word.front() == '-';
  const std::string name = word.substr(0, isOption ? word.find('=') : word.npos);
  std::vector<std::string> known;
  if (isOption) {
    for (const auto* option : command.get_options()) {
      for (const auto& longName : option->get_lnames()) known.push_back("--" + longName);
    }
  } else {
    for (const auto* subcommand : subcommands(command)) known.push_back(subcommand->get_name());
  }
  const std::string meant = nearest(name, known);
  return fmt::format("{} {} of {}{}",
                     isOption        ? "unknown option"
                     : known.empty() ? "unexpected argument"
                                     : "unknown subcommand",
                     inQuotes(name), fullName(command),
                     meant.empty() ? "" : fmt::format("; did you mean {}?", meant));
}

/// The subcommand help, which prints what --help prints.
void addHelp(CLI::App& tool) {
  auto* const command = tool.add_subcommand("help", "Print what --help prints for a subcommand");
  command->footer(R"(Example:
  zorvel help import openface)");
  const auto words = std::make_shared<std::vector<std::string>>();
  command->add_option("SUBCOMMAND", *words, "The subcommand; none for the tool itself");
  command->callback([&tool, words] {
    const CLI::App* named = &tool;
    for (const auto& word : *words) {
      const auto known = subcommands(*named);
      const auto next = std::find_if(known.begin(), known.end(), [&word](const CLI::App* of) {
        return of->get_name() == word;
      });
      if (next == known.end()) throw CLI::ValidationError(describeUnknown(*named, word));
      named = *next;
    }
    fmt::print("{}", named->get_formatter()->make_help(named, fullName(*named),
                                                       CLI::AppFormatMode::Normal));
  });
}

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

void describeTool(CLI::App& tool) {
  addCommands(Command(tool));
  addHelp(tool);
}

std::vector<const CLI::App*> subcommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* /*subcommand*/) { return true; });
}

std::string fullName(const CLI::App& command) {
  std::string name = command.get_name();
  for (const auto* parent = command.get_parent(); parent != nullptr; parent = parent->get_parent())
    name.insert(0, parent->get_name() + ' ');
  return name;
}

int run(int argumentCount, char** arguments) {
  CLI::App tool;
  describeTool(tool);
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
