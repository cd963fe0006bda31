#ifndef ZORVEL_IMPORT_IMPORTER_HPP
#define ZORVEL_IMPORT_IMPORTER_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "import/csv_reader.hpp"
#include "recording/event.hpp"
#include "recording/text_output.hpp"

namespace zorvel {

struct ImportOptions {
  /// The time at which the file begins; 2000-01-01T00:00:00Z by default.
  Time start{boost::chrono::seconds(946'684'800)};
  /// A person unseen for longer is removed.
  Time::duration gap = boost::chrono::seconds(3);
  std::optional<double> framesPerSecond;
  bool mirrored = false;
  /// The intensity of an action unit that counts as full.
  double fullIntensity = 3.0;
};

/// What became of one of the fields that a file can give.
struct ImportedField {
  /// As a recording calls it.
  std::string_view name;
  /// Why it is not there, or not all of it: "column AU12_r is missing"; empty when nothing is in
  /// the way.
  std::string obstacle;
  /// How many observations have it.
  std::uint64_t observations = 0;
};

/// What an import made.
struct ImportFacts {
  std::uint64_t rows = 0;
  std::uint64_t frames = 0;
  std::uint64_t people = 0;
  /// One for each row with a face.
  std::uint64_t observations = 0;
  /// From the first frame to the last.
  Time::duration length{};
  /// How a row without a face is known.
  std::string_view noFace;
  /// Says which last row was left out, and why; empty when none was.
  std::string cutOffRow;
  std::vector<ImportedField> fields;
  /// Which times look wrong, a sentence each.
  std::vector<std::string> doubtfulTimes;
};

/// Makes events of the rows of a file, by ascending time. `onProgress` is called when the columns
/// are found to be those of the format, and after each row. Throws Failure when they are not, when
/// the file cannot be read to its end, or when no row has a face; `use` then has the events of the
/// rows before. Throws what `use` and `onProgress` throw.
using Importer = ImportFacts(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                             const std::function<void()>& onProgress);

/// For what OpenFace 2.x writes.
Importer importOpenFace;
/// For what py-feat writes, with a detector of its first or its second generation. The options must
/// have the frames per second.
Importer importPyFeat;

/// Imports into a recording whose header says `source`, without committing it. `onProgress` is
/// called as by an Importer. When a file of the format fails later, standard output keeps what the
/// rows before gave.
ImportFacts importInto(TextOutput& recording, std::string_view source, Importer& importRows,
                       CsvReader& rows, const ImportOptions& options,
                       const std::function<void()>& onProgress);

}  // namespace zorvel

#endif
