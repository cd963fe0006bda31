// An element with attributes and children; strings among them stay text.
function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

// Fills a table. A column has a title, perhaps `small` words below it, and the class of its cells.
function fillTable(table, columns, rows) {
  const head = element("tr");
  for (const { title, small, ...attributes } of columns) {
    const words = small ? [`${title} `, element("small", {}, small)] : [title];
    head.append(element("th", { scope: "col", ...attributes }, ...words));
  }
  const body = element("tbody");
  for (const cells of rows) {
    const row = element("tr");
    cells.forEach((cell, index) => {
      const { title, small, ...attributes } = columns[index];
      row.append(element("td", { "data-title": title, ...attributes }, cell));
    });
    body.append(row);
  }
  table.replaceChildren(element("thead", {}, head), body);
}

// What the style sheet calls the colour of a reason.
function reasonColor(reason) {
  return `reason-${reason.toLowerCase().replaceAll(" ", "-")}`;
}

// The colour of that name in the style sheet.
const colors = new Map();
function colorOf(name) {
  if (!colors.has(name)) {
    const style = getComputedStyle(document.documentElement);
    const value = style.getPropertyValue(`--${name}`) || style.getPropertyValue("--other-reason");
    colors.set(name, value.trim());
  }
  return colors.get(name);
}
