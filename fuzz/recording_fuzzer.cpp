// Any bytes as a recording, as they are and with fitting checksums. Every line is read or refused;
// what was read can be written and read again without a change; the whole can be played.

#include <fmt/format.h>

#include <boost/crc.hpp>
#include <cmath>
#include <ku/log.hpp>
#include <string>
#include <string_view>

#include "fuzzing.hpp"
#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"

using zorvel::fuzz::MemoryFile;
using zorvel::fuzz::require;

namespace zorvel {
namespace {

void readAndWriteAll(const MemoryFile& file) {
  RecordingReader recording(file.path());
  while (true) {
    try {
      const auto event = recording.next();
      if (!event) return;
      const std::string line = eventLine(*event);
      const MemoryFile copy(reinterpret_cast<const std::uint8_t*>(line.data()), line.size());
      const auto again = RecordingReader(copy.path()).next();
      require(again && again->time == event->time, "a written line lost its time");
      require(eventLine(*again) == line, "a written line changed when it was read");
    } catch (const BadLine&) {  // the lines after it can still be read
    } catch (const Failure&) {  // UTF-16
      return;
    }
  }
}

/// With checksums that fit the states, which no change of a byte would pass otherwise.
std::string withFittingChecksums(std::string text) {
  constexpr std::string_view key = R"(,"checksum":")";
  constexpr std::string_view stateKey = R"("state":)";
  for (auto end = text.find(key); end != text.npos; end = text.find(key, end + 1)) {
    const auto state = text.rfind(stateKey, end);
    if (state == text.npos || end + key.size() + 8 > text.size()) continue;
    const auto begin = state + stateKey.size();
    boost::crc_32_type checksum;
    checksum.process_bytes(text.data() + begin, end - begin);
    text.replace(end + key.size(), 8, fmt::format("{:08x}", checksum.checksum()));
  }
  return text;
}

bool isWithin(float number, float lowest, float highest) {
  // Sums of floats near the end of their range overflow, and the difference of two such sums is
  // NaN.
  return std::isnan(number) || (number >= lowest && number <= highest);
}

void playIt(const MemoryFile& file) {
  RecordingReader recording(file.path());
  fmt::memory_buffer timeline;
  playAll(recording, Forces::Watched, [&](Time time, const Event&, const Row& row) {
    const auto* state = std::get_if<StateRow>(&row);
    if (state == nullptr) return;
    require(isWithin(state->valence.value, -1.0f, 1.0f), "valence out of range");
    require(isWithin(state->attention.value, 0.0f, 1.0f), "attention out of range");
    timeline.clear();
    appendRow(timeline, time, *state);
  });
}

}  // namespace
}  // namespace zorvel

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ku::log::setLevel(ku::log::Silent);
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string fitting = zorvel::withFittingChecksums(input);
  for (const auto* const text : {&input, &fitting}) {
    if (text == &fitting && fitting == input) continue;
    const MemoryFile file(reinterpret_cast<const std::uint8_t*>(text->data()), text->size());
    zorvel::readAndWriteAll(file);
    zorvel::playIt(file);
  }
  return 0;
}
