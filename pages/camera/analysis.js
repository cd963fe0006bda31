// The worker that analyses pictures.

/** @typedef {import("./worker.js").Answer} Answer */
/** @typedef {"camera" | "film"} Kind */

export class Analysis {
  /**
   * Fails when the files of the analysis are not installed.
   * @param {Kind} kind
   */
  static async start(kind) {
    if (!("VideoFrame" in globalThis)) throw new Error("This browser is too old to analyse pictures.");
    const address = "/camera/worker.js";
    const answer = await fetch(address);
    if (!answer.ok) throw new Error(await answer.text());
    const analysis = new Analysis(new Worker(address, { name: kind }));
    ({ engine: analysis.engine } = await analysis.answered());
    return analysis;
  }

  /** @param {Worker} worker */
  constructor(worker) {
    this.worker = worker;
    this.engine = "";  // what it computes with
    /** @type {(answer: object) => void} */
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

  /** @returns {Promise<any>} */
  answered() {
    return new Promise((succeed, fail) => { Object.assign(this, { succeed, fail }); });
  }

  /**
   * What is seen in a picture. To be called for one picture at a time.
   * @param {VideoFrame} picture  is handed over to the worker
   * @returns {Promise<Answer>}
   */
  analyse(picture) {
    const answer = this.answered();
    this.worker.postMessage({ picture }, [/** @type {any} */ (picture)]);
    return answer;
  }

  // The answer that is awaited fails.
  close() {
    this.worker.terminate();
    this.fail(new Error("The analysis was ended."));
  }
}
