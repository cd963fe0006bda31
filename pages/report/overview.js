// The page of several recordings. The page of each of them is made when it is opened.

import { byId, element, fillTable, find } from "../shared/elements.js";
import { formatCount, formatMove, formatNumber, formatPercent, formatTime } from "../shared/format.js";
import { quantityNames } from "../shared/quantities.js";
import { notMeasured, visiblePoints } from "./curve.js";
import { delayLoadEvent } from "./load_event.js";
import { readCurve, readCycles, whyNoChange } from "./recording.js";
import { unknownSpans } from "./spans.js";
import { meanColumns, moodBar } from "./summary.js";
import { svgCurve, svgElement, svgPlace, svgScale } from "./svg.js";
import { timeTicks } from "./ticks.js";

/** @typedef {import("../tool").MovedName} MovedName */
/** @typedef {import("../tool").OverviewData} OverviewData */
/** @typedef {import("../tool").OverviewRecording} OverviewRecording */
/** @typedef {import("../tool").PersonData} PersonData */
/** @typedef {import("../tool").RecordingData} RecordingData */
/** @typedef {import("../tool").SummaryRow} SummaryRow */
/** @typedef {import("./curve.js").Curve} Curve */

/** @type {OverviewData} */
const { page, scope, recordings } = JSON.parse(byId("overview").textContent ?? "");
const isAligned = scope !== undefined;
const small = { width: 700, height: 48 };
/** @type {MovedName[]} */
const drawnNames = ["valence", "attention"];

/**
 * The data of a recording. Recordings are counted from 1.
 * @param {number | string} number
 */
function dataOf(number) {
  return document.getElementById(`data${number}`)?.textContent;
}

/** @param {number} number @param {string} text @param {number} [person] */
function recordingLink(number, text, person) {
  const place = person === undefined ? "" : `person${person}`;
  return element("a", { href: `#recording${number}${place}` }, text);
}

/** @param {SummaryRow} row */
function moodCell({ positive, neutral, negative, valence_coverage: coverage }) {
  if (coverage === 0) return notMeasured;
  return moodBar([positive, neutral, negative].map((share) => 100 * Number(share)));
}

/** @param {SummaryRow} row */
function changeCell(row) {
  const lines = drawnNames.flatMap((name) => {
    const [change, at] = [row[`${name}_change`], row[`${name}_change_at`]];
    return change === null || at === null ? [] :
      [element("div", { class: "changes" }, `${name} ${formatMove(change)} at ${formatTime(at, 1)}`)];
  });
  return lines.length > 0 ? element("div", {}, ...lines) : element("small", {}, whyNoChange(row));
}

function addSummary() {
  const columns = [{ title: "Recording" }, { title: "Person" }, { title: "Length", class: "number" },
    { title: "Cycles", class: "number" }, ...meanColumns,
    { title: "Mood", small: "share of the cycles" },
    { title: "Attention > 0.5", small: "share of the cycles", class: "number" },
    { title: "Greatest change", small: "within a second" }];
  fillTable(find("#summary table", HTMLTableElement), columns, recordings.flatMap(rowsOf));
}

/** @param {OverviewRecording} recording @param {number} index @returns {(string | Node)[][]} */
function rowsOf({ title, from, to, failure, warnings, persons }, index) {
  const number = index + 1;
  const notes = [failure && "incomplete", warnings > 0 && formatCount(warnings, "warning")];
  const name = () => element("div", {}, recordingLink(number, title),
    element("small", {}, notes.filter(Boolean).join(", ")));
  const length = formatTime(to - from, 1);
  const format = (/** @type {number | null} */ value) =>
    (value === null ? "–" : formatNumber(value, 2));
  if (persons.length === 0) return [[name(), "–", length, "0"]];
  return persons.map((row) => {
    const means = quantityNames
      .map((quantity) => (row[`${quantity}_coverage`] === 0 ? notMeasured :
        `${format(row[`${quantity}_mean`])} (${format(row[`${quantity}_confidence`])})`));
    const attentive = row.attention_coverage === 0 ? notMeasured :
      formatPercent(100 * Number(row.attentive));
    return [name(), recordingLink(number, `Person ${row.person}`, row.person), length,
      row.cycles.toLocaleString("en"), ...means, moodCell(row), attentive, changeCell(row)];
  });
}

/** @param {OverviewRecording} recording */
function addFailure({ title, failure }) {
  if (!failure) return;
  const list = byId("failures");
  list.append(element("li", {}, `Not the whole recording ${title}, only what came before an error: `,
    failure));
  list.hidden = false;
}

// In seconds since second 0 of each recording, or since the scope begins in each.
function windowOfAll() {
  const from = Math.min(...recordings.map((recording) => recording.from));
  const to = Math.max(...recordings.map((recording) => recording.to));
  return to > from ? { from, to } : { from: from - 0.5, to: to + 0.5 };
}

function drawTimes() {
  const { from, to } = windowOfAll();
  const holder = find("#curves .times", HTMLElement);
  const width = holder.clientWidth;
  holder.replaceChildren(...timeTicks(from, to, width).map(({ v, label }) => {
    const place = (v - from) / (to - from);
    const text = place * width < width - 60 ? label : "";  // it would reach beyond the page
    const tick = element("div", { class: isAligned && v === 0 ? "zero" : "" }, element("span", {}, text));
    tick.style.left = `${100 * place}%`;
    return tick;
  }));
}

/** @param {Curve} curve @param {string} color @param {string} label */
function smallCurve(curve, color, label) {
  const { width, height } = small;
  const shown = windowOfAll();
  const scale = svgScale({ x: 0, y: 2, w: width, h: height - 4 }, shown, curve.quantity.range);
  const middle = svgPlace(0, height / 2);
  const unknown = unknownSpans(curve).map(({ from, to }) => svgElement("path", { class: "unknown",
    d: `M${svgPlace(scale.toDomXCoord(from), height / 2)}H${scale.toDomXCoord(to).toFixed(2)}` }));
  return svgElement("svg", { viewBox: `0 0 ${width} ${height}`, preserveAspectRatio: "none",
    role: "img", "aria-label": label },
  svgElement("path", { d: `M${middle}h${width}`, class: "middle" }), ...unknown,
  svgCurve(visiblePoints(curve, shown, width), shown, scale, `var(--${color})`));
}

/** @param {Element} holder @param {PersonData} data @param {bigint} zero @param {string} name */
async function drawCurves(holder, data, zero, name) {
  const cycles = await readCycles(data, zero);
  for (const quantity of drawnNames) {
    const curve = await readCurve(data, quantity, cycles);
    holder.append(smallCurve(curve, quantity, `${curve.quantity.title} of ${name}`));
  }
}

// One recording after the other, so that the page can be used meanwhile.
async function addCurves() {
  const holders = recordings.map(({ title, persons }, index) => persons.map(({ person }) => {
    const holder = element("article", {}, element("h3", {}, recordingLink(index + 1, title), " · ",
      recordingLink(index + 1, `Person ${person}`, person)));
    holder.style.minHeight = `${2 * small.height + 30}px`;
    byId("curves").append(holder);
    return holder;
  }));
  drawTimes();
  for (const [index, { title, zero, persons }] of recordings.entries()) {
    /** @type {RecordingData} */
    const data = JSON.parse(dataOf(index + 1) ?? "");
    for (const [row, { person }] of persons.entries()) {
      const own = data.persons.find((other) => other.person === person);
      if (own) await drawCurves(holders[index][row], own, BigInt(zero), `person ${person} of ${title}`);
    }
  }
}

// Shows what the address names: the page of a recording, perhaps at one of its persons, or of all.
function showAddressed() {
  const [, number, person] = location.hash.match(/^#recording(\d+)(?:person(-?\d+))?$/) ?? [];
  const data = dataOf(number);
  const one = byId("one");
  one.querySelector("iframe")?.remove();
  one.hidden = !data;
  byId("all").inert = Boolean(data);
  document.documentElement.style.overflow = data ? "hidden" : "";
  const title = data ? recordings[Number(number) - 1].title :
    formatCount(recordings.length, "recording");
  document.title = `${title} – zorvel report`;
  if (!data) return;
  find("b", HTMLElement, one).textContent = title;
  const frame = element("iframe", { title });
  one.append(frame);
  frame.addEventListener("load", () => {
    frame.contentDocument?.getElementById(`person${person}`)?.scrollIntoView();
    frame.contentWindow?.focus();
  });
  // In a page that "srcdoc" makes, links to its own persons would lead to this page.
  frame.contentDocument?.open();
  frame.contentDocument?.write(page.replace("{{recording}}", () => data));
  frame.contentDocument?.close();
}

/**
 * Paper is narrower than a screen, and white.
 * @param {boolean} isPaper
 */
function setPaper(isPaper) {
  document.documentElement.classList.toggle("paper", isPaper);
  drawTimes();
}

async function main() {
  const endDelay = delayLoadEvent();
  const cycles = recordings.flatMap(({ persons }) => persons).reduce((sum, row) => sum + row.cycles, 0);
  find("h1", HTMLElement).textContent = formatCount(recordings.length, "recording");
  byId("facts").textContent = formatCount(cycles, "cycle");
  byId("zero").textContent = "Time, as minutes and seconds, since " +
    `${isAligned ? `the first start of “${scope}” in` : "second 0 of"} each recording.`;
  addSummary();
  recordings.forEach(addFailure);
  showAddressed();
  addEventListener("hashchange", showAddressed);
  addEventListener("resize", drawTimes);
  addEventListener("beforeprint", () => setPaper(true));
  addEventListener("afterprint", () => setPaper(false));
  return addCurves().finally(endDelay);
}

main().catch((error) => {
  byId("failures").append(element("li", {}, `The curves cannot be shown: ${error.message}`));
  byId("failures").hidden = false;
  throw error;
});
