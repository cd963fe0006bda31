#include "zv/saved_person.hpp"

#include <array>
#include <stdexcept>
#include <string>

#include "bodylanguage/body_language_state_private.hpp"
#include "memory/person_memory_private.hpp"
#include "state/person_state_private.hpp"
#include "zv/person.hpp"

namespace ZV {
namespace {

using Time = ku::SystemClock::time_point;

struct UsedTime {
  Time PersonStatePrivate::*kept;
  SavedPerson::OptionalTime SavedPerson::LastUsed::*saved;
};

// Without the time of context emotions, which no update reads.
constexpr std::array usedTimes{
    UsedTime{&PersonStatePrivate::headPostureTimestamp, &SavedPerson::LastUsed::headPosture},
    UsedTime{&PersonStatePrivate::gazeTimestamp, &SavedPerson::LastUsed::gaze},
    UsedTime{&PersonStatePrivate::smileTimestamp, &SavedPerson::LastUsed::smile},
    UsedTime{&PersonStatePrivate::expressionsTimestamp, &SavedPerson::LastUsed::expressions},
    UsedTime{&PersonStatePrivate::voiceEmotionTimestamp, &SavedPerson::LastUsed::voiceEmotion},
    UsedTime{&PersonStatePrivate::asrEmotionTimestamp, &SavedPerson::LastUsed::asrEmotion},
    UsedTime{&PersonStatePrivate::touchEmotionTimestamp, &SavedPerson::LastUsed::touchEmotion},
};

std::vector<PersonObservation> saveMemory(PersonMemoryPrivate& memory) {
  std::vector<PersonObservation> saved;
  memory.forEachChannel([&saved](const auto& channel, auto field) {
    if (saved.size() < channel.entries().size()) saved.resize(channel.entries().size());
    auto observation = saved.begin();
    const auto* last = channel.entries().data();
    for (const auto& entry : channel.entries()) {
      // A clock that failed may have left an entry standing twice.
      if (&entry != last && !(entry < *last)) continue;
      (*observation++).*field = entry;
      last = &entry;
    }
  });
  return saved;
}

void restoreMemory(const std::vector<PersonObservation>& saved, PersonMemoryPrivate& memory) {
  for (const PersonObservation& observation : saved) {
    if (observation.height || observation.voiceEmotion) {
      throw std::invalid_argument("A height or a voice emotion is not remembered.");
    }
    memory.forEachChannel([&observation](auto& channel, auto field) {
      if (const auto& reading = observation.*field) channel.restore(*reading);
    });
  }
}

void requireWithin(const char* name, const ValueConfidence<float>& pair, float lowest) {
  const auto require = [name](const char* part, float number, float least) {
    if (!(number < least || number > 1.0f)) return;  // also for NaN
    throw std::invalid_argument(std::string(name) + "." + part + " is " + std::to_string(number) +
                                ", beyond its range.");
  };
  require("value", pair.value, lowest);
  require("confidence", pair.confidence, 0.0f);
}

}  // namespace

SavedPerson Person::save() const {
  const PersonStatePrivate& state = personState._record();
  SavedPerson saved;
  saved.valence = state.valence;
  saved.unsmoothedValence = state.unsmoothedValence;
  saved.attention = state.attention;
  saved.ease = state.bodyLanguageState._record().ease;
  saved.smile = state.smile;

  saved.expressions = state.expressions;
  saved.headHeight = state.headHeight;
  for (const UsedTime& time : usedTimes) {
    if (state.*time.kept != PersonStatePrivate::never)
      saved.lastUsed.*time.saved = state.*time.kept;
  }
  saved.memory = saveMemory(personMemory._record());
  return saved;
}

Person::Person(std::int32_t id, const SavedPerson& saved) : Person(id) {
  requireWithin("valence", saved.valence, -1.0f);
  requireWithin("unsmoothedValence", saved.unsmoothedValence, -1.0f);
  requireWithin("attention", saved.attention, 0.0f);
  PersonStatePrivate& state = personState._record();
  state.valence = saved.valence;
  state.unsmoothedValence = saved.unsmoothedValence;
  state.attention = saved.attention;
  state.bodyLanguageState._record().ease = saved.ease;
  state.smile = saved.smile;
  state.expressions = saved.expressions;
  state.headHeight = saved.headHeight;
  for (const UsedTime& time : usedTimes) {
    state.*time.kept = (saved.lastUsed.*time.saved).value_or(PersonStatePrivate::never);
  }
  restoreMemory(saved.memory, personMemory._record());
}

}  // namespace ZV
