// The picture, with what was found in it.

const stageBox = document.querySelector("#camera .stage");
const stageVideo = stageBox.querySelector("video");
const stageCanvas = stageBox.querySelector("canvas");

// What is shown as in a mirror has its right at the left.
function showStage({ isShown, isMirror }) {
  stageVideo.classList.toggle("mirror", isMirror);
  stageBox.hidden = !isShown;
  stageCanvas.width = 0;  // which clears it
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
