// A person by hand: feeds the service what a camera would see of somebody.

import { byId, find } from "../shared/elements.js";
import { EventSender } from "../shared/sender.js";

const handRate = 10;  // observations a second
const form = find("#hand", HTMLFormElement);
const button = byId("by-hand");
/** @type {EventSender | undefined} */
let sender;
let timer = 0;
/** @type {number | undefined} */
let person;

/** @param {number} [touch] */
function observation(touch) {
  const read = (/** @type {string} */ name) =>
    find(`[name=${name}]`, HTMLInputElement, form).valueAsNumber;
  const sure = (/** @type {number} */ value) => ({ value, confidence: 0.9 });
  const face = read("face");
  const yaw = read("yaw");
  return {
    event: "observation", person, height: { value: 1.2 },
    distance: { value: read("distance") }, smile: sure(Math.max(0, face)),
    expressions: { joy: sure(Math.max(0, face)), anger: sure(Math.max(0, -face)),
                   calm: sure(1 - Math.abs(face)) },
    headPosture: { yaw, pitch: 0, roll: 0 }, gaze: { yaw, pitch: 0 },
    facialPoints: { points: Array.from({ length: 12 }, (_, point) => (
      { point, x: 0, y: 0, confidence: 0.9 })) },
    ...(touch && { touchEmotion: { value: touch } }),
  };
}

/** @param {number} [touch] */
function send(touch) {
  if (person !== undefined) sender?.send(JSON.stringify(observation(touch)));
}

function open() {
  sender = new EventSender({
    name: "hand", count: 1, onPeople: (first) => { person = first; }, onClose: close });
  timer = setInterval(send, 1000 / handRate);
  show(true);
}

function close() {
  clearInterval(timer);
  sender?.close(person === undefined ? [] : [person]);
  person = undefined;
  show(false);
}

/** @param {boolean} isOpen */
function show(isOpen) {
  form.hidden = !isOpen;
  button.setAttribute("aria-expanded", String(isOpen));
}

export function toggleHand() {
  if (form.hidden) open(); else close();
}

button.addEventListener("click", toggleHand);
form.addEventListener("submit", (event) => event.preventDefault());
for (const touch of form.querySelectorAll("button[data-touch]")) {
  touch.addEventListener("click", () => send(Number(touch.getAttribute("data-touch"))));
}
