// The connection to the service, which comes back by itself.

import { longestRetry } from "../shared/sender.js";

/** @typedef {import("../tool").Line} Line */
/** @typedef {"connecting" | "live" | "lost"} ConnectionState */

const shortestRetry = 500;  // milliseconds

export class Connection {
  /**
   * @param {{ onLine: (line: Line) => void, onState: (state: ConnectionState) => void }} options
   */
  constructor({ onLine, onState }) {
    this.onLine = onLine;
    this.onState = onState;
    this.retry = shortestRetry;
    this.open();
  }

  open() {
    this.onState("connecting");
    const socket = new WebSocket(`ws://${location.host}/states`);
    socket.addEventListener("open", () => {
      this.retry = shortestRetry;
      socket.send('{"forces":true}');
      this.onState("live");
    });
    socket.addEventListener("message", ({ data }) => {
      for (const line of data.split("\n")) if (line) this.onLine(JSON.parse(line));
    });
    socket.addEventListener("close", () => {
      this.onState("lost");
      setTimeout(() => this.open(), this.retry);
      this.retry = Math.min(2 * this.retry, longestRetry);
    });
  }
}
