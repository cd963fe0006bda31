// Draws the curves of a card: the valence, and below it the attention, over the last minute. Like a
// chart recorder it moves what is drawn to the left, in whole pixels, and adds what is new.

import { colorOf, theme } from "../shared/colors.js";
import { element } from "../shared/elements.js";
import { formatNumber } from "../shared/format.js";
import { quantities } from "../shared/quantities.js";
import { binSeconds, shownSeconds, stretchesOf } from "./person.js";

/** @typedef {import("./person.js").Bin} Bin */
/** @typedef {{ name: "valence" | "attention", top: number, height: number }} Plot */

/** @type {Plot[]} */
const plots = [{ name: "valence", top: 6, height: 66 }, { name: "attention", top: 86, height: 34 }];
const plotLeft = 22;
const tailBins = 3;  // drawn again each time, as they may have changed

export class Curves {
  /** @param {Bin[]} bins */
  constructor(bins) {
    this.bins = bins;
    this.canvas = element("canvas", { "aria-hidden": "true" });
    this.context = /** @type {CanvasRenderingContext2D} */ (this.canvas.getContext("2d"));
    this.theme = NaN;
    this.right = 0;
    /** @type {number | undefined} */
    this.edge = undefined;
  }

  /** @param {number} now */
  draw(now) {
    const { canvas } = this;
    const ratio = devicePixelRatio;
    const width = Math.round(canvas.clientWidth * ratio);
    const height = Math.round(canvas.clientHeight * ratio);
    const isNew = canvas.width !== width || canvas.height !== height || this.theme !== theme;
    if (isNew) {
      Object.assign(canvas, { width, height });
      this.theme = theme;
      this.right = canvas.clientWidth - 2;
      this.edge = undefined;
      this.context.setTransform(ratio, 0, 0, ratio, 0, 0);
    }
    const pixelSeconds = shownSeconds / (this.right - plotLeft) / ratio;
    const edge = Math.ceil(now / pixelSeconds);
    const moved = this.edge === undefined ? Infinity : edge - this.edge;
    if (moved < 0 || moved > width / 2) this.drawWhole(edge, pixelSeconds);
    else this.drawTail(edge, pixelSeconds, moved);
    this.edge = edge;
  }

  /** @param {number} edge @param {number} pixelSeconds */
  drawWhole(edge, pixelSeconds) {
    const { context, right } = this;
    context.clearRect(0, 0, right + 2, this.canvas.clientHeight);
    for (const { name, top, height } of plots) {
      const [lowest, highest] = quantities[name].range;
      context.font = "11px system-ui, sans-serif";
      context.textAlign = "right";
      context.textBaseline = "middle";
      context.fillStyle = colorOf("muted");
      for (const value of lowest < 0 ? [lowest, 0, highest] : [lowest, highest]) {
        const y = top + (highest - value) / (highest - lowest) * height;
        context.fillText(formatNumber(value, 0), plotLeft - 5, y);
      }
    }
    this.drawFrom(0, plotLeft, edge, pixelSeconds);
  }

  /** @param {number} edge @param {number} pixelSeconds @param {number} moved */
  drawTail(edge, pixelSeconds, moved) {
    const { canvas, context, right } = this;
    const ratio = devicePixelRatio;
    if (moved > 0) {
      context.save();
      context.beginPath();
      context.rect(plotLeft, 0, right - plotLeft, canvas.clientHeight);
      context.clip();
      context.globalCompositeOperation = "copy";
      context.drawImage(canvas, -moved / ratio, 0, canvas.clientWidth, canvas.clientHeight);
      context.restore();
    }
    const movedBins = Math.ceil(moved * pixelSeconds / binSeconds);
    const first = Math.max(0, this.bins.length - tailBins - movedBins);
    const from = this.bins[first]?.time ?? 0;
    const x = Math.floor(right - (edge * pixelSeconds - from) / pixelSeconds / ratio);
    this.drawFrom(first, Math.max(plotLeft, x), edge, pixelSeconds);
  }

  /**
   * Draws the bins from `first` on, only to the right of `left`, with the lines that come in from there.
   * @param {number} first
   * @param {number} left
   * @param {number} edge
   * @param {number} pixelSeconds
   */
  drawFrom(first, left, edge, pixelSeconds) {
    const { context, right } = this;
    const xOf = (/** @type {number} */ time) => right - (edge - time / pixelSeconds) / devicePixelRatio;
    while (first > 0 && xOf(this.bins[first].time) >= left) --first;
    const shown = this.bins.slice(first);
    context.save();
    context.beginPath();
    context.rect(left, 0, right - left, this.canvas.clientHeight);
    context.clip();
    context.clearRect(left, 0, right - left, this.canvas.clientHeight);
    for (const plot of plots) drawPlot(context, plot, shown, left, right, xOf);
    context.restore();
  }
}

/**
 * @param {CanvasRenderingContext2D} context
 * @param {Plot} plot
 * @param {Bin[]} bins
 * @param {number} left
 * @param {number} right
 * @param {(time: number) => number} xOf
 */
function drawPlot(context, { name, top, height }, bins, left, right, xOf) {
  const [lowest, highest] = quantities[name].range;
  const yOf = (/** @type {number} */ value) => top + (highest - value) / (highest - lowest) * height;
  for (const value of lowest < 0 ? [lowest, 0, highest] : [lowest, highest]) {
    context.fillStyle = colorOf(value === 0 && lowest < 0 ? "rule" : "grid");
    context.fillRect(left, Math.round(yOf(value)), right - left, 1);
  }
  const stretches = stretchesOf(bins, name);
  context.fillStyle = context.strokeStyle = colorOf(name);
  context.globalAlpha = 0.2;
  const half = (/** @type {{ confidence: number }} */ { confidence }) =>
    (highest - lowest) / 4 * (1 - confidence);
  for (const stretch of stretches) {
    context.beginPath();
    for (const { time, [name]: range } of stretch) {
      context.lineTo(xOf(time), yOf(Math.min(highest, range.last + half(range))));
    }
    for (const { time, [name]: range } of stretch.slice().reverse()) {
      context.lineTo(xOf(time), yOf(Math.max(lowest, range.last - half(range))));
    }
    context.fill();
  }
  context.globalAlpha = 1;
  context.lineWidth = 1.8;
  context.lineJoin = "round";
  context.beginPath();
  for (const stretch of stretches) {
    context.moveTo(xOf(stretch[0].time), yOf(stretch[0][name].last));
    for (const { time, [name]: { low, high, last } } of stretch) {
      const x = xOf(time);
      context.lineTo(x, yOf(high));
      context.lineTo(x, yOf(low));
      context.lineTo(x, yOf(last));
    }
  }
  context.stroke();
}
