// The connection to the service, which comes back by itself.

const shortestRetry = 500;  // milliseconds
const longestRetry = 5000;

// Calls `onLine(object)` for each line, and `onState("connecting" | "live" | "lost")`.
class Connection {
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
