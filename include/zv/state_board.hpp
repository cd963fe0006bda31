#ifndef ZV_STATE_BOARD_HPP
#define ZV_STATE_BOARD_HPP

#include <cstdint>
#include <ku/clock.hpp>
#include <memory>
#include <vector>

#include "zv/body_language_ease.hpp"
#include "zv/export.hpp"
#include "zv/value_confidence.hpp"

namespace ZV {

class AmbianceState;
class SocialGraph;
struct StateBoardPrivate;

/// The states of everybody, and the room, at one moment.
///
/// Thread safety: a frame on a StateBoard does not change while somebody holds it.
struct ZV_API StateFrame {
  /// What a frame says of one person, as PersonState gives it.
  ///
  /// Thread safety: that of a plain value.
  struct State {
    std::int32_t person;               ///< the host's identifier
    ValueConfidence<float> valence;    ///< how negative or positive, in [-1, 1]
    ValueConfidence<int> mood;         ///< the label of the valence: 1, 0 or -1
    ValueConfidence<int> cycleMood;    ///< the label of what the last cycle alone made
    ValueConfidence<float> attention;  ///< how engaged with the robot, in [0, 1]
    BodyLanguageEase ease;             ///< how much at ease the body language seems
  };

  /// The state of this person; null for somebody who is not in the frame. It is part of the frame.
  const State* find(std::int32_t person) const noexcept;

  std::uint64_t number = 0;          ///< 1 for the first published frame, 2 for the next
  ku::SystemClock::time_point time;  ///< what the publisher called the time of the frame
  float agitation = 0.0f;            ///< of the room, in [0, 1]
  float calm = 0.0f;                 ///< of the room, in [0, 1]
  std::vector<State> states;         ///< of everybody, by ascending identifier
};

/// Shows the last whole frame of a SocialGraph to any number of readers, who never wait: neither
/// for the graph's lock, nor for the publisher, nor for each other.
///
///     board.publish(timeOfFrame);         // the perception thread, when everybody is updated
///     const auto frame = board.latest();  // any other thread, at any time
///     for (const auto& state : frame->states) greet(state.person, state.mood);
///
/// The frames lie in places that the board keeps and uses again: two, and one more for each older
/// frame that somebody holds. So memory is bounded by what is held, and publishing allocates only
/// for a place that has not held as many persons before.
///
/// Thread safety: every operation may be called from any thread, though `publish` not from a
/// callback of the graph, which it would wait for.
class ZV_API StateBoard {
 public:
  /// Lets go of a frame.
  ///
  /// Thread safety: any thread may do so.
  struct ZV_API Release {
    /// The place of the frame may be used again, unless others hold it as well. Takes no lock.
    void operator()(const StateFrame* frame) const noexcept;
  };
  /// Holds a frame, which stays as it is until it is let go of. That may happen in another thread,
  /// but not after the end of the board.
  using FramePointer = std::unique_ptr<const StateFrame, Release>;

  /// How many different frames the board can keep, the last one and those that are held.
  static constexpr int frameLimit = 256;

  /// A board with an empty frame of number 0. The graph and the room must be there until the last
  /// `publish`. Throws std::bad_alloc.
  StateBoard(const SocialGraph& graph, const AmbianceState& room);
  StateBoard(const StateBoard&) = delete;
  StateBoard& operator=(const StateBoard&) = delete;
  /// Nobody may hold a frame by then.
  ~StateBoard();

  /// Publishes what the graph and the room hold now. `time` is for the readers: usually when the
  /// camera's frame was taken. Takes the room's lock for a moment, then the graph's while it copies
  /// the numbers of everybody.
  ///
  /// Throws std::bad_alloc, and std::runtime_error "All frames of the board are held." when readers
  /// hold `frameLimit - 1` different frames besides the last one. The last frame then stays.
  void publish(ku::SystemClock::time_point time);

  /// The last published frame, never null. Takes the same few instructions whatever other threads
  /// do: no lock, no copy, no allocation.
  FramePointer latest() const noexcept;

 private:
  const std::unique_ptr<StateBoardPrivate> _board;
};

}  // namespace ZV

#endif
