#include "zorvel/session.hpp"

#include <fmt/format.h>

#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/event_reader.hpp"
#include "recording/json_line.hpp"
#include "recording/record_file.hpp"
#include "recording/recording_writer.hpp"
#include "recording/state_file.hpp"

namespace zorvel {
namespace {

/// One for each person and, last, the room.
std::vector<Restore> restoresOf(const SessionState& state) {
  std::vector<Restore> restores;
  for (const auto& [id, person] : state.persons) {
    restores.push_back({SavedPerson{id, person.known, person.scopes}});
  }
  restores.emplace_back().state = state.room;
  return restores;
}

}  // namespace

void saveSession(const std::string& file, Time time, const SessionState& state) {
  writeStateFile(file, "saved session", time, restoresOf(state));
}

std::optional<SessionState> loadSession(const std::string& file) {
  auto restores = readStateFile(file);
  if (!restores) return std::nullopt;
  SessionState state;
  for (Restore& restore : *restores) {
    if (auto* const person = std::get_if<SavedPerson>(&restore.state)) {
      state.persons[person->id] = {std::move(person->known), std::move(person->scopes)};
    } else {
      state.room = std::get<ZV::AmbianceState::Saved>(restore.state);
    }
  }
  return state;
}

struct SessionRecording::Private {
  Private(const std::string& name, std::string_view header) : file(name, header) {}

  RecordFile file;
  EventReader reader{MissingTime::Error};
  fmt::memory_buffer text;

  /// Adds a line to the text that is written next.
  void add(const Event& event) {
    const std::size_t begin = text.size();
    try {
      appendEvent(text, event);
      std::string line(text.data() + begin, text.size() - begin - 1);
      reader.read(line);  // what cannot be read back must not get into the file
    } catch (const JsonError& error) {
      text.clear();
      throw std::invalid_argument(error.what());
    } catch (...) {
      text.clear();
      throw;
    }
  }
  void write() {
    const std::string lines = fmt::to_string(text);
    text.clear();
    file.append(lines);
  }
  void append(const Event& event) {
    add(event);
    write();
  }
};

SessionRecording::SessionRecording(const std::string& file, const std::string& source) {
  fmt::memory_buffer header;
  appendHeader(header, source);
  _private = std::make_unique<Private>(file, std::string_view(header.data(), header.size()));
}
SessionRecording::~SessionRecording() = default;

void SessionRecording::observation(Time time, std::int32_t person,
                                   const ZV::PersonObservation& observation) {
  _private->append({time, Observation{person, observation}});
}
void SessionRecording::notSeen(Time time, std::int32_t person) {
  _private->append({time, NotSeen{person}});
}
void SessionRecording::remove(Time time, std::int32_t person) {
  _private->append({time, Remove{person}});
}
void SessionRecording::rename(Time time, std::int32_t from, std::int32_t to) {
  _private->append({time, Rename{from, to}});
}
void SessionRecording::startRecording(Time time, std::int32_t person, const std::string& scope,
                                      std::int32_t samples) {
  _private->append({time, StartRecording{person, scope, samples}});
}
void SessionRecording::stopRecording(Time time, std::int32_t person, const std::string& scope) {
  _private->append({time, StopRecording{person, scope}});
}
void SessionRecording::movement(Time time) { _private->append({time, Movement{}}); }
void SessionRecording::activity(Time time, float value) {
  _private->append({time, Activity{value}});
}
void SessionRecording::restore(Time time, const SessionState& state) {
  for (Restore& restore : restoresOf(state)) {
    _private->add({time, std::move(restore)});
  }
  _private->write();
}

}  // namespace zorvel
