#include "commands/simulate/scene.hpp"

#include <algorithm>
#include <cmath>

#include "recording/observation_fields.hpp"

namespace zorvel {

struct Behaviour {
  /// How long it lasts.
  double shortestSeconds;
  double longestSeconds;
  /// Where the head turns, in degrees; the yaw to either side.
  double yaw;
  double pitch;
  double distance;
  double smile;
  /// Calm, anger, joy, sorrow, laughter, excitement and surprise of the face.
  std::array<double, 7> face;
  /// Sentiment of what the person says; 0 for silence.
  double speech;
  /// The touch and the situation that occur, if they do; 0 for none.
  std::int32_t touch;
  std::int32_t context;
};

namespace {

constexpr std::size_t away = 0;
constexpr std::size_t arriving = 1;
constexpr std::size_t greeting = 2;
constexpr std::size_t upset = 5;
constexpr std::size_t sad = 6;
constexpr std::size_t leaving = 8;

// A visit, from arriving to leaving. Each visit has either the upset or the sad stage.
constexpr std::array<Behaviour, 9> behaviours{{
    {4, 9, 0, 0, 3.0, 0.0, {}, 0, 0, 0},
    {2, 3, 25, 0, 1.4, 0.1, {0.90, 0.02, 0.03, 0.02, 0.0, 0.01, 0.02}, 0, 0, 0},
    {5, 7, 0, 2, 0.9, 0.8, {0.15, 0.01, 0.65, 0.01, 0.05, 0.08, 0.05}, 0.7, 0, 0},
    {6, 8, 3, -2, 0.9, 0.2, {0.85, 0.02, 0.06, 0.03, 0.0, 0.01, 0.03}, 0, 0, 0},
    {3, 5, 40, -10, 1.0, 0.1, {0.88, 0.03, 0.02, 0.04, 0.0, 0.01, 0.02}, 0, 0, 0},
    {6, 8, 4, 0, 1.0, 0.0, {0.06, 0.76, 0.01, 0.10, 0.0, 0.02, 0.05}, -0.7, -1, -1},
    {6, 8, 12, -15, 1.1, 0.0, {0.10, 0.06, 0.01, 0.80, 0.0, 0.01, 0.02}, -0.4, 0, -1},
    {6, 8, 0, 3, 0.8, 0.9, {0.08, 0.01, 0.60, 0.01, 0.14, 0.08, 0.08}, 0.8, 1, 1},
    {2, 3, 44, 0, 2.5, 0.1, {0.90, 0.02, 0.03, 0.02, 0.0, 0.01, 0.02}, 0, 0, 0},
}};

constexpr const char* visitScope = "visit";
constexpr const char* greetingScope = "greeting";
constexpr std::int32_t greetingSeconds = 2;

// In degrees: the yaw beyond which a face analysis finds no face, that beyond which it finds no
// eyes, and the yaw and pitch within which the person looks at the robot.
constexpr double faceYaw = 48.0;
constexpr double eyesYaw = 35.0;
constexpr double lookingAngle = 12.0;

/// A number with few digits, as in a recording.
float rounded(double number, double steps) {
  return static_cast<float>(std::round(number * steps) / steps);
}

float share(double number) { return rounded(std::clamp(number, 0.0, 1.0), 1000.0); }

float degrees(double angle) { return rounded(angle, 100.0); }

Time before(Time now, double seconds) {
  // In whole microseconds.
  return now - Time::duration(std::llround(seconds * 1e6) * 1000);
}

/// The landmarks of a face in a picture of 640 by 480 pixels.
ZV::FacialPoints landmarks(double yaw, double pitch, double distance, double smile,
                           double confidence, Random& random) {
  // For a face at 1 m, relative to its centre.
  constexpr std::array<std::pair<double, double>, 12> face{{{-32, -20},
                                                            {-13, -20},
                                                            {13, -20},
                                                            {32, -20},
                                                            {-40, -36},
                                                            {-10, -34},
                                                            {10, -34},
                                                            {40, -36},
                                                            {0, 8},
                                                            {0, 16},
                                                            {-20, 38},
                                                            {20, 38}}};
  ZV::FacialPoints points;
  for (std::size_t number = 0; number < face.size(); ++number) {
    auto [x, y] = face.at(number);
    const auto point = static_cast<ZV::PointDescription>(number);
    if (point == ZV::PointDescription::LeftMouthCorner ||
        point == ZV::PointDescription::RightMouthCorner) {
      x *= 1.0 + 0.25 * smile;
      y -= 5.0 * smile;
    }
    x = 320.0 + (x + yaw) / distance + random.noise(0.4);
    y = 240.0 + (y - pitch) / distance + random.noise(0.4);
    points.setFacialPoint(
        point, {{rounded(x, 10.0), rounded(y, 10.0)}, share(confidence + random.noise(0.03))});
  }
  return points;
}

}  // namespace

Random::Random(std::uint64_t seed, std::uint32_t stream) {
  std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                         stream};
  _engine.seed(sequence);
}

double Random::between(double low, double high) {
  return low + (high - low) * (static_cast<double>(_engine() >> 11) * 0x1p-53);
}

bool Random::chance(double probability) { return between(0.0, 1.0) < probability; }

double Random::noise(double size) {
  // The sum of four uniform numbers from -1 to 1 has a variance of 4/3.
  double sum = 0.0;
  for (int part = 0; part < 4; ++part) sum += between(-1.0, 1.0);
  return sum * std::sqrt(0.75) * size;
}

SimulatedPerson::SimulatedPerson(std::int32_t id, std::uint64_t seed, std::int32_t rate)
    : _id(id),
      _rate(rate),
      _cycleSeconds(1.0 / rate),
      _random(seed, static_cast<std::uint32_t>(id)),
      _isFemale(_random.chance(0.5)),
      _age(static_cast<std::uint32_t>(_random.between(8.0, 70.0))),
      _height(rounded(_random.between(1.05, 1.4), 100.0)),
      _behaviour(away),
      // People arrive one after the other.
      _cyclesLeft(std::llround((1.0 + (id - 1) % 8 * 4.0 + _random.between(0.0, 2.0)) * rate)) {}

bool SimulatedPerson::isPresent() const { return _behaviour != away; }

const Behaviour& SimulatedPerson::behaviour() const { return behaviours.at(_behaviour); }

bool SimulatedPerson::happens(double timesPerSecond) {
  return _random.chance(timesPerSecond * _cycleSeconds);
}

void SimulatedPerson::step(Time now, const EventSink& sink) {
  if (_cyclesLeft == 0) beginNext(now, sink);
  --_cyclesLeft;
  if (!isPresent()) return;
  move();
  if (_unseenCyclesLeft == 0 && happens(0.15)) {
    _unseenCyclesLeft = static_cast<std::int32_t>(1.0 + _random.between(0.0, 0.5) * _rate);
  }
  if (_unseenCyclesLeft > 0) {
    --_unseenCyclesLeft;
    sink({now, NotSeen{_id}});
  } else {
    ++_cyclesPerceived;
    sink({now, Observation{_id, perceive(now)}});
  }
  // The scope must be stopped after its last sample: one more cycle would drop it.
  if (_greetingCyclesLeft > 0 && --_greetingCyclesLeft == 0)
    sink({now, StopRecording{_id, greetingScope}});
}

void SimulatedPerson::finish(Time now, const EventSink& sink) {
  if (_greetingCyclesLeft > 0) sink({now, StopRecording{_id, greetingScope}});
  if (isPresent()) sink({now, StopRecording{_id, visitScope}});
}

void SimulatedPerson::beginNext(Time now, const EventSink& sink) {
  if (_behaviour == leaving) {
    sink({now, StopRecording{_id, visitScope}});
    sink({now, Remove{_id}});
  }
  ++_behaviour;
  if (_behaviour == upset && _random.chance(0.5)) {
    _behaviour = sad;
  } else if (_behaviour == sad) {
    ++_behaviour;
  }
  _behaviour %= behaviours.size();
  _cyclesLeft = std::llround(
      _random.between(behaviour().shortestSeconds, behaviour().longestSeconds) * _rate);
  _cyclesPerceived = 0;
  _side = _random.chance(0.5) ? 1.0 : -1.0;
  if (_behaviour == arriving) {
    ++_visits;
    _yaw = _side * behaviour().yaw;
    _pitch = 0.0;
    _distance = behaviours.at(away).distance;
    _smile = 0.0;
    _face = behaviour().face;
    sink({now, StartRecording{_id, visitScope, StartRecording::unlimited}});
  }
  if (_behaviour == greeting) {
    _greetingCyclesLeft = greetingSeconds * _rate;
    sink({now, StartRecording{_id, greetingScope, _greetingCyclesLeft}});
  }
}

void SimulatedPerson::move() {
  if (happens(0.7)) {
    _swayYaw = _random.noise(5.0);
    _swayPitch = _random.noise(3.0);
  }
  const auto approach = [this](double& value, double target, double seconds) {
    value += (target - value) * std::min(1.0, _cycleSeconds / seconds);
  };
  approach(_yaw, _side * behaviour().yaw + _swayYaw, 0.3);
  approach(_pitch, behaviour().pitch + _swayPitch, 0.3);
  approach(_distance, behaviour().distance, 0.8);
  approach(_smile, behaviour().smile, 0.4);
  for (std::size_t index = 0; index < _face.size(); ++index) {
    approach(_face.at(index), behaviour().face.at(index), 0.4);
  }
}

ZV::PersonObservation SimulatedPerson::perceive(Time now) {
  ZV::PersonObservation fields;
  fields.distance.emplace(now, rounded(_distance + _random.noise(0.01), 1000.0));
  fields.height.emplace(now, rounded(_height + _random.noise(0.005), 1000.0));
  perceiveFace(fields, now);
  perceiveMood(fields, now);
  return fields;
}

/// What a camera sees, all at the time of the picture.
void SimulatedPerson::perceiveFace(ZV::PersonObservation& fields, Time now) {
  const double hold = _random.chance(0.02) ? _random.between(0.1, 0.3) : 0.0;
  const Time captured = before(now, hold + _random.between(0.03, 0.06));
  const bool isFace = std::abs(_yaw) < faceYaw;
  fields.faceDetected.emplace(captured, isFace);
  fields.lookingAtRobot.emplace(captured,
                                std::abs(_yaw) < lookingAngle && std::abs(_pitch) < lookingAngle);
  if (!isFace) return;
  // Any of the analyses may fail now and then.
  const auto succeeds = [this] { return _random.chance(0.98); };
  const double sureness = 0.95 - std::abs(_yaw) / 200.0;
  const auto confidence = [&] { return share(sureness + _random.noise(0.02)); };
  if (succeeds()) {
    const double yaw = _yaw + _random.noise(0.8);
    const double pitch = _pitch + _random.noise(0.8);
    fields.headPosture.emplace(
        captured, ZV::HeadPosture(degrees(yaw), degrees(pitch), degrees(_random.noise(1.5))));
  }
  if (std::abs(_yaw) < eyesYaw && succeeds()) {
    const double yaw = 1.1 * _yaw + _random.noise(2.0);
    const double pitch = 1.1 * _pitch + _random.noise(2.0);
    fields.gaze.emplace(captured, ZV::Gaze(degrees(yaw), degrees(pitch)));
  }
  if (succeeds()) {
    const float value = share(_smile + _random.noise(0.04));
    fields.smile.emplace(captured, ZV::Smile(value, confidence()));
  }
  if (succeeds()) {
    ZV::Expressions face;
    std::size_t index = 0;
    for (const auto& [name, emotion] : emotions) {
      auto& expression = face.*emotion;
      expression.value = share(_face.at(index++) + _random.noise(0.01));
      expression.confidence = confidence();
    }
    fields.expressions.emplace(captured, face);
  }
  if (succeeds()) {
    fields.facialPoints.emplace(captured,
                                landmarks(_yaw, _pitch, _distance, _smile, sureness, _random));
  }
  if (happens(1.0)) {
    const double guess = std::max(0.0, _age + _random.noise(3.0));
    fields.age.emplace(captured, ZV::ValueConfidence<unsigned int>{static_cast<unsigned int>(guess),
                                                                   confidence()});
    const bool isFemale = _isFemale != _random.chance(0.03);
    fields.gender.emplace(captured, ZV::ValueConfidence<bool>{isFemale, confidence()});
  }
}

/// Speech, touch and situation.
void SimulatedPerson::perceiveMood(ZV::PersonObservation& fields, Time now) {
  const Behaviour& doing = behaviour();
  const auto late = [&](double least, double most) {
    return before(now, _random.between(least, most));
  };
  const double done = static_cast<double>(_cyclesPerceived) * _cycleSeconds;
  if (doing.speech != 0.0 && done > 0.5 && done < 4.0 && happens(2.0)) {
    const auto heard = [&](std::size_t index) {
      return ZV::ValueConfidence<float>{share(doing.face.at(index) + _random.noise(0.03)),
                                        share(0.7 + _random.noise(0.05))};
    };
    ZV::VoiceEmotion voice;
    for (std::size_t index = 0; index < voiceEmotionCount; ++index) {
      static_cast<ZV::Expressions&>(voice).*emotions.at(index).second = heard(index);
    }
    fields.voiceEmotion.emplace(late(0.2, 0.5), voice);
  }
  // Whether that moment of the stage falls into this cycle. On later visits it comes less often.
  const auto comes = [&](double seconds, double probability) {
    const bool isNow = _cyclesPerceived == std::llround(seconds * _rate) + 1;
    return isNow && (_visits == 1 || _random.chance(probability));
  };
  if (doing.speech != 0.0 && comes(1.5, 0.9)) {
    const float sentiment = rounded(doing.speech + _random.noise(0.1), 100.0);
    fields.asrEmotion.emplace(late(0.4, 0.9), sentiment);
  }
  if (doing.touch != 0 && comes(1.0, 0.4)) {
    fields.touchEmotion.emplace(late(0.0, 0.01), doing.touch);
  }
  if (doing.context != 0 && comes(0.5, 0.3)) {
    const float duration = rounded(_random.between(2.0, 4.0), 10.0);
    fields.contextEmotion.emplace(now, ZV::ContextEmotion(doing.context, duration));
  }
}

Scene::Scene(std::int32_t people, std::int32_t rate, std::uint64_t seed)
    : _rate(rate), _random(seed, 0) {
  for (std::int32_t id = 1; id <= people; ++id) _people.emplace_back(id, seed, rate);
}

void Scene::step(Time now, const EventSink& sink) {
  // A camera's cycles come a little late as well.
  const double period = 1.0 / _rate;
  const Time time = before(now, -_random.between(0.0, std::min(0.002, 0.5 * period)));
  const auto present = std::count_if(_people.begin(), _people.end(),
                                     [](const auto& person) { return person.isPresent(); });
  const double bustle = static_cast<double>(std::min<std::ptrdiff_t>(present, 5));
  if (_random.chance((0.1 + 0.2 * bustle) * period)) sink({time, Movement{}});
  if (_cyclesToActivity-- == 0) {
    _cyclesToActivity = _rate - 1;
    const double activity = 0.01 + 0.01 * bustle + _random.noise(0.005);
    sink({time, Activity{rounded(std::max(0.0, activity), 1000.0)}});
  }
  for (auto& person : _people) person.step(time, sink);
}

void Scene::finish(Time now, const EventSink& sink) {
  for (auto& person : _people) person.finish(now, sink);
}

}  // namespace zorvel
