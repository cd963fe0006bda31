// Charts one above the other over the same time, with one pointer through all.

import { element, fillTable } from "../shared/elements.js";
import { decimalsFor, formatMove, formatNumber, formatTime } from "../shared/format.js";
import { bandHint } from "../shared/quantities.js";
import { Chart } from "./chart.js";
import { isKnown, notMeasured, rowAt, visiblePoints } from "./curve.js";
import { Moves, moveUnit } from "./moves.js";
import { saveAsSvg } from "./picture.js";
import { paintUnknown } from "./spans.js";
import { filmTime, jump, pointer, setPointer, setShown, shown, stacks, whole } from "./view.js";

/** @typedef {import("./curve.js").Curve} Curve */
/** @typedef {import("./drawing").ChartOptions} ChartOptions */
/** @typedef {import("./drawing").Span} Span */
/** @typedef {import("./moves.js").MovedCurve} MovedCurve */
/** @typedef {{ title?: string, output: HTMLElement, read: (seconds: number) => string }} Readout */

const tableRows = 21;

/** @param {string} color */
export function swatch(color) {
  const box = element("i");
  box.style.background = `var(--${color}, var(--other-reason))`;
  return box;
}

export class Stack {
  /** @param {Element} holder @param {string} name */
  constructor(holder, name) {
    this.name = name;
    this.element = element("div", { class: "stack" });
    this.pointerLine = element("div", { class: "pointer", hidden: "" });
    this.filmLine = element("div", { class: "pointer film", hidden: "" });
    this.selection = element("div", { class: "selection", hidden: "" });
    this.element.append(this.pointerLine, this.filmLine, this.selection);
    /** @type {Readout[]} */
    this.readouts = [];
    /** @type {Chart[]} */
    this.charts = [];
    this.table = element("table");
    this.tableHolder = element("details", {}, element("summary", {}, "Values as a table"), this.table);
    /** @type {Span | undefined} */
    this.tableShown = undefined;
    holder.append(this.element);
    stacks.push(this);
    this.listen();
  }

  /**
   * `read` returns the text at a time.
   * @param {ChartOptions & { read?: Readout["read"] }} options
   */
  add({ read, ...options }) {
    const { title, hint } = options;
    const output = element("span", { class: "value" });
    this.element.append(element("div", { class: "heading" },
      element("span", { class: "name" }, title), element("small", {}, hint), output));
    if (read) this.readouts.push({ title, output, read });
    this.charts.push(new Chart(this.element, options));
  }

  /** @param {Curve} curve @param {string} label */
  addCurve(curve, label, hasTimes = false) {
    const { title, hint, range: [lowest, highest], height } = curve.quantity;
    const room = (highest - lowest) / 40;  // half a line's width at the ends
    const middle = (lowest + highest) / 2;
    this.add({
      title, label, height, hasTimes,
      hint: curve.confidences ? `${hint}; ${bandHint}` : hint,
      range: [lowest - room, highest + room],
      ticks: [lowest, middle, highest].map((v) => ({ v, label: formatNumber(v, 1) })),
      color: title.toLowerCase(),
      ground: paintUnknown(curve),
      points: (pixels) => visiblePoints(curve, shown, pixels),
      read: (seconds) => {
        const row = this.rowAt(curve, seconds);
        if (row === undefined) return "–";
        if (!isKnown(curve, row)) return notMeasured;
        const value = formatNumber(curve.values[row], 3);
        if (!curve.confidences) return value;
        return `${value}, confidence ${formatNumber(curve.confidences[row], 3)}`;
      },
    });
  }

  /**
   * Adds what moved the curve above, and below it the reasons with what each did at the pointer.
   * @param {MovedCurve} curve
   * @param {string} label
   */
  addMoves(curve, label) {
    const moves = new Moves(curve);
    this.add({
      title: "What moved it", label, height: 80, range: [-1.08, 1.08], ticks: moves.ticks, color: "text",
      legend: curve.moves,
      hint: "in one cycle, up above 0 and down below, by reason; root scale",
      points: (pixels) => {
        moves.pick(pixels);
        return [];
      },
      paint: (...canvas) => moves.paint(...canvas),
    });
    const legend = element("ul", { class: "reasons" });
    for (const { label: name, meaning, color, rows } of curve.moves) {
      const output = element("span", { class: "value" });
      legend.append(element("li", { title: meaning }, swatch(color), `${name} `, output));
      const read = (/** @type {number} */ seconds) => {
        const row = this.rowAt(curve, seconds);
        return row === undefined ? "–" : formatMove(rows[row] * moveUnit);
      };
      this.readouts.push({ output, read });
    }
    this.element.append(legend);
  }

  /** @param {Element} holder */
  addSaving(holder) {
    const button = element("button", { type: "button", class: "save" }, "Save as SVG");
    button.addEventListener("click", () => saveAsSvg(this));
    holder.append(button);
  }

  /**
   * Adds the values of what is shown, for people who do not see the charts; made when it is opened.
   * @param {Element} holder
   */
  addTable(holder) {
    this.tableHolder.addEventListener("toggle", () => this.drawTable());
    holder.append(this.tableHolder);
  }

  drawTable() {
    if (!this.tableHolder.open || this.tableShown === shown) return;
    this.tableShown = shown;
    const { from, to } = shown;
    const titled = this.readouts.flatMap(({ title, read }) => (title ? [{ title, read }] : []));
    const rows = Array.from({ length: tableRows }, (_, index) => {
      const seconds = from + (to - from) * index / (tableRows - 1);
      return [formatTime(seconds, decimalsFor(to - from)), ...titled.map(({ read }) => read(seconds))];
    });
    fillTable(this.table, [{ title: "Time" }, ...titled.map(({ title }) => ({ title }))], rows);
  }

  area() {
    return this.charts[this.charts.length - 1].dygraph.getArea();
  }

  /** @param {MouseEvent} event */
  timeAt(event) {
    const { x, w } = this.area();
    const offset = event.clientX - this.element.getBoundingClientRect().left - x;
    const share = Math.min(Math.max(offset / w, 0), 1);
    return shown.from + share * (shown.to - shown.from);
  }

  /** @param {number} seconds */
  pixelOf(seconds) {
    const { x, w } = this.area();
    return x + w * (seconds - shown.from) / (shown.to - shown.from);
  }

  /**
   * The row at a time, for a pointer that may miss by some pixels.
   * @param {Pick<Curve, "times" | "begins">} curve
   * @param {number} seconds
   */
  rowAt(curve, seconds) {
    return rowAt(curve, seconds, 5 * (shown.to - shown.from) / this.area().w);
  }

  /** @param {number} seconds */
  formatValues(seconds) {
    const texts = this.readouts.filter(({ title }) => title)
      .map(({ title, read }) => `${title} ${read(seconds)}`);
    return `${this.name}: ${texts.join("; ")}`;
  }

  draw() {
    this.drawPointer();
    this.drawTable();
  }

  drawPointer() {
    const at = pointer;
    const isVisible = this.drawLine(this.pointerLine, at);
    this.drawLine(this.filmLine, filmTime);
    for (const { output, read } of this.readouts) {
      output.textContent = isVisible && at !== undefined ? read(at) : "";
    }
  }

  /**
   * Returns whether the time is shown.
   * @param {HTMLElement} line
   * @param {number} [seconds]
   */
  drawLine(line, seconds) {
    const isVisible = seconds !== undefined && seconds >= shown.from && seconds <= shown.to;
    line.hidden = !isVisible;
    if (isVisible) line.style.transform = `translateX(${this.pixelOf(seconds)}px)`;
    return isVisible;
  }

  /** @param {Span} [range] */
  drawSelection(range) {
    this.selection.hidden = !range;
    if (!range) return;
    const left = this.pixelOf(range.from);
    this.selection.style.left = `${left}px`;
    this.selection.style.width = `${this.pixelOf(range.to) - left}px`;
  }

  listen() {
    const leastDrag = 5;  // pixels; less is a click
    /** @type {{ x: number, time: number } | undefined} */
    let drag;  // where it began
    const dragged = (/** @type {PointerEvent} */ event) => {
      if (!drag || Math.abs(event.clientX - drag.x) < leastDrag) return undefined;
      const [from, to] = [drag.time, this.timeAt(event)].sort((one, other) => one - other);
      return { from, to };
    };
    const select = (/** @type {Span | undefined} */ range) => {
      for (const stack of stacks) stack.drawSelection(range);
    };
    const endDrag = () => {
      drag = undefined;
      select(undefined);
    };
    this.element.addEventListener("pointerdown", (event) => {
      setPointer(this.timeAt(event));
      if (!event.isPrimary || event.button !== 0) return;
      drag = { x: event.clientX, time: this.timeAt(event) };
      this.element.setPointerCapture(event.pointerId);
    });
    this.element.addEventListener("pointermove", (event) => {
      setPointer(this.timeAt(event));
      select(dragged(event));
    });
    this.element.addEventListener("pointerup", (event) => {
      const range = dragged(event);
      if (range) setShown(range.from, range.to); else if (drag) jump(drag.time);
      endDrag();
    });
    this.element.addEventListener("pointercancel", endDrag);
    this.element.addEventListener("pointerleave", (event) => {
      // What a finger pointed at stays after it is lifted.
      if (event.pointerType === "mouse") setPointer(undefined);
    });
    this.element.addEventListener("dblclick", () => setShown(whole.from, whole.to));
  }
}
