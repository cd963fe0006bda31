// Any sequence of what a host may do, with any observation and any clock. After each step it tests
// what must always hold. A second run of the same sequence must give the same, and so must one in
// which everything is saved and restored before each step.

#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <iostream>
#include <ku/log.hpp>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

#include "fuzzing.hpp"
#include "memory/person_memory_private.hpp"
#include "state/person_state_private.hpp"
#include "tests/fill_observation.hpp"

using zorvel::fuzz::require;

namespace ZV {
namespace {

using Time = ku::SystemClock::time_point;
using Duration = ku::SystemClock::duration;

/// Moves by `step` with each reading, can be set anywhere, and throws when it is told to.
class FuzzedClock : public ku::Clock {
 public:
  Time now() override {
    if (readingsUntilFault >= 0 && readingsUntilFault-- == 0) {
      hadFault = true;
      throw std::runtime_error("no time");
    }
    hasMoved |= step != 0;
    advance(step);
    return time;
  }
  void advance(Duration::rep by) {
    Duration::rep sum = 0;
    if (!__builtin_add_overflow(time.time_since_epoch().count(), by, &sum)) {
      time = Time(Duration(sum));
    }
  }

  Time time{Duration(1'700'000'000'000'000'000)};
  Duration::rep step = 0;
  int readingsUntilFault = -1;
  /// Whether no reading so far has thrown or moved the time.
  bool isEven() const { return !hadFault && !hasMoved; }

  bool hadFault = false;
  bool hasMoved = false;
};

class Host {
 public:
  enum class Restarts { Never, BeforeEachStep };

  Host(const std::uint8_t* data, std::size_t size, Restarts restarts)
      : _restarts(restarts), _input(data, size) {}

  /// Does all that the input says, and returns everything that was seen on the way.
  std::string run() {
    const ku::ClockScope scope(_clock);
    while (_input.remaining_bytes() > 0) {
      // A failing clock may leave an entry there twice, which no restart does.
      if (_restarts == Restarts::BeforeEachStep && !_clock.hadFault) restart();
      try {
        act();
      } catch (const std::runtime_error& error) {
        // An entry may be forgotten between two readings of one update.
        const std::string what = error.what();
        require(what == "no time" || (what == "The ShortTermMemory is empty." && !_clock.isEven()),
                "another error than the clock gives");
      }
      _clock.readingsUntilFault = -1;
      look();
    }
    for (auto& person : _graph.persons()) requireInsideAgeLimit(person.personMemory._record());
    return _seen;
  }

 private:
  void restart() {
    for (const Person& person : _graph.persons()) {
      const bool isKept = _kept && &_kept->personState._record() == &person.personState._record();
      _graph.restore(person.userSessionID, person.save());
      if (isKept) _kept = _graph.find(person.userSessionID);
    }
    for (auto& [id, recorder] : _recorders) recorder.restore(recorder.save());
    _room.restore(_room.save());
  }

  void act() {
    const std::int32_t id = _input.PickValueInArray({1, 2, 3, INT32_MIN, INT32_MAX});
    switch (_input.ConsumeIntegralInRange(0, 14)) {
      case 0:
        return moveClock();
      case 1:
        return _graph.update(id, [](Person& person) { person.decreaseSinceNotSeen(); });
      case 2:
        return _graph.remove(id);
      case 3:
        _kept = _graph.find(id);
        return;
      case 4:
        return updateWhatWasKept();
      case 5:
        return startScope(id);
      case 6:
        return stopScope(id);
      case 7:
        return record(id);
      case 8:
        return _room.incrementMovementDetected();
      case 9:
        return _room.updateAmbiance(number());
      case 10:
        _clock.readingsUntilFault = _input.ConsumeIntegralInRange(0, 300);
        return update(id);
      case 11:
        return rename(id, _input.PickValueInArray({1, 2, 3, INT32_MIN, INT32_MAX}));
      default:
        _clock.advance(33'333'333);
        return update(id);
    }
  }

  void rename(std::int32_t from, std::int32_t to) {
    _graph.rename(from, to);
    _recorders[to].merge(_recorders[from]);
  }

  void moveClock() {
    _clock.step =
        _input.PickValueInArray<Duration::rep>({0, 1, 1'000'000, -1'000'000, 7'000'000'000});
    if (_input.ConsumeBool()) {
      _clock.time = Time(Duration(_input.ConsumeIntegral<Duration::rep>()));
    } else {
      _clock.advance(_input.PickValueInArray<Duration::rep>(
          {0, 6'999'000'000, 7'001'000'000, 20'001'000'000, -1'000'000'000, INT64_MAX, INT64_MIN}));
    }
  }

  /// Any float. One that can make sums overflow is remembered: from then on, values may be NaN.
  float number() {
    constexpr float highest = std::numeric_limits<float>::max();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const float picked =
        _input.ConsumeBool()
            ? _input.PickValueInArray({0.0f, -0.0f, 0.2f, -0.2f, 1.0f, -1.0f, 6.0f, -6.0f, 45.0f,
                                       1e-40f, highest, -highest, infinity, -infinity,
                                       std::numeric_limits<float>::quiet_NaN()})
            : _input.ConsumeFloatingPointInRange(-180.0f, 180.0f);
    if (!(std::abs(picked) <= 1e6f)) _mayBeNaN = true;
    return picked;
  }

  Time timestamp() {
    switch (_input.ConsumeIntegralInRange(0, 3)) {
      case 0:
        return Time(Duration(_input.ConsumeIntegral<Duration::rep>()));
      case 1:
        return _lastTimestamp;
      default: {
        FuzzedClock shifted;
        shifted.time = _clock.time;
        shifted.advance(Duration::rep{_input.ConsumeIntegral<std::int8_t>()} * 100'000'000);
        return shifted.time;
      }
    }
  }

  void pick(bool& truth) { truth = _input.ConsumeBool(); }
  void pick(float& real) { real = number(); }
  void pick(std::int32_t& whole) { whole = _input.ConsumeIntegral<std::int32_t>(); }
  void pick(std::uint32_t& whole) { whole = _input.ConsumeIntegral<std::uint32_t>(); }

  PersonObservation observation() {
    PersonObservation all;
    zorvel::forEachField([&](std::size_t /*index*/, const auto& field) {
      if (!_input.ConsumeBool()) return;
      _lastTimestamp = timestamp();
      zorvel::fillField(field, all, _lastTimestamp,
                        [this](const auto& /*kind*/, auto& number) { this->pick(number); });
    });
    if (all.headPosture) ++_headPostures;
    return all;
  }

  void update(std::int32_t id) {
    const PersonObservation now = observation();
    _graph.update(id, [&now](Person& person) { person.update(now); });
  }

  void updateWhatWasKept() {
    if (!_kept) return;
    _kept->personState._setValence(number());
    _kept->update(observation());
  }

  std::string scopeName() { return _input.ConsumeRandomLengthString(3); }

  void startScope(std::int32_t id) {
    _recorders[id].startRecording(scopeName(), _input.PickValueInArray({-1, 0, 1, 2, INT32_MAX}));
  }

  void stopScope(std::int32_t id) {
    static const std::set<std::string> labels = {"unknown", "positive", "neutral", "negative",
                                                 "error"};
    const auto result = _recorders[id].stopRecording(scopeName());
    require(labels.count(result.first) == 1, "another label");
    for (const auto& sample : result.second) note(sample.first);
    _seen += result.first;
  }

  void record(std::int32_t id) {
    auto& recorder = _recorders[id];
    const boost::unique_lock<boost::mutex> lock(recorder.mutex);
    _graph.read(id, [&recorder](const Person& person) {
      const auto valence = person.personState.personValence();
      const auto attention = person.personState.personAttention();
      recorder.update_notMutexed(
          {valence.value, valence.confidence, attention.value, attention.confidence});
    });
  }

  /// As bytes, since a NaN is unequal to itself.
  template <typename T>
  void note(const T& value) {
    _seen.append(reinterpret_cast<const char*>(&value), sizeof value);
  }

  void requireWithin(float number, float lowest, float highest) {
    require((number >= lowest && number <= highest) || (std::isnan(number) && _mayBeNaN),
            "a value out of its range");
    note(number);
  }

  void look() {
    for (const auto& person : _graph.persons()) {
      const PersonState& state = person.personState;
      requireWithin(state.personValence().value, -1.0f, 1.0f);
      requireWithin(state.personValence().confidence, 0.0f, 1.0f);
      requireWithin(state.personAttention().value, 0.0f, 1.0f);
      requireWithin(state.personAttention().confidence, 0.0f, 1.0f);
      requireWithin(static_cast<float>(state.personValenceBinary().value), -1.0f, 1.0f);
      requireWithin(static_cast<float>(state.personUnsmoothedValenceBinary().value), -1.0f, 1.0f);
      const auto ease = state.bodyLanguageState().bodyLanguageState(BodyLanguageDescription::Ease);
      // A posture that expires between two calls of size() is in the sum but not in the divisor,
      // which is 0 when none is left.
      const float most = _clock.isEven() ? 0.5f : 0.5f * static_cast<float>(_headPostures);
      if (_clock.isEven() || std::isfinite(ease.level)) requireWithin(ease.level, -most, most);
      requireUnlocked(state._record().locks);
      person.personMemory._record().forEachChannel(
          [this](auto& channel, auto /*field*/) { requireSorted(channel); });
    }
    requireWithin(_room.ambientActivityLevel(AmbianceDescription::Agitation), 0.0f, 1.0f);
    requireWithin(_room.ambientActivityLevel(AmbianceDescription::Calm), 0.0f, 1.0f);
  }

  static void requireUnlocked(PersonStatePrivate::Locks& locks) {
    for (boost::mutex* lock : {&locks.valence, &locks.attention, &locks.valenceConfidence,
                               &locks.attentionConfidence, &locks.headHeight, &locks.observation}) {
      require(lock->try_lock(), "a lock stays held");
      lock->unlock();
    }
  }

  template <typename Channel>
  void requireSorted(const Channel& channel) {
    note(channel.entries().size());
    if (_clock.hadFault) return;  // may have left an entry there twice
    for (std::size_t index = 1; index < channel.entries().size(); ++index) {
      require(channel.entries()[index - 1] > channel.entries()[index],
              "a memory is not sorted or not unique");
    }
  }

  void requireInsideAgeLimit(PersonMemoryPrivate& memory) {
    _clock.step = 0;
    memory.forEachChannel([&memory](auto& channel, auto /*field*/) {
      channel._forgetOld();
      const auto limit = static_cast<const void*>(&channel) == &memory.contextEmotion
                             ? PersonMemory::contextEmotionMaxAge
                             : PersonMemory::maxAge;
      for (const auto& entry : channel.entries()) {
        require(ageOf(entry.timestamp) <= limit, "something older than the limit is remembered");
      }
    });
  }

  Restarts _restarts;
  FuzzedDataProvider _input;
  FuzzedClock _clock;
  SocialGraph _graph;
  std::map<std::int32_t, ZVEmotionRecorder> _recorders;
  AmbianceState _room;
  boost::optional<Person> _kept;
  Time _lastTimestamp;
  bool _mayBeNaN = false;
  int _headPostures = 0;
  std::string _seen;
};

}  // namespace
}  // namespace ZV

int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
  ku::log::setLevel(ku::log::Silent);
  std::cout.setstate(std::ios::failbit);  // a failing clock is reported there
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Restarts = ZV::Host::Restarts;
  const std::string seen = ZV::Host(data, size, Restarts::Never).run();
  require(ZV::Host(data, size, Restarts::Never).run() == seen,
          "the same input gave something else");
  require(ZV::Host(data, size, Restarts::BeforeEachStep).run() == seen,
          "a restart changed something");
  return 0;
}
