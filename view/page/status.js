// How the service is, and the room.

const shownBadLines = 20;
const connectionLine = document.getElementById("connection");
let lastLineAt;  // when, as a Date
let missedLines = 0;
let lastStatus;

function showConnection(state) {
  connectionLine.className = state;
  const since = lastLineAt ? `, the last line came at ${lastLineAt.toLocaleTimeString()}` : "";
  const texts = {
    connecting: lastLineAt ? `Trying again${since}` : "Connecting …",
    live: "Live",
    lost: `Connection lost${since}`,
  };
  setText(connectionLine.querySelector("span"), texts[state]);
}

function showStatus(status) {
  const seconds = lastStatus ? status.uptime - lastStatus.uptime : 0;
  const rate = seconds > 0 ? (status.events - lastStatus.events) / seconds : 0;
  lastStatus = status;
  const facts = [formatCount(status.people, "person", "people"),
                 `${formatNumber(rate, 0)} events a second`];
  if (status.recording) facts.push(`recording to ${status.recording}`);
  if (status.recording_failure) facts.push(`recording stopped: ${status.recording_failure}`);
  if (missedLines > 0) facts.push(`${formatCount(missedLines, "line")} missed by this page`);
  setText(document.getElementById("facts"), facts.join(" · "));
  const panel = document.getElementById("bad-lines");
  panel.hidden = status.bad_lines === 0;
  setText(panel.querySelector("summary"), formatCount(status.bad_lines, "bad line"));
}

function showBadLine({ source, line, error }) {
  const list = document.querySelector("#bad-lines ol");
  list.prepend(element("li", {}, `${source}, line ${line}: ${error}`));
  while (list.childElementCount > shownBadLines) list.lastElementChild.remove();
}

function showRoom({ agitation, calm }) {
  const room = document.getElementById("room");
  room.hidden = false;
  room.querySelector(".meter div").style.width = `${100 * (agitation ?? 0)}%`;
  setText(room.querySelector("output"),
          `agitation ${formatNumber(agitation ?? NaN, 2)}, calm ${formatNumber(calm ?? NaN, 2)}`);
}
