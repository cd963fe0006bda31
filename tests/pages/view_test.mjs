// What the live page makes of lines, worked out by hand.

import assert from "node:assert/strict";
import { test } from "node:test";

import { moveApart } from "../../pages/view/apart.js";
import { byMovement, byNumber } from "../../pages/view/order.js";
import { Person, stretchesOf } from "../../pages/view/person.js";

function personOf(lines) {
  const person = new Person(1);
  for (const [seconds, value, forces] of lines) {
    const reading = { value, confidence: 1 };
    person.add({ time: seconds * 1e9, valence: reading, attention: reading, forces });
  }
  return person;
}

test("curves stop where nothing came for a second, and at values that are not numbers", () => {
  const { bins } = personOf(
    [[0, 0], [0.95, 0], [2.05, 0], [2.55, null], [2.95, 0], [3.05, 0], [3.15, 0]]);
  assert.deepEqual(stretchesOf(bins, "valence").map(({ length }) => length), [2, 1, 3]);
  bins[5].attention.last = NaN;
  assert.deepEqual(stretchesOf(bins, "valence", "attention").map(({ length }) => length), [2, 1, 1, 1]);
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

test("numbers in one place make way, stay in the area, come to rest and go back", () => {
  const area = { width: 700, height: 300 };
  const home = { x: 699, y: 2 };  // the corner, where there is least room
  const badges = Array.from({ length: 12 }, (_, index) =>
    ({ home, ...home, width: index % 3 ? 40 : 150, height: 40 }));
  for (let times = 0; times < 50; ++times) moveApart(badges, area);
  const before = badges.map(({ x, y }) => ({ x, y }));
  moveApart(badges, area);
  badges.forEach(({ x, y, width, height }, index) => {
    assert(Math.hypot(x - before[index].x, y - before[index].y) < 1, "restless");
    assert(x - width / 2 >= 0 && x + width / 2 <= 700 && y - height / 2 >= 0 && y + height / 2 <= 300);
    for (const other of badges.slice(0, index)) {
      const beside = Math.max(0, Math.abs(x - other.x) - (width + other.width) / 2 + 40);
      assert(Math.hypot(beside, y - other.y) > 40, `${index} covers another`);
    }
  });
  const [alone] = badges;
  alone.home = { x: 300, y: 200 };
  for (let times = 0; times < 50; ++times) moveApart([alone], area);
  assert(Math.hypot(alone.x - 300, alone.y - 200) < 0.1);
});

test("people who moved clearly more come before the others", () => {
  // A valence and an attention that both move by 0.4 move by 0.2 and 0.4 of their ranges.
  const people = [0.4, 0.2, 0.44, 0.45].map((value) => ({ person: personOf([[1, 9], [20, 0], [25, value]]) }));
  people.forEach(({ person }, index) => { person.id = index; });
  const ids = (things) => things.map(({ person }) => person.id);
  assert(Math.abs(people[0].person.movement(25) - 0.6) < 1e-9);
  assert.deepEqual(ids(byMovement(people)), [3, 2, 0, 1]);
  const [first, , third] = people;
  assert.deepEqual(ids(byMovement([first, third])), [0, 2]);  // not clearly less
  assert.deepEqual(ids(byNumber([third, first])), [0, 2]);
});
