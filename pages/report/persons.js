// What the page of a recording shows, person by person.

import { byId, element, fillTable, find } from "../shared/elements.js";
import { decimalsFor, formatCount, formatNumber, formatTime, formatUtc } from "../shared/format.js";
import { moods, quantityNames } from "../shared/quantities.js";
import { readReason } from "../shared/reasons.js";
import { isEverKnown, isKnown, mean, notMeasured } from "./curve.js";
import { addMattered } from "./mattered.js";
import { whyNoChange } from "./recording.js";
import { moodSpans, paintSpans, scopeSign, scopeSpans } from "./spans.js";
import { Stack, swatch } from "./stack.js";
import { meanColumns, moodBar } from "./summary.js";
import { draw, drawAnew, showWhole, whole, zoomLink } from "./view.js";

/** @typedef {import("./curve.js").Curve} Curve */
/** @typedef {import("./recording.js").Person} Person */
/** @typedef {import("./recording.js").Recording} Recording */
/** @typedef {import("./spans.js").Scope} Scope */

/** @param {Person} person */
function moodShares(person) {
  if (!isEverKnown(person.valence)) return notMeasured;
  return moodBar(moods.map(({ mood }) => {
    let count = 0;
    for (const each of person.moods) if (each === mood) ++count;
    return 100 * count / person.moods.length;
  }));
}

/** @param {Person[]} persons */
function addSummary(persons) {
  const columns = [{ title: "Person" }, { title: "Cycles", class: "number" },
    { title: "First to last", class: "number" }, ...meanColumns,
    { title: "Mood", small: "share of the cycles" }, { title: "Scopes", class: "number" }];
  const decimals = decimalsFor(whole.to - whole.from);
  fillTable(find("#summary table", HTMLTableElement), columns, persons.map((person) => {
    const { times } = person;
    const means = quantityNames.map((name) => {
      const { values, confidences } = person[name];
      if (!isEverKnown(person[name]) || !confidences) return notMeasured;
      return `${formatNumber(mean(values), 2)} (${formatNumber(mean(confidences), 2)})`;
    });
    const cells = times.length === 0 ? ["0", "", ...means.fill(""), ""] : [
      times.length.toLocaleString("en"),
      [times[0], times[times.length - 1]].map((time) => formatTime(time, decimals)).join(" – "),
      ...means,
      moodShares(person),
    ];
    const link = element("a", { href: `#person${person.id}` }, `Person ${person.id}`);
    return [link, ...cells, String(person.scopes.length)];
  }));
  byId("summary").hidden = persons.length === 0;
}

/** @param {Scope[]} scopes */
function scopeTable(scopes) {
  const table = element("table");
  const columns = [{ title: "Start", class: "number" }, { title: "Length", class: "number" },
    { title: "Label" }, { title: "Samples", class: "number" }, { title: "Scope" }];
  fillTable(table, columns, scopes.map((scope) => {
    const around = Math.max(1, (scope.to - scope.from) / 10);
    const span = { from: scope.from - around, to: scope.to + around };
    return [
      zoomLink(formatTime(scope.from, 1), span, scope.from),
      `${formatNumber(scope.to - scope.from, 1)} s`,
      `${scopeSign(scope)} ${scope.label || "not closed"}`,
      String(scope.samples),
      scope.scope,
    ];
  }));
  return element("details", {}, element("summary", {}, formatCount(scopes.length, "scope")), table);
}

/** @param {Person} person */
function changeLinks(person) {
  return person.changes.map(({ quantity, first, last, reason }) => {
    const { times } = person;
    const { values } = person[quantity];
    const around = 10 * Math.max(1, times[last] - times[first]);
    const text = `${formatTime(times[first], 1)} ${quantity} ` +
      `${values[last] > values[first] ? "↗" : "↘"} ${formatNumber(values[first], 2)} → ` +
      `${formatNumber(values[last], 2)} (${readReason(reason).label})`;
    return zoomLink(text, { from: times[first] - around, to: times[last] + around }, times[last]);
  });
}

/**
 * The reasons that occur, in the order of the library's list.
 * @param {Recording} recording
 */
function addReasons({ persons, reasons }) {
  const occurring = new Map(persons.flatMap((person) => [person.valence, person.attention])
    .flatMap(({ moves }) => moves).map((moves) => [moves.reason, moves]));
  const known = reasons.flatMap(({ name }) => occurring.get(name) ?? []);
  for (const { label, meaning, color } of new Set([...known, ...occurring.values()])) {
    byId("reasons").append(element("dt", {}, swatch(color), label), element("dd", {}, meaning));
  }
}

/** @param {Stack} stack @param {Person} person */
function addMood(stack, person) {
  stack.add({
    title: "Mood", hint: "label of the valence", label: `Mood of person ${person.id}`,
    height: 63, range: [-0.5, 3], color: "text",
    ticks: moods.map(({ name, sign }, lane) => ({ v: 2.5 - lane, label: `${sign} ${name}` })),
    paint: paintSpans(moodSpans(person), 3),
    read: (seconds) => {
      const row = stack.rowAt(person, seconds);
      if (row === undefined) return "–";
      return isKnown(person.valence, row) ? moods[1 - person.moods[row]].name : notMeasured;
    },
  });
}

/** @param {Person} person */
function addPerson(person) {
  const { id, times, scopes } = person;
  const section = element("section", { id: `person${id}` }, element("h2", {}, `Person ${id}`));
  find("main", HTMLElement).append(section);
  const columns = quantityNames
    .flatMap((name) => [person[name].values, person[name].confidences ?? person[name].values]);
  let odd = 0;
  for (let row = 0; row < times.length; ++row) {
    if (!columns.every((values) => Number.isFinite(values[row]))) ++odd;
  }
  if (odd > 0) {
    section.append(element("p", { class: "facts" },
      `${formatCount(odd, "cycle")} with values that are not numbers: the means leave these out, ` +
      "a curve stops there, and a confidence counts as 0."));
  }
  if (times.length === 0) section.append(element("p", { class: "facts" }, "No cycles."));
  const changes = changeLinks(person);
  if (times.length > 0) {
    section.append(element("div", { class: "changes" },
      "Greatest changes within a second:",
      ...(changes.length > 0 ? changes : [element("span", {}, whyNoChange(person))])));
  }
  if (times.length === 0 && scopes.length === 0) return;

  const stack = new Stack(section, `Person ${id}`);
  if (times.length > 0) {
    const addCurve = (/** @type {Curve} */ curve, hasTimes = false) =>
      stack.addCurve(curve, `${curve.quantity.title} of person ${id}`, hasTimes);
    addCurve(person.valence);
    stack.addMoves(person.valence, `What moved the valence of person ${id}`);
    addMood(stack, person);
    addCurve(person.attention);
    stack.addMoves(person.attention, `What moved the attention of person ${id}`);
    addCurve(person.ease, scopes.length === 0);
  }
  if (scopes.length > 0) {
    const spans = scopeSpans(scopes);
    const lanes = 1 + Math.max(...spans.map(({ lane }) => lane));
    stack.add({
      title: "Scopes", hint: "+ positive, ○ neutral, − negative, ? unknown, ! error, … not closed",
      label: `Scopes of person ${id}`, hasTimes: true,
      height: 20 * lanes, range: [0, lanes], color: "text", ticks: [],
      paint: paintSpans(spans, lanes),
      read: (seconds) => scopes.filter(({ from, to }) => from <= seconds && seconds <= to)
        .map((scope) => `${scope.scope}: ${scope.label || "not closed"}`).join("; ") || "–",
    });
  }
  stack.addSaving(section);
  stack.addTable(section);
  if (scopes.length > 0) section.append(scopeTable(scopes));
}

/** @param {Curve} room */
function addRoom(room) {
  const section = element("section", { id: "room" }, element("h2", {}, "Room"));
  find("main", HTMLElement).append(section);
  const highest = room.values.reduce((one, other) => Math.max(one, other), 0);
  section.append(element("p", { class: "facts" }, `${formatCount(room.values.length, "measurement")}; ` +
    `agitation on average ${formatNumber(mean(room.values), 2)}, at most ${formatNumber(highest, 2)}`));
  const stack = new Stack(section, "Room");
  stack.addCurve(room, "Agitation of the room", true);
  stack.addSaving(section);
  stack.addTable(section);
}

/** @param {string} text */
export function showFailure(text) {
  const box = byId("failure");
  box.textContent = text;
  box.hidden = false;
}

/** @param {Recording} recording */
export function addPage(recording) {
  const { name, source, failure, warnings, persons, room, zero, start, end } = recording;
  const length = end - start;
  showWhole(length > 0 ? { from: start, to: end } : { from: start - 0.5, to: start + 0.5 }, zero);
  document.title = `${name} – zorvel report`;
  find("h1", HTMLElement).textContent = name;
  const isEmpty = persons.length === 0 && room.values.length === 0;
  const cycles = persons.reduce((sum, { times }) => sum + times.length, 0);
  byId("facts").textContent = isEmpty ?
    "The recording has no persons, and no measurements of the room." :
    [source && `Source: ${source}`, `begins ${formatUtc(zero + start * 1e3)}`,
      `lasts ${formatTime(length, length > 0 ? decimalsFor(length) : 0)}`,
      formatCount(persons.length, "person"), formatCount(cycles, "cycle")].filter(Boolean).join(" · ");
  if (failure) showFailure(`Not the whole recording, only what came before an error: ${failure}`);
  const warningList = find("#warnings ul", HTMLElement);
  for (const warning of warnings) warningList.append(element("li", {}, warning));
  byId("warnings").hidden = warnings.length === 0;
  if (isEmpty) return;
  addSummary(persons);
  addReasons(recording);
  addMattered(recording.mattered);
  byId("toolbar").hidden = false;
  find(".keys", HTMLElement).hidden = false;
  persons.forEach(addPerson);
  if (room.values.length > 0) addRoom(room);
  draw();
}

/**
 * Paper is narrower than a screen, and white.
 * @param {boolean} isPaper
 */
export function setPaper(isPaper) {
  document.documentElement.classList.toggle("paper", isPaper);
  drawAnew();
}
