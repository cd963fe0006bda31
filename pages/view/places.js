// Places in a row. Each thing keeps its own: who has gone leaves one free, which the next one takes.

/** @template Thing */
export class Places {
  constructor() {
    /** @type {(Thing | undefined)[]} */
    this.taken = [];  // undefined where a place is free, never so at the end
  }

  /**
   * The number of its place, from 0 on.
   * @param {Thing} thing
   */
  add(thing) {
    const free = this.taken.indexOf(undefined);
    const place = free >= 0 ? free : this.taken.length;
    this.taken[place] = thing;
    return place;
  }

  /** @param {Thing} thing */
  remove(thing) {
    this.taken[this.taken.indexOf(thing)] = undefined;
    while (this.taken.length > 0 && this.taken.at(-1) === undefined) this.taken.pop();
  }

  get count() {
    return this.taken.length;
  }
}
