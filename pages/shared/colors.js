// The colours of the style sheet, for drawing.

export let theme = 0;  // changes with the colours
/** @type {Map<string, string>} */
const colors = new Map();

/**
 * What the style sheet calls the colour of a reason.
 * @param {string} reason
 */
export function reasonColor(reason) {
  return `reason-${reason.toLowerCase().replaceAll(" ", "-")}`;
}

/**
 * The colour of that name in the style sheet.
 * @param {string} name
 */
export function colorOf(name) {
  let color = colors.get(name);
  if (color === undefined) {
    const style = getComputedStyle(document.documentElement);
    color = (style.getPropertyValue(`--${name}`) || style.getPropertyValue("--other-reason")).trim();
    colors.set(name, color);
  }
  return color;
}

// To be called when the style sheet has other colours.
export function changeTheme() {
  colors.clear();
  ++theme;
}
