// What the live page makes of lines, worked out by hand.

import assert from "node:assert/strict";
import { test } from "node:test";

import { Person, stretchesOf } from "../../pages/view/person.js";
import { Places } from "../../pages/view/places.js";

function personOf(lines) {
  const person = new Person(1);
  for (const [seconds, value, forces] of lines) {
    const reading = { value, confidence: 1 };
    person.add({ time: seconds * 1e9, valence: reading, attention: reading, forces });
  }
  return person;
}

test("curves stop where nothing came for a second, and at what is no number", () => {
  const { bins } = personOf(
    [[0, 0], [0.95, 0], [2.05, 0], [2.55, null], [2.95, 0], [3.05, 0], [3.15, 0]]);
  assert.deepEqual(stretchesOf(bins, "valence").map(({ length }) => length), [2, 1, 3]);
});

test("a bin holds the lowest, the highest and the last, for a minute", () => {
  const { bins } = personOf([[0, 9], [60.51, -1], [60.52, 1], [60.53, 0], [61.2, 5]]);
  assert.deepEqual(bins.map(({ time, valence: { low, high, last } }) => [time, low, high, last]),
    [[60.53, -1, 1, 0], [61.2, 5, 5, 5]]);
});

test("what pulled most in the last second comes first", () => {
  const force = (reason, quantity, before, after) => ({ quantity, reason, before, after });
  const person = personOf([[0, 0, [force("old", "valence", 0, 1)]],
    [5, 0, [force("a", "valence", 0, 0.25), force("b", "attention", 1, 0), force("a", "ease", 0, 1)]],
    [6, 0, [force("a", "valence", 0.25, 0.75), force("c", "valence", 0, 0.001)]]]);
  assert.deepEqual(person.strongestReasons(3), [{ quantity: "attention", reason: "b", move: -1 },
    { quantity: "valence", reason: "a", move: 0.75 }]);
  assert.equal(person.strongestReasons(1).length, 1);
});

test("who goes leaves a place for the next, and nobody else moves", () => {
  const places = new Places();
  assert.deepEqual(["a", "b", "c", "d"].map((thing) => places.add(thing)), [0, 1, 2, 3]);
  for (const thing of ["b", "c", "d"]) places.remove(thing);
  assert.equal(places.count, 1);  // free ones at the end are none
  assert.deepEqual(["e", "f"].map((thing) => places.add(thing)), [1, 2]);
  places.remove("a");
  assert.deepEqual([places.count, places.add("g")], [3, 0]);
});
