// The page of a recording.

function moodShares(person) {
  if (!isEverKnown(person.valence)) return notMeasured;
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
  const text = shares.map(({ sign, percent }) => `${sign} ${formatPercent(percent)}`).join("\u2003");
  return element("div", {}, bar, element("div", { class: "shares" }, text));
}

function addSummary(persons) {
  const columns = [{ title: "Person" }, { title: "Cycles", class: "number" },
    { title: "First to last", class: "number" }, ...meanColumns,
    { title: "Mood", small: "share of the cycles" }, { title: "Scopes", class: "number" }];
  const decimals = decimalsFor(whole.to - whole.from);
  fillTable(document.querySelector("#summary table"), columns, persons.map((person) => {
    const { times } = person;
    const means = Object.keys(quantities).map((name) => {
      const { values, confidences } = person[name];
      if (!isEverKnown(person[name])) return notMeasured;
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
  document.getElementById("summary").hidden = persons.length === 0;
}

function scopeTable(scopes) {
  const table = element("table");
  const columns = [{ title: "Begin", class: "number" }, { title: "Length", class: "number" },
    { title: "Label" }, { title: "Samples", class: "number" }, { title: "Scope" }];
  fillTable(table, columns, scopes.map((scope) => {
    const around = Math.max(1, (scope.to - scope.from) / 10);
    return [
      zoomLink(formatTime(scope.from, 1), [scope.from - around, scope.to + around], scope.from),
      `${formatNumber(scope.to - scope.from, 1)} s`,
      `${scopeSign(scope)} ${scope.label || "not closed"}`,
      String(scope.samples),
      scope.scope,
    ];
  }));
  return element("details", {}, element("summary", {}, formatCount(scopes.length, "scope")), table);
}

function changeLinks(person) {
  return person.changes.map(({ quantity, first, last, reason }) => {
    const { times } = person;
    const { values } = person[quantity];
    const around = 10 * Math.max(1, times[last] - times[first]);
    const text = `${formatTime(times[first], 1)} ${quantity} ` +
      `${values[last] > values[first] ? "↗" : "↘"} ${formatNumber(values[first], 2)} → ` +
      `${formatNumber(values[last], 2)} (${reason})`;
    return zoomLink(text, [times[first] - around, times[last] + around], times[last]);
  });
}

// The reasons that occur, in the order of the library's list.
function addReasons({ persons, reasons }) {
  const occurring = new Map(persons.flatMap((person) => [person.valence, person.attention])
    .flatMap(({ moves }) => moves).map(({ reason, meaning, color }) => [reason, { meaning, color }]));
  const known = reasons.map(({ name }) => name).filter((name) => occurring.has(name));
  const list = document.getElementById("reasons");
  for (const name of new Set([...known, ...occurring.keys()])) {
    const { meaning, color } = occurring.get(name);
    list.append(element("dt", {}, swatch(color), name), element("dd", {}, meaning));
  }
}

function addMood(stack, person) {
  stack.add({
    title: "Mood", hint: "label of the valence", label: `Mood of person ${person.id}`,
    height: 63, range: [-0.5, 3], color: "text",
    ticks: moods.map(({ name, sign }, lane) => ({ v: 2.5 - lane, label: `${sign} ${name}` })),
    paint: paintSpans(moodSpans(person), 3),
    read: (seconds) => {
      const row = stack.rowAt(person, seconds);
      if (row !== undefined && !isKnown(person.valence, row)) return notMeasured;
      return row === undefined ? "–" : moods.find(({ mood }) => mood === person.moods[row]).name;
    },
  });
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
    const last = Object.keys(quantities).at(-1);
    for (const [name, { title }] of Object.entries(quantities)) {
      stack.addCurve(person[name], `${title} of person ${id}`, name === last && scopes.length === 0);
      if (person[name].moves) {
        stack.addMoves(person[name], `What moved the ${name} of person ${id}`);
      }
      if (name === "valence") addMood(stack, person);
    }
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

function addRoom(room) {
  const section = element("section", { id: "room" }, element("h2", {}, "Room"));
  document.querySelector("main").append(section);
  const highest = room.values.reduce((one, other) => Math.max(one, other), 0);
  section.append(element("p", { class: "facts" }, `${formatCount(room.values.length, "measurement")}; ` +
    `agitation on average ${formatNumber(mean(room.values), 2)}, at most ${formatNumber(highest, 2)}`));
  const stack = new Stack(section, "Room");
  stack.addCurve(room, "Agitation of the room", true);
  stack.addSaving(section);
  stack.addTable(section);
}

function showFailure(text) {
  const box = document.getElementById("failure");
  box.textContent = text;
  box.hidden = false;
}

function addPage() {
  const { name, source, failure, warnings, persons, room, zero, start, end } = recording;
  const length = end - start;
  origin = zero;
  if (length > 0) showWhole(start, end); else showWhole(start - 0.5, start + 0.5);
  document.title = `${name} – zorvel report`;
  document.querySelector("h1").textContent = name;
  const isEmpty = persons.length === 0 && room.values.length === 0;
  const cycles = persons.reduce((sum, { times }) => sum + times.length, 0);
  document.getElementById("facts").textContent = isEmpty ?
    "The recording has no persons, and no measurements of the room." :
    [source && `Source: ${source}`, `begins ${formatUtc(zero + start * 1e3)}`,
      `lasts ${formatTime(length, length > 0 ? decimalsFor(length) : 0)}`,
      formatCount(persons.length, "person"), formatCount(cycles, "cycle")].filter(Boolean).join(" · ");
  if (failure) showFailure(`Not the whole recording, only what came before an error: ${failure}`);
  const warningList = document.querySelector("#warnings ul");
  for (const warning of warnings) warningList.append(element("li", {}, warning));
  document.getElementById("warnings").hidden = warnings.length === 0;
  if (isEmpty) return;
  addSummary(persons);
  addReasons(recording);
  for (const part of document.querySelectorAll("#toolbar, .keys")) part.hidden = false;
  persons.forEach(addPerson);
  if (room.values.length > 0) addRoom(room);
  draw();
}

// Paper is narrower than a screen, and white.
function setPaper(isPaper) {
  document.documentElement.classList.toggle("paper", isPaper);
  drawAnew();
}
