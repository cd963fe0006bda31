// The recording, as the page holds it. Values are those of timeline.csv.

let recording;

async function inflated(text) {
  const characters = atob(text);
  const packed = new Uint8Array(characters.length);
  for (let i = 0; i < packed.length; ++i) packed[i] = characters.charCodeAt(i);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// The numbers of a column: it holds their differences, all lowest bytes first, then all second ones
// and so on, deflated, in base64.
async function decoded(text, Type) {
  const ranks = await inflated(text);
  const width = Type.BYTES_PER_ELEMENT;
  const count = ranks.length / width;
  const bytes = new Uint8Array(ranks.length);
  for (let rank = 0; rank < width; ++rank) {
    for (let i = 0; i < count; ++i) bytes[i * width + rank] = ranks[rank * count + i];
  }
  const values = new Type(bytes.buffer);
  for (let i = 1; i < count; ++i) values[i] += values[i - 1];
  return values;
}

async function decodedFloats(text) {
  return new Float32Array((await decoded(text, Int32Array)).buffer);
}

// Times become seconds since that of second 0.
async function decodedTimes(text, zero) {
  return Float64Array.from(await decoded(text, BigInt64Array), (time) => secondsAfter(zero, time));
}

function secondsAfter(zero, time) {
  return Number(time - zero) / 1e9;
}

// What a reason means, and its colour.
function readReason(name, reasons) {
  const meaning = reasons.find((reason) => reason.name === name)?.meaning ?? "";
  return { reason: name, meaning, color: reasonColor(name) };
}

// Why a person has no greatest change.
function whyNoChange({ tooShort }) {
  return tooShort ? "none: the first second is left out, and too little comes after it" :
    "none of 5 % of a range or more";
}

async function readPerson(data, zero, reasons) {
  const times = await decodedTimes(data.time, zero);
  const begins = new Uint8Array(times.length);
  for (const row of await decoded(data.begins, Int32Array)) begins[row] = 1;
  const person = { id: data.person, times, begins, moods: await decoded(data.mood, Int8Array) };
  for (const [name, quantity] of Object.entries(quantities)) {
    person[name] = makeCurve(quantity, times, begins, await decodedFloats(data[name]),
      await decodedFloats(data[`${name}_confidence`]), await decoded(data.known[name], Int8Array));
  }
  for (const [name, moves] of Object.entries(data.moves)) {
    person[name].moves = await Promise.all(moves.map(async ({ reason, rows }) =>
      ({ ...readReason(reason, reasons), rows: await decoded(rows, Int16Array) })));
  }
  person.changes = data.changes;
  person.tooShort = data.tooShort;
  person.scopes = data.scopes.map((scope) => ({
    ...scope,
    from: secondsAfter(zero, BigInt(scope.from)),
    to: secondsAfter(zero, BigInt(scope.to)),
  }));
  return person;
}

async function readRecording() {
  const data = JSON.parse(document.getElementById("recording").textContent);
  const zero = BigInt(data.zero);
  const times = await decodedTimes(data.room.time, zero);
  return {
    name: data.recording,
    source: data.source,
    failure: data.failure,
    warnings: data.warnings,
    reasons: data.reasons,
    zero: Number(zero) / 1e6,
    start: secondsAfter(zero, BigInt(data.start)),
    end: secondsAfter(zero, BigInt(data.end)),
    persons: await Promise.all(data.persons.map((person) => readPerson(person, zero, data.reasons))),
    room: makeCurve(agitation, times, new Uint8Array(times.length),
      await decodedFloats(data.room.agitation)),
  };
}
