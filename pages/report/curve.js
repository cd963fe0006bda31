// A curve: the values of a quantity over time, with their confidences, which the band shows.

/** @typedef {import("./drawing").Span} Span */
/** @typedef {import("./drawing").Point} Point */
/** @typedef {import("../shared/quantities.js").Quantity} Quantity */
/**
 * `begins` is 1 where a row does not continue the one before, `known` where the value is known. A
 * quantity that is always measured has no `known`.
 * @typedef {{
 *   quantity: Quantity, times: Float64Array, begins: Uint8Array, values: Float32Array,
 *   confidences?: Float32Array, known?: Int8Array,
 *   drawn: Float32Array, low: Float32Array, high: Float32Array,
 * }} Curve
 */

export const notMeasured = "not measured";

/**
 * A value that is not known, or not finite, is not drawn. A confidence that is not finite counts as 0.
 * @param {Quantity} quantity
 * @param {Float64Array} times
 * @param {Uint8Array} begins
 * @param {Float32Array} values
 * @param {Float32Array} [confidences]
 * @param {Int8Array} [known]
 * @returns {Curve}
 */
export function makeCurve(quantity, times, begins, values, confidences, known) {
  const [lowest, highest] = quantity.range;
  const drawn = values.map((value, row) => (isKnown({ known }, row) && Number.isFinite(value) ? value : NaN));
  const low = Float32Array.from(drawn);
  const high = Float32Array.from(drawn);
  if (confidences) {
    const widest = (highest - lowest) / 4;
    for (let row = 0; row < drawn.length; ++row) {
      const half = widest * (1 - (Number.isFinite(confidences[row]) ? confidences[row] : 0));
      low[row] = Math.max(lowest, drawn[row] - half);
      high[row] = Math.min(highest, drawn[row] + half);
    }
  }
  return { quantity, times, begins, values, confidences, known, drawn, low, high };
}

/** @param {Pick<Curve, "known">} curve @param {number} row */
export function isKnown({ known }, row) {
  return !known || known[row] === 1;
}

/** @param {Pick<Curve, "known">} curve */
export function isEverKnown({ known }) {
  return !known || known.includes(1);
}

/**
 * How many of the ascending `times` are before `limit`.
 * @param {Float64Array} times
 * @param {number} limit
 */
export function countBefore(times, limit) {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] < limit) low = middle + 1; else high = middle;
  }
  return low;
}

/**
 * The rows of a curve between two times, with one more on either side, so that lines reach the edges
 * of the chart.
 * @param {Float64Array} times
 * @param {Span} window
 */
function rowsBetween(times, { from, to }) {
  const first = Math.max(0, countBefore(times, from) - 1);
  return [first, Math.min(times.length, countBefore(times, to) + 2)];
}

/**
 * The row nearest to a time; none in a gap, except within `reach` of its ends.
 * @param {Pick<Curve, "times" | "begins">} curve
 * @param {number} seconds
 * @param {number} reach
 */
export function rowAt({ times, begins }, seconds, reach) {
  const after = countBefore(times, seconds);
  const isNearer = after === times.length ||
    (after > 0 && seconds - times[after - 1] < times[after] - seconds);
  const row = isNearer ? after - 1 : after;
  const isBetween = after > 0 && after < times.length && !begins[after];
  return isBetween || Math.abs(times[row] - seconds) <= reach ? row : undefined;
}

/**
 * What to draw of a curve: the true samples where there is room for them; else the lowest and the
 * highest of those under each pixel, in their order, with the widest band. So no extreme is lost,
 * and drawing costs the same however many samples there are. A null separates stretches.
 * @param {Pick<Curve, "times" | "begins" | "drawn" | "low" | "high">} curve
 * @param {Span} window
 * @param {number} pixels
 */
export function visiblePoints({ times, begins, drawn, low, high }, window, pixels) {
  /** @type {Point[]} */
  const points = [];
  const [first, end] = rowsBetween(times, window);
  const isSampled = end - first <= 2 * pixels;
  const pixel = (window.to - window.from) / pixels;
  for (let row = first; row < end;) {
    if (begins[row] && row > first) points.push([times[row], null]);
    const nextPixel = window.from + (Math.floor((times[row] - window.from) / pixel) + 1) * pixel;
    let lowest = row;
    let highest = row;
    let bottom = low[row];
    let top = high[row];
    for (++row; row < end && !isSampled && times[row] < nextPixel && !begins[row]; ++row) {
      if (drawn[row] < drawn[lowest] || Number.isNaN(drawn[lowest])) lowest = row;
      if (drawn[row] > drawn[highest] || Number.isNaN(drawn[highest])) highest = row;
      if (low[row] < bottom || Number.isNaN(bottom)) bottom = low[row];
      if (high[row] > top || Number.isNaN(top)) top = high[row];
    }
    const add = (/** @type {number} */ drawnRow) =>
      points.push([times[drawnRow], [bottom, drawn[drawnRow], top]]);
    add(Math.min(lowest, highest));
    if (lowest !== highest) add(Math.max(lowest, highest));
  }
  return points;
}

/**
 * The mean of the values that are finite.
 * @param {Float32Array} values
 */
export function mean(values) {
  let sum = 0;
  let count = 0;
  for (const value of values) {
    if (!Number.isFinite(value)) continue;
    sum += value;
    ++count;
  }
  return count > 0 ? sum / count : NaN;
}
