// What is shown of the time, and where the pointer is: all charts of the page go by it. Times are in
// seconds.

let origin = 0;  // when second 0 is, in milliseconds since the epoch
let whole = { from: 0, to: 1 };
let shown = whole;
let pointer;  // undefined when it points nowhere
const charts = [];
const stacks = [];
const shortestShown = 0.001;
let drawIsPlanned = false;

function showWhole(from, to) {
  whole = { from, to };
  shown = whole;
}

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
  for (const stack of stacks) stack.draw();
  document.getElementById("shown").textContent = formatShown();
  document.getElementById("pointer-time").textContent = formatPointer();
  const bar = document.querySelector(".overview div").style;
  const longest = whole.to - whole.from;
  bar.left = `${100 * (shown.from - whole.from) / longest}%`;
  bar.width = `${100 * (shown.to - shown.from) / longest}%`;
}

// Anew, with other colours.
function drawAnew() {
  colors.clear();
  for (const chart of charts) chart.create();
  draw();
}

function resize() {
  for (const chart of charts) {
    chart.dygraph.resize();
    chart.shown = undefined;
  }
  planDraw();
}

function formatShown() {
  const format = ({ from, to }) =>
    [from, to].map((time) => formatTime(time, decimalsFor(to - from))).join(" – ");
  const all = format(whole);
  return `Shown: ${format(shown)} of ${whole.from === 0 ? all.replace(/.* – /, "") : all}`;
}

function formatPointer() {
  if (pointer === undefined) return "";
  return `${formatTime(pointer, 3)} · ${formatUtc(origin + pointer * 1e3)}`;
}

function formatValues() {
  return [formatTime(pointer, 3), ...stacks.map((stack) => stack.formatValues())].join(". ");
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

function zoomLink(text, [from, to], pointerAt) {
  const link = element("a", { href: "#" }, text);
  link.addEventListener("click", (event) => {
    event.preventDefault();
    setPointer(pointerAt);
    setShown(from, to);
  });
  return link;
}

// What a button or a key does, and what a screen reader says then. It says values only when asked
// for them: there may be dozens.
const actions = {
  in: { act: () => zoom(1 / 2), format: formatShown },
  out: { act: () => zoom(2), format: formatShown },
  left: { act: () => move(-1 / 4), format: formatShown },
  right: { act: () => move(1 / 4), format: formatShown },
  whole: { act: () => setShown(whole.from, whole.to), format: formatShown },
  pointerLeft: { act: () => movePointer(-1 / 100), format: formatPointer },
  pointerRight: { act: () => movePointer(1 / 100), format: formatPointer },
  values: { act: () => movePointer(0), format: formatValues },
};
const keys = {
  "+": "in", "=": "in", "-": "out", "−": "out", ArrowLeft: "left", ArrowRight: "right", 0: "whole",
  v: "values",
};

function perform(action) {
  actions[action].act();
  document.getElementById("announcement").textContent = actions[action].format();
}

function onKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  let action = keys[event.key];
  if (event.shiftKey && event.key === "ArrowLeft") action = "pointerLeft";
  if (event.shiftKey && event.key === "ArrowRight") action = "pointerRight";
  if (!action) return;
  event.preventDefault();
  perform(action);
}
