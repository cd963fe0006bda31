#ifndef ZORVEL_TOOL_COMMANDS_SIMULATE_SCENE_HPP
#define ZORVEL_TOOL_COMMANDS_SIMULATE_SCENE_HPP

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "recording/event.hpp"

namespace zorvel {

/// Random numbers that are the same on every machine, which those of the standard distributions
/// are not.
class Random {
 public:
  /// Different streams give unrelated numbers.
  Random(std::uint64_t seed, std::uint32_t stream);

  double between(double low, double high);
  bool chance(double probability);
  /// Around 0, bell-shaped, with a standard deviation of `size`.
  double noise(double size);

 private:
  std::mt19937_64 _engine;
};

/// What a person does for a few seconds.
struct Behaviour;

/// A person who comes, spends time with the robot and leaves, again and again.
class SimulatedPerson {
 public:
  SimulatedPerson(std::int32_t id, std::uint64_t seed, std::int32_t rate);

  /// One cycle at `now`.
  void step(Time now, const EventSink& sink);
  /// Closes what is open.
  void finish(Time now, const EventSink& sink);

  bool isPresent() const;

 private:
  const Behaviour& behaviour() const;
  void beginNext(Time now, const EventSink& sink);
  void move();
  ZV::PersonObservation perceive(Time now);
  void perceiveFace(ZV::PersonObservation& fields, Time now);
  void perceiveMood(ZV::PersonObservation& fields, Time now);
  bool happens(double timesPerSecond);

  std::int32_t _id;
  std::int32_t _rate;
  double _cycleSeconds;
  Random _random;

  // Who the person is.
  bool _isFemale;
  std::uint32_t _age;
  float _height;

  // What the person does, and for how many more cycles.
  std::size_t _behaviour;
  std::int64_t _cyclesLeft;
  std::int64_t _cyclesPerceived = 0;
  std::uint64_t _visits = 0;
  std::int32_t _greetingCyclesLeft = 0;
  std::int32_t _unseenCyclesLeft = 0;

  // Body and face at present. The head turns to one side or the other, and sways.
  double _side = 1.0;
  double _swayYaw = 0.0;
  double _swayPitch = 0.0;
  double _yaw = 0.0;
  double _pitch = 0.0;
  double _distance = 0.0;
  double _smile = 0.0;
  std::array<double, 7> _face{};
};

/// A room with people in front of a robot.
class Scene {
 public:
  Scene(std::int32_t people, std::int32_t rate, std::uint64_t seed);

  /// One cycle of everybody at `now`.
  void step(Time now, const EventSink& sink);
  void finish(Time now, const EventSink& sink);

 private:
  std::int32_t _rate;
  Random _random;
  std::vector<SimulatedPerson> _people;
  std::int32_t _cyclesToActivity = 0;
};

}  // namespace zorvel

#endif
