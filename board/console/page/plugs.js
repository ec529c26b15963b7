// @ts-check
// The plugs: what is plugged in, what else could be, and what camera and microphone are given.
import { byId, make, setAttribute, setText } from './dom.js';
import { Lane, reasonOf, say } from './orders.js';

const lane = new Lane();

/** @typedef {{value: string, text: string}} Choice */

// What drivers call a camera that has no name of its own.
const nameless = /^(UVC Camera|USB Camera|$)/;

/**
 * Devices of the same name are told apart by the name of their file.
 * @param {{name: string, card?: string}[]} devices
 * @param {(device: any) => string} more
 * @returns {Choice[]}
 */
function choicesOf(devices, more) {
  const titles = devices.map(({ name, card = '' }) => (nameless.test(card) ? name : card));
  return devices
    .map((device, index) => {
      const twice = titles.indexOf(titles[index]) !== titles.lastIndexOf(titles[index]);
      const detail = [twice ? device.name : '', more(device)].filter((text) => text !== '').join(', ');
      return { value: device.name, text: detail === '' ? titles[index] : `${titles[index]} (${detail})` };
    })
    .sort((one, other) => one.text.localeCompare(other.text));
}

/** @param {any} catalogue @returns {Record<string, Choice[]>} */
function choicesByDevice({ cameras, displays, sound }) {
  /** @param {boolean} playback */
  const limits = (playback) => sound.filter((/** @type {any} */ card) => (playback ? card.playback : card.capture));
  return {
    camera: choicesOf(cameras, ({ formats }) => formats.join(' ')),
    display: choicesOf(displays, ({ modes }) => modes[0] ?? ''),
    microphone: choicesOf(limits(false), () => ''),
    output: choicesOf(limits(true), () => ''),
  };
}

/** One device: its state, a choice where there is one, and the plug. */
class PlugRow {
  /**
   * @param {string} device as orders call it
   * @param {string} title
   * @param {Choice[]} choices
   */
  constructor(device, title, choices) {
    this.device = device;
    this.plugged = false;
    this.present = '';
    this.state = make('span', { class: 'plug-state' });
    this.choice = make('select', { 'aria-label': `${title}: which one` });
    this.choice.append(...choices.map(({ value, text }) => make('option', { value }, text)));
    this.swap = make('button', { type: 'button' }, 'Use this');
    this.toggle = make('button', { type: 'button' });
    this.toggle.addEventListener('click', () => this.plug());
    this.swap.addEventListener('click', () => this.use());
    this.choice.addEventListener('change', () => this.showSwap());
    this.node = make(
      'li',
      { 'data-device': device },
      make('span', { class: 'plug-name' }, title),
      this.state,
    );
    if (choices.length > 0) this.node.append(make('span', { class: 'plug-choice' }, this.choice, this.swap));
    this.node.append(this.toggle);
  }

  /** @param {boolean} plugged @param {string} where @param {string} name its file's name, where known */
  show(plugged, where, name) {
    this.plugged = plugged;
    if (name !== '' && name !== this.present) {
      this.present = name;
      this.choice.value = name;
    }
    setText(this.state, plugged ? where || 'plugged in' : 'unplugged');
    setAttribute(this.node, 'data-plugged', String(plugged));
    const title = this.node.children[0].textContent ?? '';
    setText(this.toggle, plugged ? 'Unplug' : 'Plug in');
    setAttribute(this.toggle, 'aria-label', `${plugged ? 'Unplug' : 'Plug in'}: ${title}`);
    this.showSwap();
  }

  showSwap() {
    this.swap.disabled = this.choice.value === this.present;
  }

  plug() {
    if (this.plugged) lane.order('unplug', { device: this.device });
    else if (this.present !== '') lane.order('plug', { device: this.device });
    else this.use(); // the board has none yet: the one that is chosen
  }

  /** Another device in the place of this one, the way a person's hand does it. */
  use() {
    const description = this.choice.value || this.device; // receivers are described under their names
    if (this.device === 'display' && this.plugged) {
      lane.order('modes', { description });
      return;
    }
    /** @type {[string, import('./orders.js').Fields][]} */
    const orders = this.plugged ? [['unplug', { device: this.device }]] : [];
    lane.all([...orders, ['plug', { device: this.device, description }]]);
  }
}

/**
 * What camera and microphone are given: a choice that is an order.
 * @param {string} title
 * @param {string} order
 * @param {Choice[]} choices
 */
function makeSource(title, order, choices) {
  const select = make('select', {}, make('option', { value: '' }, 'as the scenario has it'));
  select.append(...choices.map(({ value, text }) => make('option', { value }, text)));
  select.addEventListener('change', () => {
    select.options[0].disabled = true; // there is no order for the way back
    lane.order(order, { name: select.value });
  });
  return make('label', {}, make('span', {}, title), select);
}

const views = [
  { value: 'field:bars', text: 'colour bars' },
  { value: 'field:grey', text: 'a grey field' },
  { value: 'field:red', text: 'a red field' },
  { value: 'field:green', text: 'a green field' },
  { value: 'field:blue', text: 'a blue field' },
];
const sounds = [
  { value: 'sweep', text: 'a sweep' },
  { value: 'tone:1000', text: 'a tone of 1 kHz' },
  { value: 'clicks', text: 'clicks' },
  { value: 'noise', text: 'noise' },
  { value: 'silence', text: 'silence' },
];

// Offered where the scenario has no input device.
const receiver = { name: 'remote', device: 'NYFZ USB DONGLE', node: '' };

/** @param {import('./feed.js').Feed} feed */
export async function startPlugs(feed) {
  const list = byId('plugs-list', HTMLElement);
  /** @type {Record<string, Choice[]>} */
  let choices = {};
  try {
    const answer = await (await fetch('/catalogue.json')).json();
    if (!answer.ok) throw new Error(answer.error);
    choices = choicesByDevice(answer);
  } catch (error) {
    say(`no choice of devices: ${reasonOf(error)}`, 'failed');
  }
  const rows = ['camera', 'display', 'microphone', 'output'].map(
    (device) => new PlugRow(device, device[0].toUpperCase() + device.slice(1), choices[device] ?? []),
  );
  list.append(...rows.map(({ node }) => node));
  byId('sources', HTMLElement).append(
    makeSource('Camera sees', 'recording', views),
    makeSource('Microphone hears', 'hear', sounds),
  );
  /** @type {Map<string, PlugRow>} */
  const receivers = new Map();

  feed.on('state', ({ state, inputs }) => {
    for (const row of rows)
      row.show(state[`${row.device}Plugged`], row.device === 'camera' ? state.cameraNode : '', state[row.device] ?? '');
    const known = inputs.length > 0;
    for (const { name, device, node } of known ? inputs : [receiver]) {
      let row = receivers.get(name);
      if (row === undefined) {
        row = new PlugRow(name, device, []);
        receivers.set(name, row);
        list.append(row.node);
      }
      row.show(node !== '', node, known ? name : '');
    }
  });
}
