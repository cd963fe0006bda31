#ifndef ZORVEL_TOOL_PLAYBACK_HPP
#define ZORVEL_TOOL_PLAYBACK_HPP

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

#include "recording.hpp"

namespace zorvel {

/// The state of a person after a cycle.
struct StateRow {
  std::int32_t person;
  ZV::ValueConfidence<float> valence;
  int mood;
  ZV::ValueConfidence<int> cycleMood;
  ZV::ValueConfidence<float> attention;
  ZV::BodyLanguageEase ease;
};

/// A scope that was closed.
struct ScopeRow {
  std::int32_t person;
  std::string scope;
  std::string label;
  std::size_t samples;
};

/// The room after an activity measurement.
struct AmbianceRow {
  float agitation;
  float calm;
};

/// What an event gave; nothing for some.
using Row = std::variant<std::monostate, StateRow, ScopeRow, AmbianceRow>;

/// Plays events into the library: a graph of persons, a recorder for each, one room. The clock is
/// the calling thread's.
class Playback {
 public:
  /// Throws what the library throws; what the event did before stays done.
  Row play(const Event& event);

 private:
  Row play(const Observation& observation);
  Row play(const NotSeen& notSeen);
  Row play(const Remove& remove);
  Row play(const StartRecording& start);
  Row play(const StopRecording& stop);
  Row play(const Movement& movement);
  Row play(const Activity& activity);
  StateRow endCycle(const ZV::Person& person);

  ZV::SocialGraph _graph;
  std::map<std::int32_t, ZV::ZVEmotionRecorder> _recorders;
  ZV::AmbianceState _room;
};

}  // namespace zorvel

#endif
