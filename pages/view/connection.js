// The connection to the service. When it is lost it is opened again, unless the service refuses the token.

import { longestRetry } from "../shared/sender.js";
import { openSocket, request } from "../shared/service.js";

/** @typedef {import("../tool").Line} Line */
/** @typedef {"connecting" | "live" | "lost" | "refused"} ConnectionState */

const shortestRetry = 500;  // milliseconds
const unauthorized = 401;

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
    let wasOpen = false;
    const socket = openSocket("/states");
    socket.addEventListener("open", () => {
      wasOpen = true;
      this.retry = shortestRetry;
      socket.send('{"forces":true}');
      this.onState("live");
    });
    socket.addEventListener("message", ({ data }) => {
      for (const line of data.split("\n")) if (line) this.onLine(JSON.parse(line));
    });
    socket.addEventListener("close", async () => {
      this.onState("lost");
      if (!wasOpen && await this.isRefused()) {
        this.onState("refused");
        return;
      }
      setTimeout(() => this.open(), this.retry);
      this.retry = Math.min(2 * this.retry, longestRetry);
    });
  }

  // A WebSocket does not say why it was not opened.
  async isRefused() {
    try {
      return (await request("/health", { method: "HEAD" })).status === unauthorized;
    } catch {
      return false;  // the service is not there
    }
  }
}
