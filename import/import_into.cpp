#include "import/importer.hpp"
#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"

namespace zorvel {

ImportFacts importInto(TextOutput& recording, std::string_view source, Importer& importRows,
                       CsvReader& rows, const ImportOptions& options,
                       const std::function<void()>& onProgress) {
  appendHeader(recording.text(), source, options.start);
  bool isRecognised = false;
  ImportFacts facts;
  try {
    facts = importRows(
        rows, options, [&](const Event& event) { appendEvent(recording.text(), event); },
        [&] {
          isRecognised = true;
          recording.flush();
          onProgress();
        });
  } catch (const Failure&) {
    if (isRecognised) recording.flush();
    throw;
  }
  recording.flush();
  return facts;
}

}  // namespace zorvel
