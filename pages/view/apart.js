// Keeps numbers that belong to nearly the same place from covering one another.

/**
 * A disc, or a wide shape with round ends. It belongs at `home`, and is shown at `x` and `y`.
 * @typedef {{ home: { x: number, y: number }, x: number, y: number, width: number, height: number }} Badge
 */

const gap = 2;  // pixels
const stay = 0.8;  // the share of its distance from home that a badge keeps
const mostPairs = 20000;  // in all passes of a call
const goldenAngle = 2.4;

/**
 * Moves badges towards their homes, as near as the others and the area let them. They start from where they
 * are, so nothing jumps.
 * @param {Badge[]} badges
 * @param {{ width: number, height: number }} area
 */
export function moveApart(badges, area) {
  for (const badge of badges) {
    badge.x = badge.home.x + stay * (badge.x - badge.home.x);
    badge.y = badge.home.y + stay * (badge.y - badge.home.y);
  }
  const passes = Math.ceil(mostPairs / (1 + badges.length ** 2));
  for (let pass = 0, isApart = false; pass < passes && !isApart; ++pass) {
    isApart = true;
    for (let index = 0; index < badges.length; ++index) {
      for (let other = 0; other < index; ++other) {
        if (push(badges[other], badges[index], goldenAngle * (index + other))) isApart = false;
      }
    }
    for (const badge of badges) {
      badge.x = within(badge.x, badge.width / 2 + gap, area.width);
      badge.y = within(badge.y, badge.height / 2 + gap, area.height);
    }
  }
}

/** @param {number} place @param {number} half @param {number} end */
function within(place, half, end) {
  return Math.max(half, Math.min(end - half, place));
}

/**
 * Pushes two badges apart; returns whether they were too near.
 * @param {Badge} one
 * @param {Badge} other
 * @param {number} angle of the push, if they are at the same place
 */
function push(one, other, angle) {
  // Each badge is a line with round ends; this is how far the lines are apart.
  const lines = (one.width - one.height + other.width - other.height) / 2;
  const across = Math.sign(other.x - one.x) * Math.max(0, Math.abs(other.x - one.x) - lines);
  const down = other.y - one.y;
  const distance = Math.hypot(across, down);
  const lacking = (one.height + other.height) / 2 + gap - distance;
  if (lacking < 0.1) return false;
  const direction = distance > 0 ? Math.atan2(down, across) : angle;
  const [x, y] = [Math.cos(direction) * lacking / 2, Math.sin(direction) * lacking / 2];
  one.x -= x;
  one.y -= y;
  other.x += x;
  other.y += y;
  return true;
}
