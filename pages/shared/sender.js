// Sends events to the service, about people whose ids nobody else uses. After a reload it asks for
// the same ids.

import { openSocket } from "./service.js";

/** @typedef {import("../tool").Answer} Answer */

export const longestRetry = 5000;  // milliseconds until a connection that ended is tried again

export class EventSender {
  /**
   * @param {{ name: string, count: number, onPeople: (first: number) => void, onClose: () => void }}
   *   options
   */
  constructor({ name, count, onPeople, onClose }) {
    this.socket = openSocket("/events");
    this.socket.addEventListener("open", () => {
      const first = Number(sessionStorage.getItem(name)) || undefined;
      this.socket.send(JSON.stringify({ request: "people", count, first }));
    });
    this.socket.addEventListener("message", ({ data }) => {
      for (const line of data.split("\n")) {
        if (!line) continue;
        /** @type {Answer} */
        const answer = JSON.parse(line);
        if (!("people" in answer)) continue;
        const { first } = answer.people;
        sessionStorage.setItem(name, String(first));
        onPeople(first);
      }
    });
    this.onClose = onClose;
    this.socket.addEventListener("close", onClose);
  }

  /** @param {string} lines */
  send(lines) {
    if (this.socket.readyState === WebSocket.OPEN) this.socket.send(lines);
  }

  /**
   * Removes these people and closes the connection.
   * @param {number[]} people
   */
  close(people) {
    const lines = people.map((person) => JSON.stringify({ event: "remove", person }));
    if (lines.length > 0) this.send(lines.join("\n"));
    this.socket.removeEventListener("close", this.onClose);
    this.socket.close();
  }
}
