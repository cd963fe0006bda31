// The state of each person at a moment, and what moved it.

import { element, setText } from "../shared/elements.js";
import { formatMove, formatNumber } from "../shared/format.js";
import { moods, quantityNames } from "../shared/quantities.js";
import { isKnown, notMeasured, rowAt } from "./curve.js";
import { moveUnit } from "./moves.js";

/** @typedef {import("./recording.js").Person} Person */

const mostReasons = 3;

/** @param {Person} person @param {number} row */
function stateTexts(person, row) {
  const texts = quantityNames.map((name) => {
    const curve = person[name];
    const { title } = curve.quantity;
    if (!isKnown(curve, row)) return `${title} ${notMeasured}`;
    const confidence = formatNumber(curve.confidences?.[row] ?? NaN, 2);
    return `${title} ${formatNumber(curve.values[row], 2)} (confidence ${confidence})`;
  });
  if (isKnown(person.valence, row)) texts[0] += `, ${moods[1 - person.moods[row]].name}`;
  return texts;
}

/**
 * What moved a quantity in a cycle, the strongest first.
 * @param {Person["valence"]} curve
 * @param {number} row
 */
function reasonTexts(curve, row) {
  return curve.moves.filter(({ rows }) => rows[row] !== 0)
    .sort((one, other) => Math.abs(other.rows[row]) - Math.abs(one.rows[row]))
    .slice(0, mostReasons).map(({ label, rows }) => `${label} ${formatMove(rows[row] * moveUnit)}`);
}

/**
 * Lines about a person at a time. In a gap they only say that the person is not there.
 * @param {Person} person
 * @param {number} seconds
 */
export function momentTexts(person, seconds) {
  const row = rowAt(person, seconds, 0);
  if (row === undefined) return ["not there"];
  const [valence, attention, ease] = stateTexts(person, row);
  const because = (/** @type {string[]} */ reasons) => (reasons.length > 0 ? `: ${reasons.join(", ")}` : "");
  return [valence + because(reasonTexts(person.valence, row)),
    attention + because(reasonTexts(person.attention, row)), ease];
}

// The texts of all persons, kept up to date.
export class Moments {
  /** @param {Element} holder @param {Person[]} persons */
  constructor(holder, persons) {
    this.persons = persons.map((person) => {
      const lines = Array.from({ length: quantityNames.length }, () => element("p"));
      holder.append(element("h3", {}, `Person ${person.id}`), ...lines);
      return { person, lines };
    });
  }

  /** @param {number} seconds */
  show(seconds) {
    for (const { person, lines } of this.persons) {
      const texts = momentTexts(person, seconds);
      lines.forEach((line, index) => setText(line, texts[index] ?? ""));
    }
  }
}
