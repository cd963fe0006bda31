// Making and finding elements.

/**
 * An element with attributes and children; strings among them stay text.
 * @template {keyof HTMLElementTagNameMap} Name
 * @param {Name} name
 * @param {Record<string, string>} attributes
 * @param {(string | Node)[]} children
 */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  made.append(...children);
  return made;
}

/**
 * An element that the page has to have.
 * @template {Element} Kind
 * @param {string} selector
 * @param {new () => Kind} kind
 * @param {ParentNode} holder
 */
export function find(selector, kind, holder = document) {
  const found = holder.querySelector(selector);
  if (!(found instanceof kind)) throw new Error(`The page lacks ${selector}.`);
  return found;
}

/** @param {string} id */
export function byId(id) {
  return find(`#${id}`, HTMLElement);
}

/**
 * Sets a text only when it is new, as every change costs a layout.
 * @param {Node} node
 * @param {string} text
 */
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/**
 * Fills a table. A column has a title, perhaps `small` words below it, and the class of its cells.
 * @param {HTMLTableElement} table
 * @param {{ title: string, small?: string, class?: string }[]} columns
 * @param {(string | Node)[][]} rows
 */
export function fillTable(table, columns, rows) {
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
