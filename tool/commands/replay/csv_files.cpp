#include "commands/replay/csv_files.hpp"

#include <unistd.h>

#include <cerrno>

#include "playback/csv.hpp"
#include "recording/failure.hpp"
#include "system/interrupt.hpp"

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
      _timeline(folder / timelineName, throwIfInterrupted),
      _scopes(folder / scopesName, throwIfInterrupted),
      _ambiance(folder / ambianceName, throwIfInterrupted) {
  _timeline.append(timelineHeader);
  _scopes.append(scopesHeader);
  _ambiance.append(ambianceHeader);
  if (forces == Forces::Unwatched) return;
  _forces.emplace(folder / forcesName, throwIfInterrupted);
  _forces->append(forcesHeader);
}

void CsvFiles::write(Time time, const Row& row) {
  const auto writeTo = [time](TextOutput& file, const auto&... content) {
    appendRow(file.text(), time, content...);
    file.flush();
  };
  if (const auto* state = std::get_if<StateRow>(&row)) {
    writeTo(_timeline, *state);
    for (const ZV::Force& force : state->forces) writeTo(*_forces, ForceRow{state->person, force});
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) writeTo(_scopes, *scope);
  if (const auto* ambiance = std::get_if<AmbianceRow>(&row)) writeTo(_ambiance, *ambiance);
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
