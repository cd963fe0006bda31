#include "playback/playback.hpp"

#include <algorithm>
#include <boost/thread/lock_types.hpp>
#include <utility>

#include "recording/renamed.hpp"

namespace zorvel {
namespace {

/// With the weights of ZVEmotionRecorder::meanValence, whose running sum in single precision loses
/// digits over hours.
double exactMeanValence(const ZV::ZVEmotionRecorder::Samples& samples) {
  double weightedSum = 0.0;
  double confidenceSum = 0.0;
  for (const auto& [time, state] : samples) {
    const auto positive = state.personEmotion(ZV::PersonDescription::Positivity);
    const auto negative = state.personEmotion(ZV::PersonDescription::Negativity);
    const auto confidence = static_cast<double>(positive.confidence);
    weightedSum += static_cast<double>(positive.value - negative.value) * confidence;
    confidenceSum += confidence;
  }
  return weightedSum / confidenceSum;
}

}  // namespace

Row Playback::play(const Event& event) {
  return std::visit([this](const auto& what) { return play(what); }, event.what);
}

Row Playback::play(const Observation& observation) {
  return cycle(observation.person,
               [&observation](ZV::Person& person) { person.update(observation.fields); });
}

Row Playback::play(const NotSeen& notSeen) {
  return cycle(notSeen.person, [](ZV::Person& person) { person.decreaseSinceNotSeen(); });
}

Row Playback::play(const Remove& remove) {
  _graph.remove(remove.person);
  _recorders.erase(remove.person);
  return {};
}

Row Playback::play(const Restore& restore) {
  if (const auto* const person = std::get_if<SavedPerson>(&restore.state)) {
    ZV::ZVEmotionRecorder& recorder = _recorders[person->id];
    _graph.restore(person->id, person->known);
    recorder.restore(person->scopes);
  } else {
    _room.restore(std::get<ZV::AmbianceState::Saved>(restore.state));
  }
  return {};
}

std::vector<Restore> Playback::save() const {
  std::vector<Restore> saved;
  for (const ZV::Person& person : _graph.persons()) {
    const auto recorder = _recorders.find(person.userSessionID);
    saved.push_back({SavedPerson{person.userSessionID, person.save(),
                                 recorder == _recorders.end() ? ZV::ZVEmotionRecorder::SavedScopes()
                                                              : recorder->second.save()}});
  }
  saved.emplace_back().state = _room.save();
  return saved;
}

Row Playback::play(const Rename& rename) {
  _graph.rename(rename.person, rename.to);
  applyRename(rename, _recorders, [](auto& kept, auto& moved) { kept.merge(moved); });
  return {};
}

Row Playback::play(const StartRecording& start) {
  _graph.add(start.person);
  _recorders[start.person].startRecording(start.scope, start.samples);
  return {};
}

Row Playback::play(const StopRecording& stop) {
  const auto recorder = _recorders.find(stop.person);
  const auto result = recorder == _recorders.end()
                          ? std::pair("error", ZV::ZVEmotionRecorder::Samples())
                          : recorder->second.stopRecording(stop.scope);
  const auto mean = ZV::ZVEmotionRecorder::meanValence(result.second);
  return ScopeRow{stop.person,
                  stop.scope,
                  result.first,
                  result.second.size(),
                  mean.value,
                  mean.confidence,
                  exactMeanValence(result.second)};
}

Row Playback::play(const Movement& /*movement*/) {
  _room.incrementMovementDetected();
  return {};
}

Row Playback::play(const Activity& activity) {
  _room.updateAmbiance(activity.value);
  return AmbianceRow{_room.ambientActivityLevel(ZV::AmbianceDescription::Agitation),
                     _room.ambientActivityLevel(ZV::AmbianceDescription::Calm)};
}

Row Playback::cycle(std::int32_t id, const std::function<void(ZV::Person&)>& change) {
  Row row;
  _graph.update(id, [&](ZV::Person& person) {
    ZV::PersonState& state = person.personState;
    _forces.clear();
    _isMeasured.fill(false);
    state.setForceObserver([this](const ZV::Force& force) { observe(force); });
    change(person);
    record(person);
    StateRow after = stateRow(person, std::exchange(_forces, {}));
    after.isMeasured = _isMeasured;
    row = std::move(after);
  });
  return row;
}

void Playback::observe(const ZV::Force& force) {
  using namespace ZV::force_reasons;
  if (force.reason != noObservation.name && force.reason != notVisible.name) {
    auto& [valence, attention, ease] = _isMeasured;
    if (force.quantity == ZV::Quantity::Valence) valence = true;
    if (force.quantity == ZV::Quantity::Attention) attention = true;
    // The ease pulls whenever a head posture is remembered, of which it is made.
    if (force.reason == bodyLanguage.name) ease = true;
  }
  if (_watchesForces) _forces.push_back(force);
}

/// Adds the person's state to the scopes that are open.
void Playback::record(const ZV::Person& person) {
  const auto found = _recorders.find(person.userSessionID);
  if (found == _recorders.end()) return;
  ZV::ZVEmotionRecorder& recorder = found->second;
  const boost::unique_lock<boost::mutex> lock(recorder.mutex);
  if (!recorder.hasAnOpenScope_notMutexed()) return;
  // Copies of the person's state share its record, so a sample needs a state of its own.
  const auto valence = person.personState.personValence();
  const auto attention = person.personState.personAttention();
  recorder.update_notMutexed(
      ZV::PersonState(valence.value, valence.confidence, attention.value, attention.confidence));
}

StateRow stateRow(const ZV::Person& person, std::vector<ZV::Force> forces) {
  const ZV::PersonState& state = person.personState;
  return {person.userSessionID,
          state.personValence(),
          state.personValenceBinary().value,
          state.personUnsmoothedValenceBinary(),
          state.personAttention(),
          state.bodyLanguageState().bodyLanguageState(ZV::BodyLanguageDescription::Ease),
          std::move(forces)};
}

void RecordingRows::place(Time secondZero, Time time, const Event& event, Row& row) {
  const Time::duration since = between(secondZero, time);
  if (auto* state = std::get_if<StateRow>(&row)) {
    Visit& visit = _visits[state->person];
    if (visit.isEnded) visit = {visit.current(), false, {}};
    for (std::size_t value = 0; value < visit.measured.size(); ++value) {
      auto& last = visit.measured.at(value);
      if (state->isMeasured.at(value)) last = time;
      state->isKnown.at(value) = last && between(*last, time) <= boost::chrono::seconds(1);
    }
    state->since = since;
    state->isSeen = !std::holds_alternative<NotSeen>(event.what);
    state->visit = visit.number;
  } else if (const auto* remove = std::get_if<Remove>(&event.what)) {
    const auto visit = _visits.find(remove->person);
    if (visit != _visits.end()) visit->second.isEnded = true;
  } else if (const auto* rename = std::get_if<Rename>(&event.what)) {
    follow(*rename);
  } else if (auto* scope = std::get_if<ScopeRow>(&row)) {
    scope->end = since;
    const auto visit = _visits.find(scope->person);
    if (visit != _visits.end()) scope->visit = visit->second.current();
    const auto person = _people.find(scope->person);
    if (person != _people.end()) {
      const auto open = person->second.find(scope->scope);
      if (open != person->second.end()) scope->begin = between(secondZero, open->second.begin);
    }
  }
  apply(time, event, _people);
}

void RecordingRows::follow(const Rename& rename) {
  const auto found = _visits.find(rename.person);
  if (found == _visits.end() || found->second.isEnded || rename.person == rename.to) return;
  Visit& from = found->second;
  Visit& to = _visits[rename.to];
  from.isEnded = true;
  if (to.isEnded) to = {to.current(), false, {}};
  for (std::size_t value = 0; value < to.measured.size(); ++value) {
    to.measured.at(value) = std::max(to.measured.at(value), from.measured.at(value));
  }
}

Row ClockedPlayback::play(const Event& event) {
  // Not for longer: where events come from may have a clock of its own.
  const ku::ClockScope scope(_clock);
  _clock.set(std::max(_clock.now(), event.time));
  return _playback.play(event);
}

StateKeeper keeperOf(ClockedPlayback& playback) {
  return {[&playback](const Event& event) { playback.play(event); },
          [&playback] { return playback.save(); }};
}

std::optional<Failure> playAll(const EventSource& source, Forces forces, const UseOfRow& use,
                               Time::duration until) {
  ClockedPlayback playback(forces);
  RecordingRows rows;
  while (true) {
    std::optional<Event> event;
    Row row;
    Time::duration since{};
    try {
      event = source.next();
      if (!event) return std::nullopt;
      row = playback.play(*event);
      const Time secondZero = source.secondZero();
      since = between(secondZero, playback.now());
      rows.place(secondZero, playback.now(), *event, row);
    } catch (const Failure& failure) {
      return failure;
    } catch (const std::exception& error) {
      return Failure(error.what());
    }
    use(playback.now(), *event, row);
    if (since > until) return std::nullopt;
  }
}

std::optional<Failure> playAll(RecordingReader& recording, Forces forces, const UseOfRow& use,
                               Time::duration until) {
  bool isRead = false;  // what fails in playing does not know the line
  auto failure = playAll({[&] {
                            isRead = false;
                            auto event = recording.next();
                            isRead = true;
                            return event;
                          },
                          [&] { return recording.secondZero(); }},
                         forces, use, until);
  if (!failure || !isRead) return failure;
  const LineReader& lines = recording.lines();
  return Failure(lines.place() + failure->what(), {lines.name(), lines.lineNumber(), "", 0});
}

}  // namespace zorvel
