// Stretches of time: moods and scopes.

import { colorOf } from "../shared/colors.js";
import { moods } from "../shared/quantities.js";
import { isKnown, notMeasured } from "./curve.js";
import { shown } from "./view.js";

/** @typedef {import("./curve.js").Curve} Curve */
/** @typedef {import("./drawing").Canvas} Canvas */
/** @typedef {import("./drawing").LaneSpan} LaneSpan */
/** @typedef {import("./drawing").Paint} Paint */
/** @typedef {import("./drawing").Span} Span */
/** @typedef {import("../tool").ScopeData} ScopeData */
/** @typedef {Span & Pick<ScopeData, "scope" | "label" | "samples">} Scope */

/**
 * Stretches of rows that have the same value, without a break.
 * @template Value
 * @param {Pick<Curve, "times" | "begins">} curve
 * @param {(row: number) => Value} valueOf
 */
function spansOf({ times, begins }, valueOf) {
  const spans = [];
  for (let first = 0, row = 1; row <= times.length; ++row) {
    const isBroken = row === times.length || begins[row];
    const value = valueOf(first);
    if (!isBroken && valueOf(row) === value) continue;
    spans.push({ from: times[first], to: times[isBroken ? row - 1 : row], value });
    first = row;
  }
  return spans;
}

/**
 * @param {Pick<Curve, "times" | "begins"> & { valence: Curve, moods: Int8Array }} person
 * @returns {LaneSpan[]}
 */
export function moodSpans(person) {
  const laneOf = (/** @type {number} */ row) => (isKnown(person.valence, row) ?
    1 - person.moods[row] : undefined);
  return spansOf(person, laneOf).flatMap(({ from, to, value: lane }) =>
    (lane === undefined ? [] : [{ from, to, lane, color: moods[lane].name }]));
}

/** @param {Curve} curve */
export function unknownSpans(curve) {
  return spansOf(curve, (row) => isKnown(curve, row)).filter(({ value }) => !value);
}

/**
 * Paints a grey area where a curve is not known: a line at 0 would look like a value.
 * @param {Curve} curve
 * @returns {Paint}
 */
export function paintUnknown(curve) {
  const spans = unknownSpans(curve)
    .map(({ from, to }) => ({ from, to, lane: 0, color: "muted", text: notMeasured }));
  const [lowest, highest] = curve.quantity.range;
  const paint = paintSpans(spans, 1);
  return (context, area, scale) => paint(context, area, {
    toDomXCoord: (seconds) => scale.toDomXCoord(seconds),
    toDomYCoord: (share) => scale.toDomYCoord(lowest + share * (highest - lowest)),
  });
}

/**
 * Scopes that overlap are beside each other, up to a height that leaves room for the curves.
 * @param {Scope[]} scopes
 * @returns {LaneSpan[]}
 */
export function scopeSpans(scopes) {
  const mostLanes = 6;
  /** @type {number[]} */
  const ends = [];
  return scopes.map((scope) => {
    const free = ends.findIndex((end) => end <= scope.from);
    const lane = free >= 0 ? free : Math.min(ends.length, mostLanes - 1);
    ends[lane] = Math.max(ends[lane] ?? scope.to, scope.to);
    const mood = moods.find(({ name }) => name === scope.label);
    const text = `${scopeSign(scope)} ${scope.scope.slice(0, 100)}`;
    return { from: scope.from, to: scope.to, lane, color: mood ? mood.name : "muted", text };
  });
}

/** @param {Pick<Scope, "label">} scope */
export function scopeSign({ label }) {
  const others = new Map([["unknown", "?"], ["", "…"]]);
  return moods.find(({ name }) => name === label)?.sign ?? others.get(label) ?? "!";
}

/**
 * As much of a text as there is room for; only its sign when there is little room.
 * @param {Pick<Canvas, "measureText">} context
 * @param {string} text
 * @param {number} room
 */
export function fittingText(context, text, room) {
  if (room < 8) return "";
  const fits = (/** @type {string} */ part) => context.measureText(part).width <= room;
  if (fits(text)) return text;
  let length = text.length - 1;
  while (length > 4 && !fits(`${text.slice(0, length)}…`)) --length;
  if (length > 4) return `${text.slice(0, length)}…`;
  return fits(text[0]) ? text[0] : "";
}

/**
 * Paints spans, in the order in which they begin, each in its lane: the first lane ends at the value
 * `lanes`, and each is 1 high. A text may reach beyond a short span.
 * @param {LaneSpan[]} spans
 * @param {number} lanes
 * @returns {Paint}
 */
export function paintSpans(spans, lanes) {
  /** @type {number[]} */
  const followers = new Array(lanes).fill(Infinity);
  /** @type {number[]} */
  const roomEnds = new Array(spans.length);
  for (let index = spans.length - 1; index >= 0; --index) {
    const { lane, from } = spans[index];
    roomEnds[index] = followers[lane];
    followers[lane] = from;
  }
  return (context, area, scale) => {
    const height = scale.toDomYCoord(0) - scale.toDomYCoord(1);
    /** @type {number[]} */
    const done = new Array(lanes).fill(-Infinity);
    const pixelOf = (/** @type {number} */ seconds) =>
      Math.min(Math.max(scale.toDomXCoord(seconds), area.x), area.x + area.w);
    context.save();
    context.textBaseline = "middle";
    context.font = "12px system-ui, 'DejaVu Sans', sans-serif";
    spans.forEach((span, index) => {
      if (span.to < shown.from || span.from > shown.to) return;
      const left = pixelOf(span.from);
      const right = Math.max(pixelOf(span.to), left + 1.5);
      if (right <= done[span.lane]) return;  // behind what is drawn already
      done[span.lane] = right;
      const top = scale.toDomYCoord(lanes - span.lane);
      context.fillStyle = colorOf(span.color);
      if (!span.text) {
        context.fillRect(left, top + 1.5, right - left, height - 3);
        return;
      }
      context.globalAlpha = 0.25;
      context.fillRect(left, top + 1.5, right - left, height - 3);
      context.globalAlpha = 1;
      context.fillRect(left, top + 1.5, 2, height - 3);
      context.fillStyle = colorOf("text");
      const text = fittingText(context, span.text, pixelOf(roomEnds[index]) - left - 10);
      context.fillText(text, left + 6, top + height / 2 + 0.5);
    });
    context.restore();
  };
}
