// The worker that analyses pictures.

/** @typedef {import("./worker.js").Answer} Answer */

export class Analysis {
  // Fails when what it needs is not installed.
  static async start() {
    const address = "/camera/worker.js";
    const answer = await fetch(address);
    if (!answer.ok) throw new Error(await answer.text());
    const analysis = new Analysis(new Worker(address));
    await analysis.answered();
    return analysis;
  }

  /** @param {Worker} worker */
  constructor(worker) {
    this.worker = worker;
    /** @type {(answer: Answer) => void} */
    this.succeed = () => {};
    /** @type {(error: Error) => void} */
    this.fail = () => {};
    worker.addEventListener("message", ({ data }) => {
      if (data.error) this.fail(new Error(data.error)); else this.succeed(data);
    });
    worker.addEventListener("error", ({ message }) => {
      this.fail(new Error(`The analysis does not start: ${message}`));
    });
  }

  /** @returns {Promise<Answer>} */
  answered() {
    return new Promise((succeed, fail) => { Object.assign(this, { succeed, fail }); });
  }

  /**
   * What is seen in a picture. One at a time.
   * @param {VideoFrame} picture  is given away
   */
  analyse(picture, { isFilm = false } = {}) {
    const answer = this.answered();
    this.worker.postMessage({ picture, isFilm }, [/** @type {any} */ (picture)]);
    return answer;
  }

  // Whoever waits for an answer waits no longer.
  close() {
    this.worker.terminate();
    this.fail(new Error("The analysis was ended."));
  }
}
