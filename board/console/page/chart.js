// @ts-check
// A small line chart of the last minute, as inline SVG.
import { make, makeSvg, setAttribute, setText } from './dom.js';

const size = { width: 480, height: 120, left: 38, right: 6, top: 8, bottom: 18 };
const points = 60; // one a second
const steps = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000];

/** The least round number that is no smaller. @param {number} value */
function roundUp(value) {
  return steps.find((step) => step >= value) ?? Math.ceil(value);
}

/**
 * @typedef {object} Series
 * @property {string} name
 * @property {string} kind `main` or `second`; drawn with different lines
 */

export class Chart {
  /**
   * @param {HTMLElement} place
   * @param {string} title what it shows, with the unit
   * @param {Series[]} series
   */
  constructor(place, title, series) {
    this.title = title;
    this.series = series;
    /** @type {(number | null)[][]} */
    this.values = series.map(() => []);
    const { width, height, left, right, top, bottom } = size;
    this.labels = [0, 1, 2].map((row) => {
      const y = top + (row * (height - top - bottom)) / 2;
      return makeSvg('text', { x: left - 6, y: y + 4, 'text-anchor': 'end' });
    });
    const rules = [0, 1, 2].map((row) => {
      const y = top + (row * (height - top - bottom)) / 2;
      return makeSvg('path', { class: 'rule', d: `M${left} ${y}H${width - right}` });
    });
    this.lines = series.map(({ kind }) => makeSvg('path', { class: `line ${kind}` }));
    const oldest = makeSvg('text', { x: left, y: height - 4 }, '−60 s');
    const newest = makeSvg('text', { x: width - right, y: height - 4, 'text-anchor': 'end' }, 'now');
    this.svg = makeSvg(
      'svg',
      { viewBox: `0 0 ${width} ${height}`, role: 'img' },
      ...rules,
      ...this.labels,
      oldest,
      newest,
      ...this.lines,
    );
    const legend = series.map(({ name, kind }) =>
      make('li', { class: kind }, makeLegendLine(kind), name),
    );
    place.append(this.svg, make('ul', { class: 'legend' }, ...legend));
    this.draw();
  }

  /** @param {(number | null)[][]} values of each series, the latest last */
  replace(values) {
    this.values = values.map((list) => list.slice(-points));
    this.draw();
  }

  /** @param {(number | null)[]} values one of each series */
  add(values) {
    values.forEach((value, index) => {
      this.values[index].push(value);
      if (this.values[index].length > points) this.values[index].shift();
    });
    this.draw();
  }

  draw() {
    const known = this.values.flat().filter((value) => value !== null);
    const top = roundUp(Math.max(10, ...known));
    this.labels.forEach((label, row) => setText(label, String((top * (2 - row)) / 2)));
    this.lines.forEach((line, index) => setAttribute(line, 'd', this.path(this.values[index], top)));
    const latest = this.series.map(({ name }, index) => {
      const value = this.values[index].at(-1);
      return `${name} ${typeof value === 'number' ? value.toFixed(1) : 'unknown'}`;
    });
    setAttribute(this.svg, 'aria-label', `${this.title}: ${latest.join(', ')}`);
  }

  /** @param {(number | null)[]} values @param {number} most */
  path(values, most) {
    const { width, height, left, right, top, bottom } = size;
    const step = (width - left - right) / (points - 1);
    let pen = 'M';
    let text = '';
    values.forEach((value, index) => {
      if (value === null) {
        pen = 'M';
        return;
      }
      const x = width - right - (values.length - 1 - index) * step;
      const y = height - bottom - (value / most) * (height - top - bottom);
      text += `${pen}${x.toFixed(1)} ${y.toFixed(1)}`;
      pen = 'L';
    });
    return text;
  }
}

/** @param {string} kind */
function makeLegendLine(kind) {
  return makeSvg(
    'svg',
    { viewBox: '0 0 24 8', width: 24, height: 8, 'aria-hidden': 'true' },
    makeSvg('path', { class: `line ${kind}`, d: 'M1 4H23' }),
  );
}
