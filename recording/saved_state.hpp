#ifndef ZORVEL_RECORDING_SAVED_STATE_HPP
#define ZORVEL_RECORDING_SAVED_STATE_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "recording/event.hpp"
#include "recording/json_line.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

// The `state` of a restore; docs/recording-format.md describes its form.

/// A JSON object without line ends, with a checksum over its numbers.
std::string stateText(const Restore& restore);

/// The state of that person or, without one, of the room. Throws JsonError when it has another
/// version, is not what was written, or is refused by the library.
Restore readState(JsonValue value, std::optional<std::int32_t> person);

/// The fields for which the time of the last used reading is saved.
inline constexpr std::array<
    std::pair<std::string_view, ZV::SavedPerson::OptionalTime ZV::SavedPerson::LastUsed::*>, 8>
    usedFields{{{"headPosture", &ZV::SavedPerson::LastUsed::headPosture},
                {"gaze", &ZV::SavedPerson::LastUsed::gaze},
                {"smile", &ZV::SavedPerson::LastUsed::smile},
                {"expressions", &ZV::SavedPerson::LastUsed::expressions},
                {"voiceEmotion", &ZV::SavedPerson::LastUsed::voiceEmotion},
                {"asrEmotion", &ZV::SavedPerson::LastUsed::asrEmotion},
                {"touchEmotion", &ZV::SavedPerson::LastUsed::touchEmotion},
                {"contextEmotion", &ZV::SavedPerson::LastUsed::contextEmotion}}};

/// Calls `visit(time)` for each time in what is known of a saved person, by reference.
template <typename Person, typename Visit>
void forEachTime(Person& person, Visit visit) {
  for (const auto& [name, used] : usedFields) {
    if (auto& time = person.known.lastUsed.*used) visit(*time);
  }
  for (auto& observation : person.known.memory) {
    forEachReading(observation,
                   [&visit](std::size_t /*field*/, auto& reading) { visit(reading.timestamp); });
  }
  for (auto& [name, scope] : person.scopes) {
    for (auto& sample : scope.samples) visit(sample.time);
  }
}

}  // namespace zorvel

#endif
