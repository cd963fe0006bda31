#ifndef ZORVEL_IMPORT_IMPORT_HPP
#define ZORVEL_IMPORT_IMPORT_HPP

#include <functional>
#include <optional>

#include "import/csv_reader.hpp"
#include "recording/event.hpp"

namespace zorvel {

struct ImportOptions {
  /// The time at which the file begins.
  Time start;
  /// A person unseen for longer is removed.
  double gapSeconds = 3.0;
  std::optional<double> framesPerSecond;
  bool mirrored = false;
  /// The intensity of an action unit that counts as full.
  double fullIntensity = 3.0;
};

/// Makes events of the rows of a file, by ascending time. `onProgress` is called when the columns
/// are found to be those of the format, and after each row. Throws Failure when they are not, or
/// when the file cannot be read to its end: then `use` has got what the rows before tell. Throws
/// what `use` and `onProgress` throw.
using Importer = void(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                      const std::function<void()>& onProgress);

/// For what OpenFace 2.x writes.
Importer importOpenFace;
/// For what py-feat writes, with a detector of its first or its second generation. The options must
/// have the frames per second.
Importer importPyFeat;

}  // namespace zorvel

#endif
