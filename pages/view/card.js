// The card of a person.

import { colorOf } from "../shared/colors.js";
import { element, setText } from "../shared/elements.js";
import { formatNumber, formatPercent } from "../shared/format.js";
import { moods, quantities, quantityNames } from "../shared/quantities.js";
import { readReason } from "../shared/reasons.js";
import { Curves } from "./curve.js";

/** @typedef {import("./person.js").Person} Person */

const staleSeconds = 3;
const shownReasons = 3;

export class Card {
  /** @param {Person} person */
  constructor(person) {
    this.person = person;
    this.mood = element("span", { class: "mood" });
    this.curves = new Curves(person.bins);
    this.why = element("ul", { class: "why", "aria-label": "What moved it in the last second" });
    this.numbers = quantityNames.map((name) => {
      const { title, hint } = quantities[name];
      const number = element("b", {}, "–");
      const confidence = element("span");
      const label = element("span", { class: "label" }, title);
      label.style.color = `var(--${name})`;
      const box = element("div", { class: `value ${name}`, title: hint }, label, number, confidence);
      return { name, box, number, confidence };
    });
    const values = element("div", { class: "values" });
    for (const { box } of this.numbers) values.append(box);
    this.box = element("section", { class: "card arriving", "aria-label": `Person ${person.id}` },
                       element("div", { class: "who" }, element("h2", {}, `Person ${person.id}`),
                               this.mood),
                       values, this.curves.canvas, this.why);
    // So a card that is moved within the page is not animated again.
    this.box.addEventListener("animationend", () => this.box.classList.remove("arriving"));
  }

  /** @param {number} now */
  draw(now) {
    this.curves.draw(now);
  }

  /**
   * Writes the numbers, less often than the curves are drawn, so that one can read them.
   * @param {number} now
   */
  write(now) {
    const { state, time } = this.person;
    if (!state) return;
    for (const { name, number, confidence } of this.numbers) {
      const pair = state[name];
      const decimals = name === "ease" ? 1 : 2;
      setText(number, formatNumber(pair.value ?? NaN, decimals));
      setText(confidence, `${formatPercent(100 * (pair.confidence ?? 0))} sure`);
    }
    const { name, sign } = moods[1 - state.mood];
    this.mood.className = `mood ${name}`;
    setText(this.mood, `${sign} ${name} ${formatPercent(100 * (state.valence.confidence ?? 0))}`);
    this.box.classList.toggle("stale", now - time > staleSeconds);
    this.writeReasons();
  }

  writeReasons() {
    const reasons = this.person.strongestReasons(shownReasons);
    while (this.why.childElementCount < reasons.length) {
      this.why.append(element("li", {}, element("i"), element("span")));
    }
    while (this.why.childElementCount > reasons.length) this.why.lastElementChild?.remove();
    reasons.forEach(({ quantity, reason, move }, index) => {
      const [swatch, words] = /** @type {HTMLElement[]} */ ([...this.why.children[index].children]);
      const { label, color: colorName } = readReason(reason);
      const color = colorOf(colorName);
      if (swatch.dataset.color !== color) {
        swatch.dataset.color = color;
        swatch.style.background = color;
      }
      const cause = label.charAt(0).toUpperCase() + label.slice(1);
      setText(words, `${cause} pulls ${quantity} ${move > 0 ? "up" : "down"}`);
    });
  }

  // In words, for a screen reader.
  describe() {
    const { id, state } = this.person;
    if (!state) return `Person ${id}`;
    return `Person ${id}: ${moods[1 - state.mood].name}, valence ` +
      `${formatNumber(state.valence.value ?? NaN, 1)}, attention ` +
      formatNumber(state.attention.value ?? NaN, 1);
  }
}
