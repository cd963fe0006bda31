// What the worker uses of the package that analyses pictures, which is a script of its own.

declare namespace Human {
  type Face = {
    boxRaw: [number, number, number, number];
    faceScore: number;
    mesh: [number, number, number][];
    rotation?: { angle: { yaw: number; pitch: number; roll: number } };
    emotion?: { emotion: string; score: number }[];
    distance?: number;
  };
  type Tensor = object;
  class Human {
    constructor(settings: object);
    readonly tf: {
      browser: { fromPixels(pixels: ImageData): Tensor };
      dispose(tensor: Tensor): void;
      getBackend(): string;
    };
    load(): Promise<void>;
    detect(picture: Tensor, settings: object): Promise<{ face: Face[]; error?: string | null }>;
  }
}

declare function importScripts(...addresses: string[]): void;
