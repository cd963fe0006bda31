#include "commands/replay/csv_files.hpp"

#include <string_view>
#include <vector>

#include "playback/csv.hpp"
#include "recording/failure.hpp"

namespace zorvel {
namespace {

const std::filesystem::path& makeFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw Failure("cannot make the folder " + folder.string() + ": " + error.message());
  return folder;
}

}  // namespace

CsvFiles::CsvFiles(const std::filesystem::path& folder, Forces forces)
    : _folder(makeFolder(folder)),
      _timeline(folder / "timeline.csv"),
      _scopes(folder / "scopes.csv"),
      _ambiance(folder / "ambiance.csv") {
  _timeline.append(timelineHeader);
  _scopes.append(scopesHeader);
  _ambiance.append(ambianceHeader);
  if (forces == Forces::Unwatched) return;
  _forces.emplace(folder / "forces.csv");
  _forces->append(forcesHeader);
}

void CsvFiles::write(Time time, const Row& row) {
  if (const auto* state = std::get_if<StateRow>(&row)) {
    appendRow(_timeline.text(), time, *state);
    _timeline.flushIfFull();
    for (const ZV::Force& force : state->forces) {
      appendRow(_forces->text(), time, state->person, force);
      _forces->flushIfFull();
    }
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) {
    appendRow(_scopes.text(), time, *scope);
    _scopes.flushIfFull();
  }
  if (const auto* ambiance = std::get_if<AmbianceRow>(&row)) {
    appendRow(_ambiance.text(), time, *ambiance);
    _ambiance.flushIfFull();
  }
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
