// What moved a quantity.

const moveUnit = 1e-4;

// The movements of a curve by reason, stacked up and down from a middle line. Of the cycles under a
// pixel it shows the one with the most movement. The scale fits what is shown and goes by the square
// root, or the many small movements would vanish beside the few great ones.
class Moves {
  constructor({ times, begins, moves }) {
    Object.assign(this, { times, begins, moves });
    this.ticks = [-1, -0.5, 0, 0.5, 1].map((v) => ({ v, label: "0" }));
    this.bars = [];
    this.sizes = new Uint32Array(times.length);
    for (const { rows } of moves) {
      for (let row = 0; row < rows.length; ++row) this.sizes[row] += Math.abs(rows[row]);
    }
  }

  pick(pixels) {
    const { times, sizes } = this;
    // From the cycle that still lasts as the window begins.
    const inside = countBefore(times, shown.from);
    const first = inside > 0 && inside < times.length && !this.begins[inside] ? inside - 1 : inside;
    let end = countBefore(times, shown.to);
    while (times[end] === shown.to) ++end;
    const pixel = (shown.to - shown.from) / pixels;
    this.bars = [];
    this.most = 1;
    for (let row = first; row < end;) {
      const bar = { from: times[row], row };
      const nextPixel = shown.from + (Math.floor((bar.from - shown.from) / pixel) + 1) * pixel;
      for (++row; row < end && times[row] < nextPixel; ++row) {
        if (sizes[row] > sizes[bar.row]) bar.row = row;
      }
      bar.to = row < times.length && !this.begins[row] ? times[row] : bar.from;
      this.bars.push(bar);
      const sums = this.sums(bar.row);
      this.most = Math.max(this.most, sums.up, sums.down);
    }
    for (const tick of this.ticks) {
      const value = Math.sign(tick.v) * tick.v ** 2 * this.most * moveUnit;
      tick.label = formatMove(value);
    }
  }

  sums(row) {
    let up = 0;
    let down = 0;
    for (const { rows } of this.moves) if (rows[row] > 0) up += rows[row]; else down -= rows[row];
    return { up, down };
  }

  paint(context, area, dygraph) {
    const middle = dygraph.toDomYCoord(0);
    const full = middle - dygraph.toDomYCoord(1);
    const scaleOf = (sum) => full * Math.sqrt(sum / this.most) / Math.max(sum, 1);
    const shapes = this.bars.map(({ from, to, row }) => {
      // Whole pixels, so that there are no seams.
      const left = Math.round(Math.max(dygraph.toDomXCoord(from), area.x));
      const right = Math.round(Math.min(dygraph.toDomXCoord(to), area.x + area.w));
      const sums = this.sums(row);
      return {
        row, left, width: Math.max(right - left, 1),
        upScale: scaleOf(sums.up), downScale: scaleOf(sums.down), up: middle, down: middle,
      };
    });
    for (const { rows, color } of this.moves) {
      context.beginPath();
      for (const shape of shapes) {
        const move = rows[shape.row];
        const height = Math.abs(move) * (move > 0 ? shape.upScale : shape.downScale);
        if (move > 0) context.rect(shape.left, shape.up -= height, shape.width, height);
        if (move < 0) {
          context.rect(shape.left, shape.down, shape.width, height);
          shape.down += height;
        }
      }
      context.fillStyle = colorOf(color);
      context.fill();
    }
    context.fillStyle = colorOf("muted");
    context.fillRect(area.x, middle - 0.5, area.w, 1);
  }
}
