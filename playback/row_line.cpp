#include "playback/row_line.hpp"

#include <string_view>

#include "playback/columns.hpp"
#include "recording/json_writer.hpp"

namespace zorvel {
namespace {

template <typename Value>
void appendMember(JsonLineWriter& line, std::string_view name, const Value& value) {
  line.member(name, value);
}

template <typename Value>
void appendMember(JsonLineWriter& line, std::string_view name,
                  const ZV::ValueConfidence<Value>& pair) {
  line.object(name, [&] {
    line.member("value", pair.value);
    line.member("confidence", pair.confidence);
  });
}

template <typename Parts, typename Row>
void appendMembers(JsonLineWriter& line, const Parts& parts, const Row& row) {
  forEachLivePart(parts, [&](const auto& part) { appendMember(line, part.name, part.value(row)); });
}

}  // namespace

void appendRowLine(fmt::memory_buffer& text, Time time, const Row& row, Forces forces) {
  if (std::holds_alternative<std::monostate>(row)) return;
  JsonLineWriter line(text);
  line.member("time", time);
  if (const auto* room = std::get_if<AmbianceRow>(&row))
    appendMembers(line, ambianceColumns, *room);
  if (const auto* scope = std::get_if<ScopeRow>(&row)) appendMembers(line, scopesColumns, *scope);
  if (const auto* state = std::get_if<StateRow>(&row)) {
    appendMembers(line, stateParts, *state);
    if (forces == Forces::Watched) {
      line.list("forces", state->forces, [&](const ZV::Force& force) {
        appendMembers(line, forcesColumns, ForceRow{state->person, force});
      });
    }
  }
  line.finish();
}

}  // namespace zorvel
