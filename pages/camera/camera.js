// The camera: analyses its pictures and sends what it sees of people.

import { formatCount, formatNumber } from "../shared/format.js";
import { EventSender, longestRetry } from "../shared/sender.js";
import { request } from "../shared/service.js";
import { Analysis } from "./analysis.js";
import { eventLines, inNanoseconds } from "./faces.js";
import { People } from "./people.js";
import { landmarks, mirrored } from "./settings.js";
import { drawFaces, stageVideo } from "./stage.js";

/** @typedef {import("../tool").Health} Health */
/** @typedef {import("./faces.js").Face} Face */
/** @typedef {{ device: string, width: number, height: number }} Wish */
/**
 * `onText` is given what there is to say. `onAllowed`: cameras have names from now on.
 * @typedef {{
 *   onText: (text: string) => void, onAllowed: () => void, onEnd: (failure?: string) => void,
 * }} CameraListener
 */

const cameraRate = 30;  // pictures a second, at most
const cameraPeople = 1000;  // how many ids it asks for
const stalledSeconds = 1;
const clockMilliseconds = 30000;  // between two comparisons of the clocks
/** @type {Record<string, string>} */
const cameraReasons = {
  NotAllowedError: "The camera was refused. Allow it in the browser's address bar, then start again.",
  NotFoundError: "There is no camera.",
  NotReadableError: "The camera does not start. Does another program use it?",
  OverconstrainedError: "That camera has gone. Choose another.",
};

// The service's clock, as its difference from performance.now(), and how far off that may be, in
// milliseconds. The quickest of a few answers is the most exact.
async function compareClocks() {
  let best = { uncertainty: Infinity, difference: NaN };
  for (let round = 0; round < 5; ++round) {
    const asked = performance.now();
    /** @type {Health} */
    const { time } = await (await request("/health")).json();
    const answered = performance.now();
    const uncertainty = (answered - asked) / 2;
    if (uncertainty < best.uncertainty) {
      best = { uncertainty, difference: time / 1e6 - (asked + answered) / 2 };
    }
  }
  return best;
}

export class Camera {
  /** @param {CameraListener} listener */
  constructor({ onText, onAllowed, onEnd }) {
    this.onText = onText;
    this.onAllowed = onAllowed;
    this.onEnd = onEnd;
    this.isStopped = false;
    /** @type {string | undefined} */
    this.failure = undefined;
    /** @type {MediaStream | undefined} */
    this.stream = undefined;
    /** @type {Analysis | undefined} */
    this.analysis = undefined;
    /** @type {EventSender | undefined} */
    this.sender = undefined;
    /** @type {People | undefined} */
    this.people = undefined;
    /** @type {{ uncertainty: number, difference: number } | undefined} */
    this.clock = undefined;
    /** @type {{ picture: VideoFrame, takenAt: number } | undefined} */
    this.newest = undefined;  // the newest picture, until it is analysed
    this.wake = () => {};
    /** @type {number[]} */
    this.timers = [];
    this.retry = 0;
    this.frameRequest = 0;
    this.frames = 0;
    this.lastFrameAt = performance.now();
    this.lastFaceAt = this.lastFrameAt;
    this.facts = { at: this.lastFrameAt, analysed: 0, detections: 0, milliseconds: 0 };
    this.analysed = 0;
    this.detections = 0;  // pictures in which faces were detected, not followed
    /** @type {Map<number, string>} */
    this.numbers = new Map();  // the newest line of each person
  }

  /**
   * Runs until stop() or an error.
   * @param {Wish} wish
   */
  async run({ device, width, height }) {
    try {
      await this.start(device, width, height);
      while (await this.nextFrame()) await this.handleFrame();
    } catch (error) {
      const { name, message } = /** @type {Error} */ (error);
      if (!this.isStopped) this.failure = cameraReasons[name] ?? message;
    }
    this.stop();
    this.release();  // also what came after a stop
  }

  /** @param {string} device @param {number} width @param {number} height */
  async start(device, width, height) {
    if (!navigator.mediaDevices) {
      throw new Error("A browser gives a camera only to pages of its own machine or over https. Open the " +
                      `page on the service's machine, as http://localhost:${location.port}/.`);
    }
    this.onText("Waiting for the camera …");
    this.stream = await navigator.mediaDevices.getUserMedia({ video: {
      deviceId: device ? { exact: device } : undefined,
      width: { ideal: width }, height: { ideal: height },
      frameRate: { ideal: cameraRate, max: cameraRate } } });
    if (this.isStopped) return;
    this.onAllowed();
    this.stream.getVideoTracks()[0].addEventListener("ended", () => {
      this.failure = "The camera was taken away.";
      this.stop();
    });
    stageVideo.srcObject = this.stream;
    await stageVideo.play();
    this.onText("Starting the analysis …");
    this.analysis = await Analysis.start("camera");
    if (this.isStopped) return;
    await this.compareClocks();
    if (this.isStopped) return;
    this.onText("");
    this.connect();
    this.listen();
    this.timers = [setInterval(() => this.watch(), 500),
                   setInterval(() => this.compareClocks(), clockMilliseconds)];
  }

  connect() {
    this.sender = new EventSender({
      name: "camera", count: cameraPeople,
      onPeople: (first) => {
        this.people = new People({ first, most: cameraPeople });
        this.numbers.clear();
      },
      onClose: () => {
        this.people = undefined;
        this.retry = setTimeout(() => {
          this.compareClocks();
          this.connect();
        }, longestRetry);
      },
    });
  }

  async compareClocks() {
    try {
      this.clock = await compareClocks();
    } catch (error) {
      if (!this.clock) throw error;  // else it will be compared again
    }
  }

  listen() {
    this.frameRequest = stageVideo.requestVideoFrameCallback((now, { captureTime }) => {
      ++this.frames;
      this.lastFrameAt = performance.now();
      this.listen();
      const picture = new VideoFrame(stageVideo);
      this.newest?.picture.close();
      this.newest = { picture, takenAt: captureTime ?? now };
      this.wake();
    });
  }

  // Waits for a picture that was not analysed yet; false when there will be none.
  async nextFrame() {
    if (!this.isStopped && this.newest === undefined) {
      await /** @type {Promise<void>} */ (new Promise((wake) => { this.wake = wake; }));
    }
    return !this.isStopped;
  }

  async handleFrame() {
    const { analysis, newest } = this;
    if (!analysis || !newest) return;
    this.newest = undefined;
    const begun = performance.now();
    const { faces, isDetected } = await analysis.analyse(newest.picture);
    if (this.isStopped) return;
    ++this.analysed;
    if (isDetected) ++this.detections;
    this.facts.milliseconds += performance.now() - begun;
    if (faces.length > 0) this.lastFaceAt = performance.now();
    this.send(faces, newest.takenAt);
    drawFaces(faces, { isMirror: !mirrored.checked, hasLandmarks: landmarks.checked });
  }

  /** @param {Face[]} faces @param {number} at */
  send(faces, at) {
    if (!this.people || !this.clock) return;
    const time = inNanoseconds((at + this.clock.difference) / 1e3);
    const events = this.people.follow(faces, at / 1e3, { isMirrored: mirrored.checked });
    const lines = eventLines(events, time, this.numbers);
    if (lines.length > 0) this.sender?.send(lines.join("\n"));
  }

  // Says when no picture comes, for example in a tab behind others, or no face is seen.
  watch() {
    const now = performance.now();
    const stalled = now - this.lastFrameAt > stalledSeconds * 1e3;
    if (stalled || document.hidden) {
      this.send([], now);
      this.onText(document.hidden ? "Nobody is seen while the page is behind others."
                                  : "The camera sends no pictures.");
    } else {
      this.onText(now - this.lastFaceAt > stalledSeconds * 1e3 ? "No face in the picture." : "");
    }
  }

  // How it went since the last call, in words.
  describe() {
    const now = performance.now();
    const { at, analysed, detections, milliseconds } = this.facts;
    const count = this.analysed - analysed;
    const rate = (/** @type {number} */ number) => formatNumber(number / (now - at) * 1e3, 1);
    const text = `${rate(count)} pictures and ${rate(this.detections - detections)} detections a second`;
    this.facts = { at: now, analysed: this.analysed, detections: this.detections, milliseconds: 0 };
    if (!this.clock) return "";
    return [`${text} on ${this.analysis?.engine}`,
            ...(count > 0 ? [`${formatNumber(milliseconds / count, 0)} ms a picture`] : []),
            `${formatCount(Math.max(0, this.frames - this.analysed - 1), "picture")} dropped`,
            `clock of the service known to ±${formatNumber(this.clock.uncertainty, 1)} ms`].join(" · ");
  }

  stop() {
    if (this.isStopped) return;
    this.isStopped = true;
    this.wake();
    this.timers.forEach(clearInterval);
    clearTimeout(this.retry);
    stageVideo.cancelVideoFrameCallback(this.frameRequest);
    stageVideo.srcObject = null;
    this.newest?.picture.close();
    this.sender?.close(this.people?.known ?? []);
    this.release();
    this.onEnd(this.failure);
  }

  release() {
    this.stream?.getTracks().forEach((track) => track.stop());
    this.analysis?.close();
  }
}
