#include "scene.hpp"

#include <cmath>
#include <type_traits>

#include "tests/fill_observation.hpp"

namespace zorvel::bench {

Duration period(int rate) { return Duration(1'000'000'000 / rate); }

ZV::PersonObservation observeAll() {
  return filledObservation(ku::SystemClock::now(), [](const NumberKind& kind, auto& number) {
    // Far enough up in its range to have an effect.
    const float reach = std::isinf(kind.highest) ? 2.0f : kind.highest - kind.lowest;
    const float lowest = std::isinf(kind.lowest) ? 0.0f : kind.lowest;
    number = static_cast<std::decay_t<decltype(number)>>(lowest + 0.6f * reach);
  });
}

}  // namespace zorvel::bench
