// From a face in a picture to what is observed of a person. docs/camera.md says where each number comes
// from.

/**
 * A face as the worker finds it. Its box is x, y, width and height, as fractions of the picture; its
 * mesh is x, y, x, y, …, in pixels; its angles are in radians.
 * @typedef {{
 *   box: [number, number, number, number], score: number, mesh: ArrayLike<number>,
 *   angle?: { yaw: number, pitch: number, roll: number } | null,
 *   emotion?: { emotion: string, score: number }[] | null, distance?: number, person?: number,
 * }} Face
 */
/** @typedef {{ event: string, person: number, [field: string]: unknown }} Event */

const meshPoints = 478;
// Left and right in the picture, as in every pair below.
const eyes = [{ corners: [33, 133], iris: 473 }, { corners: [362, 263], iris: 468 }];
const eyeOpening = 30;  // millimetres
const eyeballRadius = 12;
// In the order of the library's points: corners of the eyes, ends of the brows, nose, mouth.
const facialPoints = [33, 133, 362, 263, 70, 107, 336, 300, 1, 2, 61, 291];
const expressionNames = [["calm", "neutral"], ["anger", "angry"], ["joy", "happy"],
                         ["sorrow", "sad"], ["surprise", "surprise"]];

/** @param {number} radians */
function inDegrees(radians) {
  return radians * 180 / Math.PI;
}

/**
 * How far the eyes are turned within the head, to the right of the picture, in degrees. A vertical
 * offset would measure the lids.
 * @param {ArrayLike<number>} mesh
 */
function eyesTurned(mesh) {
  const point = (/** @type {number} */ index) => ({ x: mesh[2 * index], y: mesh[2 * index + 1] });
  const angles = eyes.map(({ corners, iris }) => {
    const [left, right] = corners.map(point);
    const { x, y } = point(iris);
    const across = { x: right.x - left.x, y: right.y - left.y };
    const offset = ((x - (left.x + right.x) / 2) * across.x +
                    (y - (left.y + right.y) / 2) * across.y) / (across.x ** 2 + across.y ** 2);
    return inDegrees(Math.asin(Math.max(-1, Math.min(1, offset * eyeOpening / eyeballRadius))));
  });
  return (angles[0] + angles[1]) / 2;
}

/**
 * `isMirrored`: the camera or the film shows left and right exchanged.
 * @param {number} person
 * @param {Face} face
 * @param {boolean} isMirrored
 * @returns {Event}
 */
export function observationOf(person, { score, mesh, angle, emotion, distance }, isMirrored) {
  const confidence = Math.max(0, Math.min(1, score));
  /** @type {Event} */
  const seen = { event: "observation", person, faceDetected: { value: true } };
  if (distance !== undefined && distance > 0 && distance < Infinity) seen.distance = { value: distance };
  if (angle) {
    const side = isMirrored ? -1 : 1;
    const yaw = inDegrees(angle.yaw);
    const pitch = -inDegrees(angle.pitch);
    seen.headPosture = { yaw: side * yaw, pitch, roll: side * inDegrees(angle.roll) };
    if (mesh.length >= 2 * meshPoints) {
      seen.gaze = { yaw: side * (yaw - eyesTurned(mesh)), pitch };
    }
  }
  if (emotion && emotion.length > 0) {
    const scoreOf = (/** @type {string} */ name) =>
      emotion.find((each) => each.emotion === name)?.score ?? 0;
    seen.smile = { value: scoreOf("happy"), confidence };
    seen.expressions = Object.fromEntries(expressionNames.map(([ours, theirs]) => (
      [ours, { value: scoreOf(theirs), confidence }])));
  }
  if (mesh.length > 0) {
    seen.facialPoints = { points: facialPoints.map((index, point) => (
      { point, x: mesh[2 * index], y: mesh[2 * index + 1], confidence })) };
  }
  return seen;
}

/** @param {number} seconds */
export function inNanoseconds(seconds) {
  return BigInt(Math.round(seconds * 1e9));
}

/**
 * The events as lines of a recording, of which `newest` keeps the last one of each person. Their time is a
 * BigInt: a script's numbers are too short for nanoseconds.
 * @param {Event[]} events
 * @param {bigint} time
 * @param {Map<number, string>} newest
 */
export function eventLines(events, time, newest) {
  return events.map((event) => {
    const line = `{"time":${time},${JSON.stringify(event).slice(1)}`;
    if (event.event === "remove") newest.delete(event.person);
    else newest.set(event.person, line);
    return line;
  });
}
