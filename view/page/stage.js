// The picture, with what was found in it.

const stageBox = document.querySelector("#camera .stage");
const stageVideo = stageBox.querySelector("video");
const stageCanvas = stageBox.querySelector("canvas");

// What is shown as in a mirror has its right at the left.
function showStage({ isMirror }) {
  stageVideo.classList.toggle("mirror", isMirror);
  stageBox.hidden = false;
}

// The faces have been followed, so they are somebody's. Fractions and pixels are those of the video.
function drawFaces(faces, { isMirror, hasLandmarks }) {
  const { videoWidth, videoHeight } = stageVideo;
  const width = Math.round(stageCanvas.clientWidth * devicePixelRatio);
  const height = Math.round(stageCanvas.clientHeight * devicePixelRatio);
  if (stageCanvas.width !== width || stageCanvas.height !== height) {
    Object.assign(stageCanvas, { width, height });
  }
  const context = stageCanvas.getContext("2d");
  context.clearRect(0, 0, width, height);
  const side = (fraction) => width * (isMirror ? 1 - fraction : fraction);
  context.lineWidth = 2 * devicePixelRatio;
  context.font = `600 ${14 * devicePixelRatio}px system-ui, sans-serif`;
  context.textBaseline = "bottom";
  for (const { box: [x, y, boxWidth, boxHeight], mesh, person } of faces) {
    const left = side(isMirror ? x + boxWidth : x);
    const top = y * height;
    context.strokeStyle = context.fillStyle = "#ffd34d";
    context.strokeRect(left, top, boxWidth * width, boxHeight * height);
    if (hasLandmarks) {
      const size = devicePixelRatio;
      for (let index = 0; index < mesh.length; index += 2) {
        context.fillRect(side(mesh[index] / videoWidth), mesh[index + 1] / videoHeight * height,
                         size, size);
      }
    }
    if (person === undefined) continue;
    const label = `Person ${person}`;
    const above = Math.max(top, 20 * devicePixelRatio);
    context.fillRect(left - 1, above - 20 * devicePixelRatio,
                     context.measureText(label).width + 10 * devicePixelRatio, 20 * devicePixelRatio);
    context.fillStyle = "#000000";
    context.fillText(label, left + 4 * devicePixelRatio, above - 2 * devicePixelRatio);
  }
}
