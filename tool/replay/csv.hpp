#ifndef ZORVEL_TOOL_REPLAY_CSV_HPP
#define ZORVEL_TOOL_REPLAY_CSV_HPP

#include <filesystem>
#include <optional>

#include "output_file.hpp"
#include "replay/playback.hpp"

namespace zorvel {

/// The quantity's name, as in the columns of timeline.csv.
std::string_view nameOf(ZV::Quantity quantity);

// The lines of timeline.csv.
void appendTimelineHeader(fmt::memory_buffer& text);
void appendTimelineRow(fmt::memory_buffer& text, Time time, const StateRow& row);

/// Writes what a recording gives as CSV files: timeline.csv, scopes.csv and ambiance.csv, and
/// forces.csv where forces are watched.
class CsvFiles {
 public:
  /// Makes the folder, with its parents, and begins the files. Throws Failure.
  CsvFiles(const std::filesystem::path& folder, Forces forces);

  /// Writes a row at `time`, into the file that it belongs to. Throws Failure.
  void write(Time time, const Row& row);

  /// Finishes all files, then gives them their names, and removes the forces of an earlier replay,
  /// which belong to another timeline. Without it they leave no trace. Throws
  /// Failure.
  void commit();

 private:
  std::filesystem::path _folder;
  OutputFile _timeline;
  OutputFile _scopes;
  OutputFile _ambiance;
  std::optional<OutputFile> _forces;
};

}  // namespace zorvel

#endif
