// @ts-check
// The remote: keys that go down and up with a pointer, by touch or on the keyboard.
import { byId, make, setAttribute, setText } from './dom.js';
import { Lane } from './orders.js';

const keys = [
  { key: 'I', does: 'zoom in', place: 'zoom-in' },
  { key: 'W', does: 'tilt up', place: 'up' },
  { key: 'O', does: 'zoom out', place: 'zoom-out' },
  { key: 'A', does: 'pan left', place: 'left' },
  { key: 'R', does: 'recentre', place: 'middle' },
  { key: 'D', does: 'pan right', place: 'right' },
  { key: 'T', does: 'track', place: 'track' },
  { key: 'S', does: 'tilt down', place: 'down' },
  { key: 'L', does: 'sleep or wake', place: 'sleep' },
];
const lights = ['Num', 'Caps', 'Scroll', 'Compose', 'Kana'];

class Remote {
  constructor() {
    this.lane = new Lane();
    /** What this page holds down. @type {Set<string>} */
    this.held = new Set();
    this.device = '';
    this.latch = byId('remote-latch', HTMLInputElement);
    /** @type {Map<string, HTMLButtonElement>} */
    this.buttons = new Map();
    for (const { key, does, place } of keys) {
      const button = make(
        'button',
        { type: 'button', class: `key key-${place}`, 'aria-keyshortcuts': key },
        make('kbd', {}, key),
        make('span', {}, does),
      );
      this.buttons.set(key, button);
      this.listen(button, key);
    }
    byId('remote-keys', HTMLElement).append(...this.buttons.values());
    this.latch.addEventListener('change', () => this.releaseAll());
  }

  /** @param {string} key */
  press(key) {
    if (this.held.has(key) || this.device === '') return;
    this.held.add(key);
    this.show(key, true);
    this.lane.order('press', { key, device: this.device });
  }

  /** @param {string} key */
  release(key) {
    if (!this.held.delete(key)) return;
    this.show(key, false);
    this.lane.order('release', { key, device: this.device });
  }

  releaseAll() {
    for (const key of [...this.held]) this.release(key);
  }

  /** A finger goes down on a key. @param {string} key */
  down(key) {
    if (this.latch.checked && this.held.has(key)) this.release(key);
    else this.press(key);
  }

  /** The finger goes up. @param {string} key */
  up(key) {
    if (!this.latch.checked) this.release(key);
  }

  /** @param {string} key @param {boolean} down */
  show(key, down) {
    const button = this.buttons.get(key);
    button?.classList.toggle('down', down);
    if (button) setAttribute(button, 'aria-pressed', String(down));
  }

  /** @param {HTMLButtonElement} button @param {string} key */
  listen(button, key) {
    button.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) return;
      button.setPointerCapture(event.pointerId);
      this.down(key);
    });
    for (const end of ['pointerup', 'pointercancel', 'lostpointercapture'])
      button.addEventListener(end, () => this.up(key));
    button.addEventListener('blur', () => this.up(key));
    button.addEventListener('contextmenu', (event) => event.preventDefault()); // a long touch
    button.addEventListener('keydown', (event) => {
      if (event.key !== ' ' && event.key !== 'Enter') return;
      event.preventDefault();
      if (!event.repeat) this.down(key);
    });
    button.addEventListener('keyup', (event) => {
      if (event.key === ' ' || event.key === 'Enter') this.up(key);
    });
    // What assistive programs send instead of a pointer or a key; a real click has both before it.
    button.addEventListener('click', (event) => {
      if (event.detail !== 0 || event.pointerType) return;
      this.down(key);
      this.up(key);
    });
  }

  /** @param {any[]} inputs */
  showInputs(inputs) {
    const receiver = inputs.find(({ device }) => device === 'NYFZ USB DONGLE') ?? inputs[0];
    const present = receiver !== undefined && receiver.node !== '';
    this.device = present ? receiver.name : '';
    if (!present) this.held.clear();
    setText(
      byId('remote-facts', HTMLElement),
      present ? `${receiver.device} on ${receiver.node}` : 'no receiver is plugged in',
    );
    for (const [key, button] of this.buttons) {
      button.disabled = !present;
      // Also keys that somebody else holds: another window, boardctl, a session that is replayed.
      const down = present && (receiver.keysDown.includes(key) || receiver.keysDown.includes(`KEY_${key}`));
      this.show(key, down || this.held.has(key));
    }
    this.showLights(present ? receiver.ledsLit : []);
  }

  /** @param {number[]} lit */
  showLights(lit) {
    const list = byId('remote-leds', HTMLElement);
    if (list.children.length === 0)
      list.append(...lights.map(() => make('li', {}, make('span', { class: 'led', 'aria-hidden': 'true' }), make('span'))));
    lights.forEach((name, code) => {
      const on = lit.includes(code);
      list.children[code].classList.toggle('lit', on);
      setText(list.children[code].children[1], `${name} ${on ? 'on' : 'off'}`);
    });
  }
}

/** Whether somebody is writing or choosing there. @param {EventTarget | null} target */
function takesText(target) {
  return (
    target instanceof HTMLTextAreaElement ||
    target instanceof HTMLSelectElement ||
    (target instanceof HTMLInputElement && target.type !== 'checkbox')
  );
}

/** @param {import('./feed.js').Feed} feed */
export function startRemote(feed) {
  const remote = new Remote();
  const panel = byId('remote', HTMLElement);
  const everywhere = byId('remote-keyboard', HTMLInputElement);
  feed.on('state', ({ inputs }) => remote.showInputs(inputs));
  feed.on('connection', (connected) => connected || remote.held.clear());

  document.addEventListener('keydown', (event) => {
    const key = event.key.toUpperCase();
    const here = everywhere.checked || (event.target instanceof Node && panel.contains(event.target));
    if (!here || takesText(event.target) || event.ctrlKey || event.altKey || event.metaKey) return;
    if (!remote.buttons.has(key)) return;
    event.preventDefault();
    if (!event.repeat) remote.down(key);
  });
  document.addEventListener('keyup', (event) => {
    const key = event.key.toUpperCase();
    if (remote.buttons.has(key)) remote.up(key);
  });
  // A key that goes up elsewhere is never heard of.
  addEventListener('blur', () => remote.releaseAll());
  addEventListener('pagehide', () => remote.releaseAll());
  document.addEventListener('visibilitychange', () => document.hidden && remote.releaseAll());
}
