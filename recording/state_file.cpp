#include "recording/state_file.hpp"

#include <filesystem>
#include <utility>

#include "recording/failure.hpp"
#include "recording/json_line.hpp"
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

void StatesReader::add(Event event) {
  auto* const restore = std::get_if<Restore>(&event.what);
  if (restore == nullptr || hasRoom()) throw JsonError("is not a state");
  _states.push_back(std::move(*restore));
}

std::vector<Restore> StatesReader::finish() {
  if (!hasRoom()) throw JsonError("is not whole");
  return std::move(_states);
}

bool StatesReader::hasRoom() const {
  return !_states.empty() && std::holds_alternative<ZV::AmbianceState::Saved>(_states.back().state);
}

std::optional<std::vector<Restore>> readStateFile(const std::string& file) {
  if (!std::filesystem::exists(file)) return std::nullopt;
  RecordingReader recording(file);
  StatesReader states;
  try {
    while (auto event = recording.next()) states.add(std::move(*event));
    return states.finish();
  } catch (const JsonError& error) {
    throw Failure(recording.lines().place() + error.what(),
                  {file, recording.lines().lineNumber(), "", 0});
  }
}

}  // namespace zorvel
