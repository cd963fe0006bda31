#include "commands/replay/csv_files.hpp"

#include <unistd.h>

#include <cerrno>

#include "playback/csv.hpp"
#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr const char* timelineName = "timeline.csv";
constexpr const char* scopesName = "scopes.csv";
constexpr const char* ambianceName = "ambiance.csv";
constexpr const char* forcesName = "forces.csv";

}  // namespace

std::vector<std::string> CsvFiles::names(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto* name : {timelineName, scopesName, ambianceName, forcesName}) {
    names.push_back((folder / name).string());
  }
  return names;
}

CsvFiles::CsvFiles(const std::filesystem::path& folder, Forces forces)
    : _folder(folder),
      _made(folder),
      _timeline(folder / timelineName),
      _scopes(folder / scopesName),
      _ambiance(folder / ambianceName) {
  _timeline.append(timelineHeader);
  _scopes.append(scopesHeader);
  _ambiance.append(ambianceHeader);
  if (forces == Forces::Unwatched) return;
  _forces.emplace(folder / forcesName);
  _forces->append(forcesHeader);
}

void CsvFiles::write(Time time, const Row& row) {
  if (const auto* state = std::get_if<StateRow>(&row)) {
    appendRow(_timeline.text(), time, *state);
    _timeline.flush();
    for (const ZV::Force& force : state->forces) {
      appendRow(_forces->text(), time, state->person, force);
      _forces->flush();
    }
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) {
    appendRow(_scopes.text(), time, *scope);
    _scopes.flush();
  }
  if (const auto* ambiance = std::get_if<AmbianceRow>(&row)) {
    appendRow(_ambiance.text(), time, *ambiance);
    _ambiance.flush();
  }
}

void CsvFiles::commit() {
  std::vector<TextOutput*> files{&_timeline, &_scopes, &_ambiance};
  if (_forces) files.push_back(&*_forces);
  for (TextOutput* file : files) file->finish();
  if (!_forces) {
    const std::string forces = _folder / forcesName;
    if (access(forces.c_str(), W_OK) == 0 ? unlink(forces.c_str()) != 0 : errno != ENOENT) {
      throw systemFailure(forces, errno);
    }
  }
  for (TextOutput* file : files) file->commit();
}

}  // namespace zorvel
