#ifndef ZORVEL_PLAYBACK_ROW_LINE_HPP
#define ZORVEL_PLAYBACK_ROW_LINE_HPP

#include <fmt/format.h>

#include <zv/force.hpp>

#include "playback/playback.hpp"

namespace zorvel {

/// Appends what came of an event at `time` as a JSON object on a line of its own, or nothing if
/// nothing came of it. With Forces::Watched, a state has its forces as well.
void appendRowLine(fmt::memory_buffer& text, Time time, const Row& row, Forces forces);

/// Writes a list "reasons" of all reasons of forces, each with its name, its label and its meaning.
template <typename JsonWriter>
void writeReasons(JsonWriter& json) {
  json.list("reasons", ZV::force_reasons::all, [&json](const ZV::ForceReason& reason) {
    json.member("name", reason.name);
    json.member("label", reason.label);
    json.member("meaning", reason.meaning);
  });
}

}  // namespace zorvel

#endif
