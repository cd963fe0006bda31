// Analyses pictures, one after the other, beside the page: gets { picture }, an ImageBitmap, and
// answers { faces } or { error }; the first answer, { isReady }, comes unasked.

/** @typedef {import("./faces.js").Face} Face */

importScripts("human.js");

const off = { enabled: false };
// Each picture is analysed as a whole, whatever the one before it was like.
const always = { skipFrames: 0, skipTime: 0 };
const folder = new URL(".", location.href).href;
const human = new Human.Human({
  backend: "wasm",
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

/** @param {MessageEvent<{ picture: ImageBitmap }>} question */
async function answer({ data: { picture } }) {
  try {
    const { face, error } = await human.detect(picture);
    if (error) throw new Error(error);
    postMessage({ faces: face.map(essence) });
  } catch (error) {
    postMessage({ error: /** @type {Error} */ (error).message });
  } finally {
    picture.close();
  }
}

human.load().then(() => {
  addEventListener("message", answer);
  postMessage({ isReady: true });
}, (error) => postMessage({ error: error.message }));
