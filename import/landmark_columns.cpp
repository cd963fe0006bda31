#include "import/landmark_columns.hpp"

#include <fmt/format.h>

#include "import/face_fields.hpp"

namespace zorvel {

LandmarkColumns::LandmarkColumns(const CsvReader& rows) {
  // Eye corners, brow ends, nose and mouth corners, in the order of a recording's points.
  constexpr std::array<int, 12> used = {36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54};
  for (std::size_t point = 0; point < used.size(); ++point) {
    _x.at(point) = rows.find(fmt::format("x_{}", used.at(point)));
    _y.at(point) = rows.find(fmt::format("y_{}", used.at(point)));
  }
}

std::optional<ZV::FacialPoints> LandmarkColumns::read(const CsvReader& rows,
                                                      float confidence) const {
  const auto coordinate = [&rows](CsvReader::Column column) {
    return column ? rows.number(column) : 0.0;
  };
  ZV::FacialPoints points;
  for (std::size_t point = 0; point < _x.size(); ++point) {
    const auto x = coordinate(_x.at(point));
    const auto y = coordinate(_y.at(point));
    if (!x || !y) return std::nullopt;
    points.setFacialPoint(static_cast<ZV::PointDescription>(point),
                          {{narrowed(*x), narrowed(*y)}, confidence});
  }
  return points;
}

}  // namespace zorvel
