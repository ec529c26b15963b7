// @ts-check
// What the console tells by itself: one stream of events, opened anew whenever it breaks.

const patience_ms = 4000; // `state` comes five times a second
const retry_ms = 1000;
const kinds = ['state', 'history', 'log'];

/** @typedef {(data: any) => void} Listener */

export class Feed {
  constructor() {
    /** @type {Map<string, Listener[]>} */
    this.listeners = new Map();
    /** @type {EventSource | null} */
    this.source = null;
    this.watchdog = 0;
    this.connected = false;
  }

  /**
   * Kinds: `state`, `history`, `log` as the console sends them; `connection` with true or false;
   * `reopened` before the first event of each connection, which tells everything anew.
   * @param {string} kind
   * @param {Listener} listener
   */
  on(kind, listener) {
    this.listeners.set(kind, [...(this.listeners.get(kind) ?? []), listener]);
  }

  open() {
    this.close();
    const source = new EventSource('/events');
    this.source = source;
    source.onopen = () => this.tell('reopened', null);
    source.onerror = () => this.lose();
    for (const kind of kinds) {
      source.addEventListener(kind, (event) => {
        this.watch();
        if (!this.connected) this.setConnected(true);
        this.tell(kind, JSON.parse(event.data));
      });
    }
    this.watch();
  }

  close() {
    clearTimeout(this.watchdog);
    this.source?.close();
    this.source = null;
  }

  // A browser gives up after some kinds of failure, and never notices a console that falls silent.
  lose() {
    this.close();
    this.setConnected(false);
    this.watchdog = setTimeout(() => this.open(), retry_ms);
  }

  watch() {
    clearTimeout(this.watchdog);
    this.watchdog = setTimeout(() => this.lose(), patience_ms);
  }

  /** @param {boolean} connected */
  setConnected(connected) {
    this.connected = connected;
    this.tell('connection', connected);
  }

  /** @param {string} kind @param {any} data */
  tell(kind, data) {
    for (const listener of this.listeners.get(kind) ?? []) listener(data);
  }
}
