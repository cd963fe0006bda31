// The worker that analyses pictures.

/** @typedef {import("./faces.js").Face} Face */

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
    /** @type {(faces: Face[]) => void} */
    this.succeed = () => {};
    /** @type {(error: Error) => void} */
    this.fail = () => {};
    worker.addEventListener("message", ({ data }) => {
      if (data.error) this.fail(new Error(data.error)); else this.succeed(data.faces);
    });
    worker.addEventListener("error", ({ message }) => {
      this.fail(new Error(`The analysis does not start: ${message}`));
    });
  }

  /** @returns {Promise<Face[]>} */
  answered() {
    return new Promise((succeed, fail) => { Object.assign(this, { succeed, fail }); });
  }

  /**
   * The faces in a picture. One at a time.
   * @param {ImageBitmap} picture
   */
  analyse(picture) {
    const faces = this.answered();
    this.worker.postMessage({ picture }, [picture]);
    return faces;
  }

  // Whoever waits for faces waits no longer.
  close() {
    this.worker.terminate();
    this.fail(new Error("The analysis was ended."));
  }
}
