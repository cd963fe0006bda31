#ifndef ZV_ZORVEL_H
#define ZV_ZORVEL_H

/// @file
/// The estimator for C, and for all languages that call C: persons, what is perceived of them,
/// their states, the room, and boards for readers who must not wait. The numbers are those of the
/// C++ classes, to the bit. Needs C99 or later.
///
///     zv_graph* graph = zv_graph_create();
///     zv_observation seen = {.size = sizeof seen, .fields = ZV_SMILE};
///     seen.smile = (zv_pair_reading){zv_now(), 0.8f, 0.9f};
///     zv_state state = {.size = sizeof state};
///     if (zv_graph_update(graph, 1, &seen, &state) != ZV_OK) puts(zv_error_text());
///     zv_graph_destroy(graph);
///
/// **Times** are nanoseconds since 1970-01-01T00:00:00Z.
///
/// **Errors**: no exception comes out. A function that can fail returns a zv_code, one that creates
/// returns null. zv_error_text() then says what is wrong. What a failed call would have written is
/// left as it was.
///
/// **Sizes**: whoever declares a structure with a `size` sets it to the `sizeof` of the structure.
/// A later version of the library may add members at the end; it goes on taking the smaller
/// structure, and fills what it does not know of a larger one with 0. A size that is smaller than
/// in version 1.0, or was never set, is an error.
///
/// **Threads**: "any thread" means at any time, also several at once for one handle. Nothing may be
/// called from a signal handler, and no thread may be cancelled (pthread_cancel) in a call. The
/// structures are plain values.

#include <stddef.h>
#include <stdint.h>

#include "zv/export.hpp"

#ifdef __cplusplus
extern "C" {
#endif

/// How a call ended.
typedef enum zv_code {
  ZV_OK = 0,                ///< success
  ZV_INVALID_ARGUMENT = 1,  ///< nothing done: null, a wrong size, or a value that is not allowed
  ZV_UNKNOWN_PERSON = 2,    ///< the graph does not have the person
  ZV_OUT_OF_MEMORY = 3,     ///< no memory, or no lock of the system, was left
  ZV_FAILED = 4             ///< anything else; what was done before stays done
} zv_code;

/// What went wrong in the calling thread's last call that failed; empty before the first. It stays
/// valid until the thread ends, and unchanged until its next call that fails. Any thread; each has
/// a text of its own.
ZV_API const char* zv_error_text(void);

/// The version of the library that was loaded, such as "1.0.0". Any thread.
ZV_API const char* zv_version(void);

/// The time of the calling thread's clock: the system's, unless zv_clock_use() put another in its
/// place. Only a clock that C++ code put there can fail; then it is INT64_MIN. Any thread.
ZV_API int64_t zv_now(void);

/// A clock that stands still where it was set, for tests and replays.
typedef struct zv_clock zv_clock;

/// A clock that stands at `time`. The four functions for clocks are there when the library was
/// built with the bundled ku, and missing with a robot's own. Any thread.
ZV_API zv_clock* zv_clock_create(int64_t time);
/// Takes null, too. Any thread, once no thread has the clock in place.
ZV_API void zv_clock_destroy(zv_clock* clock);
/// Moves the clock to `time`, in all threads that use it. Any thread.
ZV_API zv_code zv_clock_set(zv_clock* clock, int64_t time);
/// Puts the clock in place of the system's for the calling thread, until the next call or the end
/// of the thread; null brings back what was there before. Any thread; several may use one
/// clock.
ZV_API zv_code zv_clock_use(zv_clock* clock);

/// The fields of an observation, as they are set in `zv_observation.fields`.
typedef enum zv_field {
  ZV_LOOKING_AT_ROBOT = 1 << 0,  ///< whether the person looks at the robot
  ZV_HEIGHT = 1 << 1,            ///< height of the head above the ground, in metres
  ZV_DISTANCE = 1 << 2,          ///< distance from the robot, in metres
  ZV_GAZE = 1 << 3,              ///< where the eyes look, as seen from the robot
  ZV_SMILE = 1 << 4,             ///< how much the face smiles
  ZV_EXPRESSIONS = 1 << 5,       ///< what the face shows
  ZV_HEAD_POSTURE = 1 << 6,      ///< where the head is turned, as seen from the robot
  ZV_GENDER = 1 << 7,            ///< the perception's estimate; kept and not interpreted
  ZV_AGE = 1 << 8,               ///< in years
  ZV_FACE_DETECTED = 1 << 9,     ///< whether a face was found
  ZV_FACIAL_POINTS = 1 << 10,    ///< the landmarks of the face
  ZV_VOICE_EMOTION = 1 << 11,    ///< what the voice carried
  ZV_ASR_EMOTION = 1 << 12,    ///< sentiment of what was said: negative below 0, positive from 0 on
  ZV_TOUCH_EMOTION = 1 << 13,  ///< a touch: pleasant above 0, unpleasant below 0
  ZV_CONTEXT_EMOTION = 1 << 14  ///< what the situation suggests that the person feels
} zv_field;

/// The name of one field, as recordings have it, such as "headPosture"; null for anything else. Any
/// thread.
ZV_API const char* zv_field_name(zv_field field);

/// A number, with the time when it was read.
typedef struct zv_number_reading {
  int64_t time;  ///< when it was read
  float value;   ///< the number
} zv_number_reading;

/// An integer, or a truth value: 0 is no, any other number yes.
typedef struct zv_integer_reading {
  int64_t time;   ///< when it was read
  int32_t value;  ///< the number
} zv_integer_reading;

/// A number with its confidence.
typedef struct zv_pair_reading {
  int64_t time;      ///< when it was read
  float value;       ///< in [0, 1] by convention
  float confidence;  ///< in [0, 1]
} zv_pair_reading;

/// A count, or a truth value, 0 for no and any other number for yes; with its confidence.
typedef struct zv_count_reading {
  int64_t time;      ///< when it was read
  uint32_t value;    ///< the number
  float confidence;  ///< in [0, 1]
} zv_count_reading;

/// Where the eyes look; (0, 0) is at the robot. Which side is positive is up to the host, but must
/// not change: only the size of the mean of the remembered gazes counts.
typedef struct zv_gaze_reading {
  int64_t time;  ///< when it was read
  float yaw;     ///< to the side, in degrees
  float pitch;   ///< up or down, in degrees
} zv_gaze_reading;

/// Where the head is turned; (0, 0, 0) is straight at the robot.
typedef struct zv_head_posture_reading {
  int64_t time;  ///< when it was read
  float yaw;     ///< to the side, in degrees; negative is the person's own left
  float pitch;   ///< up or down, in degrees; positive is up
  float roll;    ///< in degrees; positive towards the person's own left shoulder
} zv_head_posture_reading;

/// How much there is of an emotion.
typedef struct zv_emotion {
  float value;       ///< in [0, 1] by convention
  float confidence;  ///< in [0, 1]
} zv_emotion;

/// What a face shows or a voice carries.
typedef struct zv_expressions_reading {
  int64_t time;           ///< when it was read
  zv_emotion calm;        ///< calm
  zv_emotion anger;       ///< anger
  zv_emotion joy;         ///< joy
  zv_emotion sorrow;      ///< sorrow
  zv_emotion laughter;    ///< laughter
  zv_emotion excitement;  ///< excitement
  zv_emotion surprise;    ///< surprise; a voice has none, its value is not read
} zv_expressions_reading;

/// A landmark's place in the picture.
typedef struct zv_point {
  float x;           ///< in pixels by convention
  float y;           ///< in pixels by convention
  float confidence;  ///< in [0, 1]; 0 where the landmark was not seen
} zv_point;

/// The landmarks of a face.
typedef struct zv_facial_points_reading {
  int64_t time;  ///< when they were read
  /// The two ends of each eye and brow, in the order in which they lie from left to right in the
  /// picture, then the nose's tip and base, then the mouth's left and right corner.
  zv_point points[12];
} zv_facial_points_reading;

/// An emotion imposed by the situation, such as a game that was won.
typedef struct zv_context_reading {
  int64_t time;     ///< when it began
  int32_t emotion;  ///< the target of the pull: 1 positive, -1 negative; larger pulls further
  float duration;   ///< the age at which its weight is one half, in seconds
} zv_context_reading;

/// What was perceived of one person in one perception cycle. Each reading carries its own time, and
/// those whose field is not set in `fields` are not read.
typedef struct zv_observation {
  size_t size;                             ///< sizeof(zv_observation)
  uint32_t fields;                         ///< a sum of zv_field: what was perceived
  zv_integer_reading looking_at_robot;     ///< ZV_LOOKING_AT_ROBOT
  zv_number_reading height;                ///< ZV_HEIGHT
  zv_number_reading distance;              ///< ZV_DISTANCE
  zv_gaze_reading gaze;                    ///< ZV_GAZE
  zv_pair_reading smile;                   ///< ZV_SMILE
  zv_expressions_reading expressions;      ///< ZV_EXPRESSIONS
  zv_head_posture_reading head_posture;    ///< ZV_HEAD_POSTURE
  zv_count_reading gender;                 ///< ZV_GENDER
  zv_count_reading age;                    ///< ZV_AGE
  zv_integer_reading face_detected;        ///< ZV_FACE_DETECTED
  zv_facial_points_reading facial_points;  ///< ZV_FACIAL_POINTS
  zv_expressions_reading voice_emotion;    ///< ZV_VOICE_EMOTION
  zv_number_reading asr_emotion;           ///< ZV_ASR_EMOTION
  zv_integer_reading touch_emotion;        ///< ZV_TOUCH_EMOTION
  zv_context_reading context_emotion;      ///< ZV_CONTEXT_EMOTION
} zv_observation;

/// The emotional state of one person.
typedef struct zv_state {
  size_t size;                  ///< sizeof(zv_state)
  int32_t person;               ///< the host's identifier
  float valence;                ///< how negative or positive, in [-1, 1]
  float valence_confidence;     ///< in [0, 1]
  int32_t mood;                 ///< the label of the valence: 1 positive, 0 neutral, -1 negative
  int32_t cycle_mood;           ///< the label of what the last cycle alone made
  float cycle_mood_confidence;  ///< in [0, 1]
  float attention;              ///< how engaged with the robot, in [0, 1]
  float attention_confidence;   ///< in [0, 1]
  float ease;                   ///< how much at ease the body language seems, from -0.5 to 0.5
  float ease_confidence;        ///< in [0, 1]
} zv_state;

/// Removes from observations what would do lasting harm, before they reach the graph. One guard can
/// serve all persons of a host.
typedef struct zv_guard zv_guard;

/// What a guard found.
typedef struct zv_guard_report {
  size_t size;             ///< sizeof(zv_guard_report)
  uint32_t not_finite;     ///< a sum of zv_field: removed for a NaN or an infinity
  uint32_t ahead;          ///< a sum of zv_field: removed for a time too far ahead of the clock
  int64_t clock_set_back;  ///< by how many nanoseconds, if by more than the limit; else 0
} zv_guard_report;

/// `limit` is how far a reading may be ahead of the clock, and how far the clock may go back, in
/// nanoseconds, from 0 on; a second is usual. Any thread.
ZV_API zv_guard* zv_guard_create(int64_t limit);
/// Takes null, too. Any thread, once no other uses the guard.
ZV_API void zv_guard_destroy(zv_guard* guard);
/// Clears in `observation->fields` each field that has a NaN or an infinity, or a time that is too
/// far ahead, and lists it in `report`, which may be null. When the clock was set back, everybody
/// should be removed from the graph, since what is remembered lies in the future. One thread at a
/// time for each guard.
ZV_API zv_code zv_guard_clean(zv_guard* guard, zv_observation* observation,
                              zv_guard_report* report);

/// The persons that the robot tracks, by the host's identifier, under one lock, which each function
/// holds while it works. It never forgets one by itself.
typedef struct zv_graph zv_graph;

/// A graph without persons. Any thread.
ZV_API zv_graph* zv_graph_create(void);
/// Takes null, too. Any thread, once no other uses the graph.
ZV_API void zv_graph_destroy(zv_graph* graph);
/// One perception cycle of a person. An unknown person is inserted; `state`, which may be null,
/// becomes the state after it. An observation with a NaN or an infinity is an error, which changes
/// nothing; a guard removes such a reading. ZV_FAILED means, once in a long while, that a reading
/// grew too old in the middle of the cycle: go on with the next one. Any thread.
ZV_API zv_code zv_graph_update(zv_graph* graph, int32_t person, const zv_observation* observation,
                               zv_state* state);
/// One cycle in which a person was not perceived. An unknown person is inserted; `state`, which may
/// be null, becomes the state after it. Any thread.
ZV_API zv_code zv_graph_not_seen(zv_graph* graph, int32_t person, zv_state* state);
/// Forgets a person; an unknown one is no error. Any thread.
ZV_API zv_code zv_graph_remove(zv_graph* graph, int32_t person);
/// The person `from` goes on as `to`; where `to` is known, the two become one, with the readings of
/// both and the state of whoever was observed last. An unknown `from` is no error. Any thread.
ZV_API zv_code zv_graph_rename(zv_graph* graph, int32_t from, int32_t to);
/// The state of a person; ZV_UNKNOWN_PERSON when the graph does not have the person. Any thread.
ZV_API zv_code zv_graph_read(const zv_graph* graph, int32_t person, zv_state* state);

/// How agitated the robot's surroundings are.
typedef struct zv_ambiance zv_ambiance;

/// A room with both levels 0, until the first update. Any thread.
ZV_API zv_ambiance* zv_ambiance_create(void);
/// Takes null, too. Any thread, once no other uses the room.
ZV_API void zv_ambiance_destroy(zv_ambiance* ambiance);
/// Blends a measurement, usually in [0, 0.1], times ten, and the movements since the last call into
/// the agitation. NaN gives 0. Any thread.
ZV_API zv_code zv_ambiance_update(zv_ambiance* ambiance, float activity);
/// Counts one movement in the room. Any thread.
ZV_API zv_code zv_ambiance_movement(zv_ambiance* ambiance);
/// Both levels, in [0, 1]. While another thread updates, they may come from different updates;
/// those in a frame of a board belong together. Any thread.
ZV_API zv_code zv_ambiance_read(const zv_ambiance* ambiance, float* agitation, float* calm);

/// Shows the last whole frame of a graph and a room to any number of readers, who wait neither for
/// the graph's lock, nor for the publisher, nor for each other.
typedef struct zv_board zv_board;

/// Everybody, and the room, at one moment.
typedef struct zv_frame {
  size_t size;      ///< sizeof(zv_frame)
  uint64_t number;  ///< 1 for the first published frame, 2 for the next; 0 before
  int64_t time;     ///< what the publisher called the time of the frame
  float agitation;  ///< of the room, in [0, 1]
  float calm;       ///< of the room, in [0, 1]
  size_t persons;   ///< how many there are in the frame
  size_t states;  ///< how many of their states were written: all, or as many as there was room for
} zv_frame;

/// A board with an empty frame. The graph and the room must be there until the last
/// zv_board_publish(). Any thread.
ZV_API zv_board* zv_board_create(const zv_graph* graph, const zv_ambiance* ambiance);
/// Takes null, too. Any thread, once no other uses the board.
ZV_API void zv_board_destroy(zv_board* board);
/// Publishes what the graph and the room hold now. `time` is for the readers: usually when the
/// camera's frame was taken. Waits for the graph's lock. Any thread.
ZV_API zv_code zv_board_publish(zv_board* board, int64_t time);
/// Copies the last published frame: `frame`, and up to `capacity` states, by ascending identifier,
/// to the array `states`. The caller sets `size` in its first element, and all elements have that
/// size. `states` may be null where `capacity` is 0. Takes no lock and no memory. Any thread.
ZV_API zv_code zv_board_latest(const zv_board* board, zv_frame* frame, zv_state* states,
                               size_t capacity);

#ifdef __cplusplus
}
#endif

#endif
