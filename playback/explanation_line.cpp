#include "playback/explanation_line.hpp"

#include "playback/columns.hpp"
#include "recording/json_writer.hpp"

namespace zorvel {

void appendExplanationLine(fmt::memory_buffer& text, std::int32_t person,
                           const ExplainedPerson& explained, bool isMoment) {
  JsonLineWriter json(text);
  const auto member = [&json](std::string_view name, double value) {
    json.member(name, static_cast<float>(value));
  };
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
      member("up", moves.up());
      member("down", moves.down());
      json.list("reasons", moves.reasons, [&](const ReasonMoves& reason) {
        json.member("reason", reason.reason);
        json.member("forces", reason.forces);
        member("up", reason.up);
        member("down", reason.down);
        if (isMoment && reason.forces == 1) {
          json.member("target", reason.target);
          json.member("strength", reason.strength);
        }
      });
    });
  }
  json.finish();
}

}  // namespace zorvel
