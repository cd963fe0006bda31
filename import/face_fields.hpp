#ifndef ZORVEL_IMPORT_FACE_FIELDS_HPP
#define ZORVEL_IMPORT_FACE_FIELDS_HPP

#include <algorithm>
#include <zv/person_observation.hpp>

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

}  // namespace zorvel

#endif
