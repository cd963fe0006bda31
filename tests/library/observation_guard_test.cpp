#include "zv/observation_guard.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "simulated_person.hpp"

namespace ZV {
namespace {

using Reason = ObservationGuard::Reason;
using boost::chrono::nanoseconds;
using boost::chrono::seconds;

PersonObservation everythingAt(int time) {
  PersonObservation all = allChannelsAt(time);
  all.height = seen(time, 1.5f);
  return all;
}

std::string removed(const ObservationGuard::Report& report, Reason reason, nanoseconds ahead) {
  std::string names;
  for (const auto& field : report.removedFields) {
    EXPECT_TRUE(field.reason == reason && field.ahead == ahead) << field.name;
    names += std::string(field.name) + ' ';
  }
  return names;
}

// Every number of an observation, with the name of its field.
using Numbers = std::vector<std::pair<std::string, std::function<void(PersonObservation&, float)>>>;

Numbers everyNumber() {
  Numbers all = {
      {"height", [](auto& o, float number) { o.height->value = number; }},
      {"distance", [](auto& o, float number) { o.distance->value = number; }},
      {"gaze", [](auto& o, float number) { o.gaze->value.yaw = number; }},
      {"gaze", [](auto& o, float number) { o.gaze->value.pitch = number; }},
      {"smile", [](auto& o, float number) { o.smile->value = Smile(number, 1); }},
      {"smile", [](auto& o, float number) { o.smile->value = Smile(1, number); }},
      {"headPosture", [](auto& o, float number) { o.headPosture->value.setYaw(number); }},
      {"headPosture", [](auto& o, float number) { o.headPosture->value.setPitch(number); }},
      {"headPosture", [](auto& o, float number) { o.headPosture->value.setRoll(number); }},
      {"gender", [](auto& o, float number) { o.gender->value.confidence = number; }},
      {"age", [](auto& o, float number) { o.age->value.confidence = number; }},
      {"asrEmotion", [](auto& o, float number) { o.asrEmotion->value = number; }},
      {"contextEmotion", [](auto& o, float number) { o.contextEmotion->value.duration = number; }}};
  using E = Expressions;
  for (auto emotion :
       {&E::calm, &E::anger, &E::joy, &E::sorrow, &E::laughter, &E::excitement, &E::surprise}) {
    for (auto part : {&ValueConfidence<float>::value, &ValueConfidence<float>::confidence}) {
      all.emplace_back("expressions", [=](PersonObservation& o, float number) {
        o.expressions->value.*emotion.*part = number;
      });
      all.emplace_back("voiceEmotion", [=](PersonObservation& o, float number) {
        static_cast<E&>(o.voiceEmotion->value).*emotion.*part = number;
      });
    }
  }
  for (std::size_t part = 0; part < 36; ++part) {
    all.emplace_back("facialPoints", [=](PersonObservation& o, float number) {
      std::array<float, 3> point{};
      point.at(part % 3) = number;
      o.facialPoints->value.setFacialPoint(PointDescription(part / 3),
                                           {{point[0], point[1]}, point[2]});
    });
  }
  return all;
}

TEST(ObservationGuard, RemovesTheFieldOfEachNumberThatIsNotFinite) {
  const SimulatedPerson withClock;
  ObservationGuard guard;
  constexpr auto highest = std::numeric_limits<float>::max();
  for (const auto& [field, spoil] : everyNumber()) {
    for (const float number : {highest, NAN, INFINITY, -INFINITY}) {
      PersonObservation all = everythingAt(-5);
      spoil(all, number);
      EXPECT_EQ(removed(guard.clean(all), Reason::NotFinite, milliseconds(-5)),
                number == highest ? "" : field + " ");
      EXPECT_TRUE(guard.clean(all).removedFields.empty()) << field;
    }
  }
}

TEST(ObservationGuard, RemovesWhatIsFurtherAheadOfTheClockThanTheLimit) {
  SimulatedPerson withClock;
  PersonObservation all = everythingAt(1000);
  ObservationGuard guard;
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, {}), "");
  withClock.clock.advance(nanoseconds(-1));
  const char* const everyField =
      "lookingAtRobot height distance gaze smile expressions headPosture gender age faceDetected "
      "facialPoints voiceEmotion asrEmotion touchEmotion contextEmotion ";
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, nanoseconds(1'000'000'001)), everyField);
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, {}), "");

  all.distance.emplace(at(0), NAN);  // is this, whatever its time
  EXPECT_EQ(removed(ObservationGuard(nanoseconds(0)).clean(all), Reason::NotFinite, nanoseconds(1)),
            "distance ");
  all.distance.emplace(Time::max(), 1.0f);  // the difference does not fit into 64 bits
  withClock.clock.set(Time::min());
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, nanoseconds::max()), "distance ");
  EXPECT_THROW(ObservationGuard(nanoseconds(-1)), std::invalid_argument);
}

TEST(ObservationGuard, TellsOnceThatTheClockWasSetBackByMoreThanTheLimit) {
  const std::vector<int> times = {0, -1000, 500, -501, -501};
  ScriptedClock clock([&](int reading) { return at(times.at(static_cast<std::size_t>(reading))); });
  ObservationGuard guard;
  PersonObservation nothing;
  for (const int back : {0, 0, 0, 1001, 0}) {
    EXPECT_EQ(guard.clean(nothing).clockSetBack.value_or(seconds(0)), milliseconds(back));
  }
}

}  // namespace
}  // namespace ZV
