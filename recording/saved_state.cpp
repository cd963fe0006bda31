#include "recording/saved_state.hpp"

#include <fmt/format.h>

#include <boost/crc.hpp>
#include <stdexcept>
#include <vector>
#include <zv/person.hpp>

#include "recording/field_reader.hpp"
#include "recording/field_writer.hpp"
#include "recording/json_writer.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

constexpr int version = 1;
constexpr NumberKinds pairKinds{NumberKind{"value"}, NumberKind{"confidence"}};

using Room = ZV::AmbianceState::Saved;
using Sample = ZV::ZVEmotionRecorder::SavedSample;

/// Calls `visit(name, part)` for each part of a person that consists of numbers alone.
template <typename Visit>
void forEachPart(ZV::SavedPerson& person, Visit visit) {
  visit("valence", person.valence);
  visit("unsmoothedValence", person.unsmoothedValence);
  visit("attention", person.attention);
  ZV::ValueConfidence<float> ease(person.ease.level, person.ease.confidence);
  visit("ease", ease);
  person.ease = {ease.value, ease.confidence};
  visit("smile", person.smile);
  visit("expressions", person.expressions);
}

/// Calls `visit(name, number)` for each number of the room.
template <typename Room, typename Visit>
void forEachNumber(Room& room, Visit visit) {
  visit("agitation", room.agitation);
  visit("calm", room.calm);
  visit("movements", room.movements);
}

/// Calls `visit(number)` for each number of a sample after its time.
template <typename Sample, typename Visit>
void forEachNumberOf(Sample& sample, Visit visit) {
  for (auto* const pair : {&sample.valence, &sample.attention}) {
    visit(pair->value);
    visit(pair->confidence);
  }
}

void writeMember(JsonLineWriter& json, std::string_view name, float number) {
  json.key(name);
  writeFloat(json, number, Floats::Any);
}

void write(JsonLineWriter& json, const Room& room) {
  forEachNumber(room,
                [&](std::string_view name, float number) { writeMember(json, name, number); });
}

/// The newest time, so that few readings need one of their own.
Time timeOf(const ZV::PersonObservation& observation) {
  Time time = -latestTime + Time();
  forEachReading(observation, [&time](std::size_t /*field*/, const auto& reading) {
    time = std::max(time, reading.timestamp);
  });
  return time;
}

void write(JsonLineWriter& json, const SavedPerson& person) {
  ZV::SavedPerson known = person.known;
  forEachPart(known, [&json](std::string_view name, auto& part) {
    json.object(name, [&] {
      MemberWriter members(json, Floats::Any);
      visitMembers(members, pairKinds, part);
    });
  });
  writeMember(json, "headHeight", known.headHeight);
  json.object("lastUsed", [&] {
    for (const auto& [name, used] : usedFields) {
      if (const auto& time = known.lastUsed.*used) json.member(name, *time);
    }
  });
  json.list("memory", known.memory, [&json](const ZV::PersonObservation& observation) {
    const Time time = timeOf(observation);
    json.member("time", time);
    writeFields(json, time, observation, Floats::Any);
  });
  json.list("scopes", person.scopes, [&json](const auto& entry) {
    const auto& [name, scope] = entry;
    json.member("scope", name);
    json.member("samples", scope.remainingSamples);
    json.key("recorded");
    json.beginList();
    for (const Sample& sample : scope.samples) {
      json.beginList();
      json.value(sample.time);
      forEachNumberOf(sample, [&json](float number) { writeFloat(json, number, Floats::Any); });
      json.endList();
    }
    json.endList();
  });
}

/// All but the checksum.
std::string uncheckedText(const Restore& restore) {
  std::string text = jsonLine([&restore](JsonLineWriter& json) {
    json.member("version", version);
    std::visit([&json](const auto& state) { write(json, state); }, restore.state);
  });
  text.resize(text.size() - std::string_view("}\n").size());
  return text;
}

std::string checksumOf(const std::string& text) {
  boost::crc_32_type checksum;
  checksum.process_bytes(text.data(), text.size());
  return fmt::format("{:08x}", checksum.checksum());
}

Room readRoom(JsonObject& object) {
  Room room;
  forEachNumber(room, [&object](std::string_view name, float& number) {
    number = readFloat(object.get(name), Floats::Any);
  });
  return room;
}

Sample readSample(JsonValue value) {
  const std::vector<JsonValue> elements = value.elements();
  if (elements.size() != 5) value.fail("must have a time and four numbers");
  Sample sample;
  sample.time = timeOf(elements.front());
  auto next = elements.begin();
  forEachNumberOf(sample, [&next](float& number) { number = readFloat(*++next, Floats::Any); });
  return sample;
}

SavedPerson readPerson(JsonObject& object, std::int32_t id) {
  SavedPerson person{id, {}, {}};
  ZV::SavedPerson& known = person.known;
  forEachPart(known, [&object](std::string_view name, auto& part) {
    JsonObject numbers(object.get(name));
    MemberReader members(numbers, Floats::Any);
    visitMembers(members, pairKinds, part);
    numbers.finish();
  });
  known.headHeight = readFloat(object.get("headHeight"), Floats::Any);
  JsonObject lastUsed(object.get("lastUsed"));
  for (const auto& [name, used] : usedFields) {
    if (const auto time = lastUsed.find(name)) known.lastUsed.*used = timeOf(*time);
  }
  lastUsed.finish();
  for (const JsonValue element : object.get("memory").elements()) {
    JsonObject observation(element);
    const Time time = timeOf(observation.get("time"));
    known.memory.push_back(readFields(observation, time, Floats::Any));
    observation.finish();
  }
  for (const JsonValue element : object.get("scopes").elements()) {
    JsonObject entry(element);
    const JsonValue name = entry.get("scope");
    const auto [scope, isNew] = person.scopes.try_emplace(std::string(name.text()));
    if (!isNew) name.fail("is given twice");
    scope->second.remainingSamples = entry.get("samples").integer32();
    for (const JsonValue sample : entry.get("recorded").elements()) {
      scope->second.samples.push_back(readSample(sample));
    }
    entry.finish();
  }
  return person;
}

/// Throws std::invalid_argument when the library refuses the state.
void requireGood(const Restore& restore) {
  if (const auto* const person = std::get_if<SavedPerson>(&restore.state)) {
    const ZV::Person good(person->id, person->known);
    ZV::ZVEmotionRecorder().restore(person->scopes);
  } else {
    ZV::AmbianceState().restore(std::get<Room>(restore.state));
  }
}

}  // namespace

std::string stateText(const Restore& restore) {
  const std::string text = uncheckedText(restore);
  return fmt::format(R"({},"checksum":"{}"}})", text, checksumOf(text));
}

Restore readState(JsonValue value, std::optional<std::int32_t> person) {
  JsonObject object(value);
  object.get("version").integer(version, version);
  Restore restore;
  if (person) {
    restore.state = readPerson(object, *person);
  } else {
    restore.state = readRoom(object);
  }
  const JsonValue checksum = object.get("checksum");
  object.finish();
  if (checksum.text() != checksumOf(uncheckedText(restore))) {
    checksum.fail("does not fit: the state is not as it was saved");
  }
  try {
    requireGood(restore);
  } catch (const std::invalid_argument& error) {
    value.fail(error.what());
  }
  return restore;
}

}  // namespace zorvel
