#include "info/info_report.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <boost/chrono/floor.hpp>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "info/findings.hpp"

namespace zorvel {
namespace {

// More would not be read; the JSON form has all.
constexpr std::size_t shownPersons = 20;
constexpr std::size_t personsWithFields = 4;
constexpr std::size_t columns = 100;

double seconds(std::int64_t nanoseconds) { return static_cast<double>(nanoseconds) / 1e9; }
double seconds(Time::duration duration) { return seconds(std::int64_t{duration.count()}); }

std::string dateText(Time time) {
  using boost::chrono::floor;
  const auto since = time.time_since_epoch();
  const auto whole = floor<boost::chrono::seconds>(since);
  const auto rest = floor<boost::chrono::milliseconds>(since - whole);
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} UTC", fmt::gmtime(whole.count()), rest.count());
}

/// Cycles a second, by the median interval; 0 where there is none.
double rate(const PersonFacts& person) {
  const std::int64_t interval = person.intervals.median();
  return interval > 0 ? 1e9 / static_cast<double>(interval) : 0.0;
}

/// Those with the most cycles.
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

void appendPersons(std::string& text, const RecordingFacts& facts) {
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "\n{:>11} {:>8} {:>7} {:>7} {:>7} {:>9} {:>9} {:>7} {:>4}  {}\n", "person",
                 "cycles", "faces", "unseen", "removed", "from s", "to s", "Hz", "gaps", "longest");
  const auto shown = busiest(facts, shownPersons);
  for (const auto& [id, person] : facts.persons) {
    if (shown.count(id) == 0) continue;
    fmt::format_to(out, "{:>11} {:>8} {:>7} {:>7} {:>7}", id, person.cycles(),
                   shareText(person.faces, person.cycles()),
                   shareText(person.notSeen, person.cycles()), person.removals);
    if (person.cycles() > 0) {
      fmt::format_to(out, " {:>9.3f} {:>9.3f}", seconds(between(facts.lowestTime, person.first)),
                     seconds(between(facts.lowestTime, person.last)));
    }
    if (rate(person) > 0.0) fmt::format_to(out, " {:>7.2f} {:>4}", rate(person), person.gaps());
    if (person.gaps() > 0) {
      fmt::format_to(out, "  {} at {:.1f} s", durationText(person.intervals.highest()),
                     seconds(between(facts.lowestTime, person.longestIntervalBegin)));
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
                   shareText(field.readings, person.cycles()),
                   durationText(field.lateness.lowest()), durationText(field.lateness.median()),
                   durationText(field.lateness.highest()), count(field.repeated),
                   count(field.future), count(field.expired));
  }
}

/// Calls `visit(name, facts)` for each number that occurs.
template <typename Visit>
void forEachNumber(const RecordingFacts& facts, Visit visit) {
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
  forEachNumber(facts, [&out](const std::string& name, const NumberFacts& number) {
    fmt::format_to(out, "{:<24} {:>12.6g} {:>12.6g} {:>9}\n", name, number.lowest, number.highest,
                   shareText(number.zeros, number.count));
  });
}

std::uint64_t openScopes(const RecordingFacts& facts) {
  std::uint64_t open = 0;
  for (const auto& [id, person] : facts.persons) open += person.openScopes.size();
  return open;
}

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void writeKey(JsonWriter& json, std::string_view key) {
  json.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}

void member(JsonWriter& json, std::string_view key, std::string_view value) {
  writeKey(json, key);
  json.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void member(JsonWriter& json, std::string_view key, std::uint64_t value) {
  writeKey(json, key);
  json.Uint64(value);
}

void member(JsonWriter& json, std::string_view key, double value) {
  writeKey(json, key);
  json.Double(value);
}

/// With the digits that give the same float back.
void member(JsonWriter& json, std::string_view key, float value) {
  writeKey(json, key);
  const std::string digits = fmt::format("{}", value);
  json.RawValue(digits.data(), digits.size(), rapidjson::kNumberType);
}

void member(JsonWriter& json, std::string_view key, Time value) {
  writeKey(json, key);
  json.Int64(value.time_since_epoch().count());
}

void writeNull(JsonWriter& json, std::string_view key) {
  writeKey(json, key);
  json.Null();
}

void writeField(JsonWriter& json, const FieldFacts& field, std::uint64_t cycles) {
  json.StartObject();
  member(json, "readings", field.readings);
  member(json, "share", static_cast<double>(field.readings) / static_cast<double>(cycles));
  writeKey(json, "lateness_seconds");
  json.StartObject();
  member(json, "min", seconds(field.lateness.lowest()));
  member(json, "median", seconds(field.lateness.median()));
  member(json, "max", seconds(field.lateness.highest()));
  json.EndObject();
  member(json, "repeated", field.repeated.count);
  member(json, "repeated_with_other_numbers", field.contradicting.count);
  member(json, "future", field.future.count);
  member(json, "expired", field.expired.count);
  json.EndObject();
}

void writePerson(JsonWriter& json, std::int32_t id, const PersonFacts& person) {
  json.StartObject();
  writeKey(json, "person");
  json.Int(id);
  member(json, "observations", person.observations);
  member(json, "not_seen", person.notSeen);
  member(json, "faces", person.faces);
  member(json, "removed", person.removals);
  if (person.cycles() > 0) {
    member(json, "first_time", person.first);
    member(json, "last_time", person.last);
  }
  if (rate(person) > 0.0) member(json, "rate_hz", rate(person));
  member(json, "gaps", person.gaps());
  if (person.gaps() > 0) {
    member(json, "longest_gap_seconds", seconds(person.intervals.highest()));
    member(json, "longest_gap_time", person.longestIntervalBegin);
  }
  writeKey(json, "fields");
  json.StartObject();
  for (const auto& [index, field] : person.fields) {
    writeKey(json, fieldKinds.at(index).name);
    writeField(json, field, person.cycles());
  }
  json.EndObject();
  json.EndObject();
}

void writeScopes(JsonWriter& json, const RecordingFacts& facts) {
  json.StartObject();
  member(json, "opened", facts.scopes.opened);
  member(json, "closed", facts.scopes.closed);
  member(json, "closed_without_being_open", facts.scopes.unknown.count);
  member(json, "opened_while_open", facts.scopes.restarted.count);
  member(json, "dropped_after_last_sample", facts.scopes.exhausted.count);
  member(json, "dropped_with_person", facts.scopes.removed.count);
  writeKey(json, "left_open");
  json.StartArray();
  for (const auto& [id, person] : facts.persons) {
    for (const auto& [name, scope] : person.openScopes) {
      json.StartObject();
      writeKey(json, "person");
      json.Int(id);
      member(json, "scope", name);
      member(json, "line", scope.line);
      json.EndObject();
    }
  }
  json.EndArray();
  json.EndObject();
}

}  // namespace

std::string infoText(const InfoSource& source, const RecordingFacts& facts) {
  std::string text =
      fmt::format("{}: {} lines{}", source.recording == "-" ? "standard input" : source.recording,
                  source.lines, source.error.empty() ? "" : ", the last one in error");
  const auto out = std::back_inserter(text);
  if (facts.events() > 0) {
    fmt::format_to(out, ", {}\n  from {} ({})\n  to   {} ({})\n",
                   durationText(between(facts.lowestTime, facts.highestTime).count()),
                   dateText(facts.lowestTime), facts.lowestTime.time_since_epoch().count(),
                   dateText(facts.highestTime), facts.highestTime.time_since_epoch().count());
  } else {
    text += ", without an event\n";
  }
  if (!source.header.empty()) fmt::format_to(out, "  source {:?}\n", source.header);
  if (facts.events() > 0) text += '\n';
  for (std::size_t event = 0; event < eventNames.size(); ++event) {
    const std::uint64_t count = facts.eventCounts.at(event);
    if (count > 0) fmt::format_to(out, "{:<15} {:>9}\n", eventNames.at(event), count);
  }
  if (facts.scopes.opened + facts.scopes.closed > 0) {
    fmt::format_to(out, "scopes: {} opened, {} closed, {} left open\n", facts.scopes.opened,
                   facts.scopes.closed, openScopes(facts));
  }
  if (!facts.persons.empty()) appendPersons(text, facts);
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

std::string infoJson(const InfoSource& source, const RecordingFacts& facts) {
  rapidjson::StringBuffer text;
  JsonWriter json(text);
  json.SetIndent(' ', 2);
  json.StartObject();
  member(json, "recording", std::string_view(source.recording));
  if (source.error.empty()) {
    writeNull(json, "error");
  } else {
    member(json, "error", std::string_view(source.error));
  }
  member(json, "source", std::string_view(source.header));
  member(json, "lines", source.lines);
  writeKey(json, "events");
  json.StartObject();
  for (std::size_t event = 0; event < eventNames.size(); ++event) {
    member(json, eventNames.at(event), facts.eventCounts.at(event));
  }
  json.EndObject();
  if (facts.events() > 0) {
    member(json, "first_time", facts.lowestTime);
    member(json, "last_time", facts.highestTime);
    member(json, "seconds", seconds(between(facts.lowestTime, facts.highestTime)));
  }
  member(json, "lines_back_in_time", facts.backwards.count);
  member(json, "farthest_back_seconds", seconds(facts.farthestBack));
  writeKey(json, "persons");
  json.StartArray();
  for (const auto& [id, person] : facts.persons) writePerson(json, id, person);
  json.EndArray();
  writeKey(json, "numbers");
  json.StartObject();
  forEachNumber(facts, [&json](const std::string& name, const NumberFacts& number) {
    writeKey(json, name);
    json.StartObject();
    member(json, "count", number.count);
    member(json, "lowest", number.lowest);
    member(json, "highest", number.highest);
    member(json, "zeros", number.zeros);
    json.EndObject();
  });
  json.EndObject();
  writeKey(json, "scopes");
  writeScopes(json, facts);
  writeKey(json, "findings");
  json.StartArray();
  for (const auto& finding : findingsOf(facts)) {
    json.StartObject();
    member(json, "kind", finding.kind);
    if (finding.firstLine > 0) member(json, "first_line", finding.firstLine);
    member(json, "text", std::string_view(finding.text));
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  return std::string(text.GetString()) + '\n';
}

}  // namespace zorvel
