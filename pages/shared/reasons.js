// The reasons of forces, as the tool lists them.

import { reasonColor } from "./colors.js";

/** @typedef {import("../tool").Reason} Reason */

/** @type {Map<string, Reason>} */
const listed = new Map();

/** @param {Reason[]} reasons */
export function listReasons(reasons) {
  for (const reason of reasons) listed.set(reason.name, reason);
}

/**
 * The label, the meaning and the colour of a reason. The label of one that is not listed is its name.
 * @param {string} name
 */
export function readReason(name) {
  const { label, meaning } = listed.get(name) ?? { label: name, meaning: "" };
  return { reason: name, label, meaning, color: reasonColor(name) };
}
