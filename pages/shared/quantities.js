// The quantities of a person and of the room, and the moods.

/** @typedef {import("../tool").QuantityName} QuantityName */
/** @typedef {{ title: string, hint: string, range: [number, number], height: number }} Quantity */

export const bandHint = "band: missing confidence, not a range of values";
/** @type {Record<QuantityName, Quantity>} */
export const quantities = {
  valence: { title: "Valence", hint: "−1 negative, 1 positive", range: [-1, 1], height: 150 },
  attention: { title: "Attention", hint: "0 to 1", range: [0, 1], height: 120 },
  ease: { title: "Ease", hint: "−0.5 uneasy, 0.5 at ease", range: [-0.5, 0.5], height: 90 },
};
export const quantityNames = /** @type {QuantityName[]} */ (Object.keys(quantities));
/** @type {Quantity} */
export const agitation = { title: "Agitation", hint: "0 calm, 1 agitated", range: [0, 1], height: 110 };

// In the order of their lanes, from above, each at 1 - mood. The sign stands for the colour where there is none.
export const moods = [
  { mood: 1, name: "positive", sign: "+" },
  { mood: 0, name: "neutral", sign: "○" },
  { mood: -1, name: "negative", sign: "−" },
];
