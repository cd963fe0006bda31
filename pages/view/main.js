// Brings the lines of the service to the page, and draws.

import { running, toggleCamera } from "../camera/panel.js";
import { changeTheme } from "../shared/colors.js";
import { byId, element, setText } from "../shared/elements.js";
import { formatCount } from "../shared/format.js";
import { listReasons } from "../shared/reasons.js";
import { addCard, arrange, cards, removeCard, removeEverybody } from "./cards.js";
import { Connection } from "./connection.js";
import { toggleHand } from "./hand.js";
import { badges, drawPlane, togglePlane } from "./plane.js";
import "./save.js";
import {
  forgetStatus, lastStatus, noteLine, noteMissed, showBadLine, showConnection, showRoom, showStatus,
} from "./status.js";
import { askForToken } from "./token.js";

/** @typedef {import("../tool").Line} Line */
/** @typedef {import("./connection.js").ConnectionState} ConnectionState */

const drawMilliseconds = 50;
const writeMilliseconds = 250;
const announceMilliseconds = 10000;
const arrangeMilliseconds = 5000;

/** @type {number | undefined} */
let serviceStarted;
/** @type {number | undefined} */
let clockOffset;  // of the service's clock from this page's, in seconds
let isPaused = false;
let linesBehind = 0;
/** @type {Set<number>} */
const pictured = new Set();  // the people in the picture that is coming
const pauseButton = byId("pause");

/** @param {Line} line */
function onLine(line) {
  noteLine();
  if (isPaused) ++linesBehind;
  if ("status" in line) {
    if (serviceStarted !== line.status.started) {
      serviceStarted = line.status.started;
      clockOffset = undefined;
      forgetStatus();
      removeEverybody();
    }
    showStatus(line.status);
  } else if ("reasons" in line) {
    listReasons(line.reasons);
  } else if ("bad_line" in line) {
    showBadLine(line.bad_line);
  } else if ("picture" in line) {
    if (line.picture === "begins") {
      pictured.clear();
    } else {
      for (const id of [...cards.keys()]) if (!pictured.has(id)) removeCard(id, { isAtOnce: true });
    }
  } else if ("missed" in line) {
    noteMissed(line.missed);
  } else if ("removed" in line) {
    removeCard(line.person);
  } else if ("valence" in line) {
    pictured.add(line.person);
    (cards.get(line.person) ?? addCard(line.person)).person.add(line);
  } else if ("agitation" in line) {
    showRoom(line);
  }
  if ("time" in line) {
    // Lines can be late, but not early.
    clockOffset = Math.max(clockOffset ?? -Infinity, line.time / 1e9 - performance.now() / 1e3);
  }
}

/** @param {ConnectionState} state */
function onState(state) {
  showConnection(state);
  if (state !== "refused") return;
  running?.stop();
  askForToken();
}

let drawnAt = 0;
let writtenAt = 0;

/** @param {number} at */
function frame(at) {
  requestAnimationFrame(frame);
  if (isPaused || clockOffset === undefined || at - drawnAt < drawMilliseconds - 4) return;
  drawnAt = at;
  const now = clockOffset + performance.now() / 1e3;  // by the service's clock
  const isWritten = at - writtenAt >= writeMilliseconds;
  if (isWritten) writtenAt = at;
  for (const card of cards.values()) {
    if (card.box.hidden) continue;
    card.draw(now);
    if (isWritten) card.write(now);
  }
  drawPlane(now);
}

function togglePause() {
  isPaused = !isPaused;
  linesBehind = 0;
  pauseButton.setAttribute("aria-pressed", String(isPaused));
  showPause();
}

function showPause() {
  const label = isPaused ? ` Go on (${formatCount(linesBehind, "line")} behind)` : " Pause";
  pauseButton.replaceChildren(element("b", {}, "P"), label);
}

function announce() {
  const words = [...cards.values()].map((card) => card.describe());
  const text = `${formatCount(cards.size, "person", "people")}. ${words.join(". ")}`;
  if (!isPaused) setText(byId("announcement"), text);
}

/** @type {Record<string, () => void>} */
const keys = { c: toggleCamera, g: togglePlane, p: togglePause, t: toggleHand };

document.addEventListener("keydown", ({ key, ctrlKey, altKey, metaKey, target }) => {
  if (ctrlKey || altKey || metaKey) return;
  if (target instanceof Element && target.matches("select, [type=number], [type=text]")) return;
  keys[key.toLowerCase()]?.();
});
pauseButton.addEventListener("click", togglePause);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", changeTheme);
setInterval(() => { if (isPaused) showPause(); }, 500);
setInterval(announce, announceMilliseconds);
setInterval(() => { if (!isPaused) arrange(); }, arrangeMilliseconds);
new Connection({ onLine, onState });
requestAnimationFrame(frame);

// For the browser's console and for tests, as `page`.
export { announce, arrange, badges, cards, lastStatus, onLine, running };
