#ifndef ZORVEL_BENCH_FLOOR_HPP
#define ZORVEL_BENCH_FLOOR_HPP

#include <cstddef>
#include <vector>

#include "scene.hpp"

namespace zorvel::bench {

/// The work that one update of a person with every field present cannot avoid, counted.
struct NeededWork {
  explicit NeededWork(const Windows& windows);

  int clockReadings;   ///< each forgetting tests each entry with a reading of its own
  int errorFunctions;  ///< one for each weight
  int forces;
  int lockPairs;  ///< one for each force, each call of a memory, each step that locks
};

/// That work in bare loops over arrays: the least that an update can cost.
class Floor {
 public:
  explicit Floor(int rate);

  /// Does one update's worth. The result depends on all of it, so the compiler drops nothing.
  float run();

 private:
  Windows _windows;
  NeededWork _needed;
  std::vector<Time> _timestamps;
  std::vector<float> _scaledAges;
  /// The entries of each channel, as bytes: a new one goes to the front.
  std::vector<std::vector<std::byte>> _channels;
  std::vector<std::size_t> _entrySizes;
};

}  // namespace zorvel::bench

#endif
