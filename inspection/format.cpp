#include "inspection/format.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace zorvel {

std::string formatCount(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string formatNumber(double number) {
  if (std::isnan(number)) return "not a number";
  const std::string digits = fmt::format("{:.4g}", std::round(std::abs(number) * 1e4) / 1e4);
  return number < 0.0 && digits != "0" ? "−" + digits : digits;
}

std::string formatDuration(std::int64_t nanoseconds) {
  struct Unit {
    double nanoseconds;
    std::string_view name;
  };
  // Each with the length from which it reads better than the next.
  constexpr std::array<std::pair<double, Unit>, 6> units{
      {{2 * 365.25 * 86400e9, {365.25 * 86400e9, "years"}},
       {2 * 86400e9, {86400e9, "days"}},
       {2 * 3600e9, {3600e9, "h"}},
       {1e9, {1e9, "s"}},
       {1e5, {1e6, "ms"}},
       {1e3, {1e3, "us"}}}};
  const auto length = static_cast<double>(nanoseconds);
  for (const auto& [from, unit] : units) {
    if (std::abs(length) >= from)
      return fmt::format("{:.1f} {}", length / unit.nanoseconds, unit.name);
  }
  return nanoseconds == 0 ? "0 s" : fmt::format("{} ns", nanoseconds);
}

std::string formatShare(std::uint64_t part, std::uint64_t whole) {
  if (whole == 0) return "0.0 %";
  const double percent = 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  if (percent > 0.0 && percent < 0.1) return "<0.1 %";
  if (percent < 100.0 && percent > 99.9) return ">99.9 %";
  return fmt::format("{:.1f} %", percent);
}

std::vector<std::string> formatWarnings(const RecordingAnnotation& annotation) {
  constexpr std::size_t most = 20;
  std::vector<std::string> warnings = annotation.leftOut();
  if (warnings.size() > most) {
    const std::string more = fmt::format("{} more are left out", warnings.size() - most);
    warnings.resize(most);
    warnings.push_back(more);
  }
  if (annotation.afterEnd() > std::max(most, annotation.scopes() / 2)) {
    warnings.insert(warnings.begin(),
                    fmt::format("{} of {} annotations begin after the end of the recording: "
                                "are they another film's?",
                                annotation.afterEnd(), annotation.scopes()));
  }
  const PartedRows parted = annotation.parted();
  if (parted.count == 0) return warnings;
  warnings.push_back(fmt::format(
      "removals or renamings part {} into {}, one for each visit of the person; the first is line "
      "{}",
      formatCount(parted.count, "row"), formatCount(parted.scopes, "scope"), parted.firstLine));
  return warnings;
}

}  // namespace zorvel
