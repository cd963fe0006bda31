// The ticks of a time axis.

import { formatTime } from "../shared/format.js";

const dayLength = 86400;
const tickSteps = [1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10,
  15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, dayLength];

/** @param {number} from @param {number} to @param {number} pixels */
export function timeTicks(from, to, pixels) {
  const most = Math.max(2, Math.floor(pixels / 64));
  const step = tickSteps.find((candidate) => (to - from) / candidate <= most) ??
    dayLength * Math.ceil((to - from) / most / dayLength);
  const decimals = Math.max(0, Math.ceil(-Math.log10(step)));
  const ticks = [];
  for (let count = Math.ceil(from / step); count * step <= to; ++count) {
    ticks.push({ v: count * step, label: formatTime(count * step, decimals) });
  }
  return ticks;
}
