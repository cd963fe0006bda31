#ifndef ZORVEL_TOOL_SYSTEM_COMMAND_LINE_HPP
#define ZORVEL_TOOL_SYSTEM_COMMAND_LINE_HPP

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recording/event.hpp"
#include "recording/printable.hpp"

namespace zorvel {

// What the command lines of several commands have in common.

/// The subcommands of a command, in the order in which they were added.
std::vector<const CLI::App*> subcommands(const CLI::App& command);

/// The subcommand of that name; none when the command has no such.
const CLI::App* findSubcommand(const CLI::App& command, const std::string& name);

/// As it is typed: with the names of the commands that it is in.
std::string fullName(const CLI::App& command);

/// Tells that the command does not know the word, and what is nearest to it if anything is near.
std::string describeUnknown(const CLI::App& command, const std::string& word);

/// Takes a number from `lowest` to `highest`; NaN is not one.
CLI::Validator isBetween(double lowest, double highest);

/// Takes a whole number in decimal digits from `lowest` to `highest`. A transformation: leading
/// zeros, which would make the number octal, are gone after it.
CLI::Validator wholeNumber(std::int64_t lowest, std::int64_t highest);

/// Reads a time since the start of a recording: seconds, or minutes and seconds, or hours, minutes
/// and seconds, to the nearest nanosecond; none when it is none of them or too long for a
/// recording.
std::optional<Time::duration> readTimeSinceStart(const std::string& text);

/// Reads nanoseconds since 1970, or a date with time in ISO 8601; none when it is neither or out of
/// a recording's range.
std::optional<Time> readDate(const std::string& text);

/// The recording to read, which every command that takes one calls the same.
void addRecording(CLI::App& command, std::string& name);

/// -o,--output for a file; `what` begins its description, like "The recording to write".
void addOutputFile(CLI::App& command, std::string& name, const std::string& what);

/// An option that takes a time since the start of a recording. `Duration` is Time::duration, or an
/// optional one.
template <typename Duration>
CLI::Option* addTimeOption(CLI::App& command, const std::string& name, Duration& time,
                           const std::string& description) {
  return command
      .add_option_function<std::string>(
          name,
          [name, &time](const std::string& text) {
            const auto read = readTimeSinceStart(text);
            if (!read) {
              throw CLI::ValidationError(name,
                                         inQuotes(text) + " is neither seconds nor like 1:23.5");
            }
            time = *read;
          },
          description)
      ->type_name("TIME");
}

}  // namespace zorvel

#endif
