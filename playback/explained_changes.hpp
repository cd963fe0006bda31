#ifndef ZORVEL_PLAYBACK_EXPLAINED_CHANGES_HPP
#define ZORVEL_PLAYBACK_EXPLAINED_CHANGES_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "playback/explanation.hpp"
#include "playback/playback.hpp"
#include "playback/readings.hpp"

namespace zorvel {

/// What the forces of one reason did in a change, and what was behind those of its greatest step.
struct ExplainedReason {
  ReasonMoves moves;
  std::vector<FieldReadings> readings;
};

/// A rise or a fall within a second.
struct ExplainedChange {
  std::int32_t person;
  ZV::Quantity quantity;
  Time first;
  Time last;
  float before;
  float after;
  /// What moved most in the direction of the change comes first.
  std::vector<ExplainedReason> reasons;
};

/// The greatest changes of a recording, and when its second 0 is.
struct GreatestChanges {
  std::vector<ExplainedChange> changes;
  Time secondZero;
  /// What ended the recording early, if anything did.
  std::optional<Failure> failure;
};

/// Finds the greatest changes of the valence and of the attention over all persons, or of one, as
/// many of each, the greatest first. It plays the recording twice: `open` opens it. `onProgress` is
/// called after each event of a recording. Throws Failure when the second time gives other events.
GreatestChanges explainGreatest(const std::function<RecordingReader&()>& open,
                                std::optional<std::int32_t> person, std::size_t most,
                                const std::function<void()>& onProgress);

}  // namespace zorvel

#endif
