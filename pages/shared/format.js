// Numbers and times as texts.

/** @param {number} value @param {number} decimals */
export function formatNumber(value, decimals) {
  if (Number.isNaN(value)) return "not a number";
  if (!Number.isFinite(value)) return value > 0 ? "∞" : "−∞";
  const digits = Math.abs(value).toFixed(decimals);
  return value < 0 && Number(digits) !== 0 ? `−${digits}` : digits;
}

/** @param {number} move */
export function formatMove(move) {
  const text = formatNumber(move, 3);
  return move > 0 && Number(text) !== 0 ? `+${text}` : text;
}

/**
 * Only exactly 0 becomes "0 %", and only exactly 100 becomes "100 %".
 * @param {number} percent
 */
export function formatPercent(percent) {
  if (percent > 0 && percent < 1) return "<1 %";
  if (percent > 99 && percent < 100) return ">99 %";
  return `${formatNumber(percent, 0)} %`;
}

/** @param {number} count @param {string} one */
export function formatCount(count, one, many = `${one}s`) {
  return `${count.toLocaleString("en")} ${count === 1 ? one : many}`;
}

/**
 * The decimals with which times tell apart the hundredths of a span.
 * @param {number} seconds
 */
export function decimalsFor(seconds) {
  return Math.max(0, Math.min(3, Math.ceil(2 - Math.log10(seconds))));
}

/**
 * Seconds as h:mm:ss, or m:ss within the first hour.
 * @param {number} seconds
 */
export function formatTime(seconds, decimals = 0) {
  const unit = 10 ** decimals;
  const ticks = Math.round(Math.abs(seconds) * unit);
  const whole = Math.floor(ticks / unit);
  const two = (/** @type {number} */ number) => String(number).padStart(2, "0");
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  const fraction = decimals > 0 ? `.${String(ticks % unit).padStart(decimals, "0")}` : "";
  const sign = seconds < 0 && ticks > 0 ? "−" : "";
  return `${sign}${hours > 0 ? `${hours}:${two(minutes)}` : minutes}:${two(whole % 60)}${fraction}`;
}

/** @param {number} milliseconds */
export function formatUtc(milliseconds) {
  const text = new Date(Math.floor(milliseconds)).toISOString();
  return `${text.slice(0, -1).replace("T", " ")} UTC`;
}
