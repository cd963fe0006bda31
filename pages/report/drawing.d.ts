// What a chart is drawn with, on a screen or as a vector graphic.

export type Span = { from: number; to: number };
export type Area = { x: number; y: number; w: number; h: number };
export type Scale = { toDomXCoord(seconds: number): number; toDomYCoord(value: number): number };
/** A time, and the low end of the band, the value and the high end; null separates stretches. */
export type Point = [number, [number, number, number] | null];

/** What the charts use of a canvas. */
export type Canvas = Pick<CanvasRenderingContext2D,
  "save" | "restore" | "beginPath" | "rect" | "fill" | "fillRect" | "fillText" | "measureText" |
  "fillStyle" | "globalAlpha" | "font" | "textBaseline">;
export type Paint = (context: Canvas, area: Area, scale: Scale) => void;

/** A colour is a name in the style sheet. Lanes are counted from above. */
export type LaneSpan = Span & { lane: number; color: string; text?: string };

export type Tick = { v: number; label: string };
export type ChartOptions = {
  title: string;
  hint: string;
  label: string;
  height: number;
  range: [number, number];
  ticks: Tick[];
  color: string;
  /** Whether the times are below it. */
  hasTimes?: boolean;
  /** Draws a chart without a curve. */
  paint?: Paint;
  /** Draws what is below a curve. */
  ground?: Paint;
  /** What to draw of a curve. */
  points?: (pixels: number) => Point[];
  /** What explains the colours. */
  legend?: { label: string; color: string }[];
};
