// What Debian's TypeScript does not know of browsers yet.

declare class DecompressionStream {
  constructor(format: "deflate");
  readonly readable: ReadableStream<Uint8Array>;
  readonly writable: WritableStream<Uint8Array>;
}
