#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "system/command_line.hpp"

namespace zorvel {

void addHelp(CLI::App& tool) {
  auto* const command = tool.add_subcommand("help", "Print what --help prints for a subcommand");
  command->footer(R"(Example:
  zorvel help import openface)");
  const auto words = std::make_shared<std::vector<std::string>>();
  command->add_option("SUBCOMMAND", *words, "The subcommand; none for the tool itself");
  command->callback([&tool, words] {
    const CLI::App* named = &tool;
    for (const auto& word : *words) {
      const CLI::App* const next = findSubcommand(*named, word);
      if (next == nullptr) throw CLI::ValidationError(describeUnknown(*named, word));
      named = next;
    }
    fmt::print("{}", named->get_formatter()->make_help(named, fullName(*named),
                                                       CLI::AppFormatMode::Normal));
  });
}

}  // namespace zorvel
