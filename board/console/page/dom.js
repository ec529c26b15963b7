// @ts-check
// Making and finding elements. Texts are always set as text: nothing that a board, a log or a
// device's name says is ever read as markup.

/**
 * The element of that id, which index.html has.
 * @template {HTMLElement} T
 * @param {string} id
 * @param {new () => T} kind
 * @returns {T}
 */
export function byId(id, kind) {
  const node = document.getElementById(id);
  if (!(node instanceof kind)) throw new Error(`index.html has no ${kind.name} #${id}`);
  return node;
}

/**
 * @param {Element} node
 * @param {Record<string, string | number>} attributes
 * @param {(Node | string)[]} children
 */
function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, String(value));
  node.append(...children);
}

/**
 * @template {keyof HTMLElementTagNameMap} T
 * @param {T} tag
 * @param {Record<string, string | number>} [attributes]
 * @param {...(Node | string)} children
 * @returns {HTMLElementTagNameMap[T]}
 */
export function make(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  fill(node, attributes, children);
  return node;
}

/**
 * @template {keyof SVGElementTagNameMap} T
 * @param {T} tag
 * @param {Record<string, string | number>} [attributes]
 * @param {...(Node | string)} children
 * @returns {SVGElementTagNameMap[T]}
 */
export function makeSvg(tag, attributes = {}, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  fill(node, attributes, children);
  return node;
}

/**
 * Touches the page only when something changed.
 * @param {Node} node
 * @param {string} text
 */
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/**
 * Sets an attribute, or takes it away for null.
 * @param {Element} node
 * @param {string} name
 * @param {string | null} value
 */
export function setAttribute(node, name, value) {
  if (value === null) node.removeAttribute(name);
  else if (node.getAttribute(name) !== value) node.setAttribute(name, value);
}

/**
 * The pairs of a <dl>, made once and refreshed afterwards.
 * @param {HTMLElement} list
 * @param {[string, string][]} pairs
 */
export function setPairs(list, pairs) {
  if (list.children.length !== pairs.length) {
    list.replaceChildren(...pairs.map(() => make('div', {}, make('dt'), make('dd'))));
  }
  pairs.forEach(([name, value], index) => {
    const [term, text] = list.children[index].children;
    setText(term, name);
    setText(text, value);
  });
}

/**
 * Hands a file to the reader's browser to be kept.
 * @param {Blob} blob
 * @param {string} name
 */
export function saveBlob(blob, name) {
  const link = make('a', { href: URL.createObjectURL(blob), download: name });
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}

/** @param {number} value @param {number} [digits] */
export function fixed(value, digits = 1) {
  return Number.isFinite(value) ? value.toFixed(digits) : '–';
}
