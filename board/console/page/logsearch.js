// @ts-check
// Searching the log: lines that have the text are marked and counted, and gone through in turn.
import { byId, make, setText } from './dom.js';

export class LogSearch {
  /**
   * @param {HTMLElement} list whose lines have a `.text` each
   * @param {(line: HTMLElement) => void} goTo
   */
  constructor(list, goTo) {
    this.list = list;
    this.goTo = goTo;
    this.wanted = '';
    /** In the log's sequence. @type {HTMLElement[]} */
    this.found = [];
    this.at = -1;
    const field = byId('log-text', HTMLInputElement);
    field.addEventListener('input', () => this.start(field.value));
    field.addEventListener('keydown', (event) => {
      if (event.key !== 'Enter' || !event.shiftKey) return;
      event.preventDefault();
      this.go(-1);
    });
    byId('log-search', HTMLFormElement).addEventListener('submit', (event) => {
      event.preventDefault();
      this.go(1);
    });
    byId('log-previous', HTMLButtonElement).addEventListener('click', () => this.go(-1));
  }

  restart() {
    this.found = [];
    this.at = -1;
    this.show();
  }

  /** @param {string} text */
  start(text) {
    this.found.forEach((line) => this.unmark(line));
    this.wanted = text.toLowerCase();
    this.restart();
    for (const line of this.list.children) if (line instanceof HTMLElement) this.look(line);
  }

  /** A line that is new in the log. @param {HTMLElement} line */
  look(line) {
    const place = line.querySelector('.text');
    const text = place?.textContent ?? '';
    if (this.wanted === '' || place === null || !text.toLowerCase().includes(this.wanted)) return;
    place.replaceChildren(...this.marked(text));
    line.classList.add('found');
    this.found.push(line);
    this.show();
  }

  /** The text with every place marked that was searched for. @param {string} text */
  marked(text) {
    const low = text.toLowerCase();
    /** @type {(Node | string)[]} */
    const pieces = [];
    let from = 0;
    for (let at = low.indexOf(this.wanted); at >= 0; at = low.indexOf(this.wanted, from)) {
      const end = at + this.wanted.length;
      pieces.push(text.slice(from, at), make('mark', {}, text.slice(at, end)));
      from = end;
    }
    return [...pieces, text.slice(from)];
  }

  /** @param {HTMLElement} line */
  unmark(line) {
    line.classList.remove('found', 'found-now');
    const place = line.querySelector('.text');
    place?.replaceChildren(place.textContent ?? '');
  }

  /** A line that leaves the log. @param {HTMLElement} line */
  forget(line) {
    if (this.found[0] !== line) return;
    this.found.shift();
    this.at = Math.max(-1, this.at - 1);
    this.show();
  }

  /** @param {1 | -1} step */
  go(step) {
    const count = this.found.length;
    if (count === 0) return;
    this.found[this.at]?.classList.remove('found-now');
    // The first step back goes to the latest line found.
    this.at = this.at < 0 && step < 0 ? count - 1 : (this.at + step + count) % count;
    this.found[this.at].classList.add('found-now');
    this.goTo(this.found[this.at]);
    this.show();
  }

  show() {
    const count = this.found.length;
    const text = this.wanted === '' ? '' : this.at < 0 ? `${count} found` : `${this.at + 1} of ${count}`;
    setText(byId('log-hits', HTMLElement), text);
    for (const id of ['log-previous', 'log-next']) byId(id, HTMLButtonElement).disabled = count === 0;
  }
}
