// What the page knows of a person: the newest state, the curves of the last minute, and what moved
// the state in the last second.

const shownSeconds = 60;
const binSeconds = 0.1;
const gapSeconds = 1;
const reasonSeconds = 1;

class Person {
  constructor(id) {
    this.id = id;
    this.bins = [];  // of the last minute, the oldest first
    this.forces = [];  // of the last second
  }

  add(line) {
    const time = line.time / 1e9;
    this.state = line;
    this.time = time;
    this.addToBins(time, line);
    for (const { quantity, reason, before, after } of line.forces ?? []) {
      if (quantity === "valence" || quantity === "attention") {
        this.forces.push({ time, quantity, reason, move: after - before });
      }
    }
    while (this.forces.length > 0 && this.forces[0].time < time - reasonSeconds) this.forces.shift();
  }

  // Lowest, highest and last value of each tenth of a second: all that a pixel can show.
  addToBins(time, { valence, attention }) {
    const number = Math.floor(time / binSeconds);
    let bin = this.bins[this.bins.length - 1];
    if (bin?.number !== number) {
      const isGap = !bin || time - bin.time > gapSeconds;
      bin = { number, isGap, valence: new Range(), attention: new Range() };
      this.bins.push(bin);
      while (this.bins[0].time < time - shownSeconds - gapSeconds) this.bins.shift();
    }
    bin.time = time;
    bin.valence.add(valence);
    bin.attention.add(attention);
  }

  // What moved the valence and the attention most in the last second.
  strongestReasons(most) {
    const sums = new Map();
    for (const { quantity, reason, move } of this.forces) {
      const key = `${quantity}\n${reason}`;
      sums.set(key, (sums.get(key) ?? 0) + move);
    }
    return [...sums].map(([key, move]) => {
      const [quantity, reason] = key.split("\n");
      return { quantity, reason, move };
    }).filter(({ move }) => Math.abs(move) > 0.001)
      .sort((one, other) => Math.abs(other.move) - Math.abs(one.move)).slice(0, most);
  }
}

// What a value was within a bin. A value that is no number is null.
class Range {
  constructor() {
    this.low = Infinity;
    this.high = -Infinity;
    this.last = NaN;
    this.confidence = 1;
  }

  add({ value, confidence }) {
    this.last = value ?? NaN;
    if (value !== null) {
      this.low = Math.min(this.low, value);
      this.high = Math.max(this.high, value);
    }
    this.confidence = Math.min(this.confidence, confidence ?? 0);
  }
}
