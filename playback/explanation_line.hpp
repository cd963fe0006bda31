#ifndef ZORVEL_PLAYBACK_EXPLANATION_LINE_HPP
#define ZORVEL_PLAYBACK_EXPLANATION_LINE_HPP

#include <fmt/format.h>

#include <cstdint>

#include "playback/explained_changes.hpp"
#include "playback/explainer.hpp"
#include "playback/what_mattered.hpp"

namespace zorvel {

/// Appends why a person's state moved, in one cycle or in a span, as a JSON object on a line of its
/// own. For a moment, it includes the readings behind each reason.
void appendExplanationLine(fmt::memory_buffer& text, std::int32_t person,
                           const Explainer& explainer);

/// The same for one of the greatest changes.
void appendExplanationLine(fmt::memory_buffer& text, const ExplainedChange& change,
                           Time secondZero);

/// How much a field mattered to a person's state.
void appendExplanationLine(fmt::memory_buffer& text, const Mattered& row);

}  // namespace zorvel

#endif
