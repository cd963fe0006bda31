#include "floor.hpp"

#include <algorithm>
#include <boost/math/special_functions/erf.hpp>
#include <boost/thread/mutex.hpp>
#include <cstring>

#include "observation/age.hpp"
#include "recording/observation_fields.hpp"
#include "zv/person_memory.hpp"

namespace zorvel::bench {

NeededWork::NeededWork(const Windows& windows) {
  const int n = windows.samples;
  const int c = windows.contextEmotions;
  // Filing tests n + 1 entries in each of 12 channels, the new and the expiring one included, and
  // c + 1 in the thirteenth. Then ease: 2 n; facial points: 3 n and the youngest's age; head
  // posture, gaze, speech and touch: 3 n each; situation: 3 c; voice: 1.
  clockReadings = 12 * (n + 1) + (c + 1) + 2 * n + (3 * n + 1) + 4 * (3 * n) + 3 * c + 1;
  // One weight for each of the facial points and one for the youngest; the same for head postures
  // and gazes, with one for the mean angle; then speech and touch, then the situation.
  errorFunctions = (n + 1) + 2 * (n + 1) + 2 * n + c;
  // Facial points 2, face 1, head posture 3, gaze 2, voice 4, sensor limits 4; speech, touch and
  // situation one per sample.
  forces = 16 + 2 * n + c;
  // Besides the forces: 13 calls to file, 14 calls of size() or youngest(), 8 locks of steps, 2 of
  // the head height, 1 of the graph.
  lockPairs = forces + 13 + 14 + 8 + 2 + 1;
}

Floor::Floor(int rate)
    : _windows(rate),
      _needed(_windows),
      _timestamps(static_cast<std::size_t>(_needed.clockReadings)),
      _scaledAges(static_cast<std::size_t>(_needed.errorFunctions)) {
  for (std::size_t index = 0; index < _scaledAges.size(); ++index) {
    // Over the whole window, as in an update.
    const float age = 7.0f * static_cast<float>(index) / static_cast<float>(_scaledAges.size());
    _scaledAges[index] = (3.0f - age) * 0.6666667f;
  }
  forEachField([this](std::size_t /*index*/, const auto& field) {
    if (!field.memory) return;
    using Reading = typename std::decay_t<decltype(observeAll().*field.member)>::value_type;
    const bool isContext = *field.memory == ZV::PersonMemory::contextEmotionMaxAge;
    const int entries = isContext ? _windows.contextEmotions : _windows.samples;
    _entrySizes.push_back(sizeof(Reading));
    _channels.emplace_back(sizeof(Reading) * static_cast<std::size_t>(entries + 1));
  });
}

float Floor::run() {
  using DoublePrecision =
      boost::math::policies::policy<boost::math::policies::promote_double<false>>;
  int tooOld = 0;
  for (const Time timestamp : _timestamps) {
    tooOld += ZV::PersonMemory::maxAge < ZV::ageOf(timestamp) ? 1 : 0;
  }

  float weights = 0.0f;
  for (const float scaled : _scaledAges) {
    const auto e =
        static_cast<float>(boost::math::erf(static_cast<double>(scaled), DoublePrecision()));
    weights += std::max(0.01f, (e + 1.0f) * 0.5f);
  }

  static boost::mutex mutex;
  float value = 0.0f;
  float cycleValue = 0.0f;
  for (int force = 0; force < _needed.forces; ++force) {
    mutex.lock();
    value = std::clamp(value + (1.0f - value) * 0.325f, -1.0f, 1.0f);
    cycleValue = std::clamp(cycleValue + (1.0f - cycleValue) * 0.325f, -1.0f, 1.0f);
    mutex.unlock();
  }
  for (int pair = _needed.forces; pair < _needed.lockPairs; ++pair) {
    mutex.lock();
    mutex.unlock();
  }

  for (std::size_t index = 0; index < _channels.size(); ++index) {
    auto& channel = _channels[index];
    const std::size_t entry = _entrySizes[index];
    std::memmove(channel.data() + entry, channel.data(), channel.size() - entry);
  }
  return weights + value + cycleValue + static_cast<float>(tooOld);
}

}  // namespace zorvel::bench
