// The film beside the charts. It never leaves the page: the browser plays the file that was chosen.

import { byId, find } from "../shared/elements.js";
import { whyNotPlayed } from "../shared/films.js";
import { formatTime } from "../shared/format.js";
import { Moments } from "./moment.js";
import { follow, resize, setFilmTime, setShown, shown } from "./view.js";

/** @typedef {import("./keyboard.js").FilmActionName} FilmActionName */
/** @typedef {import("./recording.js").Recording} Recording */

const usualPicture = 1 / 25;  // seconds, where the film does not show its own
const measuredPictures = 6;
const longestSearch = 25;  // pictures
const samePicture = 100;  // milliseconds after which no other picture is expected
const parameter = "film";  // of the page's address

const panel = byId("film");
const video = find("#film video", HTMLVideoElement);
const text = find("#film .text", HTMLElement);
const chooser = find("#film-file", HTMLInputElement);
const offset = find("#film-offset", HTMLInputElement);
const sound = find("#film-sound", HTMLInputElement);
const speed = find("#film-speed", HTMLSelectElement);

let picture = usualPicture;
let pictureShown = () => {};
let opened = 0;
/** @type {number | undefined} */
let shownAt;  // of the picture that is shown, in the film's seconds
/** @type {Moments} */
let moments;

function begin() {
  return offset.valueAsNumber || 0;
}

export function hasFilm() {
  return !panel.hidden && shownAt !== undefined;
}

function showMoment() {
  if (shownAt === undefined) return;
  const seconds = shownAt + begin();
  setFilmTime(seconds);
  moments.show(seconds);
  if (video.paused || (seconds >= shown.from && seconds <= shown.to)) return;
  setShown(seconds, seconds + shown.to - shown.from);
}

/** @param {number} _now @param {{ mediaTime: number }} shownPicture */
function showPicture(_now, { mediaTime }) {
  const length = mediaTime - (shownAt ?? mediaTime);
  if (!video.paused && length > 0.001) picture = Math.min(picture, length);
  shownAt = mediaTime;
  pictureShown();
  showMoment();
  video.requestVideoFrameCallback(showPicture);
}

/** @param {string} name */
function once(name) {
  return new Promise((resolve) => { video.addEventListener(name, resolve, { once: true }); });
}

function nextPicture() {
  return Promise.race([new Promise((resolve) => { pictureShown = () => resolve(undefined); }),
    new Promise((resolve) => { setTimeout(resolve, samePicture); })]);
}

/** @param {number} seconds */
function seek(seconds) {
  if (shownAt === undefined) return;
  const last = Number.isFinite(video.duration) ? video.duration : Infinity;
  video.currentTime = Math.min(Math.max(seconds, 0), last);
}

/**
 * Goes to the previous or next picture, by the middle of where it should be; where pictures are not
 * equally long, it may be farther.
 * @param {number} direction
 */
async function step(direction) {
  video.pause();
  const from = shownAt ?? 0;
  for (let count = 1; count <= longestSearch && shownAt === from; ++count) {
    const target = from + (direction * count + 0.5) * picture;
    if (target < 0 || target > video.duration) return;
    seek(target);
    await once("seeked");
    if (shownAt === from) await nextPicture();
  }
  byId("announcement").textContent = `Picture at ${formatTime((shownAt ?? 0) + begin(), 3)}`;
}

/** @type {Record<FilmActionName, () => void>} */
const actions = {
  pictureBack: () => step(-1),
  pictureForward: () => step(1),
  play: () => { if (video.paused) video.play(); else video.pause(); },
};

/** @param {FilmActionName} action */
export function performFilm(action) {
  if (hasFilm()) actions[action]();
}

async function open() {
  const file = chooser.files?.[0];
  if (!file) return;
  URL.revokeObjectURL(video.src);
  shownAt = undefined;
  setFilmTime(undefined);
  text.textContent = "";
  panel.hidden = false;
  resize();
  const number = ++opened;
  const loaded = once("loadeddata");
  video.src = URL.createObjectURL(file);
  await loaded;
  if (number !== opened) return;  // another film came, as the first did not play
  // The length of a film that a browser recorded is unknown until its end is looked for.
  if (video.duration === Infinity) {
    video.currentTime = 1e9;
    await once("seeked");
  }
  video.currentTime = 0;
  await once("seeked");
  await measurePicture();
}

// Measures how long a picture lasts, which a film does not say, by playing it.
async function measurePicture() {
  picture = Infinity;
  await video.play();
  for (let count = 0; count < measuredPictures && !video.ended; ++count) await nextPicture();
  video.pause();
  if (picture === Infinity) picture = usualPicture;
  video.currentTime = 0;
  await once("seeked");
  video.playbackRate = Number(speed.value);
}

function keepOffset() {
  showMoment();
  const address = new URL(location.href);
  address.searchParams.set(parameter, String(begin()));
  history.replaceState(null, "", address);
}

/** @param {Recording} recording */
export function addFilm({ persons }) {
  moments = new Moments(find("#film .moments", HTMLElement), persons);
  offset.value = String(Number(new URL(location.href).searchParams.get(parameter)) || 0);
  chooser.addEventListener("change", open);
  offset.addEventListener("change", keepOffset);
  speed.addEventListener("change", () => { video.playbackRate = Number(speed.value); });
  video.muted = true;
  sound.addEventListener("change", () => { video.muted = !sound.checked; });
  video.addEventListener("click", () => performFilm("play"));
  for (const button of panel.querySelectorAll("button[data-film]")) {
    const action = /** @type {FilmActionName} */ (button.getAttribute("data-film"));
    button.addEventListener("click", () => performFilm(action));
  }
  video.addEventListener("error", () => {
    text.textContent = whyNotPlayed(chooser.files?.[0]?.name ?? "", (type) => video.canPlayType(type));
  });
  video.requestVideoFrameCallback(showPicture);
  follow((seconds) => seek(seconds - begin()));
}
