// The part of the time that is shown, and the pointer, for all charts of the page. Times are in seconds.

import { changeTheme } from "../shared/colors.js";
import { byId, element, find } from "../shared/elements.js";
import { decimalsFor, formatTime, formatUtc } from "../shared/format.js";
import { after, within } from "./window.js";

/** @typedef {import("./drawing").Span} Span */
/** @typedef {import("./keyboard.js").ActionName} ActionName */
/** @typedef {{ shown?: Span, draw(): void, create(): void, resize(): void }} DrawnChart */
/**
 * @typedef {{
 *   draw(): void, formatValues(seconds: number): string, drawSelection(range?: Span): void,
 * }} DrawnStack
 */

export let origin = 0;  // when second 0 is, in milliseconds since the epoch
/** @type {Span} */
export let whole = { from: 0, to: 1 };
export let shown = whole;
/** @type {number | undefined} */
export let pointer;  // undefined when it points nowhere
/** @type {number | undefined} */
export let filmTime;  // undefined without a film
/** @type {(seconds: number) => void} */
let lead = () => {};
/** @type {DrawnChart[]} */
export const charts = [];
/** @type {DrawnStack[]} */
export const stacks = [];
let drawIsPlanned = false;

/** @param {Span} span @param {number} zero */
export function showWhole(span, zero) {
  origin = zero;
  whole = span;
  shown = whole;
}

/** @param {number} from @param {number} to */
export function setShown(from, to) {
  shown = within({ from, to }, whole);
  planDraw();
}

/** @param {number} [seconds] */
export function setPointer(seconds) {
  pointer = seconds;
  planDraw();
}

/** @param {number} [seconds] */
export function setFilmTime(seconds) {
  filmTime = seconds;
  planDraw();
}

/**
 * `take` is called with each time to which the reader jumps.
 * @param {typeof lead} take
 */
export function follow(take) {
  lead = take;
}

/** @param {number} seconds */
export function jump(seconds) {
  lead(seconds);
}

// However many changes there are, one drawing a frame is enough.
function planDraw() {
  if (drawIsPlanned) return;
  drawIsPlanned = true;
  requestAnimationFrame(() => {
    drawIsPlanned = false;
    draw();
  });
}

export function draw() {
  for (const chart of charts) if (chart.shown !== shown) chart.draw();
  for (const stack of stacks) stack.draw();
  byId("shown").textContent = formatShown();
  byId("pointer-time").textContent = formatPointer();
  const bar = find(".overview div", HTMLElement).style;
  const longest = whole.to - whole.from;
  bar.left = `${100 * (shown.from - whole.from) / longest}%`;
  bar.width = `${100 * (shown.to - shown.from) / longest}%`;
}

// Draws everything again, with other colours.
export function drawAnew() {
  changeTheme();
  for (const chart of charts) chart.create();
  draw();
}

export function resize() {
  for (const chart of charts) chart.resize();
  planDraw();
}

export function formatShown() {
  const format = (/** @type {Span} */ { from, to }) =>
    [from, to].map((time) => formatTime(time, decimalsFor(to - from))).join(" – ");
  const all = format(whole);
  return `Shown: ${format(shown)} of ${whole.from === 0 ? all.replace(/.* – /, "") : all}`;
}

function formatPointer() {
  if (pointer === undefined) return "";
  return `${formatTime(pointer, 3)} · ${formatUtc(origin + pointer * 1e3)}`;
}

export function formatValues() {
  if (pointer === undefined) return "";
  const at = pointer;
  return [formatTime(at, 3), ...stacks.map((stack) => stack.formatValues(at))].join(". ");
}

/** @param {string} text @param {Span} span @param {number} pointerAt */
export function zoomLink(text, { from, to }, pointerAt) {
  const link = element("a", { href: "#" }, text);
  link.addEventListener("click", (event) => {
    event.preventDefault();
    setPointer(pointerAt);
    setShown(from, to);
    jump(pointerAt);
  });
  return link;
}

/**
 * What a screen reader says after an action; else it says what is shown. It says values only when asked
 * for them: there may be dozens.
 * @type {Partial<Record<ActionName, () => string>>}
 */
const announcements = {
  pointerLeft: formatPointer, pointerRight: formatPointer, values: formatValues,
};

/** @param {ActionName} action */
export function perform(action) {
  ({ shown, pointer } = after({ whole, shown, pointer }, action));
  planDraw();
  byId("announcement").textContent = (announcements[action] ?? formatShown)();
}
