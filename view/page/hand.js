// A person by hand: feeds the service what a camera would see of somebody.

const handRate = 10;  // observations a second
const handForm = document.getElementById("hand");
const handButton = document.getElementById("by-hand");
let handSocket;
let handTimer;
let handPerson;

// Ids of this page's own. It asks for those that it had before a reload.
function askForPeople(socket) {
  const first = Number(sessionStorage.getItem("people")) || undefined;
  socket.send(JSON.stringify({ request: "people", count: 1, first }));
}

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
  if (handPerson !== undefined && handSocket?.readyState === WebSocket.OPEN) {
    handSocket.send(JSON.stringify(observation(touch)));
  }
}

function openHand() {
  handSocket = new WebSocket(`ws://${location.host}/events`);
  handSocket.addEventListener("open", () => askForPeople(handSocket));
  handSocket.addEventListener("message", ({ data }) => {
    for (const line of data.split("\n")) {
      const { people } = line ? JSON.parse(line) : {};
      if (!people) continue;
      handPerson = people.first;
      sessionStorage.setItem("people", handPerson);
    }
  });
  handSocket.addEventListener("close", closeHand);
  handTimer = setInterval(sendByHand, 1000 / handRate);
  showHand(true);
}

function closeHand() {
  clearInterval(handTimer);
  if (handPerson !== undefined && handSocket.readyState === WebSocket.OPEN) {
    handSocket.send(JSON.stringify({ event: "remove", person: handPerson }));
  }
  handSocket.removeEventListener("close", closeHand);
  handSocket.close();
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
