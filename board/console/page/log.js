// @ts-check
// The application's log as it comes. Lines are one stop of the tab key; arrows go from line to line.
import { byId, make, setAttribute, setText } from './dom.js';
import { LogSearch } from './logsearch.js';

const mostLines = 5000;
const nearEnd_px = 8;

/**
 * @typedef {object} Entry what a known line means
 * @property {string} meaning
 * @property {string} todo
 * @property {string} kind
 */

class Log {
  constructor() {
    this.list = byId('log-list', HTMLElement);
    this.follow = byId('log-follow', HTMLInputElement);
    this.explanation = byId('log-explanation', HTMLElement);
    this.search = new LogSearch(this.list, (line) => this.goTo(line));
    /** @type {Entry[]} */
    this.entries = [];
    /** The line that the tab key stops at. @type {HTMLElement | null} */
    this.current = null;
    this.starts = true;
    this.list.addEventListener('keydown', (event) => this.onKey(event));
    this.list.addEventListener('focusin', (event) => this.onFocus(event));
    this.list.addEventListener('pointerover', (event) => this.explain(this.lineOf(event.target)));
    this.list.addEventListener('pointerleave', () => this.explain(this.focused()));
    // A person who scrolls wants to read.
    for (const kind of ['wheel', 'touchmove'])
      this.list.addEventListener(kind, () => this.follow.checked && setTimeout(() => this.keepFollowing(), 100), { passive: true });
    this.follow.addEventListener('change', () => this.scroll());
    this.explain(null);
  }

  /** The next lines are the whole log anew. */
  restart() {
    this.starts = true;
  }

  /** @param {{stream: string, text: string, kind: string, entry: number | null}[]} lines */
  add(lines) {
    if (this.starts) {
      this.starts = false;
      this.list.replaceChildren();
      this.current = null;
      this.search.restart();
    }
    const nodes = lines.slice(-mostLines).map((line) => this.makeLine(line));
    this.list.append(...nodes);
    nodes.forEach((node) => this.search.look(node));
    this.dropOldest();
    if (this.current === null && this.list.lastElementChild instanceof HTMLElement)
      this.setCurrent(this.list.lastElementChild);
    setText(byId('log-count', HTMLElement), `${this.list.childElementCount} lines`);
    this.scroll();
  }

  dropOldest() {
    while (this.list.childElementCount > mostLines) {
      const oldest = this.list.firstElementChild;
      if (!(oldest instanceof HTMLElement)) return;
      this.search.forget(oldest);
      if (oldest === this.current) this.current = null;
      oldest.remove();
    }
  }

  /** @param {{stream: string, text: string, kind: string, entry: number | null}} line */
  makeLine({ stream, text, kind, entry }) {
    const name = kind || 'other';
    const tag = make('span', { class: 'tag' }, stream === 'err' && name !== 'library' ? `${name}!` : name);
    const attributes = { 'data-kind': name, 'data-stream': stream, tabindex: -1 };
    const node = make('li', attributes, tag, make('span', { class: 'text' }, text));
    if (entry !== null) node.dataset.entry = String(entry);
    return node;
  }

  scroll() {
    if (this.follow.checked) this.list.scrollTop = this.list.scrollHeight;
  }

  keepFollowing() {
    const { scrollTop, clientHeight, scrollHeight } = this.list;
    this.follow.checked = scrollTop + clientHeight >= scrollHeight - nearEnd_px;
  }

  /** @param {EventTarget | null} target @returns {HTMLElement | null} */
  lineOf(target) {
    return target instanceof Element ? target.closest('li') : null;
  }

  focused() {
    return this.list.contains(document.activeElement) ? this.lineOf(document.activeElement) : null;
  }

  /** @param {HTMLElement} line */
  setCurrent(line) {
    this.current?.setAttribute('tabindex', '-1');
    this.current?.removeAttribute('aria-describedby');
    this.current = line;
    line.setAttribute('tabindex', '0');
    line.setAttribute('aria-describedby', 'log-explanation');
  }

  /** @param {FocusEvent} event */
  onFocus(event) {
    const line = this.lineOf(event.target);
    if (line === null) {
      this.current?.focus(); // by the skip link
      return;
    }
    this.setCurrent(line);
    this.explain(line);
  }

  /** @param {HTMLElement} line */
  goTo(line) {
    this.follow.checked = false;
    this.setCurrent(line);
    this.explain(line);
    line.scrollIntoView({ block: 'nearest' });
  }

  /** @param {KeyboardEvent} event */
  onKey(event) {
    const page = Math.max(1, Math.floor(this.list.clientHeight / (this.current?.offsetHeight || 20)) - 1);
    const step = { ArrowUp: -1, ArrowDown: 1, PageUp: -page, PageDown: page, Home: -mostLines, End: mostLines }[event.key];
    if (step === undefined || this.current === null || event.ctrlKey || event.altKey) return;
    event.preventDefault();
    const lines = [...this.list.children];
    const at = Math.max(0, Math.min(lines.length - 1, lines.indexOf(this.current) + step));
    const line = lines[at];
    if (!(line instanceof HTMLElement)) return;
    this.goTo(line);
    line.focus({ preventScroll: true });
    this.follow.checked = at === lines.length - 1 && event.key === 'End';
  }

  /** @param {HTMLElement | null} line */
  explain(line) {
    const { explanation } = this;
    const text = line?.querySelector('.text')?.textContent ?? '';
    const entry = line?.dataset.entry === undefined ? undefined : this.entries[Number(line.dataset.entry)];
    setAttribute(explanation, 'data-kind', line?.dataset.kind ?? null);
    if (line === null) {
      explanation.replaceChildren(make('p', { class: 'muted' }, 'Point at a line, or go to it with the arrow keys: what it means stands here.'));
    } else if (entry === undefined) {
      explanation.replaceChildren(make('p', {}, make('code', {}, text)), make('p', { class: 'muted' }, 'Nothing is written about this line.'));
    } else {
      explanation.replaceChildren(
        make('p', {}, make('strong', {}, `${entry.kind}: `), entry.meaning),
        make('p', {}, make('strong', {}, 'What to do: '), entry.todo),
      );
    }
  }
}

/** @param {import('./feed.js').Feed} feed */
export function startLog(feed) {
  const log = new Log();
  feed.on('reopened', async () => {
    log.restart();
    try {
      log.entries = await (await fetch('/log-lines.json')).json();
    } catch {
      log.entries = []; // lines are shown without explanations; the lost connection is told elsewhere
    }
  });
  feed.on('log', ({ lines }) => log.add(lines));
}
