#include <gtest/gtest.h>

#include <ku/log.hpp>
#include <ku/type.hpp>

#include "simulated_person.hpp"
#include "state/ramp.hpp"

namespace ZV {
namespace {

using Observation = PersonObservation;
using State = PersonStatePrivate;

TEST(PersonState, LabelsTheValenceInDoublePrecision) {
  using Case = std::tuple<float, int, float, float>;  // valence, label, positivity, negativity
  for (const auto& [valence, label, positivity, negativity] :
       {Case{0.2f, 1, 0.2f, 0}, Case{below(0.2f), 0, below(0.2f), 0}, Case{0, 0, 0, 0},
        Case{above(-0.2f), 0, 0, below(0.2f)}, Case{-0.2f, -1, 0, 0.2f}, Case{NAN, -1, 0, 0}}) {
    const PersonState state(valence, 0.25f, 0.5f, 0.75f), cycle;
    cycle._record().unsmoothedValence = {valence, 0.125f};
    const auto text = [](auto pair) { return textOf(pair.value, pair.confidence); };
    EXPECT_EQ(text(state.personValenceBinary()), textOf(label, 0.25));
    EXPECT_EQ(text(cycle.personUnsmoothedValenceBinary()), textOf(label, 0.125));
    const auto part = [&](int n) { return text(state.personEmotion(PersonDescription(n))); };
    EXPECT_EQ(part(0) + part(1), textOf(positivity, 0.25) + textOf(negativity, 0.25));
    EXPECT_EQ(part(2), "0.5 0.75");
    EXPECT_EQ(errorOf<std::invalid_argument>([&] { part(3); }),
              "Unknown emotional expression descriptor 3");
  }
}

TEST(PersonState, ClampsWhatItIsGivenAndSharesItsRecord) {
  EXPECT_EQ(SimulatedPerson(PersonState(-2, -3, -4, -5)).numbers(), "-1 0 0 0 0 0");
  const SimulatedPerson subject(PersonState(2, 3, 4, 5));
  EXPECT_EQ(subject.numbers(), "1 1 0 0 1 1");
  PersonState copy = subject.person.personState;
  State& state = subject.state();
  copy._setValence(-7);
  state._setUnsmoothedValence(7);
  state._setUnsmoothedValenceConfidence(7);
  state._setAttention(0.5f);
  EXPECT_EQ(subject.numbers(), "-1 1 1 1 0.5 1");
  const auto& type = dynamic_cast<const ku::StructTypeInterface&>(*ku::typeOf<PersonState>());
  EXPECT_TRUE(type.get(&copy, 0).object == &state.valence &&
              type.get(&copy, 1).object == &state.attention);
  // A copy of the record is one of its own, with free locks.
  const boost::unique_lock<boost::mutex> held(state.locks.valence);
  State other(state);
  other._applyForceValence(1, 1, "");
  EXPECT_EQ(textOf(other.valence.value, state.valence.value, other.attention.value), "1 -1 0.5");
  copy.setFrequencyFace(25);
  copy.setFrequencyGaze(50);
  EXPECT_EQ(textOf(state.frequencyFace, state.frequencyGaze), "25 50");
}

TEST(Force, TakesTheLockOfItsQuantityAlone) {
  State state;
  const std::array forces{&State::_applyForceValence, &State::_applyForceValenceConfidence,
                          &State::_applyForceAttention, &State::_applyForceAttentionConfidence};
  const std::array locks{&state.locks.valence, &state.locks.valenceConfidence,
                         &state.locks.attention, &state.locks.attentionConfidence};
  for (std::size_t held = 0; held < 4; ++held) {
    std::vector<std::future<void>> running;
    running.reserve(forces.size());
    const boost::unique_lock<boost::mutex> lock(*locks.at(held));
    for (const auto force : forces)
      running.push_back(begin([&state, force] { (state.*force)(1, 1, ""); }));
    EXPECT_TRUE(isWaiting(running.at(held)));
    for (std::size_t other = 0; other < 4; ++other)
      EXPECT_EQ(isWaiting(running[other]), other == held);
  }
}

TEST(Force, MovesByItsWeightWithinTheRange) {
  const auto moved = [](auto force, float target, float strength) {
    const SimulatedPerson subject(PersonState(0.25f, 0.5f, 0.5f, 0.75f));
    (subject.state().*force)(target, strength, "reason");
    return subject.numbers();
  };
  EXPECT_EQ(moved(&State::_applyForceValence, 1, 0.5f), "0.625 0.5 0.5 0 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceValence, -1, 2), "-1 0.5 -1 0 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceValence, 3, 1), "1 0.5 1 0 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceValence, NAN, 1), "nan 0.5 nan 0 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceValenceConfidence, 3, 0.25f), "0.25 1 0 0.75 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceValenceConfidence, -1, 1), "0.25 0 0 0 0.5 0.75");
  EXPECT_EQ(moved(&State::_applyForceAttention, 1, 0.5f), "0.25 0.5 0 0 0.75 0.75");
  EXPECT_EQ(moved(&State::_applyForceAttention, -1, 1), "0.25 0.5 0 0 0 0.75");
  EXPECT_EQ(moved(&State::_applyForceAttention, 2, 1), "0.25 0.5 0 0 1 0.75");
  EXPECT_EQ(moved(&State::_applyForceAttentionConfidence, 0, 0.5f), "0.25 0.5 0 0 0.5 0.375");
  EXPECT_EQ(moved(&State::_applyForceAttentionConfidence, -1, 1), "0.25 0.5 0 0 0.5 0");
  EXPECT_EQ(moved(&State::_applyForceAttentionConfidence, 2, 1), "0.25 0.5 0 0 0.5 1");
  // 0.74 to the tenth power, and 0.3
  const SimulatedPerson unseen(PersonState(1, 1, 1, 1));
  for (int i = 0; i < 10; ++i) unseen.state()._decreaseSinceNotSeen();
  EXPECT_EQ(unseen.numbers(), "0.0492399111 5.90490163e-06 0 0 0.0492399111 5.90490163e-06");

  // [weight(0, 3), weight(2.5, 3), 0.5, 0.01, 0.01, 0.01, weight(single(3.2), 2.5)]
  const auto weight = &State::_computeWeight;
  EXPECT_EQ(textOf(weight(0, 3), weight(2.5f, 3), weight(3, 3), weight(10, 3), weight(INFINITY, 3),
                   weight(NAN, 3), weight(3.2f, 2.5f)),
            "0.997661114 0.681324065 0.5 0.00999999978 0.00999999978 0.00999999978 0.214192092");
  // [weight(0.25, 0.5), weight(single(0.7), 0.5), 1, 0.5, weight(0, -1), 3 / 2 ** 0.7]
  EXPECT_EQ(textOf(weight(0.25f, 0.5f), weight(0.7f, 0.5f), weight(0, 4000), weight(0, 0),
                   weight(0, -1), State::_computeDampingFactor(3, 2)),
            "0.760249972 0.285803854 1 0.5 0.499435812 1.84671664");

  const Ramp<RampSlope::Falling, float, float> falling(1.4f, 0.2f, 1), step(1, 0, 2), none;
  const Ramp<RampSlope::Rising, float, float> rising(1.4f, 0.2f, 1);
  EXPECT_EQ(textOf(falling(0), falling(1.4f), falling(9), step(above(1)), step(below(1)), none(1)),
            "1 0.5 0 0 2 0");
  EXPECT_FLOAT_EQ(falling(1.35f), 0.88079708f);  // (1 + tanh 1) / 2
  EXPECT_FLOAT_EQ(rising(1.35f), 1 - falling(1.35f));
  EXPECT_TRUE(std::isnan(step(1)) && std::isnan(none(0)));

  // At 1.4 m and 0 m a confidence goes 0.175 of the way to 0.5, then to 1.
  for (const auto& [which, numbers] :
       {std::pair("valence", "0 0.587499976 0 0.247187495 0 0.5"),
        std::pair("attention", "0 0.5 0 0 0 0.587499976"),
        std::pair("", "0 0.587499976 0 0.247187495 0 0.587499976")}) {
    const SimulatedPerson subject(PersonState(0, 0.5f, 0, 0.5f));
    subject.state()._handleOkaoLimitations(1.4f, 0, which);
    EXPECT_EQ(subject.numbers(), numbers) << which;
  }
}

TEST(Report, IsWrittenByteForByte) {
  using Case = std::tuple<float, float, const char*>;
  for (const auto& [valence, attention, text] :
       {Case{0.123456f, above(0.6f),
             "positive mood at a 12.3456% rate ＼（＠￣∇￣＠）／ \n"
             "\t - And you're totally engaged in my interaction ＼（〇_ｏ）／ !\n"},
        Case{0, 0.6f,
             "negative mood at a -0% rate ヽ（＠⋋_⋌）ノ \n"
             "\t - But you're a bit inattentive, hum ? ヽ(。_°)ノ \n"},
        Case{-0.5f, 0.4f,
             "negative mood at a 50% rate ヽ（＠⋋_⋌）ノ \n"
             "\t - But you're totally absent in our interaction (-, – )…zzzZZZ \n"}}) {
    EXPECT_EQ(PersonState(valence, 0, attention, 0).emotionLogMessage(),
              std::string("Emotion recognized : \n\t - Actually you're in a ") + text);
  }
  EXPECT_EQ(textOf(PersonState(-0.5f, 0.25f, 0.625f, 1)),
            "Positive: \n\t - Value: \t0\n\t - Confidence: \t25\n"
            "Negative: \n\t - Value: \t50\n\t - Confidence: \t25\n"
            "Attention: \n\t - Value: \t62.5\n\t - Confidence: \t100\n");
  EXPECT_EQ(textOf(PersonState(0.75f, 0, 0, 0)).substr(0, 70),
            "Positive: \n\t - Value: \t75\n\t - Confidence: \t0\nNegative: \n\t - Value: \t0\n");
  EXPECT_EQ(textOf(PersonState()).find("-0"), std::string::npos);
  EXPECT_EQ(flushesOf(PersonState()), 9);  // one per line
}

PersonState start() { return {0.25f, 0.5f, 0.4f, 0.6f}; }

template <typename T>
std::vector<Observation> both(boost::optional<Timestamped<T>> Observation::*field, const T& first,
                              const T& second) {
  return {only(field, -300, first), only(field, 1600, second)};
}

Expressions faceOf(float calm, float anger, float joy, float sorrow) {
  return {{calm, 0}, {anger, 0}, {joy, 0}, {sorrow, 0}, {1, 1}, {1, 1}, {1, 1}};
}

VoiceEmotion voiceOf(float calm, float anger, float joy, float sorrow) {
  return {{calm, 1}, {anger, 0}, {joy, 1}, {sorrow, 0}, {1, 1}, {1, 1}};
}

FacialPoints pointsOf(float confidence) {
  FacialPoints points;
  points.setFacialPoint(PointDescription(0), {{0, 0}, confidence});
  return points;
}

// Two cycles, at 0 and 1700 ms, each with a sample taken a little before. The expressions are
// two_cycles(first, second) of fields as a recording has them, such as
// two_cycles({"gaze": {"yaw": 15, "pitch": -8}}, {"gaze": {"yaw": -19, "pitch": 26}}).
TEST(Update, FollowsEachChannelAlone) {
  auto limits = both(&Observation::touchEmotion, 0, 0);  // a touch of 0 is input without a force
  limits[0].distance = seen(0, 1.42f);
  limits[1].height = seen(0, 1.45f);
  using Case = std::pair<std::vector<Observation>, const char*>;
  for (const auto& [observations, numbers] :
       {Case{both(&Observation::facialPoints, pointsOf(0.9f), pointsOf(0.6f)),
             "0.031773068 0.0183001757 0 0.012840407 0.0508369058 0.00654426496"},
        Case{both(&Observation::headPosture, HeadPosture(12, -3, 50), HeadPosture(-14, 22, 0)),
             "0.0316388272 0.0450000018 0 0 0.878269255 0.660200834"},
        Case{both(&Observation::gaze, Gaze(15, -8), Gaze(-19, 26)),
             "0.031773068 0.0450000018 0 0 0.648016632 0.767553508"},
        Case{both(&Observation::voiceEmotion, voiceOf(0.2f, 0.6f, 0.1f, 0.5f),
                  voiceOf(0.3f, 0.39f, 0.9f, 0.4f)),
             "0.104023159 0.768374801 0.158257484 0.319374979 0.0508369058 0.00963933952"},
        Case{both(&Observation::asrEmotion, 0.0f, -0.5f),
             "0.442700565 0.768374801 0.338907063 0.319374979 0.0508369058 0.00963933952"},
        Case{both(&Observation::touchEmotion, 2, -1),
             "0.442700565 0.768374801 0.338907063 0.319374979 0.0508369058 0.00963933952"},
        Case{limits, "0.25 0.679713786 0 0.298514426 0.0508369058 0.00963933952"},
        Case{both(&Observation::contextEmotion, ContextEmotion(-1, 10), ContextEmotion(2, 0.4f)),
             "-0.365322888 0.768374801 -0.284626365 0.319374979 0.0508369058 0.00963933952"}}) {
    SimulatedPerson subject(start());
    subject.person.update(observations[0]);
    subject.clock.set(at(1700));
    subject.person.update(observations[1]);
    EXPECT_EQ(subject.numbers(), numbers);
  }
}

TEST(Update, ClassifiesANewFaceOnceFromAllItsFeatures) {
  // The confidence is halved without a winner, then goes twice 0.175 of the way to 1, as neither
  // distance nor height limits it. There is no winner for the saturated smile, which scores 1 both
  // as positive and as neutral, nor with a NaN. The smile of 0.5 alone is neutral and the face
  // alone negative; together they are positive.
  const Expressions none, face = faceOf(0, 0, 0.05f, 0.3f);
  using Case = std::tuple<Smile, Expressions, const char*>;
  for (const auto& [smile, expressions, numbers] :
       {Case{{100, 1}, none, "0 0.659687459 0 0.319374979 0 0"},
        Case{{NAN, 1}, none, "0 0.659687459 0 0.319374979 0 0"},
        Case{{0.5f, 1}, none, "0 1 0 0.319374979 0 0"},
        Case{{3.6f, 1}, none, "0 1 0 0.319374979 0 0"},  // neutral leads by 0.0004
        Case{{0.5f, 0}, face, "-0.649999976 1 -0.649999976 0.319374979 0 0"},
        Case{{0.5f, 1}, face, "0.649999976 1 0.649999976 0.319374979 0 0"}}) {
    SimulatedPerson subject(PersonState(0, 1, 0, 0));
    const PersonState& state = subject.person.personState;
    Observation observation = only(&Observation::smile, 0, smile);
    observation.expressions = seen(0, expressions);
    observation.height = seen(0, 1.0f);
    subject.state().smileTimestamp = subject.state().expressionsTimestamp = at(5);  // older is new
    subject.person.update(observation);
    EXPECT_EQ(subject.numbers(), numbers);
    EXPECT_EQ(state.headHeight(), 1.0f);
    observation.height = boost::none;
    subject.person.update(observation);  // nothing is new
    EXPECT_EQ(textOf(state.headHeight(), state.smile().smile().confidence,
                     state.expressions().sorrow.value, subject.state().unsmoothedValence.value),
              "0 0 0 0");
  }
}

TEST(Update, RestsTheMoreTheLongerAQuantityHadNoInput) {
  // From 1, by 0.65 at an age of 0 or less, else by 0.65 (1 - W). W is weight(single(0.001), 2.5),
  // 0.5 and weight(4, 2.5) at these ages, and 0.01 for what was never observed.
  const std::vector<Time State::*> channels = {
      &State::smileTimestamp,      &State::expressionsTimestamp,   &State::voiceEmotionTimestamp,
      &State::asrEmotionTimestamp, &State::touchEmotionTimestamp,  &State::headPostureTimestamp,
      &State::gazeTimestamp,       &State::contextEmotionTimestamp};
  for (const auto& [age, left] :
       {std::pair(-1, "0.350000024"), std::pair(0, "0.350000024"), std::pair(1, "0.99847436"),
        std::pair(2500, "0.675000012"), std::pair(4000, "0.379148006")}) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
      SimulatedPerson subject(PersonState(1, 1, 1, 1));
      subject.state().*channels[i] = at(-age);
      subject.person.update(Observation());
      EXPECT_EQ(textOf(subject.state().valence.value), i < 5 ? left : "0.35650003") << i;
      EXPECT_EQ(textOf(subject.state().attention.value), i == 5 || i == 6 ? left : "0.35650003")
          << i;
    }
  }
}

TEST(Update, KeepsTheTimeOfEachSampleThatItUses) {
  SimulatedPerson subject;
  Observation all = allChannelsAt(-20);
  all.smile->timestamp = at(-1);
  all.expressions->timestamp = at(-2);
  all.voiceEmotion->timestamp = at(-3);
  all.asrEmotion->timestamp = at(-4);
  all.touchEmotion->timestamp = at(-5);
  all.headPosture->timestamp = at(-6);
  all.gaze->timestamp = at(-7);
  all.contextEmotion->timestamp = at(-8);
  subject.person.update(all);
  const State& s = subject.state();
  const std::vector<Time> times = {s.smileTimestamp,        s.expressionsTimestamp,
                                   s.voiceEmotionTimestamp, s.asrEmotionTimestamp,
                                   s.touchEmotionTimestamp, s.headPostureTimestamp,
                                   s.gazeTimestamp,         s.contextEmotionTimestamp};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(times[static_cast<std::size_t>(i)], at(-1 - i)) << i;
}

// The test update_work counts the locks and clock readings of all steps.
TEST(Update, LocksTheHeadHeight) {
  SimulatedPerson subject;
  auto observation = only(&Observation::smile, 0, Smile(1, 1));
  observation.height = seen(0, 1.0f);
  boost::unique_lock<boost::mutex> held(subject.state().locks.headHeight);
  const auto updating = begin([&] { subject.person.update(observation); });
  EXPECT_TRUE(isWaiting(updating));
  held.unlock();
}

TEST(Update, UsesALateVoiceOnceAndWarns) {
  std::string lines;
  ku::log::setHandler([&lines](const ku::log::Message& message) {
    lines += textOf(message.category->name, message.level, message.text, message.function,
                    message.file.size(), message.line) +
             '|';
  });
  SimulatedPerson subject;
  for (const auto& [age, valence] :
       {std::pair(3000, "0.454999983"), std::pair(3001, "0.454999983"), std::pair(3001, "0")}) {
    subject.person.update(
        only(&Observation::voiceEmotion, -age, voiceOf(0, 0, 1, 0)));  // 0.7 x 0.65
    EXPECT_EQ(textOf(subject.state().unsmoothedValence.value), valence);
  }
  subject.state()._warnIfObservationOld(milliseconds(12'345'678), "");
  ku::log::setHandler({});
  const std::string line = "velo.zorvel.emotionalstate 3 Processing old observation from ";
  const std::string end = " _warnIfObservationOld 0 0|";
  EXPECT_EQ(lines, line + "3.001 s ago of Voice Emotion" + end + line + "12345.7 s ago" + end);
}

TEST(Update, KeepsTheForcesBeforeAFailureAndFreesItsLocks) {
  // Points of 0.9 / 12 x weight(0, 3) = 0.0748 pull both confidences by 0.7; the ease takes 6.5 %
  // of the valence; without a head posture the attention's confidence loses 0.35.
  auto head = only(&Observation::headPosture, 0, HeadPosture());
  auto gaze = only(&Observation::gaze, 0, Gaze());
  head.facialPoints = seen(0, pointsOf(0.9f));
  gaze.facialPoints = seen(0, pointsOf(-0.9f));  // counts as 0
  for (const auto& [observation, failing, left] :
       {std::tuple(head, 10, "0.233750001 0.2023772 0 0.0523772053 0.400000006 0.232377201"),
        std::tuple(gaze, 7, "0.25 0.150000006 0 0 0.400000006 0.117000006")}) {
    SimulatedPerson subject(start());
    ScriptedClock clock([number = failing](int reading) {
      if (reading == number) throw std::logic_error("no time");  // where the sample is weighed
      return at(0);
    });
    const auto update = [&subject, &now = observation] { subject.person.update(now); };
    EXPECT_EQ(errorOf<std::runtime_error>(update), "no time");
    EXPECT_EQ(subject.numbers(), left);
    update();
  }
  // A NaN weighs 0.01, as what is far away: 0.4 + (0.01 - 0.4) x 0.65. The valence never had input:
  // 0.25 x 0.935 x (1 - 0.65 x 0.99).
  SimulatedPerson subject(start());
  subject.person.update(only(&Observation::headPosture, 0, HeadPosture(NAN, 0, 0)));
  EXPECT_EQ(subject.numbers(), "0.083331883 0.150000006 0 0 0.146499991 0.646755636");
}

std::string listOf(const std::vector<Force>& forces) {
  std::string list;
  for (const Force& force : forces) {
    list += textOf(force.reason, static_cast<int>(force.quantity)) + ", ";
  }
  return list;
}

TEST(Observer, SeesEachForceAndMayEndTheUpdate) {
  const auto valuesOf = [](const State& s) {
    return std::array{s.valence.value, s.valence.confidence, s.attention.value,
                      s.attention.confidence};
  };
  std::vector<Force> seenForces;
  for (std::size_t last = 0; last == 0 || last <= seenForces.size(); ++last) {
    SimulatedPerson subject(start());
    auto expected = valuesOf(subject.state());
    std::vector<Force> forces;
    PersonState copy = subject.person.personState;  // shares the observer
    copy.setForceObserver([&](const Force& force) {
      forces.push_back(force);
      auto& before = expected.at(static_cast<std::size_t>(force.quantity));
      EXPECT_EQ(force.before, std::exchange(before, force.after)) << force.reason;
      EXPECT_EQ(valuesOf(subject.state()), expected);
      auto& locks = subject.state().locks;
      for (boost::mutex* lock : {&locks.valence, &locks.valenceConfidence, &locks.attention,
                                 &locks.attentionConfidence}) {
        ASSERT_TRUE(lock->try_lock());
        lock->unlock();
      }
      if (forces.size() == last) throw std::domain_error("enough");
    });
    const auto update = [&] { subject.person.update(allChannelsAt(0)); };
    EXPECT_EQ(errorOf<std::domain_error>(update), last == 0 ? "" : "enough");
    EXPECT_EQ(valuesOf(subject.state()), expected);
    if (last == 0) seenForces = forces;
    EXPECT_EQ(forces.size(), last == 0 ? seenForces.size() : last);
    copy.setForceObserver({});
    update();  // no lock stayed held
    EXPECT_FALSE(State(subject.state()).observer.observe);
  }
  // Each with what it moves: the valence 0, its confidence 1, the attention 2, its confidence 3.
  EXPECT_EQ(listOf(seenForces),
            "Points confidence 1, Points confidence 3, Face characteristics 0, Body Language 0, "
            "Head Angles 2, Observation 3, Gaze Direction 2, Observation 3, Voice emotion 0, "
            "Voice emotion 0, Voice emotion 0, Voice emotion 0, Asr emotion 0, Context emotion 0, "
            "Distance limitation 1, Height limitation 1, Distance limitation 3, "
            "Height limitation 3, ");
  seenForces.clear();
  SimulatedPerson unseen;
  unseen.person.personState.setForceObserver([&](const Force& f) { seenForces.push_back(f); });
  unseen.person.update(Observation());
  unseen.person.decreaseSinceNotSeen();
  EXPECT_EQ(listOf(seenForces),
            "No observation 3, No observation 3, No observation 0, No observation 1, "
            "No observation 2, No observation 3, Not visible 0, Not visible 1, Not visible 2, "
            "Not visible 3, ");
}

TEST(Observer, MayEndTheThread) {
  Person person;
  person.personState.setForceObserver([&](const Force& /*any*/) { pthread_exit(&person); });
  const auto update = [](void* subject) -> void* {
    static_cast<Person*>(subject)->update(Observation());
    return nullptr;
  };
  pthread_t thread{};
  void* result = nullptr;
  ASSERT_EQ(pthread_create(&thread, nullptr, update, &person), 0);
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &person);
  person.personState.setForceObserver({});
  person.update(Observation());  // no lock stayed held
}

}  // namespace
}  // namespace ZV
