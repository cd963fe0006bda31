#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>

#include "import/face_fields.hpp"
#include "import/face_frames.hpp"
#include "import/importer.hpp"

namespace zorvel {
namespace {

using namespace std::string_view_literals;

constexpr double millimetresPerMetre = 1000.0;

constexpr std::array positionColumns{"pose_Tx"sv, "pose_Ty"sv, "pose_Tz"sv};
constexpr std::array rotationColumns{"pose_Rx"sv, "pose_Ry"sv, "pose_Rz"sv};
constexpr std::array gazeColumns{"gaze_angle_x"sv, "gaze_angle_y"sv};
constexpr std::array smileColumn{"AU12_r"sv};
constexpr std::array expressionColumns{"AU01_r"sv, "AU02_r"sv, "AU04_r"sv, "AU05_r"sv, "AU06_r"sv,
                                       "AU07_r"sv, "AU12_r"sv, "AU15_r"sv, "AU23_r"sv, "AU26_r"sv};

/// Reads the rows that OpenFace 2.x writes.
class OpenFaceImport {
 public:
  static constexpr std::string_view noFace = "\"success\" is not 1";

  /// Throws Failure when the file lacks columns of the format.
  OpenFaceImport(const CsvReader& rows, const ImportOptions& options)
      : _rows(rows), _options(options) {}

  void readRow(FaceFrames& frames) {
    readTime(frames);
    // In a row without a face, the other cells are stale or noise.
    if (_rows.number(_success) != 1.0) return;
    const std::int32_t person = _faceId ? _rows.requiredInteger32(_faceId) : 0;
    if (!frames.add(person, face())) {
      _rows.fail(_faceId, fmt::format("a second row of person {} at one time", person));
    }
  }

  void finish(FaceFrames& frames) {
    if (_heldFrame && !_isDecided) setTime(frames, *_heldFrame, 0.0);
    frames.finish();
  }

  std::vector<ImportedField> fields() const {
    return {{"distance", missingColumns(positionColumns, _position)},
            {"headPosture", missingColumns(rotationColumns, _rotation)},
            {"gaze", missingColumns(gazeColumns, _gazeAngles)},
            {"smile", missingColumns(smileColumn, _smileUnit)},
            {"expressions", missingColumns(expressionColumns, _expressionUnits)},
            {"facialPoints", _landmarks.missing()}};
  }

  bool hasTimestamps() const { return !_isImageSequence; }

 private:
  void readTime(FaceFrames& frames) {
    const double frame = _rows.requiredNumber(_frame);
    const double timestamp = _rows.requiredNumber(_timestamp);
    if (!_isDecided) {
      if (timestamp == 0.0 && frame == _heldFrame.value_or(frame)) {
        _heldFrame = frame;
        if (frame == 1.0) setTime(frames, frame, timestamp);
        return;
      }
      _isDecided = true;
      _isImageSequence = timestamp == 0.0;
      if (_heldFrame) setTime(frames, *_heldFrame, 0.0);
    }
    if (_isImageSequence && timestamp != 0.0) {
      _rows.fail(_timestamp, "is not 0, as it is in the rows before");
    }
    setTime(frames, frame, timestamp);
  }

  void setTime(FaceFrames& frames, double frame, double timestamp) const {
    if (!_isImageSequence) {
      frames.setTime(timestamp, _timestamp);
    } else if (_options.framesPerSecond) {
      frames.setTime((frame - 1.0) / *_options.framesPerSecond, _frame);
    } else if (frame == 1.0) {
      // The first frame is at 0 whatever the rate.
      frames.setTime(0.0, _frame);
    } else {
      _rows.fail(_timestamp, "every timestamp is 0; --fps must give the frames per second");
    }
  }

  ZV::PersonObservation face() const {
    ZV::PersonObservation face;
    set(face.faceDetected, true);

    // Straight into the camera is 0 in the recording; in OpenFace, along the camera's axis is.
    double cameraYaw = 0.0;
    double cameraPitch = 0.0;
    const auto position = _rows.numbers(_position);
    if (position && position->at(2) > 0.0) {
      const auto [x, y, z] = *position;
      set(face.distance, narrowed(z / millimetresPerMetre));
      cameraYaw = degrees(std::atan2(x, z));
      cameraPitch = degrees(std::atan2(y, z));
    }
    const double side = _options.mirrored ? -1.0 : 1.0;
    if (const auto rotation = _rows.numbers(_rotation)) {
      const auto [x, y, z] = *rotation;
      set(face.headPosture,
          ZV::HeadPosture(narrowed(side * (degrees(y) - cameraYaw)),
                          narrowed(-degrees(x) - cameraPitch), narrowed(side * degrees(z))));
    }
    if (const auto angles = _rows.numbers(_gazeAngles)) {
      const auto [x, y] = *angles;
      set(face.gaze, ZV::Gaze(narrowed(side * (-degrees(x) - cameraYaw)),
                              narrowed(-degrees(y) - cameraPitch)));
    }

    const auto confidence = _rows.number(_confidence);
    if (!confidence) return face;
    const float held = narrowed(clipped(*confidence));
    if (const auto unit = _rows.numbers(_smileUnit)) {
      set(face.smile, ZV::Smile(narrowed(intensity(unit->front())), held));
    }
    if (const auto units = _rows.numbers(_expressionUnits)) {
      set(face.expressions, expressions(*units, held));
    }
    if (const auto landmarks = _landmarks.read(_rows, held)) set(face.facialPoints, *landmarks);
    return face;
  }

  double intensity(double unit) const { return clipped(unit / _options.fullIntensity); }

  /// By the published emotion prototypes (EMFACS, Ekman and Friesen).
  ZV::Expressions expressions(const std::array<double, 10>& units, float confidence) const {
    std::array<double, 10> intensities{};
    std::transform(units.begin(), units.end(), intensities.begin(),
                   [this](double unit) { return intensity(unit); });
    const auto [a1, a2, a4, a5, a6, a7, a12, a15, a23, a26] = intensities;
    const double joy = (a6 + a12) / 2.0;
    const double anger = (a4 + a5 + a7 + a23) / 4.0;
    const double sorrow = (a1 + a4 + a15) / 3.0;
    const double surprise = (a1 + a2 + a5 + a26) / 4.0;
    const double calm = 1.0 - std::max({joy, anger, sorrow, surprise});
    return expressionsOf(calm, anger, joy, sorrow, surprise, confidence);
  }

  const CsvReader& _rows;
  const ImportOptions& _options;

  CsvReader::Column _frame = _rows.get("frame");
  CsvReader::Column _timestamp = _rows.get("timestamp");
  CsvReader::Column _confidence = _rows.get("confidence");
  CsvReader::Column _success = _rows.get("success");
  CsvReader::Column _faceId = _rows.find("face_id");
  std::array<CsvReader::Column, 3> _position = _rows.findAll(positionColumns);
  std::array<CsvReader::Column, 3> _rotation = _rows.findAll(rotationColumns);
  std::array<CsvReader::Column, 2> _gazeAngles = _rows.findAll(gazeColumns);
  std::array<CsvReader::Column, 1> _smileUnit = _rows.findAll(smileColumn);
  std::array<CsvReader::Column, 10> _expressionUnits = _rows.findAll(expressionColumns);
  LandmarkColumns _landmarks{_rows};

  // Whether every timestamp is 0 shows in the second frame; until then the first is held back.
  std::optional<double> _heldFrame;
  bool _isDecided = false;
  bool _isImageSequence = true;
};

}  // namespace

ImportFacts importOpenFace(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                           const std::function<void()>& onProgress) {
  return importRows<OpenFaceImport>(rows, options, use, onProgress);
}

}  // namespace zorvel
