#ifndef ZORVEL_BENCH_SCENE_HPP
#define ZORVEL_BENCH_SCENE_HPP

#include <ku/clock.hpp>
#include <zv/person.hpp>

namespace zorvel::bench {

using Time = ku::SystemClock::time_point;
using Duration = ku::SystemClock::duration;

/// The time between two cycles at this many hertz.
Duration period(int rate);

/// An observation with every field, each read now.
ZV::PersonObservation observeAll();

/// How many samples a channel remembers at this many hertz, and how many context emotions.
struct Windows {
  explicit Windows(int rate) : samples(7 * rate + 1), contextEmotions(20 * rate + 1) {}

  int samples;
  int contextEmotions;
};

}  // namespace zorvel::bench

#endif
