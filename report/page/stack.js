// Charts one above the other over the same time, with one pointer through all.

const tableRows = 21;

function swatch(color) {
  const box = element("i");
  box.style.background = `var(--${color}, var(--other-reason))`;
  return box;
}

class Stack {
  constructor(holder, name) {
    this.name = name;
    this.element = element("div", { class: "stack" });
    this.pointerLine = element("div", { class: "pointer", hidden: "" });
    this.selection = element("div", { class: "selection", hidden: "" });
    this.element.append(this.pointerLine, this.selection);
    this.readouts = [];
    this.charts = [];
    holder.append(this.element);
    stacks.push(this);
    this.listen();
  }

  // `read` gives the text at a time.
  add({ title, hint, read, ...options }) {
    const output = element("span", { class: "value" });
    this.element.append(element("div", { class: "heading" },
      element("span", { class: "name" }, title), element("small", {}, hint), output));
    if (read) this.readouts.push({ title, output, read });
    this.charts.push(new Chart(this.element, { label: title, title, hint, ...options }));
  }

  addCurve(curve, label, hasTimes = false) {
    const { title, hint, range: [lowest, highest], height } = curve.quantity;
    const room = (highest - lowest) / 40;  // half a line's width at the ends
    const middle = (lowest + highest) / 2;
    this.add({
      title, label, height, hasTimes,
      hint: curve.confidences ? `${hint}; ${bandHint}` : hint,
      range: [lowest - room, highest + room],
      ticks: [lowest, middle, highest].map((v) => ({ v, label: formatNumber(v, 1) })),
      color: title.toLowerCase(),
      ground: paintUnknown(curve),
      points: (pixels) => visiblePoints(curve, shown, pixels),
      read: (seconds) => {
        const row = this.rowAt(curve, seconds);
        if (row === undefined) return "–";
        if (!isKnown(curve, row)) return notMeasured;
        const value = formatNumber(curve.values[row], 3);
        if (!curve.confidences) return value;
        return `${value}, confidence ${formatNumber(curve.confidences[row], 3)}`;
      },
    });
  }

  // What moved the curve above, its reasons with what each did at the pointer.
  addMoves(curve, label) {
    const moves = new Moves(curve);
    this.add({
      title: "What moved it", label, height: 80, range: [-1.08, 1.08], ticks: moves.ticks, color: "text",
      legend: curve.moves,
      hint: "in one cycle, up above 0 and down below, by reason; root scale",
      points: (pixels) => {
        moves.pick(pixels);
        return [];
      },
      paint: (...canvas) => moves.paint(...canvas),
    });
    const legend = element("ul", { class: "reasons" });
    for (const { reason, meaning, color, rows } of curve.moves) {
      const output = element("span", { class: "value" });
      legend.append(element("li", { title: meaning }, swatch(color), `${reason} `, output));
      const read = (seconds) => {
        const row = this.rowAt(curve, seconds);
        return row === undefined ? "–" : formatMove(rows[row] * moveUnit);
      };
      this.readouts.push({ output, read });
    }
    this.element.append(legend);
  }

  addSaving(holder) {
    const button = element("button", { type: "button", class: "save" }, "Save as SVG");
    button.addEventListener("click", () => saveAsSvg(this));
    holder.append(button);
  }

  // The values of what is shown, for those who do not see the charts; made when it is opened.
  addTable(holder) {
    this.table = element("table");
    this.tableHolder = element("details", {}, element("summary", {}, "Values as a table"), this.table);
    this.tableHolder.addEventListener("toggle", () => this.drawTable());
    holder.append(this.tableHolder);
  }

  drawTable() {
    if (!this.tableHolder?.open || this.table.shown === shown) return;
    this.table.shown = shown;
    const { from, to } = shown;
    const read = this.readouts.filter(({ title }) => title);
    const rows = Array.from({ length: tableRows }, (_, index) => {
      const seconds = from + (to - from) * index / (tableRows - 1);
      return [formatTime(seconds, decimalsFor(to - from)), ...read.map((readout) => readout.read(seconds))];
    });
    fillTable(this.table, ["Time", ...read.map(({ title }) => title)].map((title) => ({ title })), rows);
  }

  area() {
    return this.charts.at(-1).dygraph.getArea();
  }

  timeAt(event) {
    const { x, w } = this.area();
    const offset = event.clientX - this.element.getBoundingClientRect().left - x;
    const share = Math.min(Math.max(offset / w, 0), 1);
    return shown.from + share * (shown.to - shown.from);
  }

  pixelOf(seconds) {
    const { x, w } = this.area();
    return x + w * (seconds - shown.from) / (shown.to - shown.from);
  }

  // The row at a time, for a pointer that may miss by some pixels.
  rowAt(curve, seconds) {
    return rowAt(curve, seconds, 5 * (shown.to - shown.from) / this.area().w);
  }

  formatValues() {
    const texts = this.readouts.filter(({ title }) => title)
      .map(({ title, read }) => `${title} ${read(pointer)}`);
    return `${this.name}: ${texts.join("; ")}`;
  }

  draw() {
    this.drawPointer();
    this.drawTable();
  }

  drawPointer() {
    const isVisible = pointer !== undefined && pointer >= shown.from && pointer <= shown.to;
    this.pointerLine.hidden = !isVisible;
    if (isVisible) this.pointerLine.style.transform = `translateX(${this.pixelOf(pointer)}px)`;
    for (const { output, read } of this.readouts) output.textContent = isVisible ? read(pointer) : "";
  }

  drawSelection(range) {
    this.selection.hidden = !range;
    if (!range) return;
    const left = this.pixelOf(range.from);
    this.selection.style.left = `${left}px`;
    this.selection.style.width = `${this.pixelOf(range.to) - left}px`;
  }

  listen() {
    const leastDrag = 5;  // pixels; less is a click
    let drag;  // where it began
    const range = (event) => {
      const times = [drag.time, this.timeAt(event)].sort((one, other) => one - other);
      return { from: times[0], to: times[1] };
    };
    const isDrag = (event) => drag && Math.abs(event.clientX - drag.x) >= leastDrag;
    const select = (selected) => stacks.forEach((stack) => stack.drawSelection(selected));
    this.element.addEventListener("pointerdown", (event) => {
      setPointer(this.timeAt(event));
      if (!event.isPrimary || event.button !== 0) return;
      drag = { x: event.clientX, time: this.timeAt(event) };
      this.element.setPointerCapture(event.pointerId);
    });
    this.element.addEventListener("pointermove", (event) => {
      setPointer(this.timeAt(event));
      select(isDrag(event) ? range(event) : undefined);
    });
    this.element.addEventListener("pointerup", (event) => {
      if (isDrag(event)) {
        const { from, to } = range(event);
        setShown(from, to);
      }
      drag = undefined;
      select(undefined);
    });
    this.element.addEventListener("pointercancel", () => {
      drag = undefined;
      select(undefined);
    });
    this.element.addEventListener("pointerleave", (event) => {
      // A finger that is lifted leaves what it pointed at.
      if (event.pointerType === "mouse") setPointer(undefined);
    });
    this.element.addEventListener("dblclick", actions.whole.act);
  }
}
