// The status of the service, and the room.

import { byId, element, find, setText } from "../shared/elements.js";
import { formatCount, formatNumber } from "../shared/format.js";

/** @typedef {import("../tool").BadLine} BadLine */
/** @typedef {import("../tool").RoomLine} RoomLine */
/** @typedef {import("../tool").Status} Status */
/** @typedef {import("./connection.js").ConnectionState} ConnectionState */

const shownBadLines = 20;
/** @type {Date | undefined} */
let lastLineAt;
let missedLines = 0;
/** @type {Status | undefined} */
export let lastStatus;

export function noteLine() {
  lastLineAt = new Date();
}

/** @param {number} lines */
export function noteMissed(lines) {
  missedLines += lines;
}

// The count of another service would make a wrong rate of events.
export function forgetStatus() {
  lastStatus = undefined;
}

/** @param {ConnectionState} state */
export function showConnection(state) {
  byId("connection").className = state;
  const since = lastLineAt ? `, the last line came at ${lastLineAt.toLocaleTimeString()}` : "";
  const texts = {
    connecting: lastLineAt ? `Trying again${since}` : "Connecting …",
    live: "Live",
    lost: `Connection lost${since}`,
    refused: "The service asks for a token",
  };
  setText(find("#connection span", HTMLElement), texts[state]);
}

/** @param {Status} status */
export function showStatus(status) {
  const before = lastStatus ?? status;
  const seconds = status.uptime - before.uptime;
  const rate = seconds > 0 ? (status.events - before.events) / seconds : 0;
  lastStatus = status;
  const facts = [formatCount(status.people, "person", "people"),
                 `${formatNumber(rate, 0)} events a second`];
  if (status.recording) facts.push(`recording to ${status.recording}`);
  if (status.recording_failure) facts.push(`recording stopped: ${status.recording_failure}`);
  if (missedLines > 0) facts.push(`${formatCount(missedLines, "line")} missed by this page`);
  setText(byId("facts"), facts.join(" · "));
  byId("bad-lines").hidden = status.bad_lines === 0;
  setText(find("#bad-lines summary", HTMLElement), formatCount(status.bad_lines, "bad line"));
}

/** @param {BadLine} badLine */
export function showBadLine({ source, line, error }) {
  const list = find("#bad-lines ol", HTMLElement);
  list.prepend(element("li", {}, `${source}, line ${line}: ${error}`));
  while (list.childElementCount > shownBadLines) list.lastElementChild?.remove();
}

/** @param {RoomLine} room */
export function showRoom({ agitation, calm }) {
  byId("room").hidden = false;
  find("#room .meter div", HTMLElement).style.width = `${100 * (agitation ?? 0)}%`;
  setText(find("#room output", HTMLElement),
          `agitation ${formatNumber(agitation ?? NaN, 2)}, calm ${formatNumber(calm ?? NaN, 2)}`);
}
