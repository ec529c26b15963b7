// @ts-check
// The stopwatch: how old a picture is when the display shows it, and what became of the frames.
import { Chart } from './chart.js';
import { byId, fixed, setPairs } from './dom.js';

const second_ms = 1000;

/** @param {{shown: number, median_ms: number, p95_ms: number}} age */
function ofSecond({ shown, median_ms, p95_ms }) {
  return shown > 0 ? [median_ms, p95_ms] : [null, null];
}

/** @param {import('./feed.js').Feed} feed */
export function startAge(feed) {
  const chart = new Chart(byId('age-chart', HTMLElement), 'Age of the picture on screen in ms', [
    { name: 'median', kind: 'main' },
    { name: '95 % below', kind: 'second' },
  ]);
  const numbers = byId('age-numbers', HTMLElement);
  let drawn_ms = -Infinity;

  feed.on('history', ({ age }) => {
    const seconds = age.map(ofSecond);
    chart.replace([0, 1].map((index) => seconds.map((/** @type {any[]} */ pair) => pair[index])));
  });
  feed.on('state', ({ time_ms, age, figures }) => {
    if (time_ms < drawn_ms) drawn_ms = -Infinity; // another console
    if (time_ms - drawn_ms >= second_ms) {
      drawn_ms = time_ms;
      chart.add(ofSecond(age));
    }
    const [median, p95] = ofSecond(age);
    setPairs(numbers, [
      ['median', median === null ? '–' : `${fixed(median)} ms`],
      ['95 %', p95 === null ? '–' : `${fixed(p95)} ms`],
      ['shown', String(figures.display.shown)],
      ['lost', String(figures.camera?.lost ?? 0)],
      ['repeated', String(figures.display.repeated)],
      ['skipped', String(figures.display.skipped)],
    ]);
  });
}
