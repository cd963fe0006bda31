// A window in time, a part of the whole, and the pointer in it, in seconds. It knows nothing of the page.

/** @typedef {import("./drawing").Span} Span */
/** @typedef {import("./keyboard.js").ActionName} ActionName */
/** @typedef {{ whole: Span, shown: Span, pointer: number | undefined }} View */

const shortest = 0.001;

/**
 * The window of that length and middle, as far as the whole allows.
 * @param {Span} window
 * @param {Span} whole
 * @returns {Span}
 */
export function within({ from, to }, whole) {
  const longest = whole.to - whole.from;
  const width = Math.min(Math.max(to - from, shortest), longest);
  const begin = Math.min(Math.max((from + to - width) / 2, whole.from), whole.to - width);
  return { from: begin, to: begin + width };
}

/**
 * Zooms about the pointer, if it is inside, else about the middle.
 * @param {View} view
 * @param {number} factor
 * @returns {View}
 */
function zoom({ whole, shown: { from, to }, pointer }, factor) {
  const isInside = pointer !== undefined && pointer >= from && pointer <= to;
  const center = isInside ? pointer : (from + to) / 2;
  const shown = { from: center - (center - from) * factor, to: center + (to - center) * factor };
  return { whole, shown: within(shown, whole), pointer };
}

/**
 * Moves the window by a share of its length.
 * @param {View} view
 * @param {number} share
 * @returns {View}
 */
function move({ whole, shown: { from, to }, pointer }, share) {
  const step = share * (to - from);
  return { whole, shown: within({ from: from + step, to: to + step }, whole), pointer };
}

/**
 * Moves the pointer, from the middle if it points nowhere.
 * @param {View} view
 * @param {number} share
 * @returns {View}
 */
function movePointer({ whole, shown, pointer }, share) {
  const { from, to } = shown;
  const at = (pointer ?? (from + to) / 2) + share * (to - from);
  return { whole, shown, pointer: Math.min(Math.max(at, from), to) };
}

/** @type {Record<ActionName, (view: View) => View>} */
const actions = {
  in: (view) => zoom(view, 1 / 2),
  out: (view) => zoom(view, 2),
  left: (view) => move(view, -1 / 4),
  right: (view) => move(view, 1 / 4),
  whole: ({ whole, pointer }) => ({ whole, shown: within(whole, whole), pointer }),
  pointerLeft: (view) => movePointer(view, -1 / 100),
  pointerRight: (view) => movePointer(view, 1 / 100),
  values: (view) => movePointer(view, 0),
};

/**
 * The view after a button or a key.
 * @param {View} view
 * @param {ActionName} action
 */
export function after(view, action) {
  return actions[action](view);
}
