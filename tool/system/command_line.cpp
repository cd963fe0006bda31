#include "system/command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <thread>

namespace zorvel {
namespace {

CLI::Validator isBetween(double lowest, double highest) {
  const auto problem = [=](const std::string& text) {
    double number = 0.0;
    if (CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest) {
      return std::string();
    }
    return fmt::format("{} is not a number from {} to {}", inQuotes(text), lowest, highest);
  };
  return {problem, ""};
}

}  // namespace

Option& Option::type(const std::string& name) {
  _option->type_name(name);
  return *this;
}

Option& Option::showDefault() {
  _option->capture_default_str();
  return *this;
}

Option& Option::showDefault(const std::string& text) {
  _option->default_str(text);
  return *this;
}

Option& Option::required() {
  _option->required();
  return *this;
}

Option& Option::excludes(const std::string& name) {
  _option->excludes(name);
  return *this;
}

Option& Option::oneOf(const std::vector<std::string>& values) {
  _option->check(CLI::IsMember(values));
  return *this;
}

Option& Option::repeatable() {
  _option->allow_extra_args(false);
  return *this;
}

Option& Option::check(const std::function<std::string(const std::string&)>& problem) {
  _option->check(problem);
  return *this;
}

bool Option::isGiven() const { return !_option->empty(); }

void Command::describe(const std::string& name, const std::string& description,
                       const std::string& footer) {
  _command->name(name);
  _command->description(description);
  _command->footer(footer);
}

void Command::addVersion(const std::string& text) {
  _command->set_version_flag("--version", text, "Print the version and exit");
}

Command Command::addSubcommand(const std::string& name, const std::string& description,
                               const std::string& footer) {
  CLI::App* const command = _command->add_subcommand(name, description);
  command->footer(footer);
  return Command(*command);
}

void Command::requireSubcommand() { _command->require_subcommand(1); }

void Command::setAction(const std::function<void()>& action) { _command->callback(action); }

Option Command::add(const std::string& names, std::string& text, const std::string& description) {
  return Option(*_command->add_option(names, text, description));
}

Option Command::add(const std::string& names, std::optional<std::string>& text,
                    const std::string& description) {
  return Option(*_command->add_option(names, text, description));
}

Option Command::add(const std::string& names, std::vector<std::string>& texts,
                    const std::string& description) {
  return Option(*_command->add_option(names, texts, description));
}

Option Command::add(const std::string& names, const TakeText& take,
                    const std::string& description) {
  return Option(*_command->add_option_function<std::string>(names, take, description));
}

Option Command::addFlag(const std::string& names, bool& flag, const std::string& description) {
  return Option(*_command->add_flag(names, flag, description));
}

Option Command::addNumber(const std::string& names, double& number, double lowest, double highest,
                          const std::string& description) {
  return Option(
      *_command->add_option(names, number, description)->check(isBetween(lowest, highest)));
}

Option Command::addNumber(const std::string& names, std::optional<double>& number, double lowest,
                          double highest, const std::string& description) {
  return Option(
      *_command->add_option(names, number, description)->check(isBetween(lowest, highest)));
}

void Command::addRecording(std::string& name) {
  add("RECORDING", name, "The recording; - reads standard input").required();
}

void Command::addRecordings(std::vector<std::string>& names) {
  add("RECORDING", names, "The recordings; - reads standard input").required();
}

void Command::addOutputFile(std::string& name, const std::string& what) {
  add("-o,--output", name, what + "; it appears when it is whole. - writes to standard output")
      .type("FILE")
      .showDefault();
}

void Command::addJobs(unsigned int& jobs, const std::string& description) {
  jobs = std::max(1U, std::thread::hardware_concurrency());
  addWholeNumber("-j,--jobs", jobs, 1, 10'000, description)
      .showDefault("as many as there are processors");
}

std::int64_t Command::readWholeNumber(const std::string& names, const std::string& text,
                                      std::int64_t lowest, std::int64_t highest) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  if (read.ec == std::errc() && read.ptr == end && number >= lowest && number <= highest) {
    return number;
  }
  const std::size_t comma = names.find(',');
  throw WrongUsage(
      comma == names.npos ? names : names.substr(comma + 1),
      fmt::format("{} is not a whole number from {} to {}", inQuotes(text), lowest, highest));
}

}  // namespace zorvel
