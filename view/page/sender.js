// Sends events to the service, about people whose ids nobody else uses. After a reload it asks for
// those that it had before.

class EventSender {
  constructor({ name, count, onPeople, onClose }) {
    this.socket = new WebSocket(`ws://${location.host}/events`);
    this.socket.addEventListener("open", () => {
      const first = Number(sessionStorage.getItem(name)) || undefined;
      this.socket.send(JSON.stringify({ request: "people", count, first }));
    });
    this.socket.addEventListener("message", ({ data }) => {
      for (const line of data.split("\n")) {
        const { people } = line ? JSON.parse(line) : {};
        if (!people) continue;
        sessionStorage.setItem(name, people.first);
        onPeople(people.first);
      }
    });
    this.onClose = onClose;
    this.socket.addEventListener("close", onClose);
  }

  send(lines) {
    if (this.socket.readyState === WebSocket.OPEN) this.socket.send(lines);
  }

  // These people leave with it.
  close(people) {
    const lines = people.map((person) => JSON.stringify({ event: "remove", person }));
    if (lines.length > 0) this.send(lines.join("\n"));
    this.socket.removeEventListener("close", this.onClose);
    this.socket.close();
  }
}
