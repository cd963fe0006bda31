// The picture, with the faces that were found in it.

import { find } from "../shared/elements.js";

/** @typedef {import("./faces.js").Face} Face */

const stage = find("#camera .stage", HTMLElement);
export const stageVideo = find("video", HTMLVideoElement, stage);
const canvas = find("canvas", HTMLCanvasElement, stage);
const context = /** @type {CanvasRenderingContext2D} */ (canvas.getContext("2d"));

/**
 * `isMirror`: left and right are exchanged.
 * @param {{ isShown: boolean, isMirror: boolean }} how
 */
export function showStage({ isShown, isMirror }) {
  stageVideo.classList.toggle("mirror", isMirror);
  stage.hidden = !isShown;
  canvas.width = 0;  // which clears it
}

/**
 * A face that is not a person yet has a thin box. Fractions and pixels are those of the video.
 * @param {Face[]} faces
 * @param {{ isMirror: boolean, hasLandmarks: boolean }} how
 */
export function drawFaces(faces, { isMirror, hasLandmarks }) {
  const { videoWidth, videoHeight } = stageVideo;
  const width = Math.round(canvas.clientWidth * devicePixelRatio);
  const height = Math.round(canvas.clientHeight * devicePixelRatio);
  if (canvas.width !== width || canvas.height !== height) {
    Object.assign(canvas, { width, height });
  }
  context.clearRect(0, 0, width, height);
  const side = (/** @type {number} */ fraction) => width * (isMirror ? 1 - fraction : fraction);
  context.font = `600 ${14 * devicePixelRatio}px system-ui, sans-serif`;
  context.textBaseline = "bottom";
  for (const { box: [x, y, boxWidth, boxHeight], mesh, person } of faces) {
    const left = side(isMirror ? x + boxWidth : x);
    const top = y * height;
    context.strokeStyle = context.fillStyle = "#ffd34d";
    context.lineWidth = (person === undefined ? 1 : 2.5) * devicePixelRatio;
    context.strokeRect(left, top, boxWidth * width, boxHeight * height);
    if (hasLandmarks) {
      for (let index = 0; index < mesh.length; index += 2) {
        context.fillRect(side(mesh[index] / videoWidth), mesh[index + 1] / videoHeight * height,
                         devicePixelRatio, devicePixelRatio);
      }
    }
    if (person === undefined) continue;
    const label = `Person ${person}`;
    const tall = 20 * devicePixelRatio;
    const long = context.measureText(label).width + tall / 2;
    const labelTop = Math.max(0, top - tall);
    const labelLeft = Math.max(0, Math.min(width - long, left));
    context.fillRect(labelLeft, labelTop, long, tall);
    context.fillStyle = "#000000";
    context.fillText(label, labelLeft + tall / 4, labelTop + 0.9 * tall);
  }
}
