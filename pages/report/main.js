// The page of a recording.

import { colorOf, reasonColor } from "../shared/colors.js";
import { quantities } from "../shared/quantities.js";
import { addFilm, hasFilm, performFilm } from "./film.js";
import { actionOf, filmActionOf } from "./keyboard.js";
import { delayLoadEvent } from "./load_event.js";
import { addPage, setPaper, showFailure } from "./persons.js";
import { readRecording, recording } from "./recording.js";
import {
  charts, draw, drawAnew, filmTime, formatValues, perform, pointer, resize, setPointer, setShown, stacks,
} from "./view.js";

/** @typedef {import("./keyboard.js").ActionName} ActionName */

async function main() {
  const endDelay = delayLoadEvent();
  try {
    await readRecording();
    addPage(recording);
    addFilm(recording);
  } finally {
    endDelay();
  }
  for (const button of document.querySelectorAll("button[data-action]")) {
    const action = /** @type {ActionName} */ (button.getAttribute("data-action"));
    button.addEventListener("click", () => perform(action));
  }
  document.addEventListener("keydown", (event) => {
    if (event.target instanceof Element && event.target.matches("[type=number], select")) return;
    const filmAction = hasFilm() ? filmActionOf(event) : undefined;
    const action = actionOf(event);
    if (!filmAction && !action) return;
    event.preventDefault();
    if (filmAction) performFilm(filmAction); else if (action) perform(action);
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAnew);
  addEventListener("resize", resize);
  addEventListener("beforeprint", () => setPaper(true));
  addEventListener("afterprint", () => setPaper(false));
}

main().catch((error) => {
  showFailure(`The charts cannot be shown: ${error.message}`);
  throw error;
});

// For the browser's console and for tests, as `page`.
export {
  charts, colorOf, draw, filmTime, formatValues, hasFilm, pointer, quantities, reasonColor, recording,
  setPointer, setShown, stacks,
};
