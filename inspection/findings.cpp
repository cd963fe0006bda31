#include "inspection/findings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "inspection/format.hpp"
#include "recording/time_unit.hpp"

namespace zorvel {
namespace {

// With fewer readings or cycles, a pattern may be chance.
constexpr std::uint64_t enough = 100;
constexpr std::uint64_t enoughCycles = 10;
// Rarer accidents than this share happen in every recording.
constexpr double accidentShare = 0.01;

double share(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

class Findings {
 public:
  explicit Findings(const RecordingFacts& facts) : _facts(facts), _cycles(facts.cycles()) {
    for (const auto& [id, person] : facts.persons) {
      _newStarts += person.newStarts;
      _faces += person.faces;
      _intervals.add(person.intervals);
      for (const auto& [index, field] : person.fields) add(_fields.at(index), field);
    }
  }

  std::vector<Finding> all() {
    checkCycles();
    checkInputs();
    checkTimes();
    checkPersons();
    checkReadingTimes();
    for (std::size_t field = 0; field < fieldKinds.size(); ++field) checkNumbers(field);
    checkScopes();
    return std::move(_found);
  }

 private:
  /// All persons' readings of one field.
  struct Field {
    std::uint64_t readings = 0;
    std::uint64_t changes = 0;
    std::int64_t earliest = 0;
    std::int64_t latest = 0;
    Occurrences future;
    Occurrences expired;
    Occurrences contradicting;
  };

  static void add(Field& sum, const FieldFacts& field) {
    sum.readings += field.readings;
    sum.changes += field.changes;
    sum.earliest = std::min(sum.earliest, field.lateness.lowest());
    sum.latest = std::max(sum.latest, field.lateness.highest());
    sum.future.add(field.future);
    sum.expired.add(field.expired);
    sum.contradicting.add(field.contradicting);
  }

  void warn(std::string_view kind, std::uint64_t firstLine, std::string text) {
    _found.push_back({kind, firstLine, std::move(text), true});
  }

  /// Notes what may be right in a recording of an unusual scene.
  void note(std::string_view kind, std::string text) {
    _found.push_back({kind, 0, std::move(text), false});
  }

  void checkCycles() {
    if (_cycles == 0) {
      note("no_cycles", "No person is observed, so a replay gives no states.");
    } else if (_cycles >= enough && share(_faces, _cycles) < 0.1) {
      note("few_faces",
           fmt::format("Only {} of the cycles have a face (head posture, smile, expressions or "
                       "facial points): the states are mostly those of people not seen.",
                       formatShare(_faces, _cycles)));
    }
  }

  /// Warns when no field that pulls the quantity was read.
  void checkInput(ZV::Quantity quantity, std::string_view kind, std::string_view consequence) {
    std::vector<std::string_view> names;
    for (std::size_t index = 0; index < fieldKinds.size(); ++index) {
      if (fieldKinds.at(index).pulls != quantity) continue;
      if (_facts.numbers.at(index).front().count > 0) return;
      names.push_back(fieldKinds.at(index).name);
    }
    const std::string_view last = names.back();
    names.pop_back();
    warn(kind, 0,
         fmt::format("No {} or {}: without them the {}.", fmt::join(names, ", "), last,
                     consequence));
  }

  void checkInputs() {
    if (_cycles < enoughCycles) return;
    checkInput(ZV::Quantity::Attention, "no_attention_input", "attention stays 0");
    checkInput(ZV::Quantity::Valence, "no_valence_input", "valence stays near 0");
  }

  void checkTimes() {
    // Nobody perceives 10,000 times a second.
    constexpr std::int64_t shortestInterval = 100'000;
    const std::int64_t interval = _intervals.median();
    if (_intervals.count() >= enoughCycles && interval < shortestInterval) {
      const std::string_view unit = timeUnit(interval);
      warn("time_unit", 0,
           fmt::format("The cycles of a person are {} apart: {}", formatDuration(interval),
                       unit.empty() ? "the times do not tell them apart."
                                    : fmt::format("are the times in {}? They are taken as "
                                                  "nanoseconds.",
                                                  unit)));
    }
    const Occurrences& backwards = _facts.backwards;
    if (backwards.count > 0) {
      warn("time_backwards", backwards.firstLine,
           fmt::format("The time runs backwards, by up to {}, in {}, first in line {}. A "
                       "replay handles such a line at the latest time so far.",
                       formatDuration(_facts.farthestBack), formatCount(backwards.count, "line"),
                       backwards.firstLine));
    }
    constexpr std::int64_t year = std::int64_t{365} * 86'400 * 1'000'000'000;
    if (_facts.longestStep > year) {
      warn("time_jump", _facts.longestStepLine,
           fmt::format("The time jumps ahead by {} in line {}: was a clock set there?",
                       formatDuration(_facts.longestStep), _facts.longestStepLine));
    }
  }

  /// The unit that such times are probably in; empty when that is unclear.
  std::string_view timeUnit(std::int64_t interval) const {
    const auto unit = coarserUnit(_facts.highestTime.time_since_epoch().count());
    if (!unit.empty()) return unit;
    if (interval >= 1'000) return "microseconds";
    return interval >= 1 ? "milliseconds" : "";
  }

  void checkPersons() {
    if (_newStarts >= enoughCycles && share(_newStarts, _cycles) > 0.5) {
      warn("new_starts", 0,
           fmt::format("{} of the cycles come right after their person was removed, and so begin "
                       "from a neutral state. Are the frames farther apart than the gap after "
                       "which people are removed?",
                       formatShare(_newStarts, _cycles)));
    }
    const std::uint64_t count = _facts.persons.size();
    if (count < 10 || _cycles >= 10 * count) return;
    std::vector<std::pair<Time, Time>> spans;
    for (const auto& [id, person] : _facts.persons) spans.emplace_back(person.first, person.last);
    std::sort(spans.begin(), spans.end());
    std::uint64_t overlapping = 0;
    Time latest = Time::min();
    for (const auto& [first, last] : spans) {
      if (first < latest) ++overlapping;
      latest = std::max(latest, last);
    }
    if (overlapping * 10 > count) return;
    note("fleeting_persons",
         fmt::format("{} person ids share {} cycles, one after the other: does one person get a "
                     "new id again and again? Each id starts from a neutral state.",
                     count, _cycles));
  }

  /// Warns of the fields where something happened too often to be an accident. Each is listed with
  /// its share and with what `detail` says of it.
  template <typename Detail>
  void warnOfFields(std::string_view kind, Occurrences Field::*occurrences, std::string_view before,
                    std::string_view after, Detail detail) {
    std::string list;
    Occurrences sum;
    for (std::size_t index = 0; index < _fields.size(); ++index) {
      const Field& field = _fields.at(index);
      const Occurrences& found = field.*occurrences;
      if (found.count == 0 || share(found.count, field.readings) < accidentShare) continue;
      list += fmt::format("{}{} ({}{})", list.empty() ? "" : ", ", fieldKinds.at(index).name,
                          formatShare(found.count, field.readings),
                          detail(field, fieldKinds.at(index)));
      sum.add(found);
    }
    if (list.empty()) return;
    warn(kind, sum.firstLine,
         fmt::format("{}: {}; first in line {}. {}", before, list, sum.firstLine, after));
  }

  void checkReadingTimes() {
    warnOfFields("repeated_time", &Field::contradicting,
                 "Readings with the time of an earlier one but other numbers",
                 "The memory keeps only the first of one time: is their clock too coarse?",
                 [](const Field& /*field*/, const FieldKind& /*kind*/) { return std::string(); });
    warnOfFields("future", &Field::future, "Readings from the future, as seen from their line",
                 "They stay the youngest until their time has come: does their clock run ahead?",
                 [](const Field& field, const FieldKind& /*kind*/) {
                   return fmt::format(", up to {}", formatDuration(-field.earliest));
                 });
    warnOfFields("expired", &Field::expired, "Readings older than the memory keeps",
                 "They are forgotten at once: is their time of another clock or in another unit?",
                 [](const Field& field, const FieldKind& kind) {
                   return fmt::format(", up to {} where {} s are kept",
                                      formatDuration(field.latest), kind.memory->count() / 1000);
                 });
  }

  void checkNumbers(std::size_t index) {
    const FieldKind& kind = fieldKinds.at(index);
    const auto& numbers = _facts.numbers.at(index);
    for (std::size_t number = 0; number < numbers.size(); ++number) {
      checkNumber(kind, kind.numbers.at(number), numbers.at(number));
    }
    const auto isZero = [](const NumberFacts& number) { return number.zeros == number.count; };
    if (kind.name == "facialPoints" && numbers[0].count >= enough && isZero(numbers[0]) &&
        isZero(numbers[1])) {
      note("zero_landmarks",
           "All facialPoints lie at (0, 0): did the face analysis find no landmarks? Their "
           "confidence counts all the same.");
    }
    const Field& field = _fields.at(index);
    if (field.readings < enough) return;
    if (kind.varies && field.changes == 0) {
      warn("constant", 0,
           fmt::format("{} never changes in {} readings: is it a placeholder, or stuck?", kind.name,
                       field.readings));
      return;
    }
    checkRadians(kind, numbers, field.readings);
    if (kind.name == "asrEmotion" && share(numbers.front().zeros, field.readings) > 0.5) {
      warn("asr_zero", 0,
           fmt::format("asrEmotion is 0 in {} of its readings, and 0 counts as positive: where "
                       "nothing was heard, leave it out.",
                       formatShare(numbers.front().zeros, field.readings)));
    }
  }

  void checkNumber(const FieldKind& field, const NumberKind& kind, const NumberFacts& number) {
    const Occurrences& outside = number.outOfRange;
    if (outside.count > 0) {
      warn("out_of_range", outside.firstLine,
           fmt::format(
               "{}.{} is outside {} to {} in {} of its numbers, which go from {:.6g} to {:.6g}; "
               "first in line {}.{}",
               field.name, kind.name, kind.lowest, kind.highest,
               formatShare(outside.count, number.count), number.lowest, number.highest,
               outside.firstLine,
               share(outside.count, number.count) > 0.1 ? scaleHint(field, kind, number)
                                                        : std::string_view()));
    }
    if (number.count < enough) return;
    const bool isZero = number.lowest == 0.0f && number.highest == 0.0f;
    if (kind.name == "confidence" && isZero && field.name == "smile") {
      warn("zero_confidence", 0, "smile.confidence is always 0: no smile counts.");
    }
    if (kind.name == "confidence" && isZero && field.name == "facialPoints") {
      warn("zero_confidence", 0,
           "facialPoints.confidence is always 0, which pulls the confidences of valence and "
           "attention to 0.");
    }
    // Beyond these, hardly any confidence is left.
    const bool isFar = field.name == "distance" && number.lowest > 1.5f;
    const bool isHigh = field.name == "height" && number.lowest > 1.6f;
    if ((isFar || isHigh) && number.lowest <= kind.highest) {
      note("beyond_limits",
           fmt::format("{} is never below {:.6g} m. A face farther than 1.4 m or higher than 1.5 "
                       "m is not analysed reliably, which pulls the confidences to 0.",
                       field.name, number.lowest));
    }
  }

  static std::string_view scaleHint(const FieldKind& field, const NumberKind& kind,
                                    const NumberFacts& number) {
    if (field.name == "distance" || field.name == "height") {
      return " Centimetres or millimetres, where metres are wanted?";
    }
    if (kind.name == "duration") return " Milliseconds, where seconds are wanted?";
    if (kind.lowest != 0.0f || kind.highest != 1.0f || number.lowest < 0.0f) return "";
    if (number.highest <= 5.0f) return " An intensity from 0 to 5, where 0 to 1 is wanted?";
    return number.highest <= 100.0f ? " Percent, where 0 to 1 is wanted?" : "";
  }

  void checkRadians(const FieldKind& kind, const std::array<NumberFacts, 3>& numbers,
                    std::uint64_t readings) {
    if (kind.name != "headPosture" && kind.name != "gaze") return;
    constexpr float quarterTurn = 1.6f;
    float largest = 0.0f;
    for (const auto& angle : numbers) {
      largest = std::max({largest, std::abs(angle.lowest), std::abs(angle.highest)});
    }
    if (largest > quarterTurn) return;
    warn("radians", 0,
         fmt::format("No angle of {} is larger than {:.2f} in {} readings. Radians, where degrees "
                     "are wanted?",
                     kind.name, largest, readings));
  }

  void checkScopes() {
    const ScopeFacts& scopes = _facts.scopes;
    const auto check = [this](std::string_view kind, const Occurrences& found,
                              std::string_view text) {
      if (found.count == 0) return;
      warn(kind, found.firstLine,
           fmt::format("{} {}; first in line {}.", formatCount(found.count, "scope"), text,
                       found.firstLine));
    };
    check("scopes", scopes.unknown, "closed without being open, which gives the label error");
    check("scopes", scopes.restarted, "opened while open, which drops the samples so far");
    check("scopes", scopes.exhausted,
          "dropped without a label in the cycle after the last sample asked for");
    check("scopes", scopes.removed, "dropped without a label because the person was removed");
    Occurrences open;
    for (const auto& [id, person] : _facts.persons) {
      for (const auto& [name, scope] : person.openScopes) open.add(scope.line);
    }
    check("open_scopes", open, "never closed, and so without a label");
  }

  const RecordingFacts& _facts;
  std::uint64_t _cycles;
  std::uint64_t _newStarts = 0;
  std::uint64_t _faces = 0;
  Distribution _intervals;
  std::array<Field, fieldKinds.size()> _fields{};
  std::vector<Finding> _found;
};

}  // namespace

std::vector<Finding> findingsOf(const RecordingFacts& facts) { return Findings(facts).all(); }

}  // namespace zorvel
