#include "playback/row_line.hpp"

#include <string_view>

#include "playback/csv.hpp"
#include "recording/json_writer.hpp"

namespace zorvel {
namespace {

template <typename Value>
void appendPair(JsonLineWriter& line, std::string_view name, Value value, float confidence) {
  line.object(name, [&] {
    line.member("value", value);
    line.member("confidence", confidence);
  });
}

void append(JsonLineWriter& line, const StateRow& row) {
  line.member("person", row.person);
  appendPair(line, "valence", row.valence.value, row.valence.confidence);
  line.member("mood", row.mood);
  appendPair(line, "cycle_mood", row.cycleMood.value, row.cycleMood.confidence);
  appendPair(line, "attention", row.attention.value, row.attention.confidence);
  appendPair(line, "ease", row.ease.level, row.ease.confidence);
}

void append(JsonLineWriter& line, const ScopeRow& row) {
  line.member("person", row.person);
  line.member("scope", row.scope);
  line.member("label", row.label);
  line.member("samples", row.samples);
}

void append(JsonLineWriter& line, const AmbianceRow& row) {
  line.member("agitation", row.agitation);
  line.member("calm", row.calm);
}

void append(JsonLineWriter& /*line*/, std::monostate /*nothing*/) {}

}  // namespace

void appendRowLine(fmt::memory_buffer& text, Time time, const Row& row, Forces forces) {
  if (std::holds_alternative<std::monostate>(row)) return;
  JsonLineWriter line(text);
  line.member("time", time);
  std::visit([&line](const auto& content) { append(line, content); }, row);
  const auto* const state = std::get_if<StateRow>(&row);
  if (state != nullptr && forces == Forces::Watched) {
    line.list("forces", state->forces, [&line](const ZV::Force& force) {
      line.member("quantity", nameOf(force.quantity));
      line.member("reason", force.reason);
      line.member("target", force.target);
      line.member("strength", force.strength);
      line.member("before", force.before);
      line.member("after", force.after);
    });
  }
  line.finish();
}

}  // namespace zorvel
