// A person by hand: feeds the service what a camera would see of somebody.

const handRate = 10;  // observations a second
const handForm = document.getElementById("hand");
const handButton = document.getElementById("by-hand");
let handSender;
let handTimer;
let handPerson;

function observation(touch) {
  const read = (name) => Number(handForm.elements[name].value);
  const sure = (value) => ({ value, confidence: 0.9 });
  const face = read("face");
  const yaw = read("yaw");
  return {
    event: "observation", person: handPerson, height: { value: 1.2 },
    distance: { value: read("distance") }, smile: sure(Math.max(0, face)),
    expressions: { joy: sure(Math.max(0, face)), anger: sure(Math.max(0, -face)),
                   calm: sure(1 - Math.abs(face)) },
    headPosture: { yaw, pitch: 0, roll: 0 }, gaze: { yaw, pitch: 0 },
    facialPoints: { points: Array.from({ length: 12 }, (_, point) => (
      { point, x: 0, y: 0, confidence: 0.9 })) },
    ...(touch && { touchEmotion: { value: touch } }),
  };
}

function sendByHand(touch) {
  if (handPerson !== undefined) handSender.send(JSON.stringify(observation(touch)));
}

function openHand() {
  handSender = new EventSender({
    name: "hand", count: 1, onPeople: (first) => { handPerson = first; }, onClose: closeHand });
  handTimer = setInterval(sendByHand, 1000 / handRate);
  showHand(true);
}

function closeHand() {
  clearInterval(handTimer);
  handSender.close(handPerson === undefined ? [] : [handPerson]);
  handPerson = undefined;
  showHand(false);
}

function showHand(isOpen) {
  handForm.hidden = !isOpen;
  handButton.setAttribute("aria-expanded", isOpen);
}

function toggleHand() {
  if (handForm.hidden) openHand(); else closeHand();
}

handButton.addEventListener("click", toggleHand);
handForm.addEventListener("submit", (event) => event.preventDefault());
for (const button of handForm.querySelectorAll("[data-touch]")) {
  button.addEventListener("click", () => sendByHand(Number(button.dataset.touch)));
}
