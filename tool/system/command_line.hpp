#ifndef ZORVEL_TOOL_SYSTEM_COMMAND_LINE_HPP
#define ZORVEL_TOOL_SYSTEM_COMMAND_LINE_HPP

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "recording/printable.hpp"
#include "recording/typed_time.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zorvel {

// How commands describe themselves. The parser stays behind these two classes, as its header costs
// much to compile.

/// What is wrong with a command line, thrown while it is read or by the command that it runs.
class WrongUsage : public std::runtime_error {
 public:
  WrongUsage(const std::string& option, const std::string& problem)
      : std::runtime_error(option + ": " + problem) {}
};

/// An option of a command; one without dashes is a positional argument. A handle.
class Option {
 public:
  explicit Option(CLI::Option& option) : _option(&option) {}

  /// What --help calls its value.
  Option& type(const std::string& name);
  /// Lets --help show the value that the text or number has now.
  Option& showDefault();
  /// Lets --help show this as the value without the option.
  Option& showDefault(const std::string& text);
  Option& required();
  /// Not together with the option of that name, which was added before.
  Option& excludes(const std::string& name);
  /// Takes one of these.
  Option& oneOf(const std::vector<std::string>& values);
  /// For a list of texts: takes one each time that it is given.
  Option& repeatable();
  /// `problem` says what is wrong with a value, or nothing.
  Option& check(const std::function<std::string(const std::string&)>& problem);

  /// Whether the command line has it.
  bool isGiven() const;

 private:
  CLI::Option* _option;
};

/// A command, or the tool itself, whose options are read into variables. A handle.
class Command {
 public:
  /// Takes what was typed; throws WrongUsage.
  using TakeText = std::function<void(const std::string&)>;

  explicit Command(CLI::App& command) : _command(&command) {}

  void describe(const std::string& name, const std::string& description, const std::string& footer);
  /// --version, which prints the text.
  void addVersion(const std::string& text);
  Command addSubcommand(const std::string& name, const std::string& description,
                        const std::string& footer);
  void requireSubcommand();
  /// What the command does once its options are read.
  void setAction(const std::function<void()>& action);

  Option add(const std::string& names, std::string& text, const std::string& description);
  Option add(const std::string& names, std::optional<std::string>& text,
             const std::string& description);
  Option add(const std::string& names, std::vector<std::string>& texts,
             const std::string& description);
  Option add(const std::string& names, const TakeText& take, const std::string& description);
  Option addFlag(const std::string& names, bool& flag, const std::string& description);
  /// NaN is not between any two numbers.
  Option addNumber(const std::string& names, double& number, double lowest, double highest,
                   const std::string& description);
  Option addNumber(const std::string& names, std::optional<double>& number, double lowest,
                   double highest, const std::string& description);
  /// In decimal digits, also with leading zeros.
  template <typename Number>
  Option addWholeNumber(const std::string& names, Number& number, std::int64_t lowest,
                        std::int64_t highest, const std::string& description) {
    return add(
               names,
               [names, &number, lowest, highest](const std::string& text) {
                 number = static_cast<Number>(readWholeNumber(names, text, lowest, highest));
               },
               description)
        .type("N");
  }
  /// A time since second 0 of a recording, or an optional one.
  template <typename Duration>
  Option addTime(const std::string& name, Duration& time, const std::string& description) {
    return add(
               name,
               [name, &time](const std::string& text) {
                 const auto read = readSeconds(text);
                 if (!read) {
                   throw WrongUsage(name, inQuotes(text) + " is neither seconds nor like 1:23.5");
                 }
                 time = *read;
               },
               description)
        .type("TIME");
  }

  /// A length of time, or an optional one: above 0, or 0 too.
  template <typename Duration>
  Option addDuration(const std::string& name, Duration& time, bool canBeZero,
                     const std::string& description) {
    return add(
               name,
               [name, &time, canBeZero](const std::string& text) {
                 const auto read = readSeconds(text);
                 const Time::duration least(canBeZero ? 0 : 1);
                 if (!read || *read < least) {
                   throw WrongUsage(name,
                                    inQuotes(text) + (canBeZero ? " is not a number of seconds"
                                                                : " is not above 0 seconds"));
                 }
                 time = *read;
               },
               description)
        .type("SECONDS");
  }

  /// --person, which takes any number that a person can have.
  template <typename Number>
  Option addPerson(Number& person, const std::string& description) {
    return addWholeNumber("--person", person, std::numeric_limits<std::int32_t>::min(),
                          std::numeric_limits<std::int32_t>::max(), description);
  }
  /// -j,--jobs, as many as there are processors without it.
  void addJobs(unsigned int& jobs, const std::string& description);
  /// The recording to read, which every command that takes one calls the same.
  void addRecording(std::string& name);
  void addRecordings(std::vector<std::string>& names);
  /// -o,--output for a file; `what` begins its description, like "The recording to write".
  void addOutputFile(std::string& name, const std::string& what);

 private:
  static std::int64_t readWholeNumber(const std::string& names, const std::string& text,
                                      std::int64_t lowest, std::int64_t highest);

  CLI::App* _command;
};

}  // namespace zorvel

#endif
