#include "playback/explanation_line.hpp"

#include "playback/columns.hpp"
#include "recording/json_writer.hpp"

namespace zorvel {
namespace {

void writeNumber(JsonLineWriter& json, std::string_view name, double value) {
  json.member(name, static_cast<float>(value));
}

void writeReadings(JsonLineWriter& json, const std::vector<FieldReadings>& readings) {
  json.list("readings", readings, [&](const FieldReadings& of) {
    json.member("field", of.field);
    json.member("count", of.count);
    json.member("time", of.time);
    for (const auto& [name, number] : of.numbers) json.member(name, number);
  });
}

/// What all explanations of a reason have.
void writeReason(JsonLineWriter& json, const ReasonMoves& reason) {
  json.member("reason", reason.reason);
  json.member("forces", reason.forces);
  writeNumber(json, "up", reason.up);
  writeNumber(json, "down", reason.down);
}

}  // namespace

void appendExplanationLine(fmt::memory_buffer& text, std::int32_t person,
                           const Explainer& explainer) {
  const ExplainedPerson& explained = explainer.persons().at(person);
  const bool isMoment = explainer.explained().at.has_value();
  JsonLineWriter json(text);
  json.member("person", person);
  if (isMoment) {
    json.member("time", explained.last);
  } else {
    json.member("from", explained.first);
    json.member("to", explained.last);
    json.member("cycles", explained.cycles);
    json.member("new_starts", explained.newStarts);
  }
  for (std::size_t index = 0; index < explained.why.quantities().size(); ++index) {
    const QuantityMoves& moves = explained.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    json.object(nameOf(static_cast<ZV::Quantity>(index)), [&] {
      json.member("before", moves.before);
      json.member("after", moves.after);
      writeNumber(json, "up", moves.up());
      writeNumber(json, "down", moves.down());
      json.list("reasons", moves.reasons, [&](const ReasonMoves& reason) {
        writeReason(json, reason);
        if (!isMoment) return;
        if (reason.forces == 1) {
          json.member("target", reason.target);
          json.member("strength", reason.strength);
        }
        writeReadings(json, explainer.behind(person, reason.reason));
      });
    });
  }
  json.finish();
}

void appendExplanationLine(fmt::memory_buffer& text, const ExplainedChange& change,
                           Time secondZero) {
  JsonLineWriter json(text);
  json.member("person", change.person);
  json.member("quantity", nameOf(change.quantity));
  json.member("from", change.first);
  json.member("to", change.last);
  json.member("seconds", inSeconds(between(secondZero, change.last)));
  json.member("before", change.before);
  json.member("after", change.after);
  json.list("reasons", change.reasons, [&](const ExplainedReason& reason) {
    writeReason(json, reason.moves);
    writeReadings(json, reason.readings);
  });
  json.finish();
}

void appendExplanationLine(fmt::memory_buffer& text, const Mattered& row) {
  JsonLineWriter json(text);
  writeMattered(row,
                [&json](std::string_view name, const auto& value) { json.member(name, value); });
  json.finish();
}

}  // namespace zorvel
