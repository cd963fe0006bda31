// How much each field mattered: what changes in a replay without it.

import { byId, element, fillTable, find } from "../shared/elements.js";
import { formatMove, formatNumber, formatPercent } from "../shared/format.js";
import { quantities, quantityNames } from "../shared/quantities.js";

/** @typedef {import("../tool").MatteredRow} MatteredRow */
/** @typedef {import("../tool").QuantityName} QuantityName */

/**
 * A bar for the mean change and a thin line for the greatest, as shares of the quantity's range.
 * @param {MatteredRow} row
 * @param {QuantityName} name
 */
function changeCell(row, name) {
  const mean = row[`${name}_mean_change`];
  const greatest = row[`${name}_change`];
  const texts = [[mean, greatest, ""],
    [row[`${name}_confidence_mean_change`], row[`${name}_confidence_change`], "confidence "]]
    .flatMap(([average, most, of]) => (most === 0 ? [] : [element("div", { class: "shares" },
      `${of}${formatNumber(Number(average), 3)}, at most ${formatMove(Number(most))}`)]));
  if (texts.length === 0) return "–";
  const [lowest, highest] = quantities[name].range;
  const bar = element("div", { class: "change", "aria-hidden": "true" });
  for (const size of [Math.abs(greatest), mean]) {
    const part = element("div");
    part.style.width = `${Math.min(100, 100 * size / (highest - lowest))}%`;
    part.style.background = `var(--${name})`;
    bar.append(part);
  }
  return element("div", {}, ...(greatest === 0 ? [] : [bar]), ...texts);
}

/**
 * The fields of a person that change nothing, by reason.
 * @param {MatteredRow[]} rows
 */
function unchangedTexts(rows) {
  /** @type {Map<string, string[]>} */
  const fields = new Map();
  for (const { person, without, reason } of rows) {
    const key = `person ${person}: ${reason || "for an unknown reason"}`;
    fields.set(key, [...fields.get(key) ?? [], without]);
  }
  return [...fields].map(([key, names]) => `${names.join(", ")} of ${key}`);
}

/** @param {MatteredRow[]} mattered */
export function addMattered(mattered) {
  byId("mattered").hidden = mattered.length === 0;
  const columns = [{ title: "Person" }, { title: "Without" },
    ...quantityNames.map((name) => ({ title: quantities[name].title, small: "mean and greatest change" })),
    { title: "Mood", small: "cycles with another", class: "number" },
    { title: "Attentive", small: "cycles with another", class: "number" }];
  const changed = mattered.filter((row) => !row.changes_nothing);
  fillTable(find("#mattered table", HTMLTableElement), columns, changed.map((row) => [
    `Person ${row.person}`, row.without, ...quantityNames.map((name) => changeCell(row, name)),
    formatPercent(100 * row.other_mood), formatPercent(100 * row.other_attentive)]));
  const unchanged = unchangedTexts(mattered.filter((row) => row.changes_nothing));
  find("#mattered ul", HTMLElement).append(...unchanged.map((text) => element("li", {}, text)));
}
