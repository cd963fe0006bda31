// The recording, as the page holds it. Values are those of timeline.csv.

import { byId } from "../shared/elements.js";
import { agitation, quantities } from "../shared/quantities.js";
import { listReasons, readReason } from "../shared/reasons.js";
import { makeCurve } from "./curve.js";

/** @typedef {import("../tool").Column} Column */
/** @typedef {import("../tool").MovedName} MovedName */
/** @typedef {import("../tool").PersonData} PersonData */
/** @typedef {import("../tool").QuantityName} QuantityName */
/** @typedef {import("../tool").RecordingData} RecordingData */
/** @typedef {import("./curve.js").Curve} Curve */
/** @typedef {import("./moves.js").MovedCurve} MovedCurve */
/** @typedef {import("./spans.js").Scope} Scope */
/**
 * @typedef {Pick<PersonData, "changes" | "tooShort"> & {
 *   id: number, times: Float64Array, begins: Uint8Array, moods: Int8Array, scopes: Scope[],
 *   valence: MovedCurve, attention: MovedCurve, ease: Curve,
 * }} Person
 */
/**
 * @typedef {Pick<RecordingData, "source" | "failure" | "warnings" | "reasons" | "mattered"> & {
 *   name: string, zero: number, start: number, end: number, persons: Person[], room: Curve,
 * }} Recording
 */

/** @type {Recording} */
export let recording;

/** @param {Column} text */
async function inflated(text) {
  const characters = atob(text);
  const packed = new Uint8Array(characters.length);
  for (let i = 0; i < packed.length; ++i) packed[i] = characters.charCodeAt(i);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/**
 * The numbers of a column: it holds their differences, all lowest bytes first, then all second ones
 * and so on, deflated, in base64.
 * @template {Int8Array | Int16Array | Int32Array | BigInt64Array} Numbers
 * @param {Column} text
 * @param {{ new (buffer: ArrayBuffer): Numbers, BYTES_PER_ELEMENT: number }} Type
 */
async function decoded(text, Type) {
  const ranks = await inflated(text);
  const width = Type.BYTES_PER_ELEMENT;
  const count = ranks.length / width;
  const bytes = new Uint8Array(ranks.length);
  for (let rank = 0; rank < width; ++rank) {
    for (let i = 0; i < count; ++i) bytes[i * width + rank] = ranks[rank * count + i];
  }
  const values = new Type(bytes.buffer);
  /** @type {any} */
  const sums = values;  // of numbers or of big integers
  for (let i = 1; i < count; ++i) sums[i] += sums[i - 1];
  return values;
}

/** @param {Column} text */
async function decodedFloats(text) {
  return new Float32Array((await decoded(text, Int32Array)).buffer);
}

/**
 * Times, as seconds since second 0.
 * @param {Column} text
 * @param {bigint} zero
 */
async function decodedTimes(text, zero) {
  return Float64Array.from(await decoded(text, BigInt64Array), (time) => secondsAfter(zero, time));
}

/** @param {bigint} zero @param {bigint} time */
function secondsAfter(zero, time) {
  return Number(time - zero) / 1e9;
}

/**
 * Why a person has no greatest change.
 * @param {{ tooShort: boolean }} person
 */
export function whyNoChange({ tooShort }) {
  return tooShort ? "none: the first second is left out, and too little comes after it" :
    "none of 5 % of a range or more after the first second, which is left out";
}

/**
 * When the cycles of a person were, and which do not continue the one before.
 * @param {PersonData} data
 * @param {bigint} zero
 */
export async function readCycles(data, zero) {
  const times = await decodedTimes(data.time, zero);
  const begins = new Uint8Array(times.length);
  for (const row of await decoded(data.begins, Int32Array)) begins[row] = 1;
  return { times, begins };
}

/**
 * @param {PersonData} data
 * @param {QuantityName} name
 * @param {{ times: Float64Array, begins: Uint8Array }} cycles
 */
export async function readCurve(data, name, { times, begins }) {
  return makeCurve(quantities[name], times, begins, await decodedFloats(data[name]),
    await decodedFloats(data[`${name}_confidence`]), await decoded(data.known[name], Int8Array));
}

/**
 * @param {PersonData} data
 * @param {bigint} zero
 * @returns {Promise<Person>}
 */
async function readPerson(data, zero) {
  const cycles = await readCycles(data, zero);
  const readMoved = async (/** @type {MovedName} */ name) => ({
    ...await readCurve(data, name, cycles),
    moves: await Promise.all(data.moves[name].map(async ({ reason, rows }) =>
      ({ ...readReason(reason), rows: await decoded(rows, Int16Array) }))),
  });
  return {
    id: data.person,
    ...cycles,
    moods: await decoded(data.mood, Int8Array),
    valence: await readMoved("valence"),
    attention: await readMoved("attention"),
    ease: await readCurve(data, "ease", cycles),
    changes: data.changes,
    tooShort: data.tooShort,
    scopes: data.scopes.map(({ from, to, ...scope }) => (
      { ...scope, from: secondsAfter(zero, BigInt(from)), to: secondsAfter(zero, BigInt(to)) })),
  };
}

export async function readRecording() {
  /** @type {RecordingData} */
  const data = JSON.parse(byId("recording").textContent ?? "");
  listReasons(data.reasons);
  const zero = BigInt(data.zero);
  const times = await decodedTimes(data.room.time, zero);
  recording = {
    name: data.recording,
    source: data.source,
    failure: data.failure,
    warnings: data.warnings,
    reasons: data.reasons,
    mattered: data.mattered,
    zero: Number(zero) / 1e6,
    start: secondsAfter(zero, BigInt(data.start)),
    end: secondsAfter(zero, BigInt(data.end)),
    persons: await Promise.all(data.persons.map((person) => readPerson(person, zero))),
    room: makeCurve(agitation, times, new Uint8Array(times.length),
      await decodedFloats(data.room.agitation)),
  };
}
