// Writes the manual page and the completion of bash to standard output. Both come from the
// descriptions that --help prints, so that they always say the same.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>
#include <zv/version.hpp>

#include "run.hpp"

namespace {

using zorvel::fullName;
using zorvel::subcommands;

using Lines = std::vector<std::string>;

/// The text under an app's options: paragraphs, and the blocks with a heading of their own.
struct Footer {
  Lines text;
  Lines exitStatus;
  Lines examples;
};

Footer readFooter(const CLI::App& command) {
  Footer footer;
  Lines* lines = &footer.text;
  std::istringstream text(command.get_footer());
  for (std::string line; std::getline(text, line);) {
    if (line == "Exit status:") {
      lines = &footer.exitStatus;
    } else if (line == "Example:" || line == "Examples:") {
      lines = &footer.examples;
    } else {
      lines->push_back(line);
    }
  }
  return footer;
}

/// The subcommands of the tool, each followed by its own.
std::vector<const CLI::App*> allSubcommands(const CLI::App& tool) {
  auto commands = subcommands(tool);
  for (std::ptrdiff_t at = 0; at < std::distance(commands.begin(), commands.end()); ++at) {
    const auto position = std::next(commands.begin(), at);
    const auto own = subcommands(**position);
    commands.insert(std::next(position), own.begin(), own.end());
  }
  return commands;
}

std::string escaped(const std::string& text) {
  std::string result;
  for (const char character : text) {
    // At the beginning of a line these two make it a request.
    if (result.empty() && (character == '.' || character == '\'')) result += "\\&";
    if (character == '-') result += '\\';
    if (character == '\\') {
      result += "\\e";
    } else {
      result += character;
    }
  }
  return result;
}

void printLiterally(const Lines& lines) {
  fmt::print(".PP\n.EX\n");
  for (const auto& line : lines) fmt::print("{}\n", escaped(line));
  fmt::print(".EE\n");
}

/// Paragraphs are refilled; "  term  explanation", with further lines deeper, is a list; other
/// lines that begin with blanks stay as they are.
void printText(const Lines& lines) {
  Lines literal;
  const auto endLiteral = [&literal] {
    if (!literal.empty()) printLiterally(literal);
    literal.clear();
  };
  enum class Block { None, Paragraph, List } block = Block::None;
  for (const auto& line : lines) {
    const std::size_t text = line.find_first_not_of(' ');
    if (text == std::string::npos) {
      endLiteral();
      block = Block::None;
    } else if (text == 0) {
      endLiteral();
      if (block != Block::Paragraph) fmt::print(".PP\n");
      block = Block::Paragraph;
      fmt::print("{}\n", escaped(line));
    } else if (const auto gap = line.find("  ", text); gap != std::string::npos) {
      endLiteral();
      block = Block::List;
      fmt::print(".TP\n.B {}\n{}\n", escaped(line.substr(text, gap - text)),
                 escaped(line.substr(line.find_first_not_of(' ', gap))));
    } else if (block == Block::List) {
      fmt::print("{}\n", escaped(line.substr(text)));
    } else {
      block = Block::None;
      literal.push_back(line);
    }
  }
  endLiteral();
}

void printOptions(const CLI::App& command) {
  const CLI::Formatter formatter;
  for (const auto* option : command.get_options()) {
    if (option == command.get_help_ptr() && command.get_parent() != nullptr) continue;
    fmt::print(".TP\n\\fB{}\\fR{}\n{}\n",
               escaped(formatter.make_option_name(option, option->get_positional())),
               escaped(formatter.make_option_opts(option)), escaped(option->get_description()));
  }
}

void printSynopsis(const CLI::App& command) {
  const CLI::Formatter formatter;
  std::string arguments = " [OPTIONS]";
  for (const auto* option : command.get_options()) {
    if (option->get_positional()) arguments += ' ' + formatter.make_option_usage(option);
  }
  fmt::print("\\fB{}\\fR{}\n", escaped(fullName(command)), escaped(arguments));
}

void printManualPage(const CLI::App& tool) {
  std::string summary = tool.get_description();
  summary.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(summary.front())));
  const Footer footer = readFooter(tool);

  fmt::print(".TH zorvel 1 \"\" \"zorvel {}\" \"User Commands\"\n.SH NAME\nzorvel \\- {}\n",
             ZV_VERSION, escaped(summary));
  fmt::print(".SH SYNOPSIS\n");
  for (const auto* command : allSubcommands(tool)) {
    if (!subcommands(*command).empty()) continue;
    printSynopsis(*command);
    fmt::print(".br\n");
  }
  fmt::print(".SH DESCRIPTION\n{}.\n", escaped(tool.get_description()));
  printText(footer.text);
  fmt::print(".SH OPTIONS\n");
  printOptions(tool);
  fmt::print(".SH SUBCOMMANDS\n");
  for (const auto* command : allSubcommands(tool)) {
    fmt::print(".SS {}\n{}.\n", escaped(fullName(*command)), escaped(command->get_description()));
    printOptions(*command);
    printText(readFooter(*command).text);
  }
  fmt::print(".SH EXIT STATUS\n");
  printText(footer.exitStatus);
  fmt::print(".SH EXAMPLES\n");
  Lines examples = footer.examples;
  for (const auto* command : allSubcommands(tool)) {
    for (const auto& line : readFooter(*command).examples) {
      // A command and its subcommand may share one.
      if (std::find(examples.begin(), examples.end(), line) == examples.end())
        examples.push_back(line);
    }
  }
  printLiterally(examples);
}

/// What can follow the command: its subcommands, and its options by their long names.
std::string words(const CLI::App& command) {
  std::string result;
  for (const auto* subcommand : subcommands(command)) result += subcommand->get_name() + ' ';
  for (const auto* option : command.get_options()) {
    for (const auto& name : option->get_lnames()) result += "--" + name + ' ';
  }
  result.pop_back();
  return result;
}

/// The values that an option can take, which its type lists in braces; empty when it takes others.
std::string values(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t begin = type.find('{');
  if (begin == std::string::npos) return "";
  std::string list = type.substr(begin + 1, type.find('}') - begin - 1);
  std::replace(list.begin(), list.end(), ',', ' ');
  return list;
}

void printCompletion(const CLI::App& tool) {
  std::string names;
  std::string valueCases;
  std::string cases = fmt::format("    zorvel) words='{}' ;;\n", words(tool));
  for (const auto* command : allSubcommands(tool)) {
    const std::string name = fullName(*command);
    for (const auto* option : command->get_options()) {
      const std::string list = values(*option);
      if (list.empty()) continue;
      for (const auto& longName : option->get_lnames())
        valueCases += fmt::format("    '{} --{}') words='{}' ;;\n", name, longName, list);
    }
    // After "help" come the same words as without it.
    if (command->get_name() == "help") continue;
    names += fmt::format("{}'{}'", names.empty() ? "" : " | ", name);
    cases += fmt::format("    '{}') words='{}' ;;\n", name, words(*command));
  }
  fmt::print(R"(# Completion of zorvel's subcommands, their options with their values, and files.
_zorvel() {{
  local command=zorvel words word=${{COMP_WORDS[COMP_CWORD]}} before last=${{COMP_WORDS[COMP_CWORD-1]}}
  for before in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case "$command $before" in
      {}) command+=" $before" ;;
    esac
  done
  # In --option=value the sign is a word of its own.
  if [[ $word == = ]]; then
    word=
  elif [[ $last == = ]]; then
    last=${{COMP_WORDS[COMP_CWORD-2]}}
  fi
  COMPREPLY=()
  case "$command $last" in
{}    *) last= ;;
  esac
  if [[ $last ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$word"))
    return
  fi
  case $command in
{}  esac
  # Nothing to offer leaves the word to the completion of files.
  if [[ $word == -* || $words != -* ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$word"))
  fi
}}
complete -o default -F _zorvel zorvel
)",
             names, valueCases, cases);
}

}  // namespace

// An exception ends the build.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argumentCount, char** arguments) {
  CLI::App tool;
  zorvel::describeTool(tool);
  const std::string wanted = argumentCount == 2 ? arguments[1] : "";
  if (wanted == "manual") {
    printManualPage(tool);
  } else if (wanted == "completion") {
    printCompletion(tool);
  } else {
    fmt::print(stderr, "usage: documentation manual|completion\n");
    return 2;
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
