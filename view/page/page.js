// Brings the lines of the service to the page, and draws.

const drawMilliseconds = 50;
const writeMilliseconds = 250;
const announceMilliseconds = 10000;

let serviceStarted;
let clockOffset;  // of the service's clock from this page's, in seconds
let theme = 0;  // another number, other colours
let isPaused = false;
let linesBehind = 0;
const pictured = new Set();  // who is in the picture that is coming
const pauseButton = document.getElementById("pause");

function serviceNow() {
  return clockOffset + performance.now() / 1e3;
}

function onLine(line) {
  lastLineAt = new Date();
  if (isPaused) ++linesBehind;
  if (line.status) {
    if (serviceStarted !== line.status.started) {
      serviceStarted = line.status.started;
      clockOffset = undefined;
      lastStatus = undefined;
      removeEverybody();
    }
    showStatus(line.status);
  } else if (line.bad_line) {
    showBadLine(line.bad_line);
  } else if (line.picture === "begins") {
    pictured.clear();
  } else if (line.picture === "complete") {
    for (const id of [...cards.keys()]) if (!pictured.has(id)) removeCard(id, { isAtOnce: true });
  } else if (line.missed) {
    missedLines += line.missed;
  } else if (line.removed) {
    removeCard(line.person);
  } else if (line.valence) {
    pictured.add(line.person);
    (cards.get(line.person) ?? addCard(line.person)).person.add(line);
  } else if (line.agitation !== undefined) {
    showRoom(line);
  }
  if (line.time) {
    // Lines can be late, but not early.
    clockOffset = Math.max(clockOffset ?? -Infinity, line.time / 1e9 - performance.now() / 1e3);
  }
}

let drawnAt = 0;
let writtenAt = 0;

function frame(at) {
  requestAnimationFrame(frame);
  if (isPaused || clockOffset === undefined || at - drawnAt < drawMilliseconds - 4) return;
  drawnAt = at;
  const now = serviceNow();
  const isWritten = at - writtenAt >= writeMilliseconds;
  if (isWritten) writtenAt = at;
  for (const card of cards.values()) {
    if (card.box.hidden) continue;
    card.draw(now);
    if (isWritten) card.write(now);
  }
}

function togglePause() {
  isPaused = !isPaused;
  linesBehind = 0;
  pauseButton.setAttribute("aria-pressed", isPaused);
  showPause();
}

function showPause() {
  const label = isPaused ? ` Go on (${formatCount(linesBehind, "line")} behind)` : " Pause";
  pauseButton.replaceChildren(element("b", {}, "P"), label);
}

function announce() {
  const words = [...cards.values()].map((card) => card.describe());
  const text = `${formatCount(cards.size, "person", "people")}. ${words.join(". ")}`;
  if (!isPaused) setText(document.getElementById("announcement"), text);
}

document.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  if (event.target.matches?.("select, [type=number]")) return;
  const action = { c: toggleCamera, p: togglePause, t: toggleHand }[event.key.toLowerCase()];
  if (action) action();
});
pauseButton.addEventListener("click", togglePause);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
  colors.clear();
  ++theme;
});
setInterval(() => { if (isPaused) showPause(); }, 500);
setInterval(announce, announceMilliseconds);
new Connection({ onLine, onState: showConnection });
requestAnimationFrame(frame);
