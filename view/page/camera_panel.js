// The panel of the camera: what runs, a camera or a video file, and how it is shown.

const cameraPanel = document.getElementById("camera");
const cameraButton = document.getElementById("use-camera");
const cameraForm = cameraPanel.querySelector("form");
const cameraText = cameraPanel.querySelector(".text");
const cameraFacts = cameraPanel.querySelector(".facts");
const cameraNumbers = cameraPanel.querySelector("pre");
const startButton = document.getElementById("start-camera");
const savedVideo = document.getElementById("save-video");
let running;  // a Camera or a VideoFile

// Whether the picture is shown as in a mirror, as people expect of themselves. Films are not.
function isMirror() {
  return running instanceof Camera && !cameraForm.elements.mirrored.checked;
}

function showRunning() {
  startButton.textContent = running ? "Stop" : "Start the camera";
  showStage({ isShown: running !== undefined, isMirror: isMirror() });
}

function say(text) {
  setText(cameraText, text);
}

function ended(failure, recording) {
  running = undefined;
  showRunning();
  say(failure ?? (recording ? "The recording is made." : ""));
  cameraFacts.textContent = "";
}

function startCamera() {
  running?.stop();
  savedVideo.hidden = true;
  const [width, height] = cameraForm.elements.size.value.split("x").map(Number);
  running = new Camera({ onText: say, onAllowed: listCameras, onEnd: ended });
  showRunning();
  running.run({ device: cameraForm.elements.device.value, width, height });
}

async function listCameras() {
  const select = cameraForm.elements.device;
  const devices = await navigator.mediaDevices?.enumerateDevices() ?? [];
  const options = devices.filter(({ kind, deviceId }) => kind === "videoinput" && deviceId)
    .map(({ deviceId, label }) => element("option", { value: deviceId }, label));
  const chosen = select.value;
  select.replaceChildren(element("option", { value: "" }, "Default"), ...options);
  select.value = options.some(({ value }) => value === chosen) ? chosen : "";
}

async function importVideo(file) {
  running?.stop();
  savedVideo.hidden = true;
  const rate = cameraForm.elements.rate.valueAsNumber || 15;
  const video = running = new VideoFile({ onText: say, onEnd: ended });
  showRunning();
  showPanel(true);
  await video.run({ file, rate });
  if (!video.recording) return;
  URL.revokeObjectURL(savedVideo.href);
  savedVideo.href = URL.createObjectURL(video.recording);
  savedVideo.download = `${file.name.replace(/\.[^.]*$/, "")}.jsonl`;
  savedVideo.textContent = `Save ${savedVideo.download}`;
  savedVideo.hidden = false;
}

function showPanel(isOpen) {
  cameraPanel.hidden = !isOpen;
  cameraButton.setAttribute("aria-expanded", isOpen);
}

function toggleCamera() {
  showPanel(cameraPanel.hidden);
  if (cameraPanel.hidden) running?.stop(); else startCamera();
}

function showNumbers() {
  cameraNumbers.hidden = !running || !cameraForm.elements.numbers.checked;
  if (!cameraNumbers.hidden) setText(cameraNumbers, [...running.numbers.values()].join("\n"));
}

cameraButton.addEventListener("click", toggleCamera);
startButton.addEventListener("click", () => { if (running) running.stop(); else startCamera(); });
cameraForm.addEventListener("submit", (event) => event.preventDefault());
for (const name of ["device", "size"]) {
  cameraForm.elements[name].addEventListener("change", () => {
    if (running instanceof Camera) startCamera();
  });
}
cameraForm.elements.mirrored.addEventListener("change", showRunning);
cameraForm.elements.video.addEventListener("change", ({ target }) => {
  if (target.files.length > 0) importVideo(target.files[0]);
  target.value = "";
});
document.addEventListener("dragover", (event) => event.preventDefault());
document.addEventListener("drop", (event) => {
  event.preventDefault();
  const [file] = event.dataTransfer.files;
  if (file) importVideo(file);
});
navigator.mediaDevices?.addEventListener("devicechange", listCameras);
addEventListener("pagehide", () => running?.stop());
setInterval(showNumbers, 250);
setInterval(() => { if (running) setText(cameraFacts, running.describe()); }, 1000);
if (location.hash === "#camera") toggleCamera();
