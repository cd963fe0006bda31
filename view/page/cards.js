// The cards of all people. Each keeps its place: who has gone leaves a slot, which the next one takes.

const fadeMilliseconds = 3000;
const cards = new Map();  // by person's id
const hiddenPeople = new Set();
const main = document.querySelector("main");

function addCard(id) {
  const card = new Card(new Person(id));
  const slot = main.querySelector(".slot");
  if (slot) slot.replaceWith(card.box); else main.append(card.box);
  cards.set(id, card);
  showChoice();
  return card;
}

function removeCard(id, { isAtOnce = false } = {}) {
  const card = cards.get(id);
  if (!card) return;
  cards.delete(id);
  showChoice();
  card.box.classList.add("leaving");
  setTimeout(() => {
    card.box.replaceWith(element("div", { class: "slot" }));
    while (main.lastElementChild?.classList.contains("slot")) main.lastElementChild.remove();
    showNobody();
  }, isAtOnce ? 0 : fadeMilliseconds);
}

function removeEverybody() {
  for (const id of [...cards.keys()]) removeCard(id, { isAtOnce: true });
}

function showNobody() {
  document.getElementById("nobody").hidden = main.childElementCount > 0;
}

// Which people are shown.
function showChoice() {
  showNobody();
  const choice = document.getElementById("choice");
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
  choice.querySelector("div").replaceChildren(...labels);
  hideChosen();
}

function hideChosen() {
  for (const [id, { box }] of cards) box.hidden = hiddenPeople.has(id);
}
