// The panel of the camera: it runs a camera or a film, and shows it.

import { byId, find, setText } from "../shared/elements.js";
import { Camera } from "./camera.js";
import {
  device, form, listCameras, mirrored, numbers, panel, rate, size, film as chosenFilm,
} from "./settings.js";
import { showStage } from "./stage.js";
import { FilmFile } from "./film_file.js";

const cameraButton = byId("use-camera");
const text = find(".text", HTMLElement, panel);
const facts = find(".facts", HTMLElement, panel);
const shownNumbers = find("pre", HTMLElement, panel);
const startButton = byId("start-camera");
const savedFilm = find("#save-film", HTMLAnchorElement);
/** @type {Camera | FilmFile | undefined} */
export let running;

function showRunning() {
  startButton.textContent = running ? "Stop" : "Start the camera";
  // People expect to see themselves as in a mirror, but not films.
  const isMirror = running instanceof Camera && !mirrored.checked;
  showStage({ isShown: running !== undefined, isMirror });
}

/** @param {string} said */
function say(said) {
  setText(text, said);
}

/** @param {string} [failure] @param {Blob} [recording] */
function ended(failure, recording) {
  running = undefined;
  showRunning();
  say(failure ?? (recording ? "The recording is made." : ""));
  facts.textContent = "";
}

function startCamera() {
  running?.stop();
  savedFilm.hidden = true;
  const [width, height] = size.value.split("x").map(Number);
  const camera = running = new Camera({ onText: say, onAllowed: listCameras, onEnd: ended });
  showRunning();
  camera.run({ device: device.value, width, height });
}

/** @param {File} file */
async function importFilm(file) {
  running?.stop();
  savedFilm.hidden = true;
  const film = running = new FilmFile({ onText: say, onEnd: ended });
  showRunning();
  showPanel(true);
  await film.run({ file, rate: rate.valueAsNumber || 15 });
  if (!film.recording) return;
  URL.revokeObjectURL(savedFilm.href);
  savedFilm.href = URL.createObjectURL(film.recording);
  savedFilm.download = `${file.name.replace(/\.[^.]*$/, "")}.jsonl`;
  savedFilm.textContent = `Save ${savedFilm.download}`;
  savedFilm.hidden = false;
}

/** @param {boolean} isOpen */
function showPanel(isOpen) {
  panel.hidden = !isOpen;
  cameraButton.setAttribute("aria-expanded", String(isOpen));
}

export function toggleCamera() {
  showPanel(panel.hidden);
  if (panel.hidden) running?.stop(); else startCamera();
}

function showNumbers() {
  const source = numbers.checked ? running : undefined;
  shownNumbers.hidden = !source;
  if (source) setText(shownNumbers, [...source.numbers.values()].join("\n"));
}

cameraButton.addEventListener("click", toggleCamera);
startButton.addEventListener("click", () => { if (running) running.stop(); else startCamera(); });
form.addEventListener("submit", (event) => event.preventDefault());
for (const choice of [device, size]) {
  choice.addEventListener("change", () => {
    if (running instanceof Camera) startCamera();
  });
}
mirrored.addEventListener("change", showRunning);
chosenFilm.addEventListener("change", () => {
  const file = chosenFilm.files?.[0];
  if (file) importFilm(file);
  chosenFilm.value = "";
});
document.addEventListener("dragover", (event) => event.preventDefault());
document.addEventListener("drop", (event) => {
  event.preventDefault();
  const file = event.dataTransfer?.files[0];
  if (file) importFilm(file);
});
navigator.mediaDevices?.addEventListener("devicechange", listCameras);
addEventListener("pagehide", () => running?.stop());
setInterval(showNumbers, 250);
setInterval(() => { if (running) setText(facts, running.describe()); }, 1000);
if (location.hash === "#camera") toggleCamera();
