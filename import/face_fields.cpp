#include "import/face_fields.hpp"

#include <fmt/format.h>
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

LandmarkColumns::LandmarkColumns(const CsvReader& rows) {
  // Eye corners, brow ends, nose and mouth corners, in the order of a recording's points.
  constexpr std::array<int, 12> used = {36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54};
  for (std::size_t index = 0; index < columnCount; ++index) {
    _names.at(index) = fmt::format("{}_{}", index % 2 == 0 ? "x" : "y", used.at(index / 2));
    _columns.at(index) = rows.findExactly(_names.at(index));
  }
}

std::string LandmarkColumns::missing() const { return missingColumns(_names, _columns); }

std::optional<ZV::FacialPoints> LandmarkColumns::read(const CsvReader& rows,
                                                      float confidence) const {
  const auto coordinate = [&](std::size_t index) {
    const CsvReader::Column column = _columns.at(index);
    return column ? rows.number(column) : 0.0;
  };
  ZV::FacialPoints points;
  for (std::size_t point = 0; point < columnCount / 2; ++point) {
    const auto x = coordinate(2 * point);
    const auto y = coordinate(2 * point + 1);
    if (!x || !y) return std::nullopt;
    points.setFacialPoint(static_cast<ZV::PointDescription>(point),
                          {{narrowed(*x), narrowed(*y)}, confidence});
  }
  return points;
}

}  // namespace zorvel
