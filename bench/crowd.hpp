#ifndef ZORVEL_BENCH_CROWD_HPP
#define ZORVEL_BENCH_CROWD_HPP

#include <ku/clock.hpp>
#include <zv/social_graph.hpp>

namespace zorvel::bench {

/// A graph of people with full windows, on a clock of its own. Filling it takes longer than
/// measuring it.
class Crowd {
 public:
  explicit Crowd(int people);

  /// Updates everybody, one after the other, as a camera frame does.
  void update();
  /// The same, a frame of 30 Hz later.
  void cycle();
  /// From now on the clock runs.
  void run();

  int people() const { return _people; }
  const ZV::SocialGraph& graph() const { return _graph; }
  /// What the heap holds for each.
  double bytesOfOne() const { return _bytesOfOne; }

  static constexpr int rate = 30;

 private:
  int _people;
  double _bytesOfOne = 0.0;
  ku::SimulatedClock _clock;
  ZV::SocialGraph _graph;
};

}  // namespace zorvel::bench

#endif
