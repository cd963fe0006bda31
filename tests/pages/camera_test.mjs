// From faces to events, by numbers worked out by hand.

import assert from "node:assert/strict";
import { test } from "node:test";

import { areCalm, overlapOf } from "../../pages/camera/boxes.js";
import { isOther, meansOf } from "../../pages/camera/cut.js";
import { eventLines, inNanoseconds, observationOf } from "../../pages/camera/faces.js";
import { People } from "../../pages/camera/people.js";

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
  const seen = observationOf(7, face(), false);
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
  const mirrored = observationOf(7, face(), true);
  assertAngles(mirrored.headPosture, { yaw: -30, pitch: -10, roll: 5 });
  assertAngles(mirrored.gaze, { yaw: -60, pitch: -10 });
});

test("what is not known is left out", () => {
  const unknown = { distance: 0, angle: null, mesh: [], emotion: null, score: -1 };
  const seen = observationOf(7, face(unknown), false);
  assert.deepEqual(Object.keys(seen), ["event", "person", "faceDetected"]);
  const without = observationOf(7, face({ mesh: new Float32Array(936), emotion: [] }), false);
  assert.deepEqual(Object.keys(without),
    ["event", "person", "faceDetected", "distance", "headPosture", "facialPoints"]);
});

const at = (x, score = 0.9) => face({ box: [x, 0.1, 0.2, 0.2], score });

// The events of pictures, each of which is a time, faces and perhaps whether there is a cut before it.
function said(pictures, numbers = { first: 7, most: 1000 }) {
  const people = new People(numbers);
  return pictures.map(([seconds, faces, isCut]) => people.follow(faces, seconds, { isCut })
    .map(({ event, person }) => `${event[0]}${person}`).join(" "));
}

// Pictures of faces at these places, which are people from the last picture on.
function arrived(...xs) {
  return [-0.3, -0.2, -0.1, 0].map((seconds) => [seconds, xs.map((x) => at(x))]);
}

test("a face that stays is a person", () => {
  const every = (seconds, faces) => said(faces.map((those, number) => [number * seconds, those]));
  const [seen, unsure, none] = [[at(0.1)], [at(0.1, 0.4)], []];
  assert.deepEqual(every(0.05, [seen, seen, seen, seen, seen]), ["", "", "", "", "o7"]);
  assert.deepEqual(every(0.025, new Array(9).fill(seen)), [...new Array(8).fill(""), "o7"]);
  assert.deepEqual(every(0.2, [seen, none, seen, none, seen, unsure]), ["", "", "", "", "o7", "o7"]);
  assert.deepEqual(every(1, [seen, seen, none, unsure, unsure, seen, seen, seen]),
    ["", "", "", "", "", "", "", "o7"]);
});

test("whose face it is", () => {
  // Two people pass each other; one hides the other for a while.
  const pictures = arrived(0.1, 0.7);
  for (let step = 1; step <= 12; ++step) {
    const [right, left] = [0.1 + 0.05 * step, 0.7 - 0.05 * step];
    pictures.push([step / 10, Math.abs(right - left) < 0.15 ? [at(right)] : [at(left), at(right)]]);
  }
  assert.deepEqual(said(pictures).slice(3).filter((text, index, all) => text !== all[index - 1]),
    ["o7 o8", "o7 n8", "o7 o8"]);
  assert.deepEqual(pictures.at(-1)[1].map(({ person }) => person), [8, 7]);
  // The best pairs win; what overlaps by less than 0.3 is somebody else.
  const faces = [at(0.5), at(0.43), at(0.24)];
  said([...arrived(0.1, 0.4), [0.1, faces]]);
  assert.deepEqual(faces.map(({ person }) => person), [undefined, 8, undefined]);
  // 3 s unseen is not too long; ids are used again, but not those in use.
  const both = [at(0.1), at(0.7)];
  assert.deepEqual(said([...arrived(0.1, 0.5), [3, [at(0.1)]], [3.1, [at(0.1)]], [3.2, both], [3.3, both],
    [3.4, both]], { first: 1, most: 2 }).slice(3), ["o1 o2", "o1 n2", "o1 r2", "o1", "o1", "o1 o2"]);
  assert.equal(overlapOf([0, 0, 2, 2], [1, 1, 2, 2]), 1 / 7);
});

test("after a cut everybody is somebody new", () => {
  const pictures = [0.1, 0.2, 0.3].map((seconds, index) => [seconds, [at(0.1), at(0.5)], index === 0]);
  assert.deepEqual(said([...arrived(0.1, 0.5), ...pictures]).slice(3),
    ["o7 o8", "r7 r8", "", "o9 o10"]);
  const picture = (color, other) => meansOf({ width: 32, height: 18, data: Array.from(
    { length: 4 * 32 * 18 }, (_, index) => index < 4 * 32 * 8 ? other : color) });
  assert.equal(isOther(picture(120, 120), picture(100, 100)), true);
  assert.equal(isOther(picture(100, 200), picture(100, 100)), false);
  assert.equal(isOther(picture(110, 110), picture(100, 100)), false);
});

test("faces that hardly move are followed", () => {
  const turned = (roll) => face({ angle: { yaw: 0, pitch: 0, roll } });
  assert.equal(areCalm([at(0.1), at(0.5)], [at(0.503), at(0.1)]), true);
  for (const [faces, before] of [[[], []], [[at(0.1)], [at(0.1), at(0.5)]], [[at(0.1)], [at(0.105)]],
    [[turned(0)], [turned(0.04)]], [[at(0.1), at(0.2)], [at(0.1), at(0.2)]]]) {
    assert.equal(areCalm(faces, before), false);
  }
});

test("times are exact", () => {
  const time = 946684800_000_000_000n + inNanoseconds(1 / 15);
  assert.deepEqual(eventLines([{ event: "not_seen", person: 1 }], time, new Map()),
    ['{"time":946684800066666667,"event":"not_seen","person":1}']);
});
