// Saves the charts of a stack as a vector graphic: what is shown, in the colours of paper.

import { changeTheme, colorOf } from "../shared/colors.js";
import { element } from "../shared/elements.js";
import { formatUtc } from "../shared/format.js";
import { recording } from "./recording.js";
import { fittingText } from "./spans.js";
import { svgCurve, svgElement, svgPlace, svgScale } from "./svg.js";
import { timeTicks } from "./ticks.js";
import { formatShown, origin, shown } from "./view.js";

/** @typedef {import("./drawing").Area} Area */
/** @typedef {import("./drawing").Canvas} Canvas */
/** @typedef {import("./drawing").ChartOptions} ChartOptions */
/** @typedef {{ name: string, charts: { options: ChartOptions }[] }} PicturedStack */

/** @implements {Canvas} */
class SvgContext {
  /** @param {Element} holder */
  constructor(holder) {
    this.holder = holder;
    this.globalAlpha = 1;
    this.fillStyle = "";
    this.path = "";
    // The picture's texts have one font and are placed by their base lines.
    this.font = "";
    this.textBaseline = /** @type {CanvasTextBaseline} */ ("alphabetic");
    this.ruler = /** @type {CanvasRenderingContext2D} */ (element("canvas").getContext("2d"));
    // Larger than what is written: the reader's font may be wider.
    this.ruler.font = "13px sans-serif";
  }

  save() {}
  restore() {}
  beginPath() { this.path = ""; }
  /** @param {number} x @param {number} y @param {number} width @param {number} height */
  rect(x, y, width, height) {
    this.path += `M${svgPlace(x, y)}L${svgPlace(x + width, y)}L${svgPlace(x + width, y + height)}` +
      `L${svgPlace(x, y + height)}Z`;
  }
  fill() {
    this.holder.append(svgElement("path",
      { d: this.path, fill: this.fillStyle, "fill-opacity": this.globalAlpha }));
  }
  /** @param {number} x @param {number} y @param {number} width @param {number} height */
  fillRect(x, y, width, height) {
    this.beginPath();
    this.rect(x, y, width, height);
    this.fill();
  }
  /** @param {string} text @param {number} x @param {number} middle */
  fillText(text, x, middle) { this.write(text, x, middle + 4); }
  /** @param {string} text */
  measureText(text) { return this.ruler.measureText(text); }

  /**
   * @param {string} text
   * @param {number} x
   * @param {number} y of the base line
   * @param {Record<string, string | number>} attributes
   */
  write(text, x, y, attributes = {}) {
    if (text) this.holder.append(svgElement("text",
      { x: x.toFixed(2), y: y.toFixed(2), fill: this.fillStyle, ...attributes }, text));
  }
}

/**
 * Writes what the colours mean, in as many lines as are needed; returns where they end.
 * @param {SvgContext} context
 * @param {{ label: string, color: string }[]} entries
 * @param {Area} area
 */
function writeLegend(context, entries, area) {
  let x = area.x;
  let y = area.y + area.h + 16;
  for (const { label, color } of entries) {
    const width = 16 + context.measureText(label).width;
    if (x > area.x && x + width > area.x + area.w) {
      x = area.x;
      y += 16;
    }
    context.fillStyle = colorOf(color);
    context.fillRect(x, y - 9, 10, 10);
    context.fillStyle = colorOf("text");
    context.write(label, x + 14, y);
    x += width + 14;
  }
  return y + 4;
}

/**
 * Draws a chart under its heading; returns where it ends.
 * @param {SVGElement} svg
 * @param {ChartOptions} options
 * @param {number} top
 * @param {number} left
 * @param {number} width
 */
function svgChart(svg, options, top, left, width) {
  const { title, hint, label, range, ticks, height, paint, ground, color, points, legend } = options;
  const group = svgElement("g", { role: "img", "aria-label": label });
  svg.append(group);
  const context = new SvgContext(group);
  const area = { x: left, y: top + 24, w: width, h: height };
  const scale = svgScale(area, shown, range);
  context.fillStyle = colorOf("text");
  context.write(title, left, top + 18, { "font-weight": "bold" });
  context.fillStyle = colorOf("muted");
  context.write(hint, left + 12 + context.measureText(title).width, top + 18);
  // A picture may be enlarged, so curves have more points; bars are as wide as their pixel.
  const visible = points?.(paint ? width : 4 * width) ?? [];
  const [right, bottom] = [left + width, area.y + height];
  const addLine = (/** @type {string} */ name, /** @type {[number, number][]} */ ...places) =>
    group.append(svgElement("path", { fill: "none",
      d: `M${places.map((place) => svgPlace(...place)).join("L")}`, stroke: colorOf(name) }));
  for (const { v } of paint ? [] : timeTicks(shown.from, shown.to, width)) {
    addLine("grid", [scale.toDomXCoord(v), area.y], [scale.toDomXCoord(v), bottom]);
  }
  for (const { v, label: text } of ticks) {
    const y = scale.toDomYCoord(v);
    if (!paint) addLine("grid", [left, y], [right, y]);
    context.write(text, left - 6, y + 4, { "text-anchor": "end" });
  }
  (paint ?? ground)?.(context, area, scale);
  if (!paint) group.append(svgCurve(visible, shown, scale, colorOf(color)));
  addLine("rule", [left, area.y], [left, bottom], [right, bottom]);
  return legend ? writeLegend(context, legend, area) : bottom;
}

/** @param {PicturedStack} stack */
function stackAsSvg({ name, charts }) {
  const width = 900;
  const left = 84;
  const plotWidth = width - left - 36;
  const svg = svgElement("svg", { "font-family": "sans-serif", "font-size": 12 });
  const context = new SvgContext(svg);
  const ground = svgElement("rect", { width, fill: colorOf("background") });
  const heading = `${name} · ${recording.name}`;
  svg.append(svgElement("title", {}, heading), ground);
  context.fillStyle = colorOf("text");
  context.write(fittingText(context, heading, (width - 20) * 12 / 16), 12, 26,
    { "font-size": 16, "font-weight": "bold" });
  context.fillStyle = colorOf("muted");
  context.write(`${formatShown()} · 0:00 is ${formatUtc(origin)}`, 12, 44);
  let y = 50;
  for (const { options } of charts) y = svgChart(svg, options, y, left, plotWidth);
  for (const { v, label } of timeTicks(shown.from, shown.to, plotWidth)) {
    const x = left + plotWidth * (v - shown.from) / (shown.to - shown.from);
    context.write(label, x, y + 16, { "text-anchor": "middle" });
  }
  const unit = shown.to < 3600 ? "m:ss" : "h:mm:ss";
  context.fillStyle = colorOf("text");
  const zero = recording.start === 0 ? "the recording's start" : "second 0";
  context.write(`Time since ${zero} (${unit})`, left + plotWidth / 2, y + 36,
    { "text-anchor": "middle" });
  const height = Math.ceil(y + 48);
  ground.setAttribute("height", String(height));
  for (const [key, value] of Object.entries({ width, height, viewBox: `0 0 ${width} ${height}` })) {
    svg.setAttribute(key, String(value));
  }
  return new XMLSerializer().serializeToString(svg);
}

/** @param {PicturedStack} stack */
export function saveAsSvg(stack) {
  const page = document.documentElement.classList;
  const isPaper = page.contains("paper");
  page.add("paper");
  changeTheme();
  const text = stackAsSvg(stack);
  page.toggle("paper", isPaper);
  changeTheme();

  const address = URL.createObjectURL(new Blob([text], { type: "image/svg+xml" }));
  element("a", { href: address, download: `${recording.name} ${stack.name}.svg` }).click();
  URL.revokeObjectURL(address);
}
