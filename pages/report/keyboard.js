// What the keys do.

/**
 * @typedef {"in" | "out" | "left" | "right" | "whole" | "pointerLeft" | "pointerRight" | "values"}
 *   ActionName
 */

/** @type {Record<string, ActionName>} */
const keys = {
  "+": "in", "=": "in", "-": "out", "−": "out", ArrowLeft: "left", ArrowRight: "right", 0: "whole",
  v: "values",
};

/**
 * @param {Pick<KeyboardEvent, "key" | "shiftKey" | "ctrlKey" | "altKey" | "metaKey">} event
 * @returns {ActionName | undefined}
 */
export function actionOf({ key, shiftKey, ctrlKey, altKey, metaKey }) {
  if (ctrlKey || altKey || metaKey) return undefined;
  if (shiftKey && key === "ArrowLeft") return "pointerLeft";
  if (shiftKey && key === "ArrowRight") return "pointerRight";
  return keys[key];
}
