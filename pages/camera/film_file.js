// Steps through a film and makes a recording. Nothing is sent to the service.

import { whyNotPlayed } from "../shared/films.js";
import { formatTime } from "../shared/format.js";
import { Analysis } from "./analysis.js";
import { eventLines, inNanoseconds } from "./faces.js";
import { People } from "./people.js";
import { landmarks, mirrored } from "./settings.js";
import { drawFaces, stageVideo } from "./stage.js";

/**
 * @typedef {{ onText: (text: string) => void, onEnd: (failure?: string, recording?: Blob) => void }}
 *   FilmListener
 */

// Where imports begin by default: 2000-01-01T00:00:00Z.
const recordingStart = 946684800_000_000_000n;  // nanoseconds

const sameMilliseconds = 500;

export class FilmFile {
  /** @param {FilmListener} listener */
  constructor({ onText, onEnd }) {
    this.onText = onText;
    this.onEnd = onEnd;
    this.isStopped = false;
    /** @type {string | undefined} */
    this.failure = undefined;
    /** @type {Blob | undefined} */
    this.recording = undefined;
    /** @type {Analysis | undefined} */
    this.analysis = undefined;
    /** @type {(reason: Error) => void} */
    this.wake = () => {};
    /** @type {Map<number, string>} */
    this.numbers = new Map();
  }

  /** @param {{ file: File, rate: number }} input */
  async run({ file, rate }) {
    const address = URL.createObjectURL(file);
    try {
      this.onText("Starting the analysis …");
      this.analysis = await Analysis.start("film");
      await this.open(address);
      const lines = await this.record(this.analysis, file.name, rate);
      this.recording = new Blob(lines, { type: "application/jsonl" });
    } catch (error) {
      const { message } = /** @type {Error} */ (error);
      const canPlay = (/** @type {string} */ type) => stageVideo.canPlayType(type);
      if (!this.isStopped) this.failure = message || whyNotPlayed(file.name, canPlay);
    }
    this.stop();
    this.analysis?.close();  // also one that came after a stop
    URL.revokeObjectURL(address);
  }

  /**
   * Waits for an event of the film.
   * @param {string} name
   */
  async until(name) {
    const listening = new AbortController();
    const { signal } = listening;
    await new Promise((resolve, reject) => {
      stageVideo.addEventListener(name, resolve, { signal });
      stageVideo.addEventListener("error", () => reject(new Error("")), { signal });
      this.wake = reject;
    });
    listening.abort();
  }

  /**
   * Waits also for the picture, which comes after the seek, but not again when it is shown already.
   * @param {number} seconds
   */
  async seek(seconds) {
    const shown = new Promise((resolve) => { stageVideo.requestVideoFrameCallback(resolve); });
    stageVideo.currentTime = seconds;
    await this.until("seeked");
    await Promise.race([shown, new Promise((resolve) => { setTimeout(resolve, sameMilliseconds); })]);
  }

  /** @param {string} address */
  async open(address) {
    stageVideo.src = address;
    await this.until("loadeddata");
    // The length of a film that a browser recorded is unknown until its end is looked for.
    if (stageVideo.duration === Infinity) await this.seek(1e9);
    if (!(stageVideo.duration > 0 && stageVideo.duration < Infinity)) throw new Error("");
  }

  /**
   * The lines of a recording. The time of a picture is that in the film, however long the analysis takes.
   * @param {Analysis} analysis
   * @param {string} name
   * @param {number} rate
   */
  async record(analysis, name, rate) {
    const lines = [
      `{"event":"header","version":1,"source":"zorvel camera","origin":${recordingStart}}`];
    const people = new People({ first: 1 });
    const count = Math.ceil(stageVideo.duration * rate);
    const begun = performance.now();
    for (let number = 0; number < count; ++number) {
      const seconds = number / rate;
      await this.seek(seconds);
      const { faces, isCut } = await analysis.analyse(new VideoFrame(stageVideo));
      const events = people.follow(faces, seconds, { isMirrored: mirrored.checked, isCut });
      lines.push(...eventLines(events, recordingStart + inNanoseconds(seconds), this.numbers));
      drawFaces(faces, { isMirror: false, hasLandmarks: landmarks.checked });
      const left = (performance.now() - begun) / 1e3 * (count - number - 1) / (number + 1);
      this.onText(`${name}: picture ${number + 1} of ${count}, ${formatTime(left)} left`);
    }
    if (lines.length === 1) throw new Error(`No face was found in ${name}.`);
    return [lines.join("\n"), "\n"];
  }

  describe() {
    return "";
  }

  stop() {
    if (this.isStopped) return;
    this.isStopped = true;
    this.wake(new Error("stopped"));
    this.analysis?.close();
    stageVideo.removeAttribute("src");
    stageVideo.load();
    this.onEnd(this.failure, this.recording);
  }
}
