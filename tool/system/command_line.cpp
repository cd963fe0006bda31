#include "system/command_line.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <numeric>
#include <string_view>
#include <utility>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

/// The fraction of a second, and "Z", that follow a date with time; in nanoseconds.
std::optional<Time::duration> readFraction(std::string_view text) {
  if (text == "Z") return Time::duration(0);
  if (text.size() < 3 || text.size() > 11 || text.front() != '.' || text.back() != 'Z') {
    return std::nullopt;
  }
  const std::string digits(text.substr(1, text.size() - 2));
  if (digits.find_first_not_of("0123456789") != digits.npos) return std::nullopt;
  return Time::duration(std::stoll(fmt::format("{:0<9}", digits)));
}

/// How many characters must be put in, taken out or changed to make the one of the other.
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

/// The one that was most likely meant, which may have been typed in part; empty when none is near.
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

}  // namespace

std::vector<const CLI::App*> subcommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* /*subcommand*/) { return true; });
}

const CLI::App* findSubcommand(const CLI::App& command, const std::string& name) {
  for (const auto* subcommand : subcommands(command)) {
    if (subcommand->get_name() == name) return subcommand;
  }
  return nullptr;
}

std::string fullName(const CLI::App& command) {
  std::string name = command.get_name();
  for (const auto* parent = command.get_parent(); parent != nullptr; parent = parent->get_parent())
    name.insert(0, parent->get_name() + ' ');
  return name;
}

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

CLI::Validator isBetween(double lowest, double highest) {
  const auto check = [=](const std::string& text) {
    double number = 0.0;
    if (CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest) {
      return std::string();
    }
    return fmt::format("{} is not a number from {} to {}", inQuotes(text), lowest, highest);
  };
  return {check, ""};
}

CLI::Validator wholeNumber(std::int64_t lowest, std::int64_t highest) {
  const auto transform = [=](std::string& text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end || number < lowest || number > highest) {
      return fmt::format("{} is not a whole number from {} to {}", inQuotes(text), lowest, highest);
    }
    text = std::to_string(number);
    return std::string();
  };
  return {transform, ""};
}

void addRecording(CLI::App& command, std::string& name) {
  command.add_option("RECORDING", name, "The recording; - reads standard input")->required();
}

void addOutputFile(CLI::App& command, std::string& name, const std::string& what) {
  command
      .add_option("-o,--output", name,
                  what + "; it appears when it is whole. - writes to standard output")
      ->type_name("FILE")
      ->capture_default_str();
}

std::optional<Time::duration> readTimeSinceStart(const std::string& text) {
  double seconds = 0.0;
  const char* position = text.data();
  const char* const end = position + text.size();
  for (int part = 0; part < 3; ++part) {
    double number = 0.0;
    const auto read = std::from_chars(position, end, number, std::chars_format::fixed);
    if (read.ec != std::errc() || !std::isfinite(number) || number < 0.0) return std::nullopt;
    if (part > 0 && number >= 60.0) return std::nullopt;
    if (read.ptr != end && number != std::floor(number)) return std::nullopt;
    seconds = seconds * 60.0 + number;
    if (read.ptr == end) {
      if (seconds > 1e9) return std::nullopt;
      return Time::duration(std::llround(seconds * 1e9));
    }
    if (*read.ptr != ':') return std::nullopt;
    position = read.ptr + 1;
  }
  return std::nullopt;
}

std::optional<Time> readDate(const std::string& text) {
  using boost::chrono::seconds;
  const char* const end = text.data() + text.size();
  std::int64_t count = 0;
  const auto number = std::from_chars(text.data(), end, count);
  Time::duration time(count);
  if (number.ptr != end || number.ec != std::errc()) {
    std::tm date{};
    const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &date);
    if (rest == nullptr) return std::nullopt;
    const seconds whole(timegm(&date));
    const auto latest = boost::chrono::duration_cast<seconds>(latestTime);
    if (whole < -latest || whole > latest) return std::nullopt;
    // A day that its month does not have has become one of the next; single digits are no ISO 8601.
    const auto same = fmt::format("{:%Y-%m-%dT%H:%M:%S}", fmt::gmtime(whole.count()));
    if (text.compare(0, text.size() - std::strlen(rest), same) != 0) return std::nullopt;
    const auto fraction = readFraction(rest);
    if (!fraction) return std::nullopt;
    time = whole + *fraction;
  }
  if (time < -latestTime || time > latestTime) return std::nullopt;
  return Time(time);
}

}  // namespace zorvel
