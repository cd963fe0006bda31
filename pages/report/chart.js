// One chart of a stack, over the time that is shown.

import { colorOf } from "../shared/colors.js";
import { element } from "../shared/elements.js";
import { timeTicks } from "./ticks.js";
import { charts, shown } from "./view.js";

/** @typedef {import("./drawing").ChartOptions} ChartOptions */

const timesHeight = 22;  // pixels below the last chart of a stack

/**
 * Fills the band of each unbroken stretch of points as one shape: dygraphs' own way, a shape between
 * every two points, would take most of the time of a drawing.
 * @param {DygraphPlot} plot
 */
function plotBand({ drawingContext: context, points, plotArea: area, color }) {
  context.fillStyle = color;
  context.globalAlpha = 0.2;
  /** @type {DygraphPlot["points"]} */
  let stretch = [];
  const fill = () => {
    context.beginPath();
    for (const { canvasx, y_top } of stretch) context.lineTo(canvasx, area.y + area.h * y_top);
    for (const { canvasx, y_bottom } of stretch.reverse()) {
      context.lineTo(canvasx, area.y + area.h * y_bottom);
    }
    context.fill();
    stretch = [];
  };
  for (const point of points) {
    if (Number.isNaN(point.canvasy)) fill(); else stretch.push(point);
  }
  fill();
  context.globalAlpha = 1;
}

/**
 * Sharp corners would reach beyond their values by several pixels.
 * @param {DygraphPlot} plot
 */
function plotLine(plot) {
  plot.drawingContext.lineJoin = "round";
  Dygraph.Plotters.linePlotter(plot);
}

// Only the plugins that are needed. The legend's would measure texts in every drawing.
Object.assign(Dygraph, { PLUGINS: [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid] });

export class Chart {
  /** @param {Element} holder @param {ChartOptions} options */
  constructor(holder, options) {
    this.options = options;
    const { label, height, hasTimes } = options;
    this.box = element("div", { class: "chart", role: "img", "aria-label": label });
    this.box.style.height = `${height + (hasTimes ? timesHeight : 0)}px`;
    holder.append(this.box);
    /** @type {typeof shown | undefined} */
    this.shown = undefined;
    this.dygraph = this.newDygraph();
    charts.push(this);
  }

  // Makes the chart again, with the present colours.
  create() {
    this.dygraph.destroy();
    this.shown = undefined;
    this.dygraph = this.newDygraph();
  }

  newDygraph() {
    const { label, range, ticks, color, paint, ground, hasTimes } = this.options;
    return new Dygraph(this.box, [[shown.from, null]], {
      labels: ["time", label],
      customBars: true,
      valueRange: range,
      dateWindow: [shown.from, shown.to],
      interactionModel: {},
      highlightCircleSize: 0,
      plotter: [
        (/** @type {DygraphPlot} */ { drawingContext, plotArea, dygraph }) =>
          ground?.(drawingContext, plotArea, dygraph),
        plotBand, plotLine],
      pointSize: 2,
      rightGap: 8,
      xAxisHeight: timesHeight,
      colors: [colorOf(color)],
      axisLineColor: colorOf("rule"),
      gridLineColor: colorOf("grid"),
      gridLineWidth: 1,
      // A printer is finer than a screen. (Chromium prints charts too narrow at 3.)
      pixelRatio: document.documentElement.classList.contains("paper") ? 2 : null,
      axes: {
        x: { drawAxis: Boolean(hasTimes), ticker: timeTicks, drawGrid: !paint, axisLabelWidth: 80,
             axisLabelFontSize: 12 },
        y: { ticker: () => ticks, drawGrid: !paint, axisLabelWidth: 72, axisLabelFontSize: 12 },
      },
      underlayCallback: paint,
    });
  }

  draw() {
    this.shown = shown;
    const pixels = Math.max(1, this.dygraph.getArea().w);
    const points = this.options.points?.(pixels) ?? [];
    this.dygraph.updateOptions({
      file: points.length > 0 ? points : [[shown.from, null]],
      dateWindow: [shown.from, shown.to],
      drawPoints: points.length < pixels / 8,
      strokeWidth: points.length < pixels ? 1.5 : 1,
    });
  }

  resize() {
    this.dygraph.resize();
    this.shown = undefined;
  }
}
