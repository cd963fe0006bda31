// Cuts of a film: the whole picture changes at once.

const columns = 16;
const rows = 9;
const leastChange = 20;  // of a colour's 256 levels, in at least half of the picture

/**
 * The mean colours of the parts of a picture.
 * @param {{ width: number, height: number, data: ArrayLike<number> }} pixels
 */
export function meansOf({ width, height, data }) {
  const sums = new Array(3 * columns * rows).fill(0);
  const counts = new Array(columns * rows).fill(0);
  for (let y = 0; y < height; ++y) {
    const row = Math.floor(y * rows / height) * columns;
    for (let x = 0; x < width; ++x) {
      const part = row + Math.floor(x * columns / width);
      const pixel = 4 * (y * width + x);
      for (let color = 0; color < 3; ++color) sums[3 * part + color] += data[pixel + color];
      ++counts[part];
    }
  }
  return sums.map((sum, index) => sum / counts[Math.floor(index / 3)]);
}

/**
 * @param {number[]} means
 * @param {number[]} before
 */
export function isOther(means, before) {
  let changed = 0;
  for (let part = 0; part < columns * rows; ++part) {
    const isChanged = [0, 1, 2].some((color) => (
      Math.abs(means[3 * part + color] - before[3 * part + color]) >= leastChange));
    if (isChanged) ++changed;
  }
  return 2 * changed >= columns * rows;
}
