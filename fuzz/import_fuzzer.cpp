// Bytes, taken for a CSV file of face analysis: whatever the importer writes before it refuses one
// is a recording without a bad line.

#include <sys/mman.h>
#include <unistd.h>

#include "failure.hpp"
#include "fuzzing.hpp"
#include "import/import.hpp"
#include "recording/recording.hpp"

using zorvel::fuzz::MemoryFile;
using zorvel::fuzz::require;

namespace {

void requireRecordingOnStandardOutput() {
  zorvel::RecordingReader recording("/proc/self/fd/1");
  zorvel::Time last = zorvel::Time::min();
  while (const auto event = recording.next()) {
    require(event->time >= last, "the time runs backwards");
    last = event->time;
  }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  require(dup2(memfd_create("output", 0), STDOUT_FILENO) >= 0, "no memory file");
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned int choices = data[0];
  const MemoryFile file(data + 1, size - 1);
  zorvel::ImportOptions options;
  options.file = file.path();
  options.mirrored = (choices & 2U) != 0;
  if ((choices & 4U) != 0) options.gapSeconds = 0.0;
  require(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0, "no output");
  try {
    if ((choices & 1U) != 0) {
      if ((choices & 8U) != 0) options.framesPerSecond = 25.0;
      zorvel::importOpenFace(options);
    } else {
      options.framesPerSecond = 25.0;
      zorvel::importPyFeat(options);
    }
  } catch (const zorvel::Failure&) {  // and says where
  }
  requireRecordingOnStandardOutput();
  return 0;
}
