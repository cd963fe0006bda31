// What charts show, worked out by hand.

import assert from "node:assert/strict";
import { test } from "node:test";

import { makeCurve, visiblePoints } from "../../pages/report/curve.js";
import { actionOf, filmActionOf } from "../../pages/report/keyboard.js";
import { momentTexts } from "../../pages/report/moment.js";
import { Moves } from "../../pages/report/moves.js";
import { scopeSpans } from "../../pages/report/spans.js";
import { timeTicks } from "../../pages/report/ticks.js";
import { after } from "../../pages/report/window.js";
import { decimalsFor, formatMove, formatNumber, formatPercent, formatTime } from
  "../../pages/shared/format.js";
import { quantities } from "../../pages/shared/quantities.js";

test("numbers and times as texts", () => {
  assert.deepEqual([-0.0004, -1.5, NaN, -Infinity].map((value) => formatNumber(value, 3)),
    ["0.000", "−1.500", "not a number", "−∞"]);
  assert.deepEqual([0.0004, 0.5].map(formatMove), ["0.000", "+0.500"]);
  assert.deepEqual([0, 0.4, 1, 99.4, 100].map(formatPercent), ["0 %", "<1 %", "1 %", ">99 %", "100 %"]);
  assert.deepEqual([[3599.9996, 3], [-0.04, 1], [-61.5], [59.94, 1]].map((time) => formatTime(...time)),
    ["1:00:00.000", "0:00.0", "−1:02", "0:59.9"]);
  assert.deepEqual([0.78, 60, 3600].map(decimalsFor), [3, 1, 0]);
});

test("ticks are at round times, as close as their texts allow", () => {
  const labels = (...window) => timeTicks(...window).map(({ label }) => label);
  assert.deepEqual(labels(0.5, 40, 320), ["0:10", "0:20", "0:30", "0:40"]);
  assert.deepEqual(labels(-0.3, 0.3, 256), ["−0:00.2", "0:00.0", "0:00.2"]);
});

test("keys zoom and move within the whole, about the pointer", () => {
  let view = { whole: { from: 0, to: 100 }, shown: { from: 0, to: 100 }, pointer: undefined };
  const press = (key, shiftKey = false) => { view = after(view, actionOf({ key, shiftKey })); };
  for (const [key, from, to] of [["+", 25, 75], ["=", 37.5, 62.5], ["ArrowLeft", 31.25, 56.25],
    ["-", 18.75, 68.75], ["ArrowRight", 31.25, 81.25], ["ArrowRight", 43.75, 93.75],
    ["ArrowRight", 50, 100], ["−", 0, 100], ["+", 25, 75], ["0", 0, 100]]) {
    press(key);
    assert.deepEqual(view.shown, { from, to }, key);
  }
  for (const [key, pointer] of [["v", 50], ["ArrowLeft", 49], ["ArrowRight", 50]]) {
    press(key, true);
    assert.equal(view.pointer, pointer);
  }
  view.pointer = 99.5;
  press("ArrowRight", true);
  assert.equal(view.pointer, 100);
  view.pointer = 40;
  press("+");
  assert.deepEqual(view.shown, { from: 20, to: 70 });
  for (let times = 0; times < 20; ++times) press("+");
  assert(Math.abs(view.shown.to - view.shown.from - 0.001) < 1e-9);
  assert.equal(actionOf({ key: "+", ctrlKey: true }), undefined);
  assert.deepEqual([{}, { shiftKey: true }].map((how) => filmActionOf({ key: "ArrowLeft", ...how })),
    ["pictureBack", undefined]);
});

// A curve with one row a second, with breaks before the rows `breaks`.
function curveOf(values, { confidences, known, breaks = [] }) {
  const times = Float64Array.from(values, (_, row) => row);
  return makeCurve(quantities.valence, times, Uint8Array.from(times, (row) => breaks.includes(row)),
    Float32Array.from(values), confidences && Float32Array.from(confidences),
    known && Int8Array.from(known));
}

test("a band is as wide as confidence is missing", () => {
  const { drawn, low, high } = curveOf([0, 0.75, -0.75, NaN, 0.5, 0],
    { confidences: [0.5, 0, 0, 1, NaN, 1], known: [1, 1, 1, 1, 1, 0] });
  assert.deepEqual([...drawn], [0, 0.75, -0.75, NaN, 0.5, NaN]);
  assert.deepEqual([...low], [-0.25, 0.25, -1, NaN, 0, NaN]);
  assert.deepEqual([...high], [0.25, 1, -0.25, NaN, 1, NaN]);
});

test("no extreme is lost at any zoom, and a break splits the curve", () => {
  const values = new Array(36_000).fill(0);
  values[20_003] = 0.75;
  const curve = curveOf(values, { breaks: [20_004, 30_000] });
  for (const [from, to] of [[19_970, 20_030], [19_500, 20_500], [0, 36_000]]) {
    const points = visiblePoints(curve, { from, to }, 1000);
    assert(points.length <= 2100);
    const high = points.findIndex(([, band]) => band?.[1] === 0.75);
    assert.deepEqual(points.slice(high, high + 2), [[20_003, [0, 0.75, 0.75]], [20_004, null]].map(
      ([time, band]) => [time, band && (to - from < 2000 ? [0.75, 0.75, 0.75] : band)]));
    assert.equal(points.filter(([, band]) => !band).length, to === 36_000 ? 2 : 1);
  }
});

test("of the cycles under a pixel, the one with the most movement is shown", () => {
  // The page shows 0 to 1 s. The first cycle has not ended when that begins.
  const times = Float64Array.of(-0.25, 0.1, 0.3, 0.6);
  const rows = Int16Array.of(10, 20, -400, 30);
  const moves = new Moves({ times, begins: new Uint8Array(4), moves: [{ reason: "pull", rows }] });
  moves.pick(2);
  assert.deepEqual(moves.bars, [{ from: -0.25, to: 0.1, row: 0 }, { from: 0.1, to: 0.6, row: 2 },
    { from: 0.6, to: 0.6, row: 3 }]);
  assert.deepEqual(moves.ticks.map(({ label }) => label),
    ["−0.040", "−0.010", "0.000", "+0.010", "+0.040"]);
});

test("a moment has the state and what moved it most", () => {
  const moved = (values, rows, known) => ({ ...curveOf(values, { confidences: [1, 0.5, 1], known }),
    moves: rows.map((move, index) => ({ label: `the ${index}`, rows: Int16Array.of(0, move, 0) })) });
  const valence = moved([0, 0.5, 1], [100, -2000, 0, 500, 50]);
  const person = { valence, attention: moved([0, 0, 0], [], [1, 0, 1]), ease: curveOf([0, -0.2, 0], {
    confidences: [0, 0.5, 0] }), moods: Int8Array.of(0, 1, 1), ...valence };
  assert.deepEqual(momentTexts(person, 1.2), [
    "Valence 0.50 (confidence 0.50), positive: the 1 −0.200, the 3 +0.050, the 0 +0.010",
    "Valence not measured", "Valence −0.20 (confidence 0.50)"]);
  assert.deepEqual(momentTexts(person, 2.1), ["not there"]);
});

test("scopes that overlap lie beside each other", () => {
  const scope = (from, to, label) => ({ scope: "s", from, to, label, samples: 0 });
  assert.deepEqual(scopeSpans([scope(0, 5, "positive"), scope(1, 2, ""), scope(2, 4, "error")])
    .map(({ lane, color, text }) => [lane, color, text]),
  [[0, "positive", "+ s"], [1, "muted", "… s"], [1, "muted", "! s"]]);
});
