// What moved a quantity.

import { colorOf } from "../shared/colors.js";
import { formatMove } from "../shared/format.js";
import { countBefore } from "./curve.js";
import { shown } from "./view.js";

/** @typedef {import("./curve.js").Curve} Curve */
/** @typedef {import("./drawing").Area} Area */
/** @typedef {import("./drawing").Canvas} Canvas */
/** @typedef {import("./drawing").Scale} Scale */
/** @typedef {import("./drawing").Tick} Tick */
/** @typedef {{ reason: string, label: string, meaning: string, color: string, rows: Int16Array }} ReasonMoves */
/** @typedef {Curve & { moves: ReasonMoves[] }} MovedCurve */

export const moveUnit = 1e-4;

// The movements of a curve by reason, stacked up and down from a middle line. Of the cycles under a
// pixel it shows the one with the most movement. The scale fits what is shown. It goes by the square
// root, or the many small movements would vanish beside the few great ones.
export class Moves {
  /** @param {Pick<MovedCurve, "times" | "begins" | "moves">} curve */
  constructor({ times, begins, moves }) {
    this.times = times;
    this.begins = begins;
    this.moves = moves;
    /** @type {Tick[]} */
    this.ticks = [-1, -0.5, 0, 0.5, 1].map((v) => ({ v, label: "0" }));
    /** @type {{ from: number, to: number, row: number }[]} */
    this.bars = [];
    this.most = 1;
    this.sizes = new Uint32Array(times.length);
    for (const { rows } of moves) {
      for (let row = 0; row < rows.length; ++row) this.sizes[row] += Math.abs(rows[row]);
    }
  }

  /** @param {number} pixels */
  pick(pixels) {
    const { times, sizes } = this;
    // From the cycle that has not ended when the window begins.
    const inside = countBefore(times, shown.from);
    const first = inside > 0 && inside < times.length && !this.begins[inside] ? inside - 1 : inside;
    let end = countBefore(times, shown.to);
    while (times[end] === shown.to) ++end;
    const pixel = (shown.to - shown.from) / pixels;
    this.bars = [];
    this.most = 1;
    for (let row = first; row < end;) {
      const bar = { from: times[row], to: times[row], row };
      const nextPixel = shown.from + (Math.floor((bar.from - shown.from) / pixel) + 1) * pixel;
      for (++row; row < end && times[row] < nextPixel; ++row) {
        if (sizes[row] > sizes[bar.row]) bar.row = row;
      }
      if (row < times.length && !this.begins[row]) bar.to = times[row];
      this.bars.push(bar);
      const sums = this.sums(bar.row);
      this.most = Math.max(this.most, sums.up, sums.down);
    }
    for (const tick of this.ticks) {
      const value = Math.sign(tick.v) * tick.v ** 2 * this.most * moveUnit;
      tick.label = formatMove(value);
    }
  }

  /** @param {number} row */
  sums(row) {
    let up = 0;
    let down = 0;
    for (const { rows } of this.moves) if (rows[row] > 0) up += rows[row]; else down -= rows[row];
    return { up, down };
  }

  /** @param {Canvas} context @param {Area} area @param {Scale} scale */
  paint(context, area, scale) {
    const middle = scale.toDomYCoord(0);
    const full = middle - scale.toDomYCoord(1);
    const scaleOf = (/** @type {number} */ sum) => full * Math.sqrt(sum / this.most) / Math.max(sum, 1);
    const shapes = this.bars.map(({ from, to, row }) => {
      // Whole pixels, so that there are no seams.
      const left = Math.round(Math.max(scale.toDomXCoord(from), area.x));
      const right = Math.round(Math.min(scale.toDomXCoord(to), area.x + area.w));
      const sums = this.sums(row);
      return {
        row, left, width: Math.max(right - left, 1),
        upScale: scaleOf(sums.up), downScale: scaleOf(sums.down), up: middle, down: middle,
      };
    });
    for (const { rows, color } of this.moves) {
      context.beginPath();
      for (const shape of shapes) {
        const move = rows[shape.row];
        const height = Math.abs(move) * (move > 0 ? shape.upScale : shape.downScale);
        if (move > 0) context.rect(shape.left, shape.up -= height, shape.width, height);
        if (move < 0) {
          context.rect(shape.left, shape.down, shape.width, height);
          shape.down += height;
        }
      }
      context.fillStyle = colorOf(color);
      context.fill();
    }
    context.fillStyle = colorOf("muted");
    context.fillRect(area.x, middle - 0.5, area.w, 1);
  }
}
