#include "import/face_fields.hpp"

#include <fmt/ranges.h>

namespace zorvel {

std::string describeMissing(const std::vector<std::string>& names) {
  constexpr std::size_t mostNamed = 10;
  if (names.empty()) return {};
  if (names.size() == 1) return fmt::format("column {} is missing", names.front());
  const std::size_t named = std::min(names.size(), mostNamed);
  std::string list = fmt::format(
      "columns {}",
      fmt::join(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(named), ", "));
  if (named < names.size()) list += fmt::format(" and {} more", names.size() - named);
  return list + " are missing";
}

}  // namespace zorvel
