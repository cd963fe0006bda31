// What the keys do.

/**
 * @typedef {"in" | "out" | "left" | "right" | "whole" | "pointerLeft" | "pointerRight" | "values"}
 *   ActionName
 */

/** @typedef {"pictureBack" | "pictureForward" | "play"} FilmActionName */
/** @typedef {Pick<KeyboardEvent, "key" | "shiftKey" | "ctrlKey" | "altKey" | "metaKey">} Stroke */

/** @type {Record<string, FilmActionName>} */
const filmKeys = { ArrowLeft: "pictureBack", ArrowRight: "pictureForward", p: "play" };

/** @type {Record<string, ActionName>} */
const keys = {
  "+": "in", "=": "in", "-": "out", "−": "out", ArrowLeft: "left", ArrowRight: "right", 0: "whole",
  v: "values",
};

/**
 * @param {Stroke} stroke
 * @returns {ActionName | undefined}
 */
export function actionOf({ key, shiftKey, ctrlKey, altKey, metaKey }) {
  if (ctrlKey || altKey || metaKey) return undefined;
  if (shiftKey && key === "ArrowLeft") return "pointerLeft";
  if (shiftKey && key === "ArrowRight") return "pointerRight";
  return keys[key];
}

/**
 * What a key does to the film. Where there is a film, this comes first.
 * @param {Stroke} stroke
 * @returns {FilmActionName | undefined}
 */
export function filmActionOf({ key, shiftKey, ctrlKey, altKey, metaKey }) {
  return shiftKey || ctrlKey || altKey || metaKey ? undefined : filmKeys[key];
}
