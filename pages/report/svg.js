// Elements and curves of SVG.

/** @typedef {import("./drawing").Area} Area */
/** @typedef {import("./drawing").Point} Point */
/** @typedef {import("./drawing").Scale} Scale */
/** @typedef {import("./drawing").Span} Span */

/**
 * XML has no control characters and no halves of characters; a sign replaces them.
 * @template {keyof SVGElementTagNameMap} Name
 * @param {Name} name
 * @param {Record<string, string | number>} attributes
 * @param {(string | Node)[]} children
 */
export function svgElement(name, attributes = {}, ...children) {
  const clean = (/** @type {string | number} */ text) =>
    String(text).replace(/[\p{Cc}\p{Cs}\ufffe\uffff]/gu, "\ufffd");
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, clean(value));
  made.append(...children.map((child) => (typeof child === "string" ? clean(child) : child)));
  return made;
}

/** @param {number} x @param {number} y */
export function svgPlace(x, y) {
  return `${x.toFixed(2)} ${y.toFixed(2)}`;
}

/**
 * Where times and values lie in an area.
 * @param {Area} area
 * @param {Span} window
 * @param {[number, number]} range
 * @returns {Scale}
 */
export function svgScale(area, { from, to }, [lowest, highest]) {
  return {
    toDomXCoord: (seconds) => area.x + area.w * (seconds - from) / (to - from),
    toDomYCoord: (value) => area.y + area.h * (highest - value) / (highest - lowest),
  };
}

/**
 * Lines between points, cut off where the window begins and ends.
 * @param {Point[]} points
 * @param {Span} window
 * @returns {Point[]}
 */
function cutPoints(points, { from, to }) {
  return points.flatMap((point, index) => {
    const [time, band] = point;
    const edge = Math.min(Math.max(time, from), to);
    if (edge === time) return [point];
    const [otherTime, otherBand] = points[time < from ? index + 1 : index - 1] ?? [NaN, null];
    const share = (edge - time) / (otherTime - time);
    if (!band || !otherBand || !(share < 1)) return [];
    const cut = (/** @type {number} */ k) => band[k] + share * (otherBand[k] - band[k]);
    return [/** @type {Point} */ ([edge, [cut(0), cut(1), cut(2)]])];
  });
}

/**
 * The band and the line of visible points. The last point is repeated, so that a single one becomes a dot.
 * @param {Point[]} points
 * @param {Span} window
 * @param {Scale} scale
 * @param {string} color
 */
export function svgCurve(points, window, scale, color) {
  /** @type {[number, [number, number, number]][][]} */
  const stretches = [[]];
  for (const [time, band] of cutPoints(points, window)) {
    if (!band || Number.isNaN(band[1])) stretches.push([]);
    else stretches[stretches.length - 1].push([time, band]);
  }
  let line = "";
  let area = "";
  for (const stretch of stretches.filter(({ length }) => length > 0)) {
    const places = (/** @type {number} */ edge) => stretch.map(([time, band]) =>
      svgPlace(scale.toDomXCoord(time), scale.toDomYCoord(band[edge])));
    line += `M${[...places(1), places(1).at(-1)].join("L")}`;
    area += `M${[...places(2), ...places(0).reverse()].join("L")}Z`;
  }
  return svgElement("g", {},
    svgElement("path", { d: area, fill: color, "fill-opacity": 0.2 }),
    svgElement("path", { d: line, fill: "none", stroke: color, "stroke-width": 1.5,
      "stroke-linejoin": "round", "stroke-linecap": "round" }));
}
