#include "system/warnings.hpp"

#include <fmt/format.h>

#include <cstddef>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

constexpr std::size_t shownWarnings = 8;

}  // namespace

std::vector<std::string> warnings(const std::string& recording,
                                  const std::vector<Finding>& findings) {
  std::vector<std::string> lines;
  std::size_t count = 0;
  for (const Finding& finding : findings) {
    if (!finding.isWarning || ++count > shownWarnings) continue;
    lines.push_back(fmt::format("{}: warning: {}", printable(recording), finding.text));
  }
  if (count > shownWarnings) {
    lines.push_back(fmt::format("{}: and {} more; zorvel info lists them all", printable(recording),
                                count - shownWarnings));
  }
  return lines;
}

void printWarnings(const std::string& recording, const std::vector<Finding>& findings) {
  for (const std::string& line : warnings(recording, findings)) fmt::print(stderr, "{}\n", line);
}

}  // namespace zorvel
