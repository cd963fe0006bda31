// The cards of all people, in their order.

import { byId, element, find } from "../shared/elements.js";
import { Card } from "./card.js";
import { byMovement, byNumber } from "./order.js";
import { Person } from "./person.js";

const fadeMilliseconds = 3000;
const glideMilliseconds = 500;
/** @type {Map<number, Card>} */
export const cards = new Map();  // by person's id
/** @type {Set<Card>} */
export const leaving = new Set();  // those that fade
/** @type {Set<number>} */
const hiddenPeople = new Set();
const main = find("main", HTMLElement);
const order = find("#order select", HTMLSelectElement);
const noMotion = matchMedia("(prefers-reduced-motion: reduce)");

/** @param {number} id */
export function addCard(id) {
  const card = new Card(new Person(id));
  const slot = main.querySelector(".slot");
  if (slot) slot.replaceWith(card.box); else main.append(card.box);
  cards.set(id, card);
  if (order.value === "number") stand(byNumber(inPage()));
  showChoice();
  return card;
}

/** @param {number} id */
export function removeCard(id, { isAtOnce = false } = {}) {
  const card = cards.get(id);
  if (!card) return;
  cards.delete(id);
  leaving.add(card);
  showChoice();
  card.box.classList.add("leaving");
  setTimeout(() => {
    leaving.delete(card);
    card.box.replaceWith(element("div", { class: "slot" }));
    removeSlots();
    countShown();
  }, isAtOnce ? 0 : fadeMilliseconds);
}

export function removeEverybody() {
  for (const id of [...cards.keys()]) removeCard(id, { isAtOnce: true });
}

// Removes free places: those at the end, or all where cards do not keep their places.
function removeSlots() {
  if (order.value !== "place") for (const slot of main.querySelectorAll(".slot")) slot.remove();
  while (main.lastElementChild?.matches(".slot")) main.lastElementChild.remove();
}

// The cards in their present order.
function inPage() {
  /** @type {Map<Element, Card>} */
  const byBox = new Map();
  for (const card of [...cards.values(), ...leaving]) byBox.set(card.box, card);
  return [...main.children].flatMap((box) => byBox.get(box) ?? []);
}

/** @param {Card[]} ordered */
function stand(ordered) {
  ordered.forEach(({ box }, index) => {
    if (main.children[index] !== box) main.insertBefore(box, main.children[index]);
  });
}

// Puts the cards into the order that was chosen, and shows where each one goes.
export function arrange() {
  if (order.value === "place") return;
  const before = inPage();
  const after = order.value === "number" ? byNumber(before) : byMovement(before);
  if (after.every((card, index) => card === before[index])) return;
  const places = before.map(({ box }) => ({ box, from: box.getBoundingClientRect() }));
  stand(after);
  if (noMotion.matches) return;
  for (const { box, from } of places) {
    const to = box.getBoundingClientRect();
    const transform = `translate(${from.x - to.x}px, ${from.y - to.y}px)`;
    box.animate([{ transform }, {}], { duration: glideMilliseconds, easing: "ease-in-out" });
  }
}

// Says whether nobody is here and, for the style sheet, how many cards are shown.
function countShown() {
  byId("nobody").hidden = main.childElementCount > 0;
  const count = main.querySelectorAll(".card:not([hidden])").length;
  byId("people").dataset.shown = count > 1 ? "many" : ["none", "one"][count];
}

// Lists the people, to choose who is shown.
function showChoice() {
  const choice = byId("choice");
  choice.hidden = byId("order").hidden = cards.size < 2;
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
  countShown();
}

order.addEventListener("change", () => {
  removeSlots();
  arrange();
});
