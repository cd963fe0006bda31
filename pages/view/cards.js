// The cards of all people.

import { byId, element, find } from "../shared/elements.js";
import { Card } from "./card.js";
import { Person } from "./person.js";
import { Places } from "./places.js";

const fadeMilliseconds = 3000;
/** @type {Map<number, Card>} */
export const cards = new Map();  // by person's id
/** @type {Places<Card>} */
const places = new Places();  // of the children of `main`
/** @type {Set<number>} */
const hiddenPeople = new Set();
const main = find("main", HTMLElement);

/** @param {number} id */
export function addCard(id) {
  const card = new Card(new Person(id));
  const slot = main.children[places.add(card)];
  if (slot) slot.replaceWith(card.box); else main.append(card.box);
  cards.set(id, card);
  showChoice();
  return card;
}

/** @param {number} id */
export function removeCard(id, { isAtOnce = false } = {}) {
  const card = cards.get(id);
  if (!card) return;
  cards.delete(id);
  showChoice();
  card.box.classList.add("leaving");
  setTimeout(() => {
    card.box.replaceWith(element("div", { class: "slot" }));
    places.remove(card);
    while (main.childElementCount > places.count) main.lastElementChild?.remove();
    showNobody();
  }, isAtOnce ? 0 : fadeMilliseconds);
}

export function removeEverybody() {
  for (const id of [...cards.keys()]) removeCard(id, { isAtOnce: true });
}

function showNobody() {
  byId("nobody").hidden = main.childElementCount > 0;
}

// Which people are shown.
function showChoice() {
  showNobody();
  const choice = byId("choice");
  choice.hidden = cards.size < 2;
  const labels = [...cards.keys()].sort((one, other) => one - other).map((id) => {
    const box = element("input", { type: "checkbox" });
    box.checked = !hiddenPeople.has(id);
    box.addEventListener("change", () => {
      if (box.checked) hiddenPeople.delete(id); else hiddenPeople.add(id);
      hideChosen();
    });
    return element("label", {}, box, ` Person ${id}`);
  });
  find("div", HTMLElement, choice).replaceChildren(...labels);
  hideChosen();
}

function hideChosen() {
  for (const [id, { box }] of cards) box.hidden = hiddenPeople.has(id);
}
