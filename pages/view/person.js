// What the page knows of a person: the newest state, the curves of the last minute, and what moved
// the state in the last second.

import { quantities } from "../shared/quantities.js";

/** @typedef {import("../tool").MovedName} MovedName */
/** @typedef {import("../tool").Reading} Reading */
/** @typedef {import("../tool").StateLine} StateLine */
/** @typedef {Record<MovedName, Range> & { number: number, time: number, isGap: boolean }} Bin */
/** @typedef {{ quantity: MovedName, reason: string, move: number }} Pull */

export const shownSeconds = 60;
export const recentSeconds = 10;
export const binSeconds = 0.1;
const gapSeconds = 1;
const reasonSeconds = 1;
/** @type {MovedName[]} */
const movedNames = ["valence", "attention"];

export class Person {
  /** @param {number} id */
  constructor(id) {
    this.id = id;
    /** @type {Bin[]} */
    this.bins = [];  // of the last minute, the oldest first
    /** @type {(Pull & { time: number })[]} */
    this.pulls = [];  // of the last second
    /** @type {StateLine | undefined} */
    this.state = undefined;
    this.time = NaN;  // of the state
  }

  /** @param {StateLine} line */
  add(line) {
    const time = line.time / 1e9;
    this.state = line;
    this.time = time;
    this.addToBins(time, line);
    for (const { quantity, reason, before, after } of line.forces ?? []) {
      if (quantity === "valence" || quantity === "attention") {
        this.pulls.push({ time, quantity, reason, move: Number(after) - Number(before) });
      }
    }
    while (this.pulls.length > 0 && this.pulls[0].time < time - reasonSeconds) this.pulls.shift();
  }

  /**
   * Lowest, highest and last value of each tenth of a second: all that a pixel can show.
   * @param {number} time
   * @param {Record<MovedName, Reading>} state
   */
  addToBins(time, { valence, attention }) {
    const number = Math.floor(time / binSeconds);
    let bin = this.bins[this.bins.length - 1];
    if (bin?.number !== number) {
      const isGap = !bin || time - bin.time > gapSeconds;
      bin = { number, time, isGap, valence: new Range(), attention: new Range() };
      this.bins.push(bin);
      while (this.bins[0].time < time - shownSeconds - gapSeconds) this.bins.shift();
    }
    bin.time = time;
    bin.valence.add(valence);
    bin.attention.add(attention);
  }

  /** @param {number} now */
  recentBins(now) {
    return this.bins.filter(({ time }) => time > now - recentSeconds);
  }

  /**
   * How far apart the lowest and the highest valence of the last seconds are, as a share of its range, plus
   * the same for the attention.
   * @param {number} now
   */
  movement(now) {
    const bins = this.recentBins(now);
    let movement = 0;
    for (const name of movedNames) {
      const [lowest, highest] = quantities[name].range;
      const low = Math.min(...bins.map((bin) => bin[name].low));
      const high = Math.max(...bins.map((bin) => bin[name].high));
      movement += Math.max(0, high - low) / (highest - lowest);
    }
    return movement;
  }

  /**
   * What moved the valence and the attention most in the last second.
   * @param {number} most
   */
  strongestReasons(most) {
    /** @type {Map<string, Pull>} */
    const sums = new Map();
    for (const { quantity, reason, move } of this.pulls) {
      const key = `${quantity}\n${reason}`;
      sums.set(key, { quantity, reason, move: (sums.get(key)?.move ?? 0) + move });
    }
    return [...sums.values()].filter(({ move }) => Math.abs(move) > 0.001)
      .sort((one, other) => Math.abs(other.move) - Math.abs(one.move)).slice(0, most);
  }
}

// The values of a quantity within a bin. A value that is not a number is null.
class Range {
  constructor() {
    this.low = Infinity;
    this.high = -Infinity;
    this.last = NaN;
    this.confidence = 1;
  }

  /** @param {Reading} reading */
  add({ value, confidence }) {
    this.last = value ?? NaN;
    if (value !== null) {
      this.low = Math.min(this.low, value);
      this.high = Math.max(this.high, value);
    }
    this.confidence = Math.min(this.confidence, confidence ?? 0);
  }
}

/**
 * The stretches of bins between gaps and values that are not numbers.
 * @param {Bin[]} bins
 * @param {MovedName[]} names
 */
export function stretchesOf(bins, ...names) {
  /** @type {Bin[][]} */
  const stretches = [];
  /** @type {Bin[] | undefined} */
  let stretch;
  for (const bin of bins) {
    if (names.some((name) => Number.isNaN(bin[name].last))) {
      stretch = undefined;
      continue;
    }
    if (!stretch || bin.isGap) stretches.push(stretch = []);
    stretch.push(bin);
  }
  return stretches;
}
