// A host of the estimator in C: three seconds of someone who begins to smile, and two cycles after
// they have left. In one frame the depth is missing.

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <zv/zorvel.h>

enum { PERSON = 1, ROOM_FOR = 8 };

static void check(int is_well) {
  if (is_well) return;
  fprintf(stderr, "%s\n", zv_error_text());
  exit(EXIT_FAILURE);
}

static zv_observation perceive(int cycle, int64_t taken) {
  const float joy = cycle < 10 ? 0.1f : 0.9f;
  zv_observation seen = {.size = sizeof seen};
  seen.fields = ZV_SMILE | ZV_EXPRESSIONS | ZV_HEAD_POSTURE | ZV_DISTANCE;
  seen.smile = (zv_pair_reading){taken, joy, 0.9f};
  seen.expressions = (zv_expressions_reading){.time = taken, .joy = {joy, 0.8f}};
  seen.head_posture = (zv_head_posture_reading){.time = taken, .yaw = 2.0f, .pitch = -3.0f};
  seen.distance = (zv_number_reading){taken, cycle == 20 ? NAN : 0.9f};
  return seen;
}

int main(void) {
  // On a robot, leave out the lines with this clock: the system's is the default.
  const int64_t start = INT64_C(1700000000000000000);
  zv_clock* clock = zv_clock_create(start);
  check(clock && zv_clock_use(clock) == ZV_OK);

  zv_guard* guard = zv_guard_create(INT64_C(1000000000));
  zv_graph* graph = zv_graph_create();
  zv_ambiance* room = zv_ambiance_create();
  check(guard && graph && room);
  zv_board* board = zv_board_create(graph, room);
  check(board != NULL);

  for (int cycle = 0; cycle < 32; ++cycle) {
    check(zv_clock_set(clock, start + cycle * INT64_C(100000000)) == ZV_OK);
    if (cycle < 30) {
      zv_observation seen = perceive(cycle, zv_now());
      zv_guard_report report = {.size = sizeof report};
      check(zv_guard_clean(guard, &seen, &report) == ZV_OK);
      for (uint32_t field = 1; field <= report.not_finite; field *= 2) {
        if (report.not_finite & field) printf("%s is not a number\n", zv_field_name(field));
      }
      if (report.clock_set_back) check(zv_graph_remove(graph, PERSON) == ZV_OK);
      const zv_code code = zv_graph_update(graph, PERSON, &seen, NULL);
      if (code == ZV_FAILED) fprintf(stderr, "%s\n", zv_error_text());  // carry on
      check(code == ZV_OK || code == ZV_FAILED);
    } else {
      check(zv_graph_not_seen(graph, PERSON, NULL) == ZV_OK);
    }
    check(zv_ambiance_update(room, 0.02f) == ZV_OK);
    check(zv_board_publish(board, zv_now()) == ZV_OK);
  }

  // What any other thread could do at any time.
  zv_frame frame = {.size = sizeof frame};
  zv_state states[ROOM_FOR] = {{.size = sizeof states[0]}};
  check(zv_board_latest(board, &frame, states, ROOM_FOR) == ZV_OK);
  printf("frame %d: agitation %.3f\n", (int)frame.number, frame.agitation);
  for (size_t index = 0; index < frame.states; ++index) {
    const zv_state* state = &states[index];
    printf("person %d: valence %.4f (%.4f), mood %d, attention %.4f (%.4f)\n", (int)state->person,
           state->valence, state->valence_confidence, (int)state->mood, state->attention,
           state->attention_confidence);
  }

  zv_board_destroy(board);
  zv_ambiance_destroy(room);
  zv_graph_destroy(graph);
  zv_guard_destroy(guard);
  zv_clock_use(NULL);
  zv_clock_destroy(clock);
  return 0;
}
