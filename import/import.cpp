#include "import/import.hpp"

#include <fmt/format.h>

#include "import/face_frames.hpp"
#include "import/openface.hpp"
#include "import/pyfeat.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

[[noreturn]] void failWithoutObservation(const std::string& name, const ImportFacts& facts) {
  throw Failure(fmt::format("{}: gives no observation: {}{}{}", printable(name),
                            facts.rows == 0
                                ? "it has no rows"
                                : fmt::format("none of its rows has a face: {}", facts.noFace),
                            facts.cutOffRow.empty() ? "" : "\n", facts.cutOffRow));
}

template <typename Format>
ImportFacts importRows(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                       const std::function<void()>& onProgress) {
  Format format(rows, options);
  FaceFrames frames(rows, options, use);
  std::uint64_t rowCount = 0;
  try {
    onProgress();
    while (rows.next()) {
      format.readRow(frames);
      ++rowCount;
      onProgress();
    }
  } catch (const Failure&) {
    frames.abandon();
    throw;
  }
  format.finish(frames);
  ImportFacts facts = frames.facts(format.fields(), format.hasTimestamps());
  facts.rows = rowCount;
  facts.noFace = Format::noFace;
  facts.cutOffRow = rows.cutOffRow();
  if (facts.observations == 0) failWithoutObservation(rows.lines().name(), facts);
  return facts;
}

}  // namespace

ImportFacts importOpenFace(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                           const std::function<void()>& onProgress) {
  return importRows<OpenFaceImport>(rows, options, use, onProgress);
}

ImportFacts importPyFeat(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                         const std::function<void()>& onProgress) {
  return importRows<PyFeatImport>(rows, options, use, onProgress);
}

}  // namespace zorvel
