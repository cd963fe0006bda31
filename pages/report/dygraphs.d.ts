// What the charts use of dygraphs, which is a script of its own before theirs.

declare class Dygraph {
  static Plugins: { Axes: unknown; Grid: unknown };
  static Plotters: { linePlotter(event: DygraphPlot): void };
  constructor(box: HTMLElement, points: DygraphPoint[], options: object);
  destroy(): void;
  resize(): void;
  updateOptions(options: object): void;
  getArea(): { x: number; y: number; w: number; h: number };
  toDomXCoord(time: number): number;
  toDomYCoord(value: number): number;
}

/** The time; low end of the band, value, and high end. */
type DygraphPoint = [number, [number, number, number] | null];

type DygraphPlot = {
  drawingContext: CanvasRenderingContext2D;
  plotArea: { x: number; y: number; w: number; h: number };
  points: { canvasx: number; canvasy: number; y_top: number; y_bottom: number }[];
  color: string;
  dygraph: Dygraph;
};
