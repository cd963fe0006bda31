// Analyses pictures, one after the other, beside the page. It gets { picture } and answers
// { faces, isDetected, isCut } or { error }; the first answer, { engine }, comes unasked. A worker that is
// called "film" detects faces and cuts in each picture, however long that takes.

import { areCalm } from "./boxes.js";
import { meansOf, isOther } from "./cut.js";

/** @typedef {import("./faces.js").Face} Face */
/** @typedef {{ picture: VideoFrame }} Question */
/** @typedef {{ faces: Face[], isDetected: boolean, isCut: boolean }} Answer */

importScripts("human.js");

const isFilm = self.name === "film";
// Without graphics, a film gives the same numbers on every machine.
const usesGraphics = !isFilm && hasGraphics();
const off = { enabled: false };
const always = { skipFrames: 0, skipTime: 0 };
// Faces are detected in the whole picture, or followed from the previous one.
const detection = { cacheSensitivity: 0, face: { detector: always } };
const following = { cacheSensitivity: Infinity,
                    face: { detector: { skipFrames: Infinity, skipTime: Infinity } } };
const mostFollowed = 2;  // pictures in a row, so that new people are seen soon
const folder = new URL(".", location.href).href;
const human = new Human.Human({
  backend: usesGraphics ? "humangl" : "wasm",
  wasmPath: folder,
  modelBasePath: folder,
  cacheSensitivity: 0,
  warmup: "none",
  filter: off,
  gesture: off,
  body: off,
  hand: off,
  object: off,
  segmentation: off,
  face: {
    detector: { ...always, maxDetected: 8 },
    mesh: always,
    iris: always,
    emotion: { ...always, minConfidence: 0 },
    description: off,
  },
});
const canvas = new OffscreenCanvas(0, 0);
const context = canvas.getContext("2d", { willReadFrequently: true });
/** @type {Face[]} */
let before = [];
let isCalm = false;
let followed = 0;
/** @type {number[]} */
let meansBefore = [];

// Whether there is a graphics processor. An emulated one is slower than WebAssembly.
function hasGraphics() {
  const graphics = new OffscreenCanvas(1, 1).getContext("webgl2", { failIfMajorPerformanceCaveat: true });
  const information = graphics?.getExtension("WEBGL_debug_renderer_info");
  if (!graphics || !information) return false;
  const renderer = graphics.getParameter(information.UNMASKED_RENDERER_WEBGL);
  return !/swiftshader|llvmpipe|softpipe|software|basic render/i.test(renderer);
}

/**
 * What the page needs of a face. The mesh is x, y, x, y, … in pixels.
 * @param {Human.Face} face
 * @returns {Face}
 */
function essence({ boxRaw, faceScore, mesh, rotation, emotion, distance }) {
  const points = new Float32Array(2 * mesh.length);
  mesh.forEach(([x, y], index) => points.set([x, y], 2 * index));
  return { box: boxRaw, score: faceScore, mesh: points, angle: rotation?.angle, emotion, distance };
}

/** @param {VideoFrame} picture */
function pixelsOf(picture) {
  const { displayWidth: width, displayHeight: height } = picture;
  if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
  context.drawImage(picture, 0, 0);
  return context.getImageData(0, 0, width, height);
}

/** @param {ImageData} pixels */
function isCutBefore(pixels) {
  const means = meansOf(pixels);
  const isCut = meansBefore.length > 0 && isOther(means, meansBefore);
  meansBefore = means;
  return isCut;
}

/**
 * @param {ImageData} pixels
 * @param {boolean} isDetected
 */
async function facesIn(pixels, isDetected) {
  const tensor = human.tf.browser.fromPixels(pixels);
  try {
    const { face, error } = await human.detect(tensor, isDetected ? detection : following);
    if (error) throw new Error(error);
    return face.map(essence);
  } finally {
    human.tf.dispose(tensor);
  }
}

/** @param {MessageEvent<Question>} question */
async function answer({ data: { picture } }) {
  try {
    const pixels = pixelsOf(picture);
    const isCut = isFilm && isCutBefore(pixels);
    const isDetected = isFilm || !isCalm || followed === mostFollowed;
    const faces = await facesIn(pixels, isDetected);
    isCalm = areCalm(faces, before);
    before = faces;
    followed = isDetected ? 0 : followed + 1;
    postMessage({ faces, isDetected, isCut });
  } catch (error) {
    postMessage({ error: /** @type {Error} */ (error).message });
  } finally {
    picture.close();
  }
}

human.load().then(() => {
  addEventListener("message", answer);
  postMessage({ engine: human.tf.getBackend() === "wasm" ? "WebAssembly" : "WebGL" });
}, (error) => postMessage({ error: error.message }));
