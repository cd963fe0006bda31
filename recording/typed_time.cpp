#include "recording/typed_time.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>

namespace zorvel {
namespace {

/// The decimals of a second, to the nearest nanosecond.
std::optional<Time::duration> readDecimals(std::string_view digits) {
  if (digits.find_first_not_of("0123456789") != digits.npos) return std::nullopt;
  const bool isRoundedUp = digits.size() > 9 && digits[9] >= '5';
  return Time::duration(std::stoll(fmt::format("{:0<9.9}", digits)) + (isRoundedUp ? 1 : 0));
}

/// The fraction of a second, and "Z", that follow a date with time; in nanoseconds.
std::optional<Time::duration> readFraction(std::string_view text) {
  if (text == "Z") return Time::duration(0);
  if (text.size() < 3 || text.size() > 11 || text.front() != '.' || text.back() != 'Z') {
    return std::nullopt;
  }
  return readDecimals(text.substr(1, text.size() - 2));
}

}  // namespace

std::optional<Time::duration> readSeconds(std::string_view text) {
  constexpr std::int64_t second = 1'000'000'000;
  constexpr std::uint64_t limit = latestTime.count() / second;
  const bool isNegative = text.substr(0, 1) == "-";
  if (isNegative) text.remove_prefix(1);
  const std::size_t point = std::min(text.find('.'), text.size());
  const auto decimals = readDecimals(text.substr(std::min(point + 1, text.size())));
  std::string_view whole = text.substr(0, point);
  if (whole.empty() && point + 1 < text.size()) whole = "0";
  std::uint64_t seconds = 0;
  for (int part = 0; part < 3; ++part) {
    std::uint64_t number = 0;
    const auto read = std::from_chars(whole.data(), whole.data() + whole.size(), number);
    if (read.ec != std::errc() || (part > 0 && number >= 60)) return std::nullopt;
    seconds = seconds * 60 + number;
    if (!decimals || seconds >= limit) return std::nullopt;
    whole.remove_prefix(static_cast<std::size_t>(read.ptr - whole.data()));
    if (whole.empty()) {
      const auto time = Time::duration(static_cast<std::int64_t>(seconds) * second) + *decimals;
      return isNegative ? -time : time;
    }
    if (whole.front() != ':') return std::nullopt;
    whole.remove_prefix(1);
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
    // A day that its month lacks has become one of the next; single digits are not ISO 8601.
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
