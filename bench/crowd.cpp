#include "crowd.hpp"

#include "allocations.hpp"
#include "scene.hpp"

namespace zorvel::bench {

Crowd::Crowd(int people) : _people(people), _clock(Time(Duration(1'700'000'000'000'000'000))) {
  const long bytesBefore = allocatedBytes();
  for (int warmUp = 0; warmUp < 21 * rate; ++warmUp) cycle();
  _bytesOfOne = static_cast<double>(allocatedBytes() - bytesBefore) / people;
}

void Crowd::update() {
  const ku::ClockScope scope(_clock);
  for (int person = 0; person < _people; ++person) {
    const ZV::PersonObservation observation = observeAll();
    _graph.update(person, [&observation](ZV::Person& seen) { seen.update(observation); });
  }
}

void Crowd::cycle() {
  _clock.advance(period(rate));
  update();
}

void Crowd::run() { _clock.run(_clock.now() - ku::SystemClock::wallClock()); }

}  // namespace zorvel::bench
