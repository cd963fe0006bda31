#include "import/import.hpp"

#include "import/face_frames.hpp"
#include "import/openface.hpp"
#include "import/pyfeat.hpp"
#include "recording/failure.hpp"

namespace zorvel {
namespace {

template <typename Format>
void importRows(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                const std::function<void()>& onProgress) {
  Format format(rows, options);
  FaceFrames frames(rows, options, use);
  try {
    onProgress();
    while (rows.next()) {
      format.readRow(frames);
      onProgress();
    }
  } catch (const Failure&) {
    frames.abandon();
    throw;
  }
  format.finish(frames);
}

}  // namespace

void importOpenFace(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                    const std::function<void()>& onProgress) {
  importRows<OpenFaceImport>(rows, options, use, onProgress);
}

void importPyFeat(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                  const std::function<void()>& onProgress) {
  importRows<PyFeatImport>(rows, options, use, onProgress);
}

}  // namespace zorvel
