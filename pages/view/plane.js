// Everybody at a glance: the valence across and the attention up, a badge with the number of each person,
// and behind it the path of the last seconds.

import { colorOf } from "../shared/colors.js";
import { byId, find } from "../shared/elements.js";
import { moods, quantities } from "../shared/quantities.js";
import { moveApart } from "./apart.js";
import { cards, leaving } from "./cards.js";
import { recentSeconds, stretchesOf } from "./person.js";

/** @typedef {import("./apart.js").Badge} Badge */
/** @typedef {import("./card.js").Card} Card */
/** @typedef {{ left: number, top: number, width: number, height: number, font: number }} Plot */

const stillMilliseconds = 2000;  // between drawings for people who ask for no motion
const staleOpacity = 0.45;
const leastStep = 3;  // pixels
const plane = byId("plane");
const button = byId("glance");
const canvas = find("canvas", HTMLCanvasElement, plane);
const context = /** @type {CanvasRenderingContext2D} */ (canvas.getContext("2d"));
const noMotion = matchMedia("(prefers-reduced-motion: reduce)");
/** @type {Map<Card, Badge>} */
export let badges = new Map();  // as they are drawn
let drawnAt = -Infinity;

export function togglePlane() {
  plane.hidden = !plane.hidden;
  button.setAttribute("aria-pressed", String(!plane.hidden));
  drawnAt = -Infinity;
}

/** @param {number} now */
export function drawPlane(now) {
  const { clientWidth: width, clientHeight: height } = canvas;
  if (width === 0) return;  // it is hidden, or nobody is here
  if (noMotion.matches && performance.now() - drawnAt < stillMilliseconds) return;
  drawnAt = performance.now();
  const ratio = devicePixelRatio;
  const size = { width: Math.round(width * ratio), height: Math.round(height * ratio) };
  if (canvas.width !== size.width || canvas.height !== size.height) Object.assign(canvas, size);
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  const font = Math.max(15, Math.min(26, Math.min(width, height) / 18));
  const left = 2.7 * font;
  const top = 1.4 * font;
  const plot = { left, top, width: width - left - top, height: height - top - 2.7 * font, font };
  drawAxes(plot);
  const shown = [...cards.values(), ...leaving].filter(({ box }) => !box.hidden);
  for (const card of shown) drawTrail(card, now, plot);
  badges = new Map(shown.flatMap((card) => {
    const badge = badgeOf(card, plot);
    return badge ? [[card, badge]] : [];
  }));
  moveApart([...badges.values()], { width, height: height - 1.3 * font });
  for (const [card, badge] of badges) drawLeader(card, badge, font);
  for (const [card, badge] of badges) drawBadge(card, badge, font);
}

/** @param {Plot} plot @param {number} valence @param {number} attention */
function placeOf({ left, top, width, height }, valence, attention) {
  const share = (/** @type {number} */ value, /** @type {[number, number]} */ [lowest, highest]) =>
    Math.max(0, Math.min(1, (value - lowest) / (highest - lowest)));
  return { x: left + width * share(valence, quantities.valence.range),
           y: top + height * (1 - share(attention, quantities.attention.range)) };
}

/** @param {Plot} plot */
function drawAxes({ left, top, width, height, font }) {
  for (const share of [0, 0.5, 1]) {
    context.fillStyle = colorOf("grid");
    context.fillRect(left, Math.round(top + share * height), width, 1);
    context.fillStyle = colorOf(share === 0.5 ? "rule" : "grid");
    context.fillRect(Math.round(left + share * width), top, share === 0.5 ? 2 : 1, height);
  }
  context.fillStyle = colorOf("muted");
  context.font = `${Math.max(13, 0.8 * font)}px system-ui, sans-serif`;
  context.textBaseline = "middle";
  const below = top + height + 2 * font;
  const write = (/** @type {CanvasTextAlign} */ align, /** @type {string} */ text,
                 /** @type {number} */ x, /** @type {number} */ y) => {
    context.textAlign = align;
    context.fillText(text, x, y);
  };
  write("left", "← negative", left, below);
  write("center", "neutral", left + width / 2, below);
  write("right", "positive →", left + width, below);
  context.save();
  context.rotate(-Math.PI / 2);
  write("left", "not attentive", -(top + height), 0.8 * font);
  write("right", "attentive →", -top, 0.8 * font);
  context.restore();
}

/** @param {Card} card */
function opacityOf({ box }) {
  if (box.classList.contains("leaving")) return Number(getComputedStyle(box).opacity);
  return box.classList.contains("stale") ? staleOpacity : 1;
}

// Neutral has a stronger grey than elsewhere, so that it is seen from afar.
/** @param {Card} card */
function colorOfMood({ person }) {
  const { mood } = person.state ?? { mood: 0 };
  return colorOf(mood === 0 ? "muted" : moods[1 - mood].name);
}

/**
 * Draws straight lines, older ones paler. Steps too small to be seen are left out, as lines cost most.
 * @param {Card} card
 * @param {number} now
 * @param {Plot} plot
 */
function drawTrail(card, now, plot) {
  const opacity = opacityOf(card);
  context.strokeStyle = colorOfMood(card);
  context.lineWidth = plot.font / 8;
  for (const stretch of stretchesOf(card.person.recentBins(now), "valence", "attention")) {
    /** @type {{ x: number, y: number } | undefined} */
    let from;
    for (const { time, valence, attention } of stretch) {
      const to = placeOf(plot, valence.last, attention.last);
      if (from && Math.hypot(to.x - from.x, to.y - from.y) < leastStep) continue;
      if (from) {
        context.globalAlpha = opacity * 0.5 * Math.min(1, 1 - (now - time) / recentSeconds) ** 1.5;
        context.beginPath();
        context.moveTo(from.x, from.y);
        context.lineTo(to.x, to.y);
        context.stroke();
      }
      from = to;
    }
  }
  context.globalAlpha = 1;
}

/**
 * Where a person's number is drawn; nowhere while a value is not a number.
 * @param {Card} card
 * @param {Plot} plot
 */
function badgeOf(card, plot) {
  const { id, state } = card.person;
  if (!state) return undefined;
  const { valence, attention } = state;
  if (valence.value === null || attention.value === null) return undefined;
  const home = placeOf(plot, valence.value, attention.value);
  const sure = ((valence.confidence ?? 0) + (attention.confidence ?? 0)) / 2;
  const height = plot.font * (1.5 + Math.max(0, Math.min(1, sure)));
  context.font = numberFont(plot.font);
  const width = Math.max(height, context.measureText(formatId(id)).width + 0.7 * plot.font);
  const before = badges.get(card) ?? { home, ...home };
  const [x, y] = [home.x + before.x - before.home.x, home.y + before.y - before.home.y];
  return { home, x, y, width, height };
}

/** @param {number} font */
function numberFont(font) {
  return `bold ${font}px system-ui, sans-serif`;
}

/** @param {number} id */
function formatId(id) {
  return String(id).replace("-", "−");
}

/**
 * Draws a line from a number that had to make way to where it belongs.
 * @param {Card} card
 * @param {Badge} badge
 * @param {number} font
 */
function drawLeader(card, { home, x, y }, font) {
  if (Math.hypot(home.x - x, home.y - y) < font / 3) return;
  context.globalAlpha = opacityOf(card);
  context.strokeStyle = context.fillStyle = colorOfMood(card);
  context.lineWidth = 2;
  context.beginPath();
  context.moveTo(home.x, home.y);
  context.lineTo(x, y);
  context.stroke();
  context.beginPath();
  context.arc(home.x, home.y, font / 5, 0, 2 * Math.PI);
  context.fill();
  context.globalAlpha = 1;
}

/** @param {Card} card @param {Badge} badge @param {number} font */
function drawBadge(card, { x, y, width, height }, font) {
  const line = font / 5;
  const opacity = opacityOf(card);
  const side = (width - height) / 2;
  const radius = (height - line) / 2;
  context.beginPath();
  context.arc(x - side, y, radius, Math.PI / 2, -Math.PI / 2);
  context.arc(x + side, y, radius, -Math.PI / 2, Math.PI / 2);
  context.closePath();
  // What is below a pale badge does not show through.
  context.globalAlpha = Math.min(1, opacity / staleOpacity);
  context.fillStyle = colorOf("background");
  context.fill();
  context.globalAlpha = 0.15 * opacity;
  context.strokeStyle = context.fillStyle = colorOfMood(card);
  context.fill();
  context.globalAlpha = opacity;
  context.lineWidth = line;
  context.stroke();
  context.fillStyle = colorOf("text");
  context.font = numberFont(font);
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.fillText(formatId(card.person.id), x, y + font / 20);
  context.globalAlpha = 1;
}

button.addEventListener("click", togglePlane);
