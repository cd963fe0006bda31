// The order of people.

/** @typedef {import("./person.js").Person} Person */

const clearly = 1.25;  // times as much
const little = 0.05;

/**
 * People who moved most come first. It would be restless to follow every little difference, so all keep
 * their places until somebody is behind another who moved clearly less.
 * @template {{ person: Person }} Thing
 * @param {Thing[]} things in their present order
 */
export function byMovement(things) {
  const now = Math.max(...things.map(({ person }) => person.time));
  const moved = things.map((thing) => ({ thing, movement: thing.person.movement(now) }));
  let least = Infinity;
  const isClear = moved.some(({ movement }) => {
    least = Math.min(least, movement);
    return movement > clearly * least + little;
  });
  if (!isClear) return things;
  return moved.sort((one, other) => other.movement - one.movement).map(({ thing }) => thing);
}

/**
 * @template {{ person: Person }} Thing
 * @param {Thing[]} things
 */
export function byNumber(things) {
  return things.slice().sort((one, other) => one.person.id - other.person.id);
}
