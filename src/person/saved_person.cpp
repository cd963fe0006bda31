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

using LastUsed = SavedPerson::LastUsed;

/// Those of PersonStatePrivate::usedTimes, in its order.
constexpr std::array savedTimes{&LastUsed::headPosture,  &LastUsed::gaze,
                                &LastUsed::smile,        &LastUsed::expressions,
                                &LastUsed::voiceEmotion, &LastUsed::asrEmotion,
                                &LastUsed::touchEmotion, &LastUsed::contextEmotion};

/// Calls `visit(used, saved)` for the time of each field, with the members of both.
template <typename Visit>
void forEachUsedTime(Visit visit) {
  constexpr auto used = PersonStatePrivate::usedTimes();
  static_assert(savedTimes.size() == used.size());
  for (std::size_t index = 0; index < used.size(); ++index) visit(used[index], savedTimes[index]);
}

std::vector<PersonObservation> saveMemory(PersonMemoryPrivate& memory) {
  std::vector<PersonObservation> saved;
  memory.forEachChannel([&saved](const auto& channel, auto field) {
    if (saved.size() < channel.entries().size()) saved.resize(channel.entries().size());
    auto observation = saved.begin();
    const auto* last = channel.entries().data();
    for (const auto& entry : channel.entries()) {
      // A clock that failed may have left an entry there twice.
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
  forEachUsedTime([&](auto used, auto kept) {
    if (state.*used != PersonStatePrivate::never) saved.lastUsed.*kept = state.*used;
  });
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
  forEachUsedTime([&](auto used, auto kept) {
    state.*used = (saved.lastUsed.*kept).value_or(PersonStatePrivate::never);
  });
  restoreMemory(saved.memory, personMemory._record());
}

}  // namespace ZV
