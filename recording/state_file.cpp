#include "recording/state_file.hpp"

#include <filesystem>
#include <utility>

#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/text_output.hpp"

namespace zorvel {

void writeStateFile(const std::string& file, std::string_view source, Time time,
                    std::vector<Restore> states) {
  TextOutput output(file);
  appendHeader(output.text(), source);
  for (Restore& state : states) {
    appendEvent(output.text(), {time, std::move(state)});
    output.flush();
  }
  output.finish();
  output.commit();
}

std::optional<std::vector<Restore>> readStateFile(const std::string& file) {
  if (!std::filesystem::exists(file)) return std::nullopt;
  RecordingReader recording(file);
  std::vector<Restore> states;
  const auto hasRoom = [&states] {
    return !states.empty() && std::holds_alternative<ZV::AmbianceState::Saved>(states.back().state);
  };
  while (auto event = recording.next()) {
    auto* const restore = std::get_if<Restore>(&event->what);
    if (restore == nullptr || hasRoom()) {
      throw Failure(recording.lines().place() + "is not a state");
    }
    states.push_back(std::move(*restore));
  }
  if (!hasRoom()) throw Failure(printable(file) + ": is not whole");
  return states;
}

}  // namespace zorvel
