// From faces to events, by numbers worked out by hand.

import assert from "node:assert/strict";
import { test } from "node:test";

import { eventLine, inNanoseconds, overlapOf, People } from "../../pages/camera/faces.js";

// The events of frames, each a time and faces.
function follow(frames, numbers = { first: 7, most: 1000 }, isMirrored = false) {
  const people = new People(numbers);
  return frames.map(([seconds, faces]) => people.follow(faces, seconds, isMirrored));
}

// Eyes 100 pixels wide. The left iris is 20 to the right of the middle, the right one 60 to the left,
// more than an eye can turn.
function face(others = {}) {
  const mesh = new Float32Array(956);
  for (const [index, x, y] of [[33, 100, 50], [133, 200, 50], [473, 170, 90], [362, 300, 50],
    [263, 400, 50], [468, 290, 50], [1, 250, 120]]) mesh.set([x, y], 2 * index);
  return {
    box: [0.1, 0.1, 0.2, 0.2], score: 1.25, mesh, distance: 0.6,
    angle: { yaw: Math.PI / 6, pitch: Math.PI / 18, roll: -Math.PI / 36 },
    emotion: [{ emotion: "happy", score: 0.5 }, { emotion: "fear", score: 0.25 }], ...others,
  };
}

function assertAngles(angles, expected) {
  for (const [name, value] of Object.entries(expected)) {
    assert(Math.abs(angles[name] - value) < 1e-4, `${name} ${angles[name]}`);
  }
}

test("the numbers of a face", () => {
  const [[seen]] = follow([[0, [face()]]]);
  assert.deepEqual([seen.event, seen.person, seen.faceDetected, seen.distance, seen.smile],
    ["observation", 7, { value: true }, { value: 0.6 }, { value: 0.5, confidence: 1 }]);
  assert.deepEqual(Object.entries(seen.expressions).map(([name, { value }]) => [name, value]),
    [["calm", 0], ["anger", 0], ["joy", 0.5], ["sorrow", 0], ["surprise", 0]]);
  assertAngles(seen.headPosture, { yaw: 30, pitch: -10, roll: -5 });
  // asin(0.2 x 30 / 12) is 30 degrees, the other eye -90: the mean is -30.
  assertAngles(seen.gaze, { yaw: 60, pitch: -10 });
  const { points } = seen.facialPoints;
  assert.deepEqual(points.map(({ point }) => point), [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11]);
  assert.deepEqual([0, 3, 8].map((index) => [points[index].x, points[index].y]),
    [[100, 50], [400, 50], [250, 120]]);
  const [[mirrored]] = follow([[0, [face()]]], { first: 7 }, true);
  assertAngles(mirrored.headPosture, { yaw: -30, pitch: -10, roll: 5 });
  assertAngles(mirrored.gaze, { yaw: -60, pitch: -10 });
});

test("what is not known is left out", () => {
  const unknown = { distance: 0, angle: null, mesh: [], emotion: null, score: -1 };
  const [[seen]] = follow([[0, [face(unknown)]]]);
  assert.deepEqual(Object.keys(seen), ["event", "person", "faceDetected", "smile", "expressions"]);
  assert.deepEqual(seen.smile, { value: 0, confidence: 0 });
  const [[without]] = follow([[0, [face({ mesh: new Float32Array(936) })]]]);
  assert.equal(without.gaze, undefined);
});

test("whose face it is", () => {
  const at = (x) => face({ box: [x, 0.1, 0.2, 0.2] });
  const short = (frames) => frames.map((events) =>
    events.map(({ event, person }) => `${event[0]}${person}`).join(" "));
  // Two people cross over. A third one comes: the best pairs win. What overlaps by less than 0.3 is
  // somebody else.
  const three = [at(0.54), at(0.15), at(0.45)];
  assert.deepEqual(short(follow([
    [0, [at(0.1), at(0.5)]], [0.1, [at(0.45), at(0.15)]], [0.2, three], [0.3, [at(0.26)]]])),
  ["o7 o8", "o7 o8", "o7 o8 o9", "n7 n8 n9 o10"]);
  assert.deepEqual(three.map(({ person }) => person), [9, 7, 8]);
  // 3 s unseen is not too long; ids come round, but not those in use.
  assert.deepEqual(short(follow([
    [0, [at(0.1)]], [1, [at(0.1), at(0.5)]], [4, [at(0.1)]], [4.1, [at(0.1)]],
    [4.2, [at(0.1), at(0.7)]]], { first: 1, most: 2 })), ["o1", "o1 o2", "o1 n2", "o1 r2", "o1 o2"]);
  assert.equal(overlapOf([0, 0, 2, 2], [1, 1, 2, 2]), 1 / 7);
});

test("times are exact", () => {
  const time = 946684800_000_000_000n + inNanoseconds(1 / 15);
  assert.equal(eventLine({ event: "not_seen", person: 1 }, time),
    '{"time":946684800066666667,"event":"not_seen","person":1}');
});
