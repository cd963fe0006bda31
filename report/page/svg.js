// Elements and curves of vectors.

// XML has no control characters and no halves of characters; a sign stands for them.
function svgElement(name, attributes = {}, ...children) {
  const clean = (text) => String(text).replace(/[\p{Cc}\p{Cs}\ufffe\uffff]/gu, "\ufffd");
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, clean(value));
  made.append(...children.map((child) => (typeof child === "string" ? clean(child) : child)));
  return made;
}

function svgPlace(x, y) {
  return `${x.toFixed(2)} ${y.toFixed(2)}`;
}

// Where times and values lie in an area.
function svgScale(area, { from, to }, [lowest, highest]) {
  return {
    toDomXCoord: (seconds) => area.x + area.w * (seconds - from) / (to - from),
    toDomYCoord: (value) => area.y + area.h * (highest - value) / (highest - lowest),
  };
}

// Lines between points, cut off where the window begins and ends.
function cutPoints(points, { from, to }) {
  return points.flatMap((point, index) => {
    const [time, band] = point;
    const edge = Math.min(Math.max(time, from), to);
    if (edge === time) return [point];
    const [otherTime, otherBand] = points[time < from ? index + 1 : index - 1] ?? [];
    const share = (edge - time) / (otherTime - time);
    if (!band || !otherBand || !(share < 1)) return [];
    return [[edge, band.map((value, k) => value + share * (otherBand[k] - value))]];
  });
}

// The band and the line of visible points. The last point stands twice: one alone becomes a dot.
function svgCurve(points, window, scale, color) {
  const stretches = [[]];
  for (const [time, band] of cutPoints(points, window)) {
    if (!band || Number.isNaN(band[1])) stretches.push([]); else stretches.at(-1).push([time, band]);
  }
  let line = "";
  let area = "";
  for (const stretch of stretches.filter(({ length }) => length > 0)) {
    const places = (edge) => stretch.map(([time, band]) =>
      svgPlace(scale.toDomXCoord(time), scale.toDomYCoord(band[edge])));
    line += `M${[...places(1), places(1).at(-1)].join("L")}`;
    area += `M${[...places(2), ...places(0).reverse()].join("L")}Z`;
  }
  return svgElement("g", {},
    svgElement("path", { d: area, fill: color, "fill-opacity": 0.2 }),
    svgElement("path", { d: line, fill: "none", stroke: color, "stroke-width": 1.5,
      "stroke-linejoin": "round", "stroke-linecap": "round" }));
}
