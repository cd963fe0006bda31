#include "inspection/info_report.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/chrono/floor.hpp>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "inspection/findings.hpp"
#include "inspection/format.hpp"
#include "recording/json_writer.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

// Nobody would read more; the JSON form has them all.
constexpr std::size_t shownPersons = 20;
constexpr std::size_t personsWithFields = 4;
constexpr std::size_t columns = 100;

double seconds(std::int64_t nanoseconds) { return inSeconds(Time::duration(nanoseconds)); }

std::string formatDate(Time time) {
  using boost::chrono::floor;
  const auto since = time.time_since_epoch();
  const auto whole = floor<boost::chrono::seconds>(since);
  const auto rest = floor<boost::chrono::milliseconds>(since - whole);
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} UTC", fmt::gmtime(whole.count()), rest.count());
}

/// Cycles per second, by the median interval; 0 where there is none.
double rate(const PersonFacts& person) {
  const std::int64_t interval = person.intervals.median();
  return interval > 0 ? 1e9 / static_cast<double>(interval) : 0.0;
}

/// The ids of the persons with the most cycles.
std::set<std::int32_t> busiest(const RecordingFacts& facts, std::size_t count) {
  std::vector<std::pair<std::uint64_t, std::int32_t>> order;
  for (const auto& [id, person] : facts.persons) order.emplace_back(person.cycles(), id);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto& left, const auto& right) { return left.first > right.first; });
  order.resize(std::min(order.size(), count));
  std::set<std::int32_t> ids;
  for (const auto& [cycles, id] : order) ids.insert(id);
  return ids;
}

/// Breaks a sentence into lines, the first after "  - ".
void appendItem(std::string& text, std::string_view sentence) {
  std::string line = "  -";
  while (!sentence.empty()) {
    const std::string_view word = sentence.substr(0, sentence.find(' '));
    sentence.remove_prefix(std::min(sentence.size(), word.size() + 1));
    if (line.size() + 1 + word.size() > columns) {
      text += line + '\n';
      line = "   ";
    }
    line += ' ';
    line += word;
  }
  text += line + '\n';
}

void appendPersons(std::string& text, const RecordingFacts& facts, Time secondZero) {
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "\n{:>11} {:>8} {:>7} {:>7} {:>7} {:>9} {:>9} {:>7} {:>4}  {}\n", "person",
                 "cycles", "faces", "unseen", "removed", "from s", "to s", "Hz", "gaps", "longest");
  const auto shown = busiest(facts, shownPersons);
  for (const auto& [id, person] : facts.persons) {
    if (shown.count(id) == 0) continue;
    fmt::format_to(out, "{:>11} {:>8} {:>7} {:>7} {:>7}", id, person.cycles(),
                   formatShare(person.faces, person.cycles()),
                   formatShare(person.notSeen, person.cycles()), person.removals);
    if (person.cycles() > 0) {
      fmt::format_to(out, " {:>9.3f} {:>9.3f}", inSeconds(between(secondZero, person.first)),
                     inSeconds(between(secondZero, person.last)));
    }
    if (rate(person) > 0.0)
      fmt::format_to(out, " {:>7.2f} {:>4}", rate(person), person.intervals.gaps());
    if (person.intervals.gaps() > 0) {
      fmt::format_to(out, "  {} at {:.1f} s", formatDuration(person.intervals.highest()),
                     inSeconds(between(secondZero, person.longestIntervalBegin)));
    }
    text += '\n';
  }
  if (facts.persons.size() > shown.size()) {
    fmt::format_to(out, "{:>11} {} more, with fewer cycles\n", "and",
                   facts.persons.size() - shown.size());
  }
}

void appendFields(std::string& text, std::int32_t id, const PersonFacts& person) {
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "\n{:<14} {:>9} {:>8}  {:>10} {:>10} {:>10} {:>9} {:>8} {:>8}\n",
                 fmt::format("person {}", id), "readings", "cycles", "late: min", "median", "max",
                 "repeated", "future", "expired");
  for (const auto& [index, field] : person.fields) {
    const auto count = [](const Occurrences& found) {
      return found.count == 0 ? std::string("-") : std::to_string(found.count);
    };
    fmt::format_to(out, "{:<14} {:>9} {:>8}  {:>10} {:>10} {:>10} {:>9} {:>8} {:>8}\n",
                   fieldKinds.at(index).name, field.readings,
                   formatShare(field.readings, person.cycles()),
                   formatDuration(field.lateness.lowest()), formatDuration(field.lateness.median()),
                   formatDuration(field.lateness.highest()), count(field.repeated),
                   count(field.future), count(field.expired));
  }
}

/// Calls `visit(name, facts)` for each number that occurs in the recording.
template <typename Visit>
void forEachSeenNumber(const RecordingFacts& facts, Visit visit) {
  for (std::size_t field = 0; field < fieldKinds.size(); ++field) {
    for (std::size_t number = 0; number < facts.numbers.at(field).size(); ++number) {
      const NumberFacts& seen = facts.numbers.at(field).at(number);
      if (seen.count == 0) continue;
      visit(fmt::format("{}.{}", fieldKinds.at(field).name,
                        fieldKinds.at(field).numbers.at(number).name),
            seen);
    }
  }
}

void appendNumbers(std::string& text, const RecordingFacts& facts) {
  const auto out = std::back_inserter(text);
  if (facts.eventCounts.front() == 0) return;
  fmt::format_to(out, "\n{:<24} {:>12} {:>12} {:>9}\n", "all persons", "lowest", "highest", "zero");
  forEachSeenNumber(facts, [&out](const std::string& name, const NumberFacts& number) {
    fmt::format_to(out, "{:<24} {:>12.6g} {:>12.6g} {:>9}\n", name, number.lowest, number.highest,
                   formatShare(number.zeros, number.count));
  });
}

std::uint64_t openScopes(const RecordingFacts& facts) {
  std::uint64_t open = 0;
  for (const auto& [id, person] : facts.persons) open += person.openScopes.size();
  return open;
}

void writeField(JsonTextWriter& json, const FieldFacts& field, std::uint64_t cycles) {
  json.member("readings", field.readings);
  json.member("share", static_cast<double>(field.readings) / static_cast<double>(cycles));
  json.object("lateness_seconds", [&] {
    json.member("min", seconds(field.lateness.lowest()));
    json.member("median", seconds(field.lateness.median()));
    json.member("max", seconds(field.lateness.highest()));
  });
  json.member("repeated", field.repeated.count);
  json.member("repeated_with_other_numbers", field.contradicting.count);
  json.member("future", field.future.count);
  json.member("expired", field.expired.count);
}

void writePerson(JsonTextWriter& json, std::int32_t id, const PersonFacts& person) {
  json.member("person", id);
  json.member("observations", person.observations);
  json.member("not_seen", person.notSeen);
  json.member("faces", person.faces);
  json.member("removed", person.removals);
  if (person.cycles() > 0) {
    json.member("first_time", person.first);
    json.member("last_time", person.last);
  }
  if (rate(person) > 0.0) json.member("rate_hz", rate(person));
  json.member("gaps", person.intervals.gaps());
  if (person.intervals.gaps() > 0) {
    json.member("longest_gap_seconds", seconds(person.intervals.highest()));
    json.member("longest_gap_time", person.longestIntervalBegin);
  }
  json.object("fields", [&] {
    for (const auto& [index, field] : person.fields) {
      json.object(fieldKinds.at(index).name,
                  [&, &facts = field] { writeField(json, facts, person.cycles()); });
    }
  });
}

void writeScopes(JsonTextWriter& json, const RecordingFacts& facts) {
  json.member("opened", facts.scopes.opened);
  json.member("closed", facts.scopes.closed);
  json.member("closed_without_being_open", facts.scopes.unknown.count);
  json.member("opened_while_open", facts.scopes.restarted.count);
  json.member("dropped_after_last_sample", facts.scopes.exhausted.count);
  json.member("dropped_with_person", facts.scopes.removed.count);
  json.key("left_open");
  json.beginList();
  for (const auto& [id, person] : facts.persons) {
    for (const auto& [name, scope] : person.openScopes) {
      json.begin();
      json.member("person", id);
      json.member("scope", name);
      json.member("line", scope.line);
      json.end();
    }
  }
  json.endList();
}

}  // namespace

std::string formatInfo(const InfoSource& source, const RecordingFacts& facts) {
  std::string text = fmt::format(
      "{}: {}{}", source.recording == "-" ? "standard input" : source.recording,
      formatCount(source.lines, "line"), source.error.empty() ? "" : ", the last one in error");
  const auto out = std::back_inserter(text);
  if (facts.events() > 0) {
    fmt::format_to(out, ", {}\n  from {} ({})\n  to   {} ({})\n",
                   formatDuration(between(facts.lowestTime, facts.highestTime).count()),
                   formatDate(facts.lowestTime), facts.lowestTime.time_since_epoch().count(),
                   formatDate(facts.highestTime), facts.highestTime.time_since_epoch().count());
  } else {
    text += ", without an event\n";
  }
  if (source.origin) {
    fmt::format_to(out, "  second 0 is the header's origin, {} ({})\n", formatDate(*source.origin),
                   source.origin->time_since_epoch().count());
  } else if (facts.events() > 0) {
    text += "  second 0 is the first event\n";
  }
  if (!source.header.empty()) fmt::format_to(out, "  source {}\n", inQuotes(source.header));
  if (facts.events() > 0) text += '\n';
  for (std::size_t event = 0; event < eventNames.size(); ++event) {
    const std::uint64_t count = facts.eventCounts.at(event);
    if (count > 0) fmt::format_to(out, "{:<15} {:>9}\n", eventNames.at(event), count);
  }
  if (facts.scopes.opened + facts.scopes.closed > 0) {
    fmt::format_to(out, "scopes: {} opened, {} closed, {} left open\n", facts.scopes.opened,
                   facts.scopes.closed, openScopes(facts));
  }
  if (!facts.persons.empty()) appendPersons(text, facts, source.secondZero);
  const auto detailed = busiest(facts, personsWithFields);
  for (const auto& [id, person] : facts.persons) {
    if (detailed.count(id) == 1 && !person.fields.empty()) appendFields(text, id, person);
  }
  if (facts.persons.size() > detailed.size()) {
    text += "\nThe fields of the other persons: see --json.\n";
  }
  appendNumbers(text, facts);
  const auto findings = findingsOf(facts);
  text += findings.empty() ? "\nNothing looks wrong.\n" : "\nWhat looks wrong:\n";
  for (const auto& finding : findings) appendItem(text, finding.text);
  return text;
}

std::string formatInfoJson(const InfoSource& source, const RecordingFacts& facts) {
  fmt::memory_buffer text;
  JsonTextWriter json(text);
  json.begin();
  json.member("recording", source.recording);
  if (source.error.empty()) {
    json.key("error");
    json.null();
  } else {
    json.member("error", source.error);
  }
  json.member("source", source.header);
  if (source.origin) {
    json.member("origin", *source.origin);
  } else {
    json.key("origin");
    json.null();
  }
  json.member("lines", source.lines);
  json.object("events", [&] {
    for (std::size_t event = 0; event < eventNames.size(); ++event) {
      json.member(eventNames.at(event), facts.eventCounts.at(event));
    }
  });
  if (facts.events() > 0) {
    json.member("first_time", facts.lowestTime);
    json.member("last_time", facts.highestTime);
    json.member("seconds", inSeconds(between(facts.lowestTime, facts.highestTime)));
  }
  json.member("lines_back_in_time", facts.backwards.count);
  json.member("farthest_back_seconds", seconds(facts.farthestBack));
  json.list("persons", facts.persons,
            [&](const auto& entry) { writePerson(json, entry.first, entry.second); });
  json.object("numbers", [&] {
    forEachSeenNumber(facts, [&json](const std::string& name, const NumberFacts& number) {
      json.object(name, [&] {
        json.member("count", number.count);
        json.member("lowest", number.lowest);
        json.member("highest", number.highest);
        json.member("zeros", number.zeros);
      });
    });
  });
  json.object("scopes", [&] { writeScopes(json, facts); });
  json.list("findings", findingsOf(facts), [&json](const Finding& finding) {
    json.member("kind", finding.kind);
    if (finding.firstLine > 0) json.member("first_line", finding.firstLine);
    json.member("text", finding.text);
  });
  json.end();
  text.push_back('\n');
  return fmt::to_string(text);
}

}  // namespace zorvel
