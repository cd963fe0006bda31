// What Debian's TypeScript does not know of browsers yet.

declare class DecompressionStream {
  constructor(format: "deflate");
  readonly readable: ReadableStream<Uint8Array>;
  readonly writable: WritableStream<Uint8Array>;
}

declare class VideoFrame {
  constructor(video: HTMLVideoElement);
  readonly displayWidth: number;
  readonly displayHeight: number;
  close(): void;
}

declare class OffscreenCanvas {
  constructor(width: number, height: number);
  width: number;
  height: number;
  getContext(kind: "webgl2", options: { failIfMajorPerformanceCaveat: boolean }):
    WebGL2RenderingContext | null;
  getContext(kind: "2d", options: { willReadFrequently: boolean }): {
    drawImage(picture: VideoFrame, x: number, y: number): void;
    getImageData(x: number, y: number, width: number, height: number): ImageData;
  };
}
