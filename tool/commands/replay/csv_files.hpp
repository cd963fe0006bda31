#ifndef ZORVEL_TOOL_COMMANDS_REPLAY_CSV_FILES_HPP
#define ZORVEL_TOOL_COMMANDS_REPLAY_CSV_FILES_HPP

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "playback/playback.hpp"
#include "recording/text_output.hpp"
#include "system/output_folder.hpp"

namespace zorvel {

/// Writes what a recording gives as CSV files: timeline.csv, scopes.csv and ambiance.csv, and
/// forces.csv where forces are watched.
class CsvFiles {
 public:
  /// The names of all files that are written or removed in the folder.
  static std::vector<std::string> names(const std::filesystem::path& folder);

  /// Makes the folder, with its parents, and begins the files. Throws Failure.
  CsvFiles(const std::filesystem::path& folder, Forces forces);

  /// Writes a row at `time`, into the file that it belongs to. Throws Failure.
  void write(Time time, const Row& row);

  /// Finishes all files, then gives them their names, and removes the forces of an earlier replay,
  /// which belong to another timeline. Without a commit, no file leaves a trace. Throws Failure.
  void commit();

 private:
  std::filesystem::path _folder;
  OutputFolder _made;  // declared before the files in it, so that it goes after them
  TextOutput _timeline;
  TextOutput _scopes;
  TextOutput _ambiance;
  std::optional<TextOutput> _forces;
};

}  // namespace zorvel

#endif
