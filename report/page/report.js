"use strict";

// ---------------------------------------------------------------- The recording

// What a person's charts show. Values as in timeline.csv.
const quantities = {
  valence: { title: "Valence", hint: "−1 negative, 1 positive", range: [-1, 1], height: 150 },
  attention: { title: "Attention", hint: "0 to 1", range: [0, 1], height: 120 },
  ease: { title: "Ease", hint: "−0.5 uneasy, 0.5 at ease", range: [-0.5, 0.5], height: 90 },
};
const agitation = { title: "Agitation", hint: "0 calm, 1 agitated", range: [0, 1], height: 110 };

// What moves valence and attention, and the colour of each.
const reasonColors = {
  "Face characteristics": "reason1", "Head Angles": "reason1",
  "Body Language": "reason2", "Gaze Direction": "reason2",
  "Voice emotion": "reason3", "Asr emotion": "reason4", "Touch emotion": "reason5",
  "Context emotion": "reason6", "No observation": "reason7", "Not visible": "reason8",
};
const moveUnit = 1e-4;

// In the order of their lanes, from above. The sign stands for the colour where there is none.
const moods = [
  { mood: 1, name: "positive", sign: "+" },
  { mood: 0, name: "neutral", sign: "○" },
  { mood: -1, name: "negative", sign: "−" },
];

async function inflated(text) {
  const characters = atob(text);
  const packed = new Uint8Array(characters.length);
  for (let i = 0; i < packed.length; ++i) packed[i] = characters.charCodeAt(i);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// The numbers of a column: it holds their differences, all lowest bytes first, then all second ones
// and so on, deflated, in base64.
async function decoded(text, Type) {
  const ranks = await inflated(text);
  const width = Type.BYTES_PER_ELEMENT;
  const count = ranks.length / width;
  const bytes = new Uint8Array(ranks.length);
  for (let rank = 0; rank < width; ++rank) {
    for (let i = 0; i < count; ++i) bytes[i * width + rank] = ranks[rank * count + i];
  }
  const values = new Type(bytes.buffer);
  for (let i = 1; i < count; ++i) values[i] += values[i - 1];
  return values;
}

async function decodedFloats(text) {
  return new Float32Array((await decoded(text, Int32Array)).buffer);
}

// Times become seconds since the start.
async function decodedTimes(text, start) {
  return Float64Array.from(await decoded(text, BigInt64Array), (time) => secondsAfter(start, time));
}

function secondsAfter(start, time) {
  return Number(time - start) / 1e9;
}

async function readPerson(data, start) {
  const times = await decodedTimes(data.time, start);
  const begins = new Uint8Array(times.length);
  for (const row of await decoded(data.begins, Int32Array)) begins[row] = 1;
  const person = { id: data.person, times, begins, moods: await decoded(data.mood, Int8Array) };
  for (const [name, quantity] of Object.entries(quantities)) {
    person[name] = makeCurve(quantity, times, begins, await decodedFloats(data[name]),
      await decodedFloats(data[`${name}_confidence`]));
  }
  for (const [name, moves] of Object.entries(data.moves)) {
    person[name].moves = await Promise.all(moves.map(async ({ reason, rows }) =>
      ({ reason, color: reasonColors[reason], rows: await decoded(rows, Int16Array) })));
  }
  person.scopes = data.scopes.map((scope) => ({
    ...scope,
    from: secondsAfter(start, BigInt(scope.from)),
    to: secondsAfter(start, BigInt(scope.to)),
  }));
  return person;
}

// A curve with its band. What is not finite is not drawn; as a confidence it is none.
function makeCurve(quantity, times, begins, values, confidences) {
  const [lowest, highest] = quantity.range;
  const drawn = values.map((value) => (Number.isFinite(value) ? value : NaN));
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
  return { quantity, times, begins, values, confidences, drawn, low, high };
}

async function readRecording() {
  const data = JSON.parse(document.getElementById("recording").textContent);
  const start = BigInt(data.start);
  const times = await decodedTimes(data.room.time, start);
  return {
    name: data.recording,
    source: data.source,
    failure: data.failure,
    start: Number(start) / 1e6,
    end: secondsAfter(start, BigInt(data.end)),
    persons: await Promise.all(data.persons.map((person) => readPerson(person, start))),
    room: makeCurve(agitation, times, new Uint8Array(times.length),
      await decodedFloats(data.room.agitation)),
  };
}

// ---------------------------------------------------------------- Texts

function formatNumber(value, decimals) {
  if (Number.isNaN(value)) return "not a number";
  if (!Number.isFinite(value)) return value > 0 ? "∞" : "−∞";
  const digits = Math.abs(value).toFixed(decimals);
  return value < 0 && Number(digits) !== 0 ? `−${digits}` : digits;
}

// Seconds as h:mm:ss, or m:ss within the first hour.
function formatTime(seconds, decimals = 0) {
  const unit = 10 ** decimals;
  const ticks = Math.round(Math.abs(seconds) * unit);
  const whole = Math.floor(ticks / unit);
  const two = (number) => String(number).padStart(2, "0");
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  const fraction = decimals > 0 ? `.${String(ticks % unit).padStart(decimals, "0")}` : "";
  const sign = seconds < 0 && ticks > 0 ? "−" : "";
  return `${sign}${hours > 0 ? `${hours}:${two(minutes)}` : minutes}:${two(whole % 60)}${fraction}`;
}

function formatUtc(seconds) {
  const text = new Date(Math.floor(recording.start + seconds * 1e3)).toISOString();
  return `${text.slice(0, -1).replace("T", " ")} UTC`;
}

// An element with attributes and children; texts among them stay texts.
function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

function zoomLink(text, [from, to], pointerAt) {
  const link = element("a", { href: "#" }, text);
  link.addEventListener("click", (event) => {
    event.preventDefault();
    setPointer(pointerAt);
    setShown(from, to);
  });
  return link;
}

// ---------------------------------------------------------------- What is shown

let recording;
let whole = { from: 0, to: 1 };
let shown = whole;
let pointer;  // seconds since the start; undefined when it points nowhere
const timesHeight = 22;  // pixels below the last chart of a stack
const charts = [];
const stacks = [];
const theme = {};
const shortestShown = 0.001;
let drawIsPlanned = false;

function setShown(from, to) {
  const longest = whole.to - whole.from;
  const width = Math.min(Math.max(to - from, shortestShown), longest);
  const begin = Math.min(Math.max((from + to - width) / 2, whole.from), whole.to - width);
  shown = { from: begin, to: begin + width };
  planDraw();
}

function setPointer(seconds) {
  pointer = seconds;
  planDraw();
}

// However many changes there are, one drawing a frame is enough.
function planDraw() {
  if (drawIsPlanned) return;
  drawIsPlanned = true;
  requestAnimationFrame(() => {
    drawIsPlanned = false;
    draw();
  });
}

function draw() {
  for (const chart of charts) if (chart.shown !== shown) chart.draw();
  for (const stack of stacks) stack.drawPointer();
  const decimals = Math.max(0, Math.min(3, Math.ceil(1 - Math.log10(shown.to - shown.from))));
  document.getElementById("shown").textContent =
    `Shown: ${formatTime(shown.from, decimals)} – ` +
    `${formatTime(shown.to, decimals)} of ${formatTime(whole.to)}`;
  document.getElementById("pointer-time").textContent =
    pointer === undefined ? "" : `${formatTime(pointer, 3)} · ${formatUtc(pointer)}`;
  const bar = document.querySelector(".overview div").style;
  const longest = whole.to - whole.from;
  bar.left = `${100 * (shown.from - whole.from) / longest}%`;
  bar.width = `${100 * (shown.to - shown.from) / longest}%`;
}

function zoom(factor) {
  const { from, to } = shown;
  const isInside = pointer !== undefined && pointer >= from && pointer <= to;
  const center = isInside ? pointer : (from + to) / 2;
  setShown(center - (center - from) * factor, center + (to - center) * factor);
}

function move(share) {
  const step = share * (shown.to - shown.from);
  setShown(shown.from + step, shown.to + step);
}

function movePointer(share) {
  const at = (pointer ?? (shown.from + shown.to) / 2) + share * (shown.to - shown.from);
  setPointer(Math.min(Math.max(at, shown.from), shown.to));
}

const actions = {
  in: () => zoom(1 / 2),
  out: () => zoom(2),
  left: () => move(-1 / 4),
  right: () => move(1 / 4),
  whole: () => setShown(whole.from, whole.to),
  pointerLeft: () => movePointer(-1 / 100),
  pointerRight: () => movePointer(1 / 100),
};
const keys = {
  "+": "in", "=": "in", "-": "out", "−": "out", ArrowLeft: "left", ArrowRight: "right", 0: "whole",
};

function onKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  let action = keys[event.key];
  if (event.shiftKey && event.key === "ArrowLeft") action = "pointerLeft";
  if (event.shiftKey && event.key === "ArrowRight") action = "pointerRight";
  if (!action) return;
  event.preventDefault();
  actions[action]();
}

// ---------------------------------------------------------------- Curves

// How many of the ascending `times` are before `limit`.
function countBefore(times, limit) {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] < limit) low = middle + 1; else high = middle;
  }
  return low;
}

// The rows of a curve between two times, with one more on either side, so that lines run out of the
// chart.
function rowsBetween(times, { from, to }) {
  const first = Math.max(0, countBefore(times, from) - 1);
  return [first, Math.min(times.length, countBefore(times, to) + 2)];
}

// What to draw of a curve: the true samples where there is room for them; else the lowest and the
// highest of those under each pixel, in their order, with the widest band. So no extreme is lost,
// and drawing costs the same however many samples there are. A null parts stretches.
function visiblePoints({ times, begins, drawn, low, high }, window, pixels) {
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
    const add = (drawnRow) => points.push([times[drawnRow], [bottom, drawn[drawnRow], top]]);
    add(Math.min(lowest, highest));
    if (lowest !== highest) add(Math.max(lowest, highest));
  }
  return points;
}

const dayLength = 86400;
const tickSteps = [1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10,
  15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, dayLength];

function timeTicks(from, to, pixels) {
  const most = Math.max(2, Math.floor(pixels / 64));
  const step = tickSteps.find((candidate) => (to - from) / candidate <= most) ??
    dayLength * Math.ceil((to - from) / most / dayLength);
  const decimals = Math.max(0, Math.ceil(-Math.log10(step)));
  const ticks = [];
  for (let count = Math.ceil(from / step); count * step <= to; ++count) {
    ticks.push({ v: count * step, label: formatTime(count * step, decimals) });
  }
  return ticks;
}

// Fills the band of each unbroken stretch of points as one shape: dygraphs' own way, a shape between
// any two points, takes most of the time of a drawing.
function plotBand({ drawingContext: context, points, plotArea: area, color }) {
  context.fillStyle = color;
  context.globalAlpha = 0.2;
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

// Sharp corners would stand out of their values by several pixels.
function plotLine(event) {
  event.drawingContext.lineJoin = "round";
  Dygraph.Plotters.linePlotter(event);
}

// The plugins that are needed. The legend's would measure texts in every drawing.
Dygraph.PLUGINS = [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid];

// One chart of a stack. `points` gives what to draw of a curve; `paint` draws below the curve.
class Chart {
  constructor(holder, options) {
    this.options = options;
    const { label, height, hasTimes } = options;
    this.box = element("div", { class: "chart", role: "img", "aria-label": label });
    this.box.style.height = `${height + (hasTimes ? timesHeight : 0)}px`;
    holder.append(this.box);
    this.create();
    charts.push(this);
  }

  // Also anew, with other colours.
  create() {
    const { label, range, ticks, color, paint, hasTimes } = this.options;
    this.dygraph?.destroy();
    this.shown = undefined;
    this.dygraph = new Dygraph(this.box, [[shown.from, null]], {
      labels: ["time", label],
      customBars: true,
      valueRange: range,
      dateWindow: [shown.from, shown.to],
      interactionModel: {},
      highlightCircleSize: 0,
      plotter: [plotBand, plotLine],
      pointSize: 2,
      rightGap: 8,
      xAxisHeight: timesHeight,
      colors: [theme[color]],
      axisLineColor: theme.rule,
      gridLineColor: theme.grid,
      gridLineWidth: 1,
      // A printer is finer than a screen.
      pixelRatio: isOnPaper() ? 3 : null,
      axes: {
        x: { drawAxis: Boolean(hasTimes), ticker: (from, to, pixels) => timeTicks(from, to, pixels),
             drawGrid: !paint, axisLabelWidth: 80, axisLabelFontSize: 12 },
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
}

// ---------------------------------------------------------------- Spans

function moodSpans(person) {
  const { times, begins, moods: moodOfRow } = person;
  const spans = [];
  for (let first = 0, row = 1; row <= times.length; ++row) {
    const isBroken = row === times.length || begins[row];
    if (!isBroken && moodOfRow[row] === moodOfRow[first]) continue;
    const lane = moods.findIndex(({ mood }) => mood === moodOfRow[first]);
    const to = times[isBroken ? row - 1 : row];
    spans.push({ from: times[first], to, lane, color: moods[lane].name });
    first = row;
  }
  return spans;
}

// Beside each other what overlaps, up to a height that leaves room for the curves.
function scopeSpans(scopes) {
  const mostLanes = 6;
  const ends = [];
  return scopes.map((scope) => {
    const free = ends.findIndex((end) => end <= scope.from);
    const lane = free >= 0 ? free : Math.min(ends.length, mostLanes - 1);
    ends[lane] = Math.max(ends[lane] ?? scope.to, scope.to);
    const mood = moods.find(({ name }) => name === scope.label);
    const text = `${scopeSign(scope)} ${scope.scope.slice(0, 100)}`;
    return { ...scope, lane, color: mood ? mood.name : "muted", text };
  });
}

function scopeSign({ label }) {
  return moods.find(({ name }) => name === label)?.sign ?? { unknown: "?", "": "…" }[label] ?? "!";
}

// As much of a text as there is room for; only its sign when that is little.
function fittingText(context, text, room) {
  if (room < 8) return "";
  const fits = (part) => context.measureText(part).width <= room;
  if (fits(text)) return text;
  let length = text.length - 1;
  while (length > 4 && !fits(`${text.slice(0, length)}…`)) --length;
  if (length > 4) return `${text.slice(0, length)}…`;
  return fits(text[0]) ? text[0] : "";
}

// Paints spans, which are in the order of their begin, each in its lane: the first lane ends at the
// value `lanes`, and each is 1 high. A text may stand beside a short span.
function paintSpans(spans, lanes) {
  const followers = new Array(lanes).fill(Infinity);
  const roomEnds = new Array(spans.length);
  for (let index = spans.length - 1; index >= 0; --index) {
    const { lane, from } = spans[index];
    roomEnds[index] = followers[lane];
    followers[lane] = from;
  }
  return (context, area, dygraph) => {
    const height = dygraph.toDomYCoord(0) - dygraph.toDomYCoord(1);
    const done = new Array(lanes).fill(-Infinity);
    const pixelOf = (seconds) =>
      Math.min(Math.max(dygraph.toDomXCoord(seconds), area.x), area.x + area.w);
    context.save();
    context.textBaseline = "middle";
    context.font = "12px system-ui, 'DejaVu Sans', sans-serif";
    spans.forEach((span, index) => {
      if (span.to < shown.from || span.from > shown.to) return;
      const left = pixelOf(span.from);
      const right = Math.max(pixelOf(span.to), left + 1.5);
      if (right <= done[span.lane]) return;  // behind what is drawn already
      done[span.lane] = right;
      const top = dygraph.toDomYCoord(lanes - span.lane);
      context.fillStyle = theme[span.color];
      if (!span.text) {
        context.fillRect(left, top + 1.5, right - left, height - 3);
        return;
      }
      context.globalAlpha = 0.25;
      context.fillRect(left, top + 1.5, right - left, height - 3);
      context.globalAlpha = 1;
      context.fillRect(left, top + 1.5, 2, height - 3);
      context.fillStyle = theme.text;
      const text = fittingText(context, span.text, pixelOf(roomEnds[index]) - left - 10);
      context.fillText(text, left + 6, top + height / 2 + 0.5);
    });
    context.restore();
  };
}

// ---------------------------------------------------------------- What moved a quantity

// The movements of a curve by reason, stacked up and down from a middle line. Of the cycles under a
// pixel it shows the one with the most movement. The scale is that of what is shown, and goes by the
// square root: beside the few great movements the many small ones would not be seen.
class Moves {
  constructor({ times, begins, moves }) {
    Object.assign(this, { times, begins, moves });
    this.ticks = [-1, -0.5, 0, 0.5, 1].map((v) => ({ v, label: "0" }));
    this.bars = [];
    this.sizes = new Uint32Array(times.length);
    for (const { rows } of moves) {
      for (let row = 0; row < rows.length; ++row) this.sizes[row] += Math.abs(rows[row]);
    }
  }

  pick(pixels) {
    const { times, sizes } = this;
    // From the cycle that still lasts as the window begins.
    const inside = countBefore(times, shown.from);
    const first = inside > 0 && inside < times.length && !this.begins[inside] ? inside - 1 : inside;
    let end = countBefore(times, shown.to);
    while (times[end] === shown.to) ++end;
    const pixel = (shown.to - shown.from) / pixels;
    this.bars = [];
    this.most = 1;
    for (let row = first; row < end;) {
      const bar = { from: times[row], row };
      const nextPixel = shown.from + (Math.floor((bar.from - shown.from) / pixel) + 1) * pixel;
      for (++row; row < end && times[row] < nextPixel; ++row) {
        if (sizes[row] > sizes[bar.row]) bar.row = row;
      }
      bar.to = row < times.length && !this.begins[row] ? times[row] : bar.from;
      this.bars.push(bar);
      const sums = this.sums(bar.row);
      this.most = Math.max(this.most, sums.up, sums.down);
    }
    for (const tick of this.ticks) {
      const value = Math.sign(tick.v) * tick.v ** 2 * this.most * moveUnit;
      tick.label = formatMove(value);
    }
  }

  sums(row) {
    let up = 0;
    let down = 0;
    for (const { rows } of this.moves) if (rows[row] > 0) up += rows[row]; else down -= rows[row];
    return { up, down };
  }

  paint(context, area, dygraph) {
    const middle = dygraph.toDomYCoord(0);
    const full = middle - dygraph.toDomYCoord(1);
    const scaleOf = (sum) => full * Math.sqrt(sum / this.most) / Math.max(sum, 1);
    const shapes = this.bars.map(({ from, to, row }) => {
      // Whole pixels, so that there are no seams.
      const left = Math.round(Math.max(dygraph.toDomXCoord(from), area.x));
      const right = Math.round(Math.min(dygraph.toDomXCoord(to), area.x + area.w));
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
      context.fillStyle = theme[color];
      context.fill();
    }
    context.fillStyle = theme.muted;
    context.fillRect(area.x, middle - 0.5, area.w, 1);
  }
}

function formatMove(move) {
  const text = formatNumber(move, 3);
  return move > 0 && Number(text) !== 0 ? `+${text}` : text;
}

// The reason behind a change from one row to another: what pulled most in its greatest single step.
// Sums over the rows would name what pulls steadily against something else.
function mainReason({ values, moves }, [before, after]) {
  const direction = Math.sign(values[after] - values[before]);
  const step = (row) => direction * (values[row] - values[row - 1]);
  let most = after;
  for (let row = before + 1; row < after; ++row) if (step(row) > step(most)) most = row;
  const pull = ({ rows }) => direction * rows[most];
  return moves.reduce((one, other) => (pull(other) > pull(one) ? other : one)).reason;
}

// ---------------------------------------------------------------- Stacks of charts

// Charts one above the other over the same time, with one pointer through all.
class Stack {
  constructor(holder) {
    this.element = element("div", { class: "stack" });
    this.pointerLine = element("div", { class: "pointer", hidden: "" });
    this.selection = element("div", { class: "selection", hidden: "" });
    this.element.append(this.pointerLine, this.selection);
    this.readouts = [];
    holder.append(this.element);
    stacks.push(this);
    this.listen();
  }

  // `read` gives the text at the pointer.
  add({ title, hint, read, ...options }) {
    const output = element("output");
    const name = element("span", { class: "name" }, title, element("small", {}, hint ?? ""));
    this.element.append(element("div", { class: "heading" }, name, output));
    if (read) this.readouts.push({ output, read });
    this.lastChart = new Chart(this.element, { label: title, ...options });
  }

  addCurve(curve, label, hasTimes = false) {
    const { title, hint, range: [lowest, highest], height } = curve.quantity;
    const room = (highest - lowest) / 40;  // half a line's width at the ends
    const middle = (lowest + highest) / 2;
    this.add({
      title, hint, label, height, hasTimes,
      range: [lowest - room, highest + room],
      ticks: [lowest, middle, highest].map((v) => ({ v, label: formatNumber(v, 1) })),
      color: title.toLowerCase(),
      points: (pixels) => visiblePoints(curve, shown, pixels),
      read: () => {
        const row = rowAtPointer(curve, this.area().w);
        if (row === undefined) return "–";
        const value = formatNumber(curve.values[row], 3);
        if (!curve.confidences) return value;
        return `${value}, confidence ${formatNumber(curve.confidences[row], 3)}`;
      },
    });
  }

  // What moved the curve above, its reasons with what each did at the pointer.
  addMoves(curve, label) {
    const moves = new Moves(curve);
    this.add({
      title: "What moved it", label, height: 80, range: [-1.08, 1.08], ticks: moves.ticks, color: "text",
      hint: "in one cycle, up above 0 and down below, by reason; root scale",
      points: (pixels) => {
        moves.pick(pixels);
        return [];
      },
      paint: (...canvas) => moves.paint(...canvas),
    });
    const legend = element("ul", { class: "reasons" });
    for (const { reason, color, rows } of curve.moves) {
      const output = element("output");
      const title = document.getElementById(reason).textContent;
      legend.append(element("li", { title }, element("i", { class: color }), `${reason} `, output));
      const read = () => {
        const row = rowAtPointer(curve, this.area().w);
        return row === undefined ? "–" : formatMove(rows[row] * moveUnit);
      };
      this.readouts.push({ output, read });
    }
    this.element.append(legend);
  }

  area() {
    return this.lastChart.dygraph.getArea();
  }

  timeAt(event) {
    const { x, w } = this.area();
    const offset = event.clientX - this.element.getBoundingClientRect().left - x;
    const share = Math.min(Math.max(offset / w, 0), 1);
    return shown.from + share * (shown.to - shown.from);
  }

  pixelOf(seconds) {
    const { x, w } = this.area();
    return x + w * (seconds - shown.from) / (shown.to - shown.from);
  }

  drawPointer() {
    const isVisible = pointer !== undefined && pointer >= shown.from && pointer <= shown.to;
    this.pointerLine.hidden = !isVisible;
    if (isVisible) this.pointerLine.style.transform = `translateX(${this.pixelOf(pointer)}px)`;
    for (const { output, read } of this.readouts) output.textContent = isVisible ? read() : "";
  }

  drawSelection(range) {
    this.selection.hidden = !range;
    if (!range) return;
    const left = this.pixelOf(range.from);
    this.selection.style.left = `${left}px`;
    this.selection.style.width = `${this.pixelOf(range.to) - left}px`;
  }

  listen() {
    const leastDrag = 5;  // pixels; less is a click
    let drag;  // where it began
    const range = (event) => {
      const times = [drag.time, this.timeAt(event)].sort((one, other) => one - other);
      return { from: times[0], to: times[1] };
    };
    const isDrag = (event) => drag && Math.abs(event.clientX - drag.x) >= leastDrag;
    const select = (selected) => stacks.forEach((stack) => stack.drawSelection(selected));
    this.element.addEventListener("pointerdown", (event) => {
      setPointer(this.timeAt(event));
      if (!event.isPrimary || event.button !== 0) return;
      drag = { x: event.clientX, time: this.timeAt(event) };
      this.element.setPointerCapture(event.pointerId);
    });
    this.element.addEventListener("pointermove", (event) => {
      setPointer(this.timeAt(event));
      select(isDrag(event) ? range(event) : undefined);
    });
    this.element.addEventListener("pointerup", (event) => {
      if (isDrag(event)) {
        const { from, to } = range(event);
        setShown(from, to);
      }
      drag = undefined;
      select(undefined);
    });
    this.element.addEventListener("pointercancel", () => {
      drag = undefined;
      select(undefined);
    });
    this.element.addEventListener("pointerleave", (event) => {
      // A finger that is lifted leaves what it pointed at.
      if (event.pointerType === "mouse") setPointer(undefined);
    });
    this.element.addEventListener("dblclick", actions.whole);
  }
}

// The row nearest to the pointer; none in a gap.
function rowAtPointer({ times, begins }, pixels) {
  const after = countBefore(times, pointer);
  const isNearer = after === times.length ||
    (after > 0 && pointer - times[after - 1] < times[after] - pointer);
  const row = isNearer ? after - 1 : after;
  const isBetween = after > 0 && after < times.length && !begins[after];
  const reach = 5 * (shown.to - shown.from) / pixels;
  return isBetween || Math.abs(times[row] - pointer) <= reach ? row : undefined;
}

// ---------------------------------------------------------------- The greatest changes

// The greatest changes of a curve within a second, as first and last row.
function greatestChanges({ quantity, times, begins, values }) {
  const within = 1;  // seconds
  const apart = 5;  // seconds
  const most = 3;
  const least = 0.05 * (quantity.range[1] - quantity.range[0]);
  const firsts = new Uint32Array(times.length);
  const sizes = new Float32Array(times.length);
  for (let row = 1, first = 0; row < times.length; ++row) {
    if (begins[row]) first = row;
    while (first < row - 1 && times[row] - times[first] > within) ++first;
    firsts[row] = first;
    const size = Math.abs(values[row] - values[first]);
    sizes[row] = Number.isFinite(size) ? size : 0;
  }
  const found = [];
  while (found.length < most) {
    let row = 0;
    for (let other = 1; other < sizes.length; ++other) if (sizes[other] > sizes[row]) row = other;
    if (!(sizes[row] >= least)) break;
    const first = firsts[row];
    found.push([first, row]);
    sizes.fill(0, countBefore(times, times[first] - apart), countBefore(times, times[row] + apart));
  }
  return found;
}

function momentLinks(person) {
  return ["valence", "attention"].flatMap((name) => greatestChanges(person[name]).map((rows) => {
    const [begin, end] = rows.map((row) => person.times[row]);
    const [before, after] = rows.map((row) => person[name].values[row]);
    const around = 10 * Math.max(1, end - begin);
    const text = `${formatTime(begin, 1)} ${name} ${after > before ? "↗" : "↘"} ` +
      `${formatNumber(before, 2)} → ${formatNumber(after, 2)} (${mainReason(person[name], rows)})`;
    return zoomLink(text, [begin - around, end + around], end);
  }));
}

// ---------------------------------------------------------------- The page

// Of the values that are finite.
function mean(values) {
  let sum = 0;
  let count = 0;
  for (const value of values) {
    if (!Number.isFinite(value)) continue;
    sum += value;
    ++count;
  }
  return count > 0 ? sum / count : NaN;
}

function plural(count, one, many = `${one}s`) {
  return `${count.toLocaleString("en")} ${count === 1 ? one : many}`;
}

function moodShares(person) {
  const shares = moods.map((kind) => {
    let count = 0;
    for (const mood of person.moods) if (mood === kind.mood) ++count;
    return { ...kind, percent: 100 * count / person.moods.length };
  });
  const bar = element("div", { class: "share", "aria-hidden": "true" });
  for (const { name, percent } of shares) {
    const part = element("div", { class: name });
    part.style.width = `${percent}%`;
    bar.append(part);
  }
  const text = shares.map(({ sign, percent }) =>
    `${sign} ${percent > 0 && percent < 1 ? "<1" : formatNumber(percent, 0)} %`).join("\u2003");
  return element("div", {}, bar, element("div", { class: "shares" }, text));
}

function addSummary(persons) {
  const titles = ["", "Cycles", "First to last", "Valence", "Attention", "Ease", "Mood", "Scopes"];
  const body = document.querySelector("#summary tbody");
  for (const person of persons) {
    const { times } = person;
    const means = Object.keys(quantities).map((name) => {
      const { values, confidences } = person[name];
      return `${formatNumber(mean(values), 2)} (${formatNumber(mean(confidences), 2)})`;
    });
    const cells = times.length === 0 ? ["0", "", "", "", "", ""] : [
      times.length.toLocaleString("en"),
      `${formatTime(times[0])} – ${formatTime(times[times.length - 1])}`,
      ...means,
      moodShares(person),
    ];
    const link = element("a", { href: `#person${person.id}` }, `Person ${person.id}`);
    const row = element("tr", {});
    [link, ...cells, String(person.scopes.length)].forEach((content, column) => {
      const isNumber = column > 0 && titles[column] !== "Mood";
      row.append(element("td",
        { "data-title": titles[column], class: isNumber ? "number" : "" }, content));
    });
    body.append(row);
  }
  document.getElementById("summary").hidden = persons.length === 0;
}

function scopeTable(scopes) {
  const head = element("tr");
  for (const title of ["Begin", "Length", "Label", "Samples", "Scope"]) {
    head.append(element("th", {}, title));
  }
  const body = element("tbody");
  for (const scope of scopes) {
    const around = Math.max(1, (scope.to - scope.from) / 10);
    body.append(element("tr", {},
      element("td", { class: "number" },
        zoomLink(formatTime(scope.from, 1), [scope.from - around, scope.to + around], scope.from)),
      element("td", { class: "number" }, `${formatNumber(scope.to - scope.from, 1)} s`),
      element("td", {}, `${scopeSign(scope)} ${scope.label || "not closed"}`),
      element("td", { class: "number" }, String(scope.samples)),
      element("td", {}, scope.scope)));
  }
  return element("details", {}, element("summary", {}, plural(scopes.length, "scope")),
    element("table", {}, element("thead", {}, head), body));
}

function addPerson(person) {
  const { id, times, scopes } = person;
  const section = element("section", { id: `person${id}` }, element("h2", {}, `Person ${id}`));
  document.querySelector("main").append(section);
  const columns = Object.keys(quantities)
    .flatMap((name) => [person[name].values, person[name].confidences]);
  let odd = 0;
  for (let row = 0; row < times.length; ++row) {
    if (!columns.every((values) => Number.isFinite(values[row]))) ++odd;
  }
  if (odd > 0) {
    section.append(element("p", { class: "facts" },
      `${plural(odd, "cycle")} with values that are not numbers: the means leave these out, ` +
      "a curve stops there, and a confidence counts as 0."));
  }
  if (times.length === 0) section.append(element("p", { class: "facts" }, "No cycles."));
  const moments = momentLinks(person);
  if (moments.length > 0) {
    section.append(element("div", { class: "moments" },
      "Greatest changes within a second:", ...moments));
  }
  if (times.length === 0 && scopes.length === 0) return;

  const stack = new Stack(section);
  if (times.length > 0) {
    stack.addCurve(person.valence, `Valence of person ${id}`);
    stack.addMoves(person.valence, `What moved the valence of person ${id}`);
    stack.add({
      title: "Mood", hint: "label of the valence", label: `Mood of person ${id}`,
      height: 63, range: [-0.5, 3], color: "text",
      ticks: moods.map(({ name, sign }, lane) => ({ v: 2.5 - lane, label: `${sign} ${name}` })),
      paint: paintSpans(moodSpans(person), 3),
      read: () => {
        const row = rowAtPointer(person, stack.area().w);
        return row === undefined ? "–" : moods.find(({ mood }) => mood === person.moods[row]).name;
      },
    });
    stack.addCurve(person.attention, `Attention of person ${id}`);
    stack.addMoves(person.attention, `What moved the attention of person ${id}`);
    stack.addCurve(person.ease, `Ease of person ${id}`, scopes.length === 0);
  }
  if (scopes.length > 0) {
    const spans = scopeSpans(scopes);
    const lanes = 1 + Math.max(...spans.map(({ lane }) => lane));
    stack.add({
      title: "Scopes", hint: "+ positive, ○ neutral, − negative, ? unknown, ! error, … not closed",
      label: `Scopes of person ${id}`, hasTimes: true,
      height: 20 * lanes, range: [0, lanes], color: "text", ticks: [],
      paint: paintSpans(spans, lanes),
      read: () => scopes.filter(({ from, to }) => from <= pointer && pointer <= to)
        .map((scope) => `${scope.scope}: ${scope.label || "not closed"}`).join("; ") || "–",
    });
    section.append(scopeTable(scopes));
  }
}

function addRoom(room) {
  const section = element("section", { id: "room" }, element("h2", {}, "Room"));
  document.querySelector("main").append(section);
  const highest = room.values.reduce((one, other) => Math.max(one, other), 0);
  section.append(element("p", { class: "facts" }, `${plural(room.values.length, "measurement")}; ` +
    `agitation on average ${formatNumber(mean(room.values), 2)}, at most ${formatNumber(highest, 2)}`));
  new Stack(section).addCurve(room, "Agitation of the room", true);
}

function showFailure(text) {
  const box = document.getElementById("failure");
  box.textContent = text;
  box.hidden = false;
}

function addPage() {
  const { name, source, failure, persons, room, end } = recording;
  document.title = `${name} – zorvel report`;
  document.querySelector("h1").textContent = name;
  const isEmpty = persons.length === 0 && room.values.length === 0;
  const cycles = persons.reduce((sum, { times }) => sum + times.length, 0);
  document.getElementById("facts").textContent = isEmpty ?
    "The recording has no persons, and no measurements of the room." :
    [source && `Source: ${source}`, `begins ${formatUtc(0)}`, `lasts ${formatTime(end)}`,
      plural(persons.length, "person"), plural(cycles, "cycle")].filter(Boolean).join(" · ");
  if (failure) showFailure(`Not the whole recording, only what came before an error: ${failure}`);
  if (isEmpty) return;
  whole = end > 0 ? { from: 0, to: end } : { from: -0.5, to: 0.5 };
  shown = whole;
  addSummary(persons);
  for (const part of document.querySelectorAll("#toolbar, .keys")) part.hidden = false;
  persons.forEach(addPerson);
  if (room.values.length > 0) addRoom(room);
  draw();
}

function isOnPaper() {
  return document.documentElement.classList.contains("paper");
}

function readTheme() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ["text", "muted", "rule", "grid", "valence", "attention", "ease", "agitation",
    "positive", "neutral", "negative", ...Object.values(reasonColors)]) {
    theme[name] = style.getPropertyValue(`--${name}`).trim();
  }
}

function drawAnew() {
  readTheme();
  for (const chart of charts) chart.create();
  draw();
}

// Paper is narrower than a screen, and white.
function setPaper(isPaper) {
  document.documentElement.classList.toggle("paper", isPaper);
  drawAnew();
}

function resize() {
  for (const chart of charts) {
    chart.dygraph.resize();
    chart.shown = undefined;
  }
  planDraw();
}

async function main() {
  readTheme();
  recording = await readRecording();
  addPage();
  for (const button of document.querySelectorAll("[data-action]")) {
    button.addEventListener("click", actions[button.dataset.action]);
  }
  document.addEventListener("keydown", onKey);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAnew);
  addEventListener("resize", resize);
  addEventListener("beforeprint", () => setPaper(true));
  addEventListener("afterprint", () => setPaper(false));
}

main().catch((error) => {
  showFailure(`The charts cannot be shown: ${error.message}`);
  throw error;
});
