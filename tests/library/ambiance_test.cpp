#include <gtest/gtest.h>

#include <atomic>
#include <ku/type.hpp>
#include <thread>

#include "simulated_person.hpp"

namespace ZV {
namespace {

std::string levelsOf(const AmbianceState& state) {
  return textOf(state.ambientActivityLevel(AmbianceDescription::Agitation),
                state.ambientActivityLevel(AmbianceDescription::Calm));
}

TEST(Ambiance, FollowsMovementsAndActivityWithinItsRange) {
  AmbianceState state;
  EXPECT_EQ(levelsOf(state), "0 0");
  // A fifth of the way to ten times the activity, and 0.04 for each movement.
  using Step = std::tuple<int, float, const char*>;  // movements, activity, levels
  for (const auto& [movements, activity, levels] :
       {Step{0, 0.05f, "0.100000001 0.899999976"}, Step{3, 0.07f, "0.340000004 0.659999967"},
        Step{1, 0.001f, "0.313999981 0.68599999"}, Step{0, NAN, "0 1"},
        Step{5, 0, "0.200000003 0.800000012"}, Step{0, -100, "0 1"}, Step{26, 0, "1 0"}}) {
    for (int i = 0; i < movements; ++i) state.incrementMovementDetected();
    state.updateAmbiance(activity);
    EXPECT_EQ(levelsOf(state), levels) << movements << ' ' << activity;
  }

  state.incrementMovementDetected();
  for (const auto& [level, levels] : {std::pair(2.0f, "1 0"), std::pair(-1.0f, "0 1"),
                                      std::pair(NAN, "0 1"), std::pair(0.25f, "0.25 0.75")}) {
    state._setAmbientActivityLevel(level);
    EXPECT_EQ(levelsOf(state), levels);
  }
  EXPECT_EQ(textOf(state), "Ambiance:\n\t - Activity : \t0.25\n\t - Calm : \t0.75");
  AmbianceState copy(state), assigned, restored;
  assigned = state;
  restored.restore(state.save());
  using Saved = AmbianceState::Saved;
  for (const Saved& bad : {Saved{above(1), 0, 0}, Saved{0, below(0), 0}, Saved{0, 0, below(0)},
                           Saved{0, 0, INFINITY}, Saved{0, NAN, 0}, Saved{0, 0, NAN}}) {
    EXPECT_THROW(restored.restore(bad), std::invalid_argument);
  }
  for (AmbianceState* each : {&state, &copy, &assigned, &restored}) {
    EXPECT_EQ(levelsOf(*each), "0.25 0.75");
    each->updateAmbiance(0.025f);
    EXPECT_EQ(levelsOf(*each), "0.289999992 0.710000038");  // the movement is copied
  }
  EXPECT_EQ(
      errorOf<std::invalid_argument>([&] { state.ambientActivityLevel(AmbianceDescription(2)); }),
      "Unknown emotional expression descriptor 2");
}

TEST(Ambiance, LocksWhatItChanges) {
  AmbianceState state, other;
  boost::unique_lock<boost::mutex> lock(mutexOf(state));
  other = state;  // the right side's lock is not taken
  const auto assigning = begin([&] { state = other; });
  const auto counting = begin([&] { state.incrementMovementDetected(); });
  const auto updating = begin([&] { state.updateAmbiance(0); });
  const auto restoring = begin([&] { state.restore(state.save()); });
  EXPECT_TRUE(isWaiting(assigning) && isWaiting(counting) && isWaiting(updating) &&
              isWaiting(restoring));
  lock.unlock();
  EXPECT_EQ(flushesOf(other), 2);
}

TEST(Ambiance, IsReadWithoutTheLockWhileItChanges) {
  AmbianceState state;
  std::atomic<bool> done{false};
  std::thread reader([&] {
    const auto& type = dynamic_cast<const ku::StructTypeInterface&>(*ku::typeOf<AmbianceState>());
    while (!done) {
      const AmbianceState copy(state);
      EXPECT_LE(copy.ambientActivityLevel(AmbianceDescription::Calm), 1);
      EXPECT_GE(type.get(&state, 0).as<float>(), 0);
    }
  });
  for (int i = 0; i < 1000; ++i) {
    state.incrementMovementDetected();
    state._setAmbientActivityLevel(static_cast<float>(i) / 1000);
  }
  done = true;
  reader.join();
  state._setAmbientActivityLevel(0.5f);
  const AmbianceState& same = state;
  state = same;
  EXPECT_EQ(levelsOf(state), "0.5 0.5");
}

}  // namespace
}  // namespace ZV
