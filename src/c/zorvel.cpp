#include "zv/zorvel.h"

#include <algorithm>
#include <array>
#include <boost/thread/exceptions.hpp>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "board/state_of.hpp"
#include "c/result.hpp"
#include "zv/ambiance_state.hpp"
#include "zv/observation_guard.hpp"
#include "zv/social_graph.hpp"
#include "zv/version.hpp"

struct zv_guard final : ZV::ObservationGuard {
  using ObservationGuard::ObservationGuard;
};

struct zv_graph final : ZV::SocialGraph {};

struct zv_ambiance final : ZV::AmbianceState {};

struct zv_board final : ZV::StateBoard {
  using StateBoard::StateBoard;
};

namespace ZV {
namespace {

thread_local std::array<char, 128> errorText{};

zv_code failure(zv_code code, const char* text) {
  std::snprintf(errorText.data(), errorText.size(), "%s", text);
  return code;
}

ku::SystemClock::time_point timePoint(std::int64_t time) {
  return ku::SystemClock::time_point(ku::SystemClock::duration(time));
}

std::int64_t nanoseconds(ku::SystemClock::time_point time) {
  return time.time_since_epoch().count();
}

/// No version will need more; a size that was never set is often greater.
constexpr std::size_t largestSize = 65'536;

template <typename Sized>
void checkSize(const Sized* object, const char* name) {
  const std::size_t size = notNull(object, name).size;
  if (size < sizeof(Sized) || size > largestSize || size % alignof(Sized) != 0) {
    throw std::invalid_argument(std::string("The ") + name + " has a wrong size.");
  }
}

/// The same when `object` may be null.
template <typename Sized>
void checkSizeIfAny(const Sized* object, const char* name) {
  if (object != nullptr) checkSize(object, name);
}

/// Fills an object of the caller, which may be larger than the one known here.
template <typename Sized>
void fill(Sized* object, std::size_t size, Sized values) {
  values.size = size;
  std::memset(object, 0, size);
  std::memcpy(object, &values, sizeof values);
}

zv_state toC(const StateFrame::State& state) {
  return {sizeof(zv_state),           state.person,          state.valence.value,
          state.valence.confidence,   state.mood.value,      state.cycleMood.value,
          state.cycleMood.confidence, state.attention.value, state.attention.confidence,
          state.ease.level,           state.ease.confidence};
}

/// The fields' names, in the order of their bits in zv_field.
constexpr std::array<std::string_view, PersonObservation::fieldCount> fieldNames{
    "lookingAtRobot", "height",       "distance",   "gaze",         "smile",
    "expressions",    "headPosture",  "gender",     "age",          "faceDetected",
    "facialPoints",   "voiceEmotion", "asrEmotion", "touchEmotion", "contextEmotion"};

std::uint32_t bitOf(std::string_view name) {
  const auto* const found = std::find(fieldNames.begin(), fieldNames.end(), name);
  return 1U << (found - fieldNames.begin());
}

ValueConfidence<float> pair(const zv_emotion& emotion) {
  return {emotion.value, emotion.confidence};
}

Expressions expressions(const zv_expressions_reading& seen) {
  return {pair(seen.calm),     pair(seen.anger),      pair(seen.joy),     pair(seen.sorrow),
          pair(seen.laughter), pair(seen.excitement), pair(seen.surprise)};
}

VoiceEmotion voiceEmotion(const zv_expressions_reading& heard) {
  return {pair(heard.calm),   pair(heard.anger),    pair(heard.joy),
          pair(heard.sorrow), pair(heard.laughter), pair(heard.excitement)};
}

FacialPoints facialPoints(const zv_facial_points_reading& seen) {
  FacialPoints points;
  int number = 0;
  for (const auto& point : seen.points) {
    points.setFacialPoint(static_cast<PointDescription>(number++),
                          {{point.x, point.y}, point.confidence});
  }
  return points;
}

PersonObservation toCpp(const zv_observation* observation) {
  checkSize(observation, "observation");
  const zv_observation& seen = *observation;
  if (seen.fields >> fieldNames.size() != 0) {
    throw std::invalid_argument("The observation has a field that this version does not know.");
  }
  PersonObservation all;
  const auto set = [&](zv_field bit, auto& field, std::int64_t time, const auto& value) {
    if ((seen.fields & bit) != 0) field.emplace(timePoint(time), value);
  };
  set(ZV_LOOKING_AT_ROBOT, all.lookingAtRobot, seen.looking_at_robot.time,
      seen.looking_at_robot.value != 0);
  set(ZV_HEIGHT, all.height, seen.height.time, seen.height.value);
  set(ZV_DISTANCE, all.distance, seen.distance.time, seen.distance.value);
  set(ZV_GAZE, all.gaze, seen.gaze.time, Gaze(seen.gaze.yaw, seen.gaze.pitch));
  set(ZV_SMILE, all.smile, seen.smile.time, Smile(seen.smile.value, seen.smile.confidence));
  set(ZV_EXPRESSIONS, all.expressions, seen.expressions.time, expressions(seen.expressions));
  const auto& head = seen.head_posture;
  set(ZV_HEAD_POSTURE, all.headPosture, head.time, HeadPosture(head.yaw, head.pitch, head.roll));
  set(ZV_GENDER, all.gender, seen.gender.time,
      ValueConfidence<bool>(seen.gender.value != 0, seen.gender.confidence));
  set(ZV_AGE, all.age, seen.age.time,
      ValueConfidence<unsigned int>(seen.age.value, seen.age.confidence));
  set(ZV_FACE_DETECTED, all.faceDetected, seen.face_detected.time, seen.face_detected.value != 0);
  set(ZV_FACIAL_POINTS, all.facialPoints, seen.facial_points.time,
      facialPoints(seen.facial_points));
  set(ZV_VOICE_EMOTION, all.voiceEmotion, seen.voice_emotion.time,
      voiceEmotion(seen.voice_emotion));
  set(ZV_ASR_EMOTION, all.asrEmotion, seen.asr_emotion.time, seen.asr_emotion.value);
  set(ZV_TOUCH_EMOTION, all.touchEmotion, seen.touch_emotion.time, seen.touch_emotion.value);
  const auto& context = seen.context_emotion;
  set(ZV_CONTEXT_EMOTION, all.contextEmotion, context.time,
      ContextEmotion(context.emotion, context.duration));
  return all;
}

/// One cycle of a person.
template <typename Change>
void update(zv_graph* graph, std::int32_t person, zv_state* state, Change change) {
  checkSizeIfAny(state, "state");
  notNull(graph, "graph").update(person, [&](Person& known) {
    change(known);
    if (state != nullptr) fill(state, state->size, toC(stateOf(person, known.personState)));
  });
}

}  // namespace

zv_code codeOfException() noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return failure(ZV_OUT_OF_MEMORY, "No memory is left.");
  } catch (const boost::thread_resource_error&) {
    return failure(ZV_OUT_OF_MEMORY, "The system has no lock left.");
  } catch (const std::invalid_argument& error) {
    return failure(ZV_INVALID_ARGUMENT, error.what());
  } catch (const std::exception& error) {
    return failure(ZV_FAILED, error.what());
  } catch (...) {
    return failure(ZV_FAILED, "Something was thrown that is no std::exception.");
  }
}

}  // namespace ZV

using namespace ZV;

const char* zv_error_text() { return errorText.data(); }

const char* zv_version() { return ZV_VERSION; }

std::int64_t zv_now() {
  std::int64_t now = std::numeric_limits<std::int64_t>::min();
  resultOf([&] { now = nanoseconds(ku::SystemClock::now()); });
  return now;
}

const char* zv_field_name(zv_field field) {
  for (const auto& name : fieldNames) {
    if (bitOf(name) == field) return name.data();
  }
  return nullptr;
}

zv_guard* zv_guard_create(std::int64_t limit) {
  return created([limit] { return new zv_guard(ObservationGuard::Duration(limit)); });
}

void zv_guard_destroy(zv_guard* guard) { delete guard; }

zv_code zv_guard_clean(zv_guard* guard, zv_observation* observation, zv_guard_report* report) {
  return resultOf([&] {
    checkSizeIfAny(report, "report");
    auto fields = toCpp(observation);
    const auto found = notNull(guard, "guard").clean(fields);
    zv_guard_report told{};
    for (const auto& removed : found.removedFields) {
      const bool isAhead = removed.reason == ObservationGuard::Reason::Ahead;
      (isAhead ? told.ahead : told.not_finite) |= bitOf(removed.name);
    }
    if (found.clockSetBack) told.clock_set_back = found.clockSetBack->count();
    observation->fields &= ~(told.ahead | told.not_finite);
    if (report != nullptr) fill(report, report->size, told);
  });
}

zv_graph* zv_graph_create() {
  return created([] { return new zv_graph; });
}

void zv_graph_destroy(zv_graph* graph) { delete graph; }

zv_code zv_graph_update(zv_graph* graph, std::int32_t person, const zv_observation* observation,
                        zv_state* state) {
  return resultOf([&] {
    auto fields = toCpp(observation);
    // No reading is ahead of the clock by more than this limit.
    const auto report = ObservationGuard(ObservationGuard::Duration::max()).clean(fields);
    if (!report.removedFields.empty()) {
      throw std::invalid_argument(std::string(report.removedFields.front().name) +
                                  " has a number that is not finite.");
    }
    update(graph, person, state, [&](Person& known) { known.update(fields); });
  });
}

zv_code zv_graph_not_seen(zv_graph* graph, std::int32_t person, zv_state* state) {
  return resultOf(
      [&] { update(graph, person, state, [](Person& known) { known.decreaseSinceNotSeen(); }); });
}

zv_code zv_graph_remove(zv_graph* graph, std::int32_t person) {
  return resultOf([&] { notNull(graph, "graph").remove(person); });
}

zv_code zv_graph_rename(zv_graph* graph, std::int32_t from, std::int32_t to) {
  return resultOf([&] { notNull(graph, "graph").rename(from, to); });
}

zv_code zv_graph_read(const zv_graph* graph, std::int32_t person, zv_state* state) {
  bool isKnown = false;
  const zv_code code = resultOf([&] {
    checkSize(state, "state");
    notNull(graph, "graph").read(person, [&](const Person& known) {
      isKnown = true;
      fill(state, state->size, toC(stateOf(person, known.personState)));
    });
  });
  if (code != ZV_OK || isKnown) return code;
  return failure(ZV_UNKNOWN_PERSON, "The graph does not have the person.");
}

zv_ambiance* zv_ambiance_create() {
  return created([] { return new zv_ambiance; });
}

void zv_ambiance_destroy(zv_ambiance* ambiance) { delete ambiance; }

zv_code zv_ambiance_update(zv_ambiance* ambiance, float activity) {
  return resultOf([&] { notNull(ambiance, "ambiance").updateAmbiance(activity); });
}

zv_code zv_ambiance_movement(zv_ambiance* ambiance) {
  return resultOf([&] { notNull(ambiance, "ambiance").incrementMovementDetected(); });
}

zv_code zv_ambiance_read(const zv_ambiance* ambiance, float* agitation, float* calm) {
  return resultOf([&] {
    const auto& room = notNull(ambiance, "ambiance");
    notNull(calm, "calm");
    notNull(agitation, "agitation") = room.ambientActivityLevel(AmbianceDescription::Agitation);
    *calm = room.ambientActivityLevel(AmbianceDescription::Calm);
  });
}

zv_board* zv_board_create(const zv_graph* graph, const zv_ambiance* ambiance) {
  return created(
      [&] { return new zv_board(notNull(graph, "graph"), notNull(ambiance, "ambiance")); });
}

void zv_board_destroy(zv_board* board) { delete board; }

zv_code zv_board_publish(zv_board* board, std::int64_t time) {
  return resultOf([&] { notNull(board, "board").publish(timePoint(time)); });
}

zv_code zv_board_latest(const zv_board* board, zv_frame* frame, zv_state* states,
                        std::size_t capacity) {
  return resultOf([&] {
    checkSize(frame, "frame");
    if (capacity > 0) checkSize(states, "array of states");
    const auto latest = notNull(board, "board").latest();
    const std::size_t count = std::min(capacity, latest->states.size());
    fill(frame, frame->size,
         {frame->size, latest->number, nanoseconds(latest->time), latest->agitation, latest->calm,
          latest->states.size(), count});
    const std::size_t size = count > 0 ? states->size : 0;
    for (std::size_t index = 0; index < count; ++index) {
      auto* const place = reinterpret_cast<char*>(states) + index * size;
      fill(reinterpret_cast<zv_state*>(place), size, toC(latest->states[index]));
    }
  });
}
