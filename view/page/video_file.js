// A video file: steps through it and makes a recording. Nothing goes to the service.

// As an import begins where it is not told otherwise: 2000-01-01T00:00:00Z.
const recordingStart = 946684800_000_000_000n;  // nanoseconds

const sameMilliseconds = 500;

class VideoFile {
  constructor({ onText, onEnd }) {
    Object.assign(this, { onText, onEnd });
    this.numbers = new Map();
  }

  async run({ file, rate }) {
    const address = URL.createObjectURL(file);
    try {
      this.onText("Starting the analysis …");
      this.analysis = await Analysis.start();
      await this.open(address);
      this.recording = new Blob(await this.record(file.name, rate), { type: "application/jsonl" });
    } catch (error) {
      if (!this.isStopped) this.failure = error.message || `This browser does not play ${file.name}.`;
    }
    this.stop();
    this.analysis?.close();  // also one that came after a stop
    URL.revokeObjectURL(address);
  }

  // Waits for an event of the video's.
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

  // The picture comes after the seek. The same picture as before does not come again.
  async seek(seconds) {
    const shown = new Promise((resolve) => { stageVideo.requestVideoFrameCallback(resolve); });
    stageVideo.currentTime = seconds;
    await this.until("seeked");
    await Promise.race([shown, new Promise((resolve) => { setTimeout(resolve, sameMilliseconds); })]);
  }

  async open(address) {
    stageVideo.src = address;
    await this.until("loadeddata");
    // One that was recorded by a browser does not tell its length before its end was looked for.
    if (stageVideo.duration === Infinity) await this.seek(1e9);
    if (!(stageVideo.duration > 0 && stageVideo.duration < Infinity)) throw new Error("");
  }

  // The lines of a recording. The time of a picture is that in the video, whatever its analysis took.
  async record(name, rate) {
    const lines = [
      `{"event":"header","version":1,"source":"zorvel camera","origin":${recordingStart}}`];
    const people = new People({ first: 1 });
    const count = Math.ceil(stageVideo.duration * rate);
    const begun = performance.now();
    for (let number = 0; number < count; ++number) {
      const seconds = number / rate;
      await this.seek(seconds);
      const faces = await this.analysis.analyse(await createImageBitmap(stageVideo));
      const isMirrored = cameraForm.elements.mirrored.checked;
      for (const event of people.follow(faces, seconds, isMirrored)) {
        const line = eventLine(event, recordingStart + inNanoseconds(seconds));
        if (event.event === "remove") this.numbers.delete(event.person);
        else this.numbers.set(event.person, line);
        lines.push(line);
      }
      drawFaces(faces, { isMirror: false, hasLandmarks: cameraForm.elements.landmarks.checked });
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
    this.wake?.(new Error("stopped"));
    this.analysis?.close();
    stageVideo.removeAttribute("src");
    stageVideo.load();
    this.onEnd(this.failure, this.recording);
  }
}
