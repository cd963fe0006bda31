#include <fmt/format.h>

#include <array>
#include <charconv>
#include <string_view>

#include "import/face_fields.hpp"
#include "import/face_frames.hpp"
#include "import/importer.hpp"

namespace zorvel {
namespace {

using namespace std::string_view_literals;

constexpr std::array poseColumns{"Yaw"sv, "Pitch"sv, "Roll"sv};
constexpr std::array smileActionUnit{"AU12"sv};
constexpr std::array firstEmotionColumns{"neutral"sv, "anger"sv, "happiness"sv, "sadness"sv,
                                         "surprise"sv};
constexpr std::array secondEmotionColumns{"Neutral"sv, "Anger"sv, "Happy"sv, "Sad"sv, "Surprise"sv};

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

/// Reads the rows that py-feat writes, with a detector of its first or its second generation.
class PyFeatImport {
 public:
  static constexpr std::string_view noFace = "\"FaceScore\" is empty";

  /// Throws Failure when the file lacks columns of the format.
  PyFeatImport(const CsvReader& rows, const ImportOptions& options)
      : _rows(recognised(rows)), _options(options) {}

  void readRow(FaceFrames& frames) {
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

  static void finish(FaceFrames& frames) { frames.finish(); }
  static bool hasTimestamps() { return false; }

  std::vector<ImportedField> fields() const {
    return {{"distance", "py-feat does not measure it"},
            {"headPosture", missingColumns(poseColumns, _pose)},
            {"gaze", "py-feat's documents contradict each other on its sign"},
            {"smile", missingColumns(smileActionUnit, _smileUnit)},
            {"expressions", missingColumns(_emotionColumns, _emotions)},
            {"facialPoints", _landmarks.missing()}};
  }

 private:
  /// The number at the end of "Person_3"; 0 when there is none.
  std::int32_t person() const {
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

  ZV::PersonObservation face(double score) const {
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
    if (const auto unit = _rows.numbers(_smileUnit)) {
      set(face.smile, ZV::Smile(narrowed(clipped(unit->front())), confidence));
    }
    if (const auto values = _rows.numbers(_emotions)) {
      const auto [calm, anger, joy, sorrow, surprise] = *values;
      set(face.expressions, expressionsOf(calm, anger, joy, sorrow, surprise, confidence));
    }
    if (const auto landmarks = _landmarks.read(_rows, confidence)) {
      set(face.facialPoints, *landmarks);
    }
    return face;
  }

  const CsvReader& _rows;
  const ImportOptions& _options;

  bool _isSecondGeneration = isSecondGeneration(_rows);
  CsvReader::Column _frame = _rows.find("frame");
  CsvReader::Column _score = _rows.find("FaceScore");
  CsvReader::Column _identity = _rows.find("Identity");
  std::array<CsvReader::Column, 3> _pose = _rows.findAll(poseColumns);
  std::array<CsvReader::Column, 1> _smileUnit = _rows.findAll(smileActionUnit);
  std::array<std::string_view, 5> _emotionColumns =
      _isSecondGeneration ? secondEmotionColumns : firstEmotionColumns;
  std::array<CsvReader::Column, 5> _emotions = _rows.findAll(_emotionColumns);
  LandmarkColumns _landmarks{_rows};
};

}  // namespace

ImportFacts importPyFeat(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                         const std::function<void()>& onProgress) {
  return importRows<PyFeatImport>(rows, options, use, onProgress);
}

}  // namespace zorvel
