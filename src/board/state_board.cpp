#include "zv/state_board.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/thread/lock_types.hpp>
#include <stdexcept>

#include "board/state_of.hpp"
#include "zv/ambiance_state.hpp"
#include "zv/person_state.hpp"
#include "zv/social_graph.hpp"

namespace ZV {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

}  // namespace

StateFrame::State stateOf(std::int32_t id, const PersonState& person) {
  return {id,
          person.personValence(),
          person.personValenceBinary(),
          person.personUnsmoothedValenceBinary(),
          person.personAttention(),
          person.bodyLanguageState().bodyLanguageState(BodyLanguageDescription::Ease)};
}

/// Keeps the frames. Everything but `latest` and letting go of a place needs the graph's lock,
/// under which one publisher follows the other.
struct StateBoardPrivate {
  /// A frame, and who holds it. Readers count themselves out here; they count themselves in at
  /// `last`, and are added here when another frame becomes the last. From then on, this is the
  /// number of readers who hold the frame.
  struct Place : StateFrame {
    mutable std::atomic<std::int64_t> holders{0};
  };

  const Place& latest() {
    return places[last.fetch_add(1, std::memory_order_acquire) >> countBits];
  }

  Place& lastPlace() { return places[last.load(std::memory_order_relaxed) >> countBits]; }

  Place& freePlace() {
    const auto isFree = [former = &lastPlace()](const Place& place) {
      return &place != former && place.holders.load(std::memory_order_acquire) == 0;
    };
    const auto free = std::find_if(places.begin(), places.end(), isFree);
    if (free == places.end()) throw std::runtime_error("All frames of the board are held.");
    return *free;
  }

  void makeLast(const Place& place) {
    Place& former = lastPlace();
    const auto index = static_cast<std::uint64_t>(&place - places.data());
    const auto before = last.exchange(index << countBits, std::memory_order_release);
    former.holders.fetch_add(static_cast<std::int64_t>(before & countMask),
                             std::memory_order_relaxed);
  }

  const SocialGraph& graph;
  const AmbianceState& room;
  std::array<Place, StateBoard::frameLimit> places;

  /// The index of the last frame's place, above the number of readers who have taken hold of it:
  /// both in one number, so that a reader learns the place and is counted in one step. At a million
  /// readers a second, the count would take nine years to outgrow its bits.
  std::atomic<std::uint64_t> last{0};
  static constexpr int countBits = 48;
  static constexpr std::uint64_t countMask = (std::uint64_t{1} << countBits) - 1;
  static_assert(decltype(last)::is_always_lock_free, "readers must not wait");
};

const StateFrame::State* StateFrame::find(std::int32_t person) const noexcept {
  const auto isBefore = [](const State& state, std::int32_t id) { return state.person < id; };
  const auto found = std::lower_bound(states.begin(), states.end(), person, isBefore);
  return found != states.end() && found->person == person ? &*found : nullptr;
}

StateBoard::StateBoard(const SocialGraph& graph, const AmbianceState& room)
    : _board(new StateBoardPrivate{graph, room, {}}) {}

StateBoard::~StateBoard() = default;

void StateBoard::publish(ku::SystemClock::time_point time) {
  Lock roomLock(_board->room.mutex);
  const float agitation = _board->room.ambientActivityLevel(AmbianceDescription::Agitation);
  const float calm = _board->room.ambientActivityLevel(AmbianceDescription::Calm);
  roomLock.unlock();

  const Lock graphLock(_board->graph._mutex);
  auto& frame = _board->freePlace();
  frame.number = _board->lastPlace().number + 1;
  frame.time = time;
  frame.agitation = agitation;
  frame.calm = calm;
  frame.states.clear();
  for (const auto& [id, person] : _board->graph._persons) {
    frame.states.push_back(stateOf(id, person.personState));
  }
  _board->makeLast(frame);
}

StateBoard::FramePointer StateBoard::latest() const noexcept {
  return FramePointer(&_board->latest());
}

void StateBoard::Release::operator()(const StateFrame* frame) const noexcept {
  static_cast<const StateBoardPrivate::Place*>(frame)->holders.fetch_sub(1,
                                                                         std::memory_order_release);
}

}  // namespace ZV
