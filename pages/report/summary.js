// What the summaries of one recording and of several have in common.

import { element } from "../shared/elements.js";
import { formatPercent } from "../shared/format.js";
import { moods, quantities } from "../shared/quantities.js";

export const meanColumns = Object.values(quantities).map(({ title }) =>
  ({ title, small: "mean (confidence)", class: "number" }));

/**
 * A bar and its numbers, for the percentages of all moods.
 * @param {number[]} percents
 */
export function moodBar(percents) {
  const bar = element("div", { class: "share", "aria-hidden": "true" });
  const texts = moods.map(({ name, sign }, index) => {
    const part = element("div", { class: name });
    part.style.width = `${percents[index]}%`;
    bar.append(part);
    return `${sign} ${formatPercent(percents[index])}`;
  });
  return element("div", {}, bar, element("div", { class: "shares" }, texts.join("\u2003")));
}
