#ifndef ZORVEL_IMPORT_FACE_FIELDS_HPP
#define ZORVEL_IMPORT_FACE_FIELDS_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>
#include <zv/person_observation.hpp>

#include "import/csv_reader.hpp"

namespace zorvel {

// What the file formats share. All is computed in double and narrowed when it becomes a field.

inline float narrowed(double value) { return static_cast<float>(value); }

inline double clipped(double value) { return std::clamp(value, 0.0, 1.0); }

inline double degrees(double radians) { return radians * (180.0 / 3.14159265358979323846); }

/// Sets a field of a face; its time is that of the frame, which is not over yet.
template <typename T>
void set(ZV::PersonObservation::Field<T>& field, const T& value) {
  field.emplace(ku::SystemClock::time_point(), value);
}

/// Says which of the columns are missing, at most the first few by name; empty when all are there.
std::string describeMissing(const std::vector<std::string>& names);

template <typename Name, std::size_t count>
std::string missingColumns(const std::array<Name, count>& names,
                           const std::array<CsvReader::Column, count>& columns) {
  std::vector<std::string> missing;
  for (std::size_t index = 0; index < count; ++index) {
    if (!columns.at(index)) missing.emplace_back(names.at(index));
  }
  return describeMissing(missing);
}

/// The expressions that both formats give, all with the confidence of the face.
inline ZV::Expressions expressionsOf(double calm, double anger, double joy, double sorrow,
                                     double surprise, float confidence) {
  ZV::Expressions shown;
  shown.calm = {narrowed(calm), confidence};
  shown.anger = {narrowed(anger), confidence};
  shown.joy = {narrowed(joy), confidence};
  shown.sorrow = {narrowed(sorrow), confidence};
  shown.surprise = {narrowed(surprise), confidence};
  return shown;
}

/// The columns of the twelve landmarks that are used, out of the usual 68. Their names are taken
/// exactly: "x_36" is in pixels and "X_36" in millimetres.
class LandmarkColumns {
 public:
  explicit LandmarkColumns(const CsvReader& rows);

  /// Says which are missing; empty when all are there.
  std::string missing() const;

  /// The landmarks in the present row; none when a cell is empty. One without columns is at (0, 0).
  std::optional<ZV::FacialPoints> read(const CsvReader& rows, float confidence) const;

 private:
  /// x and y of each point in turn.
  static constexpr std::size_t columnCount = 24;
  std::array<std::string, columnCount> _names;
  std::array<CsvReader::Column, columnCount> _columns;
};

}  // namespace zorvel

#endif
