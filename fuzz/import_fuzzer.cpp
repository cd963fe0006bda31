// Any bytes as a CSV file of face analysis, or as what raters made. Whatever the importer writes,
// even before it refuses a row, is a recording without a bad line, in the order of time.

#include "fuzzing.hpp"
#include "import/importer.hpp"
#include "import/raters_file.hpp"
#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"

using zorvel::fuzz::MemoryFile;
using zorvel::fuzz::require;

namespace {

/// Requires that the text is a good recording; returns the number of observations.
std::uint64_t requireRecording(const fmt::memory_buffer& text) {
  const MemoryFile file(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  zorvel::RecordingReader recording(file.path());
  zorvel::Time last = zorvel::Time::min();
  std::uint64_t observations = 0;
  while (const auto event = recording.next()) {
    require(event->time >= last, "the time runs backwards");
    last = event->time;
    if (std::holds_alternative<zorvel::Observation>(event->what)) ++observations;
  }
  return observations;
}

/// Reads the file as one of ELAN, and as a table if it has the columns of one.
void readRatersFile(const std::string& path) {
  try {
    zorvel::readElan(path, {});
  } catch (const zorvel::Failure&) {  // a refusal is fine
  }
  try {
    zorvel::CsvReader rows(path);
    if (zorvel::isBoris(rows)) {
      zorvel::readBoris(rows);
    } else if (zorvel::isBids(rows)) {
      zorvel::readBids(rows);
    }
  } catch (const zorvel::Failure&) {
  }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) { return 0; }

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned int choices = data[0];
  const bool isOpenFace = (choices & 1U) != 0;
  const MemoryFile file(data + 1, size - 1);
  if ((choices & 64U) != 0) {
    readRatersFile(file.path());
    return 0;
  }
  zorvel::ImportOptions options;
  options.mirrored = (choices & 2U) != 0;
  if ((choices & 4U) != 0) options.gap = zorvel::Time::duration(0);
  if (!isOpenFace || (choices & 8U) != 0) options.framesPerSecond = 25.0;
  std::optional<zorvel::ImportFacts> facts;
  fmt::memory_buffer text;
  const auto use = [&text](const zorvel::Event& event) { zorvel::appendEvent(text, event); };
  try {
    zorvel::CsvReader rows(file.path());
    facts = (isOpenFace ? zorvel::importOpenFace : zorvel::importPyFeat)(rows, options, use, [] {});
  } catch (const zorvel::Failure&) {  // a refusal is fine
  }
  const std::uint64_t observations = requireRecording(text);
  if (facts) require(facts->observations == observations && observations > 0, "a wrong count");
  return 0;
}
