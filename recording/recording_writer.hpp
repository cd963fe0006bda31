#ifndef ZORVEL_RECORDING_RECORDING_WRITER_HPP
#define ZORVEL_RECORDING_RECORDING_WRITER_HPP

#include <fmt/format.h>

#include <optional>
#include <string>
#include <string_view>

#include "recording/event.hpp"

namespace zorvel {

// Each appends one line of a recording, with its line end. Provided that texts are UTF-8 and
// numbers finite, a RecordingReader reads back exactly what was written.

/// The header, which must be the first line. `origin` is the moment of second 0, where that is not
/// the first event.
void appendHeader(fmt::memory_buffer& text, std::optional<std::string_view> source,
                  std::optional<Time> origin = std::nullopt);

/// An event. A field's time is written only where it differs from the event's.
void appendEvent(fmt::memory_buffer& text, const Event& event);
std::string eventLine(const Event& event);

}  // namespace zorvel

#endif
