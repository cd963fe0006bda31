// The page of a recording.

import { colorOf, reasonColor } from "../shared/colors.js";
import { quantities } from "../shared/quantities.js";
import { actionOf } from "./keyboard.js";
import { delayLoadEvent } from "./load_event.js";
import { addPage, setPaper, showFailure } from "./persons.js";
import { readRecording, recording } from "./recording.js";
import {
  charts, draw, drawAnew, formatValues, perform, pointer, resize, setPointer, setShown, stacks,
} from "./view.js";

/** @typedef {import("./keyboard.js").ActionName} ActionName */

async function main() {
  const endDelay = delayLoadEvent();
  try {
    await readRecording();
    addPage(recording);
  } finally {
    endDelay();
  }
  for (const button of document.querySelectorAll("button[data-action]")) {
    const action = /** @type {ActionName} */ (button.getAttribute("data-action"));
    button.addEventListener("click", () => perform(action));
  }
  document.addEventListener("keydown", (event) => {
    const action = actionOf(event);
    if (!action) return;
    event.preventDefault();
    perform(action);
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
  charts, colorOf, draw, formatValues, pointer, quantities, reasonColor, recording, setPointer,
  setShown, stacks,
};
