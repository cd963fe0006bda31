#include "import/pyfeat.hpp"

#include <fmt/format.h>

#include <charconv>
#include <string_view>

#include "import/face_fields.hpp"

namespace zorvel {
namespace {

/// The rows, when they have the columns by which the format is known.
const CsvReader& recognised(const CsvReader& rows) {
  for (const char* const name : {"FaceRectX", "FaceScore", "Pitch", "frame"}) rows.get(name);
  return rows;
}

bool isSecondGeneration(const CsvReader& rows) {
  const bool isSecond = rows.find("Happy").has_value();
  if (isSecond == rows.find("happiness").has_value()) {
    rows.fail({}, R"(must have either the column "happiness" or the column "Happy")");
  }
  return isSecond;
}

}  // namespace

PyFeatImport::PyFeatImport(const CsvReader& rows, const ImportOptions& options)
    : _rows(recognised(rows)),
      _options(options),
      _isSecondGeneration(isSecondGeneration(rows)),
      _frame(rows.find("frame")),
      _score(rows.find("FaceScore")),
      _identity(rows.find("Identity")),
      _pose(rows.findAll("Yaw", "Pitch", "Roll")),
      _smileUnit(rows.find("AU12")),
      _emotions(_isSecondGeneration
                    ? rows.findAll("Neutral", "Anger", "Happy", "Sad", "Surprise")
                    : rows.findAll("neutral", "anger", "happiness", "sadness", "surprise")),
      _landmarks(rows) {}

void PyFeatImport::readRow(FaceFrames& frames) {
  frames.setTime(_rows.requiredNumber(_frame) / *_options.framesPerSecond, _frame);
  const auto score = _rows.number(_score);
  if (!score) return;
  const std::int32_t seen = person();
  if (!frames.add(seen, face(*score))) {
    _rows.fail(_identity, fmt::format("a second face of person {} in one frame; run py-feat with "
                                      "identities, so that it tells the persons apart",
                                      seen));
  }
}

/// The number at the end of "Person_3"; 0 when there is none.
std::int32_t PyFeatImport::person() const {
  std::string_view number = _rows.text(_identity);
  number.remove_prefix(number.find_last_not_of("0123456789") + 1);
  if (number.empty()) return 0;
  std::int32_t person = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), person);
  if (result.ec != std::errc()) {
    _rows.fail(_identity, fmt::format("{} is beyond a 32-bit integer", number));
  }
  return person;
}

ZV::PersonObservation PyFeatImport::face(double score) const {
  ZV::PersonObservation face;
  const float confidence = narrowed(clipped(score));
  set(face.faceDetected, true);
  if (const auto pose = _rows.numbers(_pose)) {
    auto [yaw, pitch, roll] = *pose;
    if (_isSecondGeneration) {
      // Radians, and pitch down whatever py-feat's own comment says.
      yaw = degrees(yaw);
      pitch = -degrees(pitch);
      roll = degrees(roll);
    }
    const double side = _options.mirrored ? -1.0 : 1.0;
    set(face.headPosture,
        ZV::HeadPosture(narrowed(side * yaw), narrowed(pitch), narrowed(side * roll)));
  }
  if (const auto unit = _rows.number(_smileUnit)) {
    set(face.smile, ZV::Smile(narrowed(clipped(*unit)), confidence));
  }
  if (const auto emotions = _rows.numbers(_emotions)) {
    const auto [calm, anger, joy, sorrow, surprise] = *emotions;
    set(face.expressions, expressionsOf(calm, anger, joy, sorrow, surprise, confidence));
  }
  if (const auto landmarks = _landmarks.read(_rows, confidence)) {
    set(face.facialPoints, *landmarks);
  }
  // The gaze is left out: py-feat's documents contradict each other on its sign.
  return face;
}

}  // namespace zorvel
