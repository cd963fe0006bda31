// The charts of a stack as a picture of vectors, to be saved: what is shown, in the colours of paper.

// As much of a canvas as the charts paint on.
class SvgContext {
  constructor(holder) {
    this.holder = holder;
    this.globalAlpha = 1;
    this.ruler = element("canvas").getContext("2d");
    // Larger than what is written: the reader's font may be wider.
    this.ruler.font = "13px sans-serif";
  }

  save() {}
  restore() {}
  beginPath() { this.path = ""; }
  rect(x, y, width, height) {
    this.path += `M${svgPlace(x, y)}L${svgPlace(x + width, y)}L${svgPlace(x + width, y + height)}` +
      `L${svgPlace(x, y + height)}Z`;
  }
  fill() {
    this.holder.append(svgElement("path",
      { d: this.path, fill: this.fillStyle, "fill-opacity": this.globalAlpha }));
  }
  fillRect(...place) {
    this.beginPath();
    this.rect(...place);
    this.fill();
  }
  fillText(text, x, middle) { this.write(text, x, middle + 4); }
  measureText(text) { return this.ruler.measureText(text); }

  // `y` is the base line's.
  write(text, x, y, attributes = {}) {
    if (text) this.holder.append(svgElement("text",
      { x: x.toFixed(2), y: y.toFixed(2), fill: this.fillStyle, ...attributes }, text));
  }
}

// Colours and texts that explain the colours, in as many lines as they need; returns where they end.
function writeLegend(context, entries, area) {
  let x = area.x;
  let y = area.y + area.h + 16;
  for (const { reason, color } of entries) {
    const width = 16 + context.measureText(reason).width;
    if (x > area.x && x + width > area.x + area.w) {
      x = area.x;
      y += 16;
    }
    context.fillStyle = colorOf(color);
    context.fillRect(x, y - 9, 10, 10);
    context.fillStyle = colorOf("text");
    context.write(reason, x + 14, y);
    x += width + 14;
  }
  return y + 4;
}

// A chart under its heading; returns where it ends.
function svgChart(svg, chart, top, left, width) {
  const { title, hint, label, range, ticks, height, paint, ground, color, points,
    legend } = chart.options;
  const group = svgElement("g", { role: "img", "aria-label": label });
  svg.append(group);
  const context = new SvgContext(group);
  const area = { x: left, y: top + 24, w: width, h: height };
  const scale = svgScale(area, shown, range);
  context.fillStyle = colorOf("text");
  context.write(title, left, top + 18, { "font-weight": "bold" });
  context.fillStyle = colorOf("muted");
  context.write(hint, left + 12 + context.measureText(title).width, top + 18);
  // A picture may be enlarged; bars are as wide as their pixel.
  const visible = points?.(paint ? width : 4 * width) ?? [];
  const [right, bottom] = [left + width, area.y + height];
  const addLine = (name, ...places) => group.append(svgElement("path", { fill: "none",
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

function stackAsSvg(stack) {
  const width = 900;
  const left = 84;
  const plotWidth = width - left - 36;
  const svg = svgElement("svg", { "font-family": "sans-serif", "font-size": 12 });
  const context = new SvgContext(svg);
  const ground = svgElement("rect", { width, fill: colorOf("background") });
  const heading = `${stack.name} · ${recording.name}`;
  svg.append(svgElement("title", {}, heading), ground);
  context.fillStyle = colorOf("text");
  context.write(fittingText(context, heading, (width - 20) * 12 / 16), 12, 26,
    { "font-size": 16, "font-weight": "bold" });
  context.fillStyle = colorOf("muted");
  context.write(`${formatShown()} · 0:00 is ${formatUtc(origin)}`, 12, 44);
  let y = 50;
  for (const chart of stack.charts) y = svgChart(svg, chart, y, left, plotWidth);
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
  ground.setAttribute("height", height);
  for (const [key, value] of Object.entries({ width, height, viewBox: `0 0 ${width} ${height}` })) {
    svg.setAttribute(key, value);
  }
  return new XMLSerializer().serializeToString(svg);
}

function saveAsSvg(stack) {
  const page = document.documentElement.classList;
  const isPaper = page.contains("paper");
  page.add("paper");
  colors.clear();
  const text = stackAsSvg(stack);
  page.toggle("paper", isPaper);
  colors.clear();

  const address = URL.createObjectURL(new Blob([text], { type: "image/svg+xml" }));
  element("a", { href: address, download: `${recording.name} ${stack.name}.svg` }).click();
  URL.revokeObjectURL(address);
}
