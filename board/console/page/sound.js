// @ts-check
// Levels of microphone and output, under-runs, and how much sound is on its way: read from the
// microphone and not written yet (the application's FIFO), written to the output and not played yet.
import { Chart } from './chart.js';
import { byId, fixed, make, setAttribute, setPairs, setText } from './dom.js';
import { startListening } from './listen.js';

const quietest_dB = -60;
const second_ms = 1000;
const cards = [
  { key: 'microphone', name: 'Microphone' },
  { key: 'output', name: 'Output' },
];

/** @param {number | null | undefined} level */
function clamped(level) {
  return Math.max(quietest_dB, Math.min(0, level ?? quietest_dB));
}

class Meter {
  /** @param {string} name */
  constructor(name) {
    this.bar = make('span', { class: 'meter-bar' });
    this.peak = make('span', { class: 'meter-peak' });
    this.node = make(
      'span',
      { class: 'meter', role: 'meter', 'aria-label': name, 'aria-valuemin': quietest_dB, 'aria-valuemax': 0 },
      this.bar,
      this.peak,
    );
  }

  /** @param {number | undefined} rms_dB @param {number | undefined} peak_dB */
  show(rms_dB, peak_dB) {
    const level = clamped(rms_dB);
    /** @param {number} value */
    const share = (value) => (value - quietest_dB) / -quietest_dB;
    this.bar.style.transform = `scaleX(${share(level).toFixed(3)})`;
    this.peak.style.left = `${(share(clamped(peak_dB)) * 100).toFixed(1)}%`;
    setAttribute(this.node, 'aria-valuenow', level.toFixed(0));
    setAttribute(this.node, 'aria-valuetext', level <= quietest_dB ? 'silent' : `${level.toFixed(0)} dB`);
  }
}

/** One card: a meter for each channel and the level in figures. */
class CardMeters {
  /** @param {string} name @param {HTMLElement} place */
  constructor(name, place) {
    this.meters = ['left', 'right'].map((side) => new Meter(`${name}, ${side}`));
    this.text = make('span', { class: 'meter-text' });
    const bars = make('span', { class: 'meter-pair' }, ...this.meters.map(({ node }) => node));
    place.append(make('div', { class: 'meter-row' }, make('span', {}, name), bars, this.text));
  }

  /** @param {{rms_dB: number[], peak_dB: number[]} | undefined} level @param {string} otherwise */
  show(level, otherwise) {
    this.meters.forEach((meter, index) => meter.show(level?.rms_dB[index], level?.peak_dB[index]));
    const loudest = Math.max(...(level?.rms_dB ?? [quietest_dB]).map(clamped));
    setText(this.text, otherwise || (loudest <= quietest_dB ? 'silent' : `${loudest.toFixed(0)} dB`));
  }
}

/** @param {any} stream a stream's figures */
function formatOf(stream) {
  return stream?.open ? `${stream.rate / 1000} kHz, ${stream.channels} channels` : 'closed';
}

/** @param {import('./feed.js').Feed} feed */
export function startSound(feed) {
  const meters = cards.map(({ name }) => new CardMeters(name, byId('sound-meters', HTMLElement)));
  const chart = new Chart(byId('sound-chart', HTMLElement), 'Sound in the application’s FIFO in ms', [
    { name: 'in the FIFO, ms', kind: 'main' },
  ]);
  let drawn_ms = -Infinity;

  feed.on('history', ({ onTheWay_ms }) => chart.replace([onTheWay_ms]));
  feed.on('state', ({ time_ms, state, figures, sound }) => {
    cards.forEach(({ key }, index) =>
      meters[index].show(sound[key], state[`${key}Plugged`] ? '' : 'unplugged'),
    );
    const playback = figures.output?.playback;
    const capture = figures.microphone?.capture;
    setText(byId('sound-facts', HTMLElement), playback?.open ? formatOf(playback) : 'output closed');
    setPairs(byId('sound-numbers', HTMLElement), [
      ['in FIFO', sound.onTheWay_ms === null ? '–' : `${fixed(sound.onTheWay_ms, 0)} ms`],
      ['in output', sound.queued_ms === null ? '–' : `${fixed(sound.queued_ms, 0)} ms`],
      ['under-runs', String(playback?.xruns ?? 0)],
      ['over-runs', String(capture?.xruns ?? 0)],
    ]);
    if (time_ms < drawn_ms) drawn_ms = -Infinity; // another console
    if (time_ms - drawn_ms >= second_ms) {
      drawn_ms = time_ms;
      chart.add([sound.onTheWay_ms]);
    }
  });
  startListening();
}
