#include "report/report_data.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "playback/columns.hpp"
#include "playback/explanation.hpp"
#include "playback/row_line.hpp"
#include "recording/json_writer.hpp"
#include "report/packed_column.hpp"

namespace zorvel {
namespace {

constexpr std::array quantityNames =
    std::apply([](const auto&... column) { return std::array{column.name...}; }, quantityColumns);

/// The place of a quantity in quantityColumns.
std::size_t columnOf(ZV::Quantity quantity) {
  const auto* const found = std::find(quantityNames.begin(), quantityNames.end(), nameOf(quantity));
  return static_cast<std::size_t>(found - quantityNames.begin());
}

/// How many of the greatest changes are shown of each of them.
constexpr std::size_t mostChanges = 3;

std::int64_t nanoseconds(Time time) { return time.time_since_epoch().count(); }

// As a text: a script's numbers hold 53 bits.
void writeTime(JsonLineWriter& json, std::string_view name, Time time) {
  json.member(name, std::to_string(nanoseconds(time)));
}

template <typename Integer>
void writeColumn(JsonLineWriter& json, std::string_view name, const std::vector<Integer>& column) {
  json.member(name, packedColumn(column));
}

/// The bits of the floats.
void writeColumn(JsonLineWriter& json, std::string_view name, const std::vector<float>& column) {
  std::vector<std::int32_t> bits(column.size());
  // An empty vector may have no data, which memcpy does not take.
  if (!column.empty()) std::memcpy(bits.data(), column.data(), column.size() * sizeof(float));
  writeColumn(json, name, bits);
}

}  // namespace

std::string insideElement(std::string_view json) {
  // "<" occurs only in texts, where its escape means the same.
  std::string safe;
  safe.reserve(json.size());
  for (const char character : json) {
    if (character == '<') {
      safe += "\\u003c";
    } else {
      safe += character;
    }
  }
  return safe;
}

ReportData::Person::Person()
    : quantities(quantityNames.size()), known(std::tuple_size_v<decltype(knownColumns)>) {}

void ReportData::Person::add(Time time, const StateRow& row) {
  cycles.add(time, row.isSeen);
  auto values = quantities.begin();
  std::apply([&](const auto&... column) { ((values++)->push_back(column.value(row)), ...); },
             quantityColumns);
  auto flags = known.begin();
  std::apply([&](const auto&... column) { ((flags++)->push_back(column.value(row) ? 1 : 0), ...); },
             knownColumns);
  moods.push_back(static_cast<std::int8_t>(row.mood));
  static_assert(std::tuple_size_v<decltype(stateParts)> == 9,
                "A new part of a state that is no quantity is shown only if it is added here.");
  addMoves(row.forces);
}

void ReportData::Person::addMoves(const std::vector<ZV::Force>& forces) {
  Explanation cycle;
  cycle.add(forces);
  for (std::size_t index = 0; index < movedQuantities.size(); ++index) {
    auto& columns = moves.at(index);
    const auto quantity = static_cast<std::size_t>(movedQuantities.at(index).quantity);
    for (const ReasonMoves& reason : cycle.quantities().at(quantity).reasons) {
      auto column = std::find_if(columns.begin(), columns.end(),
                                 [&reason](const Moves& of) { return of.reason == reason.reason; });
      if (column == columns.end()) column = columns.insert(columns.end(), {reason.reason, {}});
      column->rows.resize(cycles.times().size());
      column->rows.back() =
          static_cast<std::int16_t>(std::lround((reason.up - reason.down) * 10'000.0));
    }
  }
}

void ReportData::Person::open(Time time, const std::string& scope) {
  const auto [place, isNew] = openScopes.try_emplace(scope);
  if (!isNew) scopes[place->second].end = time;
  place->second = scopes.size();
  scopes.push_back({scope, time, {}, ""});
}

void ReportData::Person::close(Time time, const ScopeRow& row) {
  const auto place = openScopes.find(row.scope);
  if (place == openScopes.end()) {
    scopes.push_back({row.scope, time, time, row.label});
    return;
  }
  Scope& scope = scopes[place->second];
  scope.end = time;
  scope.label = row.label;
  scope.samples = row.samples;
  openScopes.erase(place);
}

void ReportData::Person::endScopes(Time time) {
  for (const auto& [name, index] : openScopes) scopes[index].end = time;
  openScopes.clear();
}

void ReportData::Person::moveOpenScopes(Person& to) {
  for (const auto& [name, index] : openScopes) {
    const auto [place, isNew] = to.openScopes.try_emplace(name, to.scopes.size());
    if (isNew) {
      to.scopes.push_back(scopes[index]);
    } else {
      Time& begin = to.scopes[place->second].begin;
      begin = std::min(begin, scopes[index].begin);
    }
  }
  const auto isOpen = [](const Scope& scope) { return !scope.end; };
  scopes.erase(std::remove_if(scopes.begin(), scopes.end(), isOpen), scopes.end());
  openScopes.clear();
}

void ReportData::Person::writeChanges(JsonLineWriter& json) const {
  json.member("tooShort", cycles.areShort());
  json.key("changes");
  json.beginList();
  for (std::size_t index = 0; index < movedQuantities.size(); ++index) {
    const MovedQuantity& moved = movedQuantities.at(index);
    const std::vector<float>& values = quantities.at(columnOf(moved.quantity));
    for (const Change& change : cycles.changes(values, moved.range, mostChanges)) {
      // Over the whole change, what pulls steadily against something else would sum up to more.
      const bool isRise = values[change.last] > values[change.first];
      std::string_view reason;
      int most = 0;
      for (const Moves& of : moves.at(index)) {
        if (change.steepest >= of.rows.size()) continue;
        const int pull = isRise ? of.rows[change.steepest] : -of.rows[change.steepest];
        if (pull <= most) continue;
        most = pull;
        reason = of.reason;
      }
      json.begin();
      json.member("quantity", nameOf(moved.quantity));
      json.member("first", change.first);
      json.member("last", change.last);
      json.member("reason", reason);
      json.end();
    }
  }
  json.endList();
}

void ReportData::Person::write(JsonLineWriter& json, Time end) const {
  writeColumn(json, "time", cycles.times());
  writeColumn(json, "begins", cycles.stretches());
  for (std::size_t column = 0; column < quantities.size(); ++column) {
    writeColumn(json, quantityNames.at(column), quantities.at(column));
  }
  json.object("known", [&] {
    auto flags = known.begin();
    std::apply([&](const auto&... column) { (writeColumn(json, column.name, *flags++), ...); },
               knownColumns);
  });
  writeColumn(json, "mood", moods);
  json.object("moves", [&] {
    for (std::size_t index = 0; index < movedQuantities.size(); ++index) {
      const std::string_view quantity = nameOf(movedQuantities.at(index).quantity);
      json.list(quantity, moves.at(index), [&](const Moves& of) {
        std::vector<std::int16_t> rows = of.rows;
        rows.resize(cycles.times().size());
        json.member("reason", of.reason);
        writeColumn(json, "rows", rows);
      });
    }
  });
  writeChanges(json);
  json.list("scopes", scopes, [&](const Scope& scope) {
    json.member("scope", scope.name);
    writeTime(json, "from", scope.begin);
    writeTime(json, "to", scope.end.value_or(end));
    json.member("label", scope.label);
    json.member("samples", scope.samples);
  });
}

void ReportData::add(Time time, const Event& event, const Row& row) {
  if (_isEmpty) _begin = time;
  _isEmpty = false;
  _end = time;
  if (const auto* start = std::get_if<StartRecording>(&event.what)) {
    _persons[start->person].open(time, start->scope);
  }
  followPeople(event, _persons);
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    const auto person = _persons.find(remove->person);
    if (person != _persons.end()) person->second.endScopes(time);
  }
  if (const auto* const restored = restoredPerson(event)) {
    Person& person = _persons[restored->id];
    person.endScopes(time);
    for (const auto& [name, scope] : restored->scopes) {
      // When it was opened is not known.
      person.open(scope.samples.empty() ? time : scope.samples.front().time, name);
    }
  }
  if (const auto* rename = std::get_if<Rename>(&event.what)) {
    const auto person = _persons.find(rename->person);
    if (person != _persons.end() && rename->person != rename->to &&
        !person->second.openScopes.empty()) {
      person->second.moveOpenScopes(_persons[rename->to]);
    }
  }
  if (const auto* state = std::get_if<StateRow>(&row)) {
    _persons[state->person].add(time, *state);
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) _persons[scope->person].close(time, *scope);
  if (const auto* room = std::get_if<AmbianceRow>(&row)) {
    _roomTimes.push_back(nanoseconds(time));
    _agitation.push_back(room->agitation);
  }
}

std::string ReportData::json(Time zero, std::string_view recording, std::string_view source,
                             std::string_view failure, const std::vector<std::string>& warnings,
                             const std::vector<Mattered>& mattered) const {
  fmt::memory_buffer text;
  JsonLineWriter json(text);
  json.member("recording", recording);
  json.member("source", source);
  json.member("failure", failure);
  json.key("warnings");
  json.beginList();
  for (const std::string& warning : warnings) json.value(warning);
  json.endList();
  writeReasons(json);
  writeTime(json, "zero", zero);
  writeTime(json, "start", _begin);
  writeTime(json, "end", _end);
  json.list("persons", _persons, [&](const auto& entry) {
    json.member("person", entry.first);
    entry.second.write(json, _end);
  });
  json.object("room", [&] {
    writeColumn(json, "time", _roomTimes);
    writeColumn(json, "agitation", _agitation);
  });
  json.list("mattered", mattered, [&](const Mattered& row) {
    writeMattered(row,
                  [&json](std::string_view name, const auto& value) { json.member(name, value); });
  });
  json.finish();
  return insideElement({text.data(), text.size()});
}

}  // namespace zorvel
