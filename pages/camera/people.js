// Whose face it is from one picture to the next, and which faces are people.

import { overlapOf } from "./boxes.js";
import { observationOf } from "./faces.js";

/** @typedef {import("./boxes.js").Box} Box */
/** @typedef {import("./faces.js").Event} Event */
/** @typedef {import("./faces.js").Face} Face */
/**
 * Somebody who is followed: the last box, when it was seen, which of the newest pictures showed a face
 * that counts, and when the first one did. Without a number, it is not a person yet.
 * @typedef {{
 *   person?: number, box: Box, seconds: number, sightings: boolean[], since?: number,
 *   speed: [number, number],
 * }} Track
 */

const leastOverlap = 0.3;
const goneSeconds = 3;
const hiddenSeconds = 1;  // for which somebody is expected to walk on unseen
const speedSeconds = 0.3;  // over which a speed is averaged
// A hand, or a picture on the wall, is taken for a face now and then, but seldom for long. So a face is a
// person's when it was seen this often in the newest pictures, with this score, for this long.
const pictures = 5;
const leastSightings = 3;
const leastScore = 0.5;
const leastSeconds = 0.2 - 1e-6;  // differences of times are not exact

// People get numbers from `first` on. After `most` of them, more than can be needed within 3 s, the
// numbers of people who have gone are used again.
export class People {
  /** @param {{ first: number, most?: number }} numbers */
  constructor({ first, most = Infinity }) {
    this.first = first;
    this.most = most;
    this.next = 0;
    /** @type {Track[]} */
    this.tracks = [];
  }

  // The numbers of the people who are followed.
  get known() {
    return this.tracks.flatMap(({ person }) => person ?? []);
  }

  /**
   * The events of a picture, in the order of the people's numbers. `seconds` is its time; after a cut
   * everybody is somebody new. Notes in each face whose it is.
   * @param {Face[]} faces
   * @param {number} seconds
   */
  follow(faces, seconds, { isMirrored = false, isCut = false } = {}) {
    /** @type {Event[]} */
    const events = [];
    if (isCut) {
      for (const person of this.known) events.push({ event: "remove", person });
      this.tracks = [];
    }
    const seen = this.match(faces, seconds);
    this.tracks = this.tracks.filter((track) => {
      const face = seen.get(track);
      note(track, face, seconds);
      if (track.person === undefined && isSomebody(track, seconds)) track.person = this.nextNumber();
      const { person } = track;
      if (person === undefined) return mayBecomeSomebody(track);
      if (face) {
        face.person = person;
        events.push(observationOf(person, face, isMirrored));
        return true;
      }
      const isGone = seconds - track.seconds > goneSeconds;
      events.push({ event: isGone ? "remove" : "not_seen", person });
      return !isGone;
    });
    return events.sort((one, other) => one.person - other.person);
  }

  /**
   * Which face each track has in this picture, the best pairs first. A face that is left over begins a new
   * track.
   * @param {Face[]} faces
   * @param {number} seconds
   */
  match(faces, seconds) {
    const pairs = faces.flatMap((face) => this.tracks.map((track) => (
      { face, track, overlap: overlapOf(face.box, expectedBox(track, seconds)) })))
      .filter(({ overlap }) => overlap >= leastOverlap)
      .sort((one, other) => other.overlap - one.overlap);
    /** @type {Map<Track, Face>} */
    const seen = new Map();
    const left = new Set(faces);
    for (const { face, track } of pairs) {
      if (seen.has(track) || !left.delete(face)) continue;
      seen.set(track, face);
    }
    for (const face of left) {
      /** @type {Track} */
      const track = { box: face.box, seconds, sightings: [], speed: [0, 0] };
      this.tracks.push(track);
      seen.set(track, face);
    }
    return seen;
  }

  nextNumber() {
    while (true) {
      const person = this.first + this.next++ % this.most;
      if (!this.known.includes(person)) return person;
    }
  }
}

/**
 * @param {Track} track
 * @param {Face | undefined} face
 * @param {number} seconds
 */
function note(track, face, seconds) {
  if (face) {
    const { box: [x, y] } = face;
    const passed = seconds - track.seconds;
    const weight = Math.min(1, passed / speedSeconds);
    if (passed > 0) {
      [x - track.box[0], y - track.box[1]].forEach((way, side) => {
        track.speed[side] += weight * (way / passed - track.speed[side]);
      });
    }
    Object.assign(track, { box: face.box, seconds });
  }
  const isSighting = (face?.score ?? 0) >= leastScore;
  if (isSighting) track.since ??= seconds;
  track.sightings.push(isSighting);
  if (track.sightings.length > pictures) track.sightings.shift();
}

/**
 * Where the track's face should be: people go on while they are hidden.
 * @param {Track} track
 * @param {number} seconds
 * @returns {Box}
 */
function expectedBox({ box: [x, y, width, height], seconds: last, speed }, seconds) {
  const passed = Math.min(seconds - last, hiddenSeconds);
  return [x + speed[0] * passed, y + speed[1] * passed, width, height];
}

/** @param {Track} track */
function mayBecomeSomebody({ sightings }) {
  return sightings.filter((was) => !was).length <= pictures - leastSightings;
}

/**
 * @param {Track} track
 * @param {number} seconds
 */
function isSomebody({ since = Infinity, sightings }, seconds) {
  return sightings.at(-1) && sightings.filter(Boolean).length >= leastSightings &&
    seconds - since >= leastSeconds;
}
