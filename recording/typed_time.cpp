#include "recording/typed_time.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string_view>

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

}  // namespace

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
