#include "replay/csv.hpp"

#include <array>
#include <cmath>
#include <iterator>
#include <string_view>
#include <vector>

#include "failure.hpp"

namespace zorvel {
namespace {

const std::filesystem::path& made(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw Failure("cannot make the folder " + folder.string() + ": " + error.message());
  return folder;
}

void append(fmt::memory_buffer& text, std::string_view part) {
  text.append(part.data(), part.data() + part.size());
}

void append(fmt::memory_buffer& text, std::int64_t number) {
  fmt::format_to(std::back_inserter(text), "{}", number);
}

// The digits that give the same float back. The sign of a NaN says nothing.
void append(fmt::memory_buffer& text, float number) {
  if (std::isnan(number)) {
    append(text, std::string_view("nan"));
  } else {
    fmt::format_to(std::back_inserter(text), "{}", number);
  }
}

// Quoted as RFC 4180 asks: when it holds a comma, a quote or a line end.
std::string quoted(const std::string& field) {
  if (field.find_first_of(",\"\r\n") == std::string::npos) return field;
  std::string text = "\"";
  for (const char character : field) {
    if (character == '"') text += '"';
    text += character;
  }
  return text + '"';
}

template <typename... Fields>
void appendLine(fmt::memory_buffer& text, Time time, const Fields&... fields) {
  append(text, std::int64_t{time.time_since_epoch().count()});
  ((text.push_back(','), append(text, fields)), ...);
  text.push_back('\n');
}

void appendRow(fmt::memory_buffer& text, Time time, const StateRow& row) {
  appendTimelineRow(text, time, row);
}

void appendRow(fmt::memory_buffer& text, Time time, const ScopeRow& row) {
  appendLine(text, time, std::int64_t{row.person}, quoted(row.scope), row.label,
             static_cast<std::int64_t>(row.samples));
}

void appendRow(fmt::memory_buffer& text, Time time, const AmbianceRow& row) {
  appendLine(text, time, row.agitation, row.calm);
}

void appendForce(fmt::memory_buffer& text, Time time, std::int32_t person, const ZV::Force& force) {
  appendLine(text, time, std::int64_t{person}, nameOf(force.quantity), force.reason, force.target,
             force.strength, force.before, force.after);
}

}  // namespace

std::string_view nameOf(ZV::Quantity quantity) {
  constexpr std::array<std::string_view, 4> names{"valence", "valence_confidence", "attention",
                                                  "attention_confidence"};
  return names.at(static_cast<std::size_t>(quantity));
}

void appendTimelineHeader(fmt::memory_buffer& text) {
  append(text,
         "time,person,valence,valence_confidence,mood,cycle_mood,cycle_mood_confidence,attention,"
         "attention_confidence,ease,ease_confidence\n");
}

void appendTimelineRow(fmt::memory_buffer& text, Time time, const StateRow& row) {
  appendLine(text, time, std::int64_t{row.person}, row.valence.value, row.valence.confidence,
             std::int64_t{row.mood}, std::int64_t{row.cycleMood.value}, row.cycleMood.confidence,
             row.attention.value, row.attention.confidence, row.ease.level, row.ease.confidence);
}

CsvFiles::CsvFiles(const std::filesystem::path& folder, Forces forces)
    : _folder(folder),
      _timeline(made(folder) / "timeline.csv"),
      _scopes(folder / "scopes.csv"),
      _ambiance(folder / "ambiance.csv") {
  appendTimelineHeader(_timeline.text());
  append(_scopes.text(), "time,person,scope,label,samples\n");
  append(_ambiance.text(), "time,agitation,calm\n");
  if (forces == Forces::Unwatched) return;
  _forces.emplace(folder / "forces.csv");
  append(_forces->text(), "time,person,quantity,reason,target,strength,before,after\n");
}

void CsvFiles::write(Time time, const Row& row) {
  const auto writeTo = [time](OutputFile& file, const auto& content) {
    appendRow(file.text(), time, content);
    file.written();
  };
  if (const auto* state = std::get_if<StateRow>(&row)) {
    writeTo(_timeline, *state);
    for (const ZV::Force& force : state->forces) {
      appendForce(_forces->text(), time, state->person, force);
      _forces->written();
    }
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) writeTo(_scopes, *scope);
  if (const auto* ambiance = std::get_if<AmbianceRow>(&row)) writeTo(_ambiance, *ambiance);
}

void CsvFiles::commit() {
  std::vector<OutputFile*> files{&_timeline, &_scopes, &_ambiance};
  if (_forces) files.push_back(&*_forces);
  for (OutputFile* file : files) file->finish();
  if (!_forces) {
    std::error_code error;
    std::filesystem::remove(_folder / "forces.csv", error);
    if (error) throw Failure((_folder / "forces.csv").string() + ": " + error.message());
  }
  for (OutputFile* file : files) file->commit();
}

}  // namespace zorvel
