#include "system/warnings.hpp"

#include <fmt/format.h>

#include <cstddef>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

constexpr std::size_t shownWarnings = 8;

}  // namespace

void printWarnings(const std::string& recording, const std::vector<Finding>& findings) {
  std::size_t warnings = 0;
  for (const Finding& finding : findings) {
    if (!finding.isWarning || ++warnings > shownWarnings) continue;
    fmt::print(stderr, "{}: warning: {}\n", printable(recording), finding.text);
  }
  if (warnings > shownWarnings) {
    fmt::print(stderr, "{}: and {} more; zorvel info tells them all\n", printable(recording),
               warnings - shownWarnings);
  }
}

}  // namespace zorvel
