#ifndef ZORVEL_PLAYBACK_EXPLANATION_LINE_HPP
#define ZORVEL_PLAYBACK_EXPLANATION_LINE_HPP

#include <fmt/format.h>

#include <cstdint>

#include "playback/explainer.hpp"

namespace zorvel {

/// Appends why a person's state moved, in one cycle or in a span, as a JSON object on a line of its
/// own.
void appendExplanationLine(fmt::memory_buffer& text, std::int32_t person,
                           const ExplainedPerson& explained, bool isMoment);

}  // namespace zorvel

#endif
