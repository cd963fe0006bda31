// Boxes around faces, and whether they have moved.

/** @typedef {import("./faces.js").Face} Face */
/** @typedef {Face["box"]} Box */

// A face that moves more is measured better when it is detected again than when it is followed.
const calmShift = 0.02;  // of the box's size, from one picture to the next
const calmRoll = 2 * Math.PI / 180;
const touchingOverlap = 0.2;  // a box is larger than its face

/**
 * Intersection over union.
 * @param {Box} box
 * @param {Box} other
 */
export function overlapOf([x, y, width, height], [otherX, otherY, otherWidth, otherHeight]) {
  const sharedWidth = Math.min(x + width, otherX + otherWidth) - Math.max(x, otherX);
  const sharedHeight = Math.min(y + height, otherY + otherHeight) - Math.max(y, otherY);
  if (sharedWidth <= 0 || sharedHeight <= 0) return 0;
  const shared = sharedWidth * sharedHeight;
  return shared / (width * height + otherWidth * otherHeight - shared);
}

/** @param {Face} face @param {Face} before */
function isNear({ box: [x, y, width, height], angle }, { box: [oldX, oldY], angle: oldAngle }) {
  return Math.abs(x - oldX) <= calmShift * width && Math.abs(y - oldY) <= calmShift * height &&
    Math.abs((angle?.roll ?? 0) - (oldAngle?.roll ?? 0)) <= calmRoll;
}

/**
 * Whether the same faces have hardly moved, and none hides another.
 * @param {Face[]} faces
 * @param {Face[]} before  in the previous picture
 */
export function areCalm(faces, before) {
  return faces.length > 0 && faces.length === before.length && faces.every((face) => (
    before.some((old) => isNear(face, old)) &&
    faces.every((other) => other === face || overlapOf(face.box, other.box) < touchingOverlap)));
}
