#include "inspection/findings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>

#include "recording/time_unit.hpp"

namespace zorvel {
namespace {

// With fewer readings or cycles, a pattern may be chance.
constexpr std::uint64_t enough = 100;
// Rarer accidents than this share happen in every recording.
constexpr double accidentShare = 0.01;

double share(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

std::string plural(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

/// Collects findings.
class Findings {
 public:
  explicit Findings(const RecordingFacts& facts) : _facts(facts) {
    for (const auto& [id, person] : facts.persons) {
      _cycles += person.cycles();
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

  void report(std::string_view kind, std::uint64_t firstLine, std::string text) {
    _found.push_back({kind, firstLine, std::move(text)});
  }

  void checkCycles() {
    if (_cycles == 0) {
      report("no_cycles", 0, "No person is observed, so a replay gives no states.");
    } else if (_cycles >= enough && share(_faces, _cycles) < 0.1) {
      report("few_faces", 0,
             fmt::format("Only {} of the cycles have a face (head posture, smile, expressions or "
                         "facial points): the states are mostly those of people not seen.",
                         formatShare(_faces, _cycles)));
    }
  }

  bool hasNone(std::initializer_list<std::string_view> names) const {
    for (std::size_t index = 0; index < _fields.size(); ++index) {
      if (_fields.at(index).readings == 0) continue;
      if (std::find(names.begin(), names.end(), fieldKinds.at(index).name) != names.end()) {
        return false;
      }
    }
    return true;
  }

  void checkInputs() {
    if (_cycles == 0) return;
    if (hasNone({"headPosture", "gaze"})) {
      report("no_attention_input", 0,
             "No headPosture and no gaze: without them the attention stays 0.");
    }
    if (hasNone({"smile", "expressions", "voiceEmotion", "asrEmotion", "touchEmotion",
                 "contextEmotion"})) {
      report("no_valence_input", 0,
             "No smile, expressions, voiceEmotion, asrEmotion, touchEmotion or contextEmotion: "
             "without them the valence stays near 0.");
    }
  }

  void checkTimes() {
    // Nobody perceives 10,000 times a second.
    constexpr std::int64_t shortestInterval = 100'000;
    const std::int64_t interval = _intervals.median();
    if (_intervals.count() >= 10 && interval < shortestInterval) {
      const std::string_view unit = timeUnit(interval);
      report("time_unit", 0,
             fmt::format("The cycles of a person are {} apart: {}", formatDuration(interval),
                         unit.empty() ? "the times do not tell them apart."
                                      : fmt::format("are the times in {}? They are taken as "
                                                    "nanoseconds.",
                                                    unit)));
    }
    const Occurrences& backwards = _facts.backwards;
    if (backwards.count > 0) {
      report("time_backwards", backwards.firstLine,
             fmt::format("The time runs backwards, by up to {}, in {}, first in line {}. Such a "
                         "line is handled at the latest time so far.",
                         formatDuration(_facts.farthestBack), plural(backwards.count, "line"),
                         backwards.firstLine));
    }
  }

  /// The unit that times so close together are probably in; empty when they do not tell.
  std::string_view timeUnit(std::int64_t interval) const {
    const auto unit = coarserUnit(_facts.highestTime.time_since_epoch().count());
    if (!unit.empty()) return unit;
    if (interval >= 1'000) return "microseconds";
    return interval >= 1 ? "milliseconds" : "";
  }

  void checkPersons() {
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
    report("fleeting_persons", 0,
           fmt::format("{} person ids share {} cycles, one after the other: does one person get a "
                       "new id again and again? Each id starts from a neutral state.",
                       count, _cycles));
  }

  /// Those fields where something happened too often to be an accident, with their shares and what
  /// `detail` says of them; reported when there are any.
  template <typename Detail>
  void reportFields(std::string_view kind, Occurrences Field::*occurrences, std::string_view before,
                    std::string_view after, Detail detail) {
    std::string list;
    Occurrences sum;
    for (std::size_t index = 0; index < _fields.size(); ++index) {
      const Field& field = _fields.at(index);
      const Occurrences& found = field.*occurrences;
      if (found.count == 0 || share(found.count, field.readings) < accidentShare) continue;
      list += fmt::format("{}{} ({}{})", list.empty() ? "" : ", ", fieldKinds.at(index).name,
                          formatShare(found.count, field.readings), detail(field));
      sum.add(found);
    }
    if (list.empty()) return;
    report(kind, sum.firstLine,
           fmt::format("{}: {}; first in line {}. {}", before, list, sum.firstLine, after));
  }

  void checkReadingTimes() {
    reportFields("repeated_time", &Field::contradicting,
                 "Readings with the time of an earlier one but other numbers",
                 "The memory keeps only the first of one time: is their clock too coarse?",
                 [](const Field& /*field*/) { return std::string(); });
    reportFields("future", &Field::future, "Readings from the future, as seen from their line",
                 "They stay the youngest until their time has come: does their clock run ahead?",
                 [](const Field& field) {
                   return fmt::format(", up to {}", formatDuration(-field.earliest));
                 });
    reportFields(
        "expired", &Field::expired,
        "Readings older than the memory keeps (7 s, context emotion 20 s)",
        "They are forgotten at once: is their time of another clock or in another unit?",
        [](const Field& field) { return fmt::format(", up to {}", formatDuration(field.latest)); });
  }

  void checkNumbers(std::size_t index) {
    const FieldKind& kind = fieldKinds.at(index);
    const auto& numbers = _facts.numbers.at(index);
    for (std::size_t number = 0; number < numbers.size(); ++number) {
      checkNumber(kind, kind.numbers.at(number), numbers.at(number));
    }
    const Field& field = _fields.at(index);
    if (field.readings < enough) return;
    if (kind.varies && field.changes == 0) {
      report("constant", 0,
             fmt::format("{} never changes in {} readings: is it a placeholder, or stuck?",
                         kind.name, field.readings));
      return;
    }
    checkRadians(kind, numbers, field.readings);
    if (kind.name == "asrEmotion" && share(numbers.front().zeros, field.readings) > 0.5) {
      report("asr_zero", 0,
             fmt::format("asrEmotion is 0 in {} of its readings, and 0 counts as positive: where "
                         "nothing was heard, leave it out.",
                         formatShare(numbers.front().zeros, field.readings)));
    }
  }

  void checkNumber(const FieldKind& field, const NumberKind& kind, const NumberFacts& number) {
    const Occurrences& outside = number.outOfRange;
    if (outside.count > 0) {
      report("out_of_range", outside.firstLine,
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
      report("zero_confidence", 0, "smile.confidence is always 0: no smile counts.");
    }
    if (kind.name == "confidence" && isZero && field.name == "facialPoints") {
      report("zero_confidence", 0,
             "facialPoints.confidence is always 0, which pulls the confidences of valence and "
             "attention to 0.");
    }
    // Beyond these, next to nothing is left of the confidences.
    const bool isFar = field.name == "distance" && number.lowest > 1.5f;
    const bool isHigh = field.name == "height" && number.lowest > 1.6f;
    if ((isFar || isHigh) && number.lowest <= kind.highest) {
      report("beyond_limits", 0,
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
    report(
        "radians", 0,
        fmt::format("No angle of {} is larger than {:.2f} in {} readings. Radians, where degrees "
                    "are wanted?",
                    kind.name, largest, readings));
  }

  void checkScopes() {
    const ScopeFacts& scopes = _facts.scopes;
    const auto check = [this](const Occurrences& found, std::string_view text) {
      if (found.count == 0) return;
      report("scopes", found.firstLine,
             fmt::format("{} {}; first in line {}.", plural(found.count, "scope"), text,
                         found.firstLine));
    };
    check(scopes.unknown, "closed without being open, which gives the label error");
    check(scopes.restarted, "opened while open, which drops the samples so far");
    check(scopes.exhausted, "dropped without a label in the cycle after the last sample asked for");
    check(scopes.removed, "dropped without a label because the person was removed");
    Occurrences open;
    for (const auto& [id, person] : _facts.persons) {
      for (const auto& [name, scope] : person.openScopes) open.add(scope.line);
    }
    check(open, "never closed, and so without a label");
  }

  const RecordingFacts& _facts;
  std::uint64_t _cycles = 0;
  std::uint64_t _faces = 0;
  Distribution _intervals;
  std::array<Field, fieldKinds.size()> _fields{};
  std::vector<Finding> _found;
};

}  // namespace

std::vector<Finding> findingsOf(const RecordingFacts& facts) { return Findings(facts).all(); }

std::string formatDuration(std::int64_t nanoseconds) {
  struct Unit {
    double nanoseconds;
    std::string_view name;
  };
  // Each from the length where it reads better than the one after it.
  constexpr std::array<std::pair<double, Unit>, 6> units{
      {{2 * 365.25 * 86400e9, {365.25 * 86400e9, "years"}},
       {2 * 86400e9, {86400e9, "days"}},
       {2 * 3600e9, {3600e9, "h"}},
       {1e9, {1e9, "s"}},
       {1e5, {1e6, "ms"}},
       {1e3, {1e3, "us"}}}};
  const auto length = static_cast<double>(nanoseconds);
  for (const auto& [from, unit] : units) {
    if (std::abs(length) >= from)
      return fmt::format("{:.1f} {}", length / unit.nanoseconds, unit.name);
  }
  return nanoseconds == 0 ? "0 s" : fmt::format("{} ns", nanoseconds);
}

std::string formatShare(std::uint64_t part, std::uint64_t whole) {
  const double percent = 100.0 * share(part, whole);
  if (percent > 0.0 && percent < 0.1) return "<0.1 %";
  if (percent < 100.0 && percent > 99.9) return ">99.9 %";
  return fmt::format("{:.1f} %", percent);
}

}  // namespace zorvel
