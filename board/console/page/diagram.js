// @ts-check
// The supervisor's states and the ways between them, drawn once.
import { makeSvg, setAttribute, setText } from './dom.js';

const box = { width: 128, height: 40 };
const view = { width: 480, height: 268 };

/** Names as the log has them; where each is drawn (its middle), and what it means. */
export const states = [
  { name: 'STATUE_POLL_NODEVICE', short: 'NODEVICE', x: 72, y: 122, means: 'no camera or no display' },
  { name: 'STATUE_POOL_OPENDEVICE', short: 'OPENDEVICE', x: 240, y: 122, means: 'building the pipeline' },
  { name: 'STATUE_POOL_PLAY', short: 'PLAY', x: 408, y: 122, means: 'pipeline running' },
  { name: 'STATUE_POOL_PLAYERR', short: 'PLAYERR', x: 408, y: 240, means: 'the capture failed' },
  { name: 'STATUE_POOL_OPENFAID', short: 'OPENFAID', x: 72, y: 240, means: 'camera there, no pipeline' },
  { name: 'STATUE_POOL_DISCONNECT', short: 'DISCONNECT', x: 240, y: 28, means: 'the display was unplugged' },
];

/**
 * `from` and `to` as the log has them, which calls the state after a display's loss PLAYERR; `name`
 * tells where the way is drawn. `at`: middle of the count.
 */
export const ways = [
  { from: 'STATUE_POLL_NODEVICE', to: 'STATUE_POOL_OPENDEVICE', name: 'NODEVICE to OPENDEVICE', path: 'M136 122H171', at: [154, 108] },
  { from: 'STATUE_POOL_OPENDEVICE', to: 'STATUE_POOL_PLAY', name: 'OPENDEVICE to PLAY', path: 'M304 122H339', at: [322, 108] },
  { from: 'STATUE_POOL_OPENDEVICE', to: 'STATUE_POOL_OPENFAID', name: 'OPENDEVICE to OPENFAID', path: 'M222 142L134 216', at: [200, 186] },
  { from: 'STATUE_POOL_PLAY', to: 'STATUE_POOL_PLAYERR', name: 'PLAY to PLAYERR', path: 'M408 142V215', at: [424, 184] },
  { from: 'STATUE_POOL_PLAY', to: 'STATUE_POOL_DISCONNECT', name: 'PLAY to DISCONNECT', path: 'M408 102V28H309', at: [424, 66] },
  { from: 'STATUE_POOL_PLAYERR', to: 'STATUE_POOL_OPENFAID', name: 'PLAYERR to OPENFAID', path: 'M344 240H141', at: [242, 226] },
  { from: 'STATUE_POOL_PLAYERR', to: 'STATUE_POLL_NODEVICE', name: 'DISCONNECT to NODEVICE', path: 'M176 28H72V97', at: [56, 66] },
  { from: 'STATUE_POOL_OPENFAID', to: 'STATUE_POLL_NODEVICE', name: 'OPENFAID to NODEVICE', path: 'M36 220V147', at: [20, 186] },
  { from: 'STATUE_POOL_OPENFAID', to: 'STATUE_POLL_NODEVICE(WAKE UP)', name: 'OPENFAID to NODEVICE, woken up', path: 'M84 220V147', at: [100, 174], note: 'wake up' },
];

/** What stands at a way: how often it was taken. @param {number} count */
function countText(count) {
  return count === 0 ? '' : `${count}×`;
}

export class Diagram {
  /** @param {HTMLElement} place */
  constructor(place) {
    this.counts = ways.map(({ at }) => makeSvg('text', { class: 'count', x: at[0], y: at[1], 'text-anchor': 'middle' }));
    this.lines = ways.map(({ path }) => makeSvg('path', { class: 'way', d: path, 'marker-end': 'url(#arrow)' }));
    const notes = ways
      .filter(({ note }) => note !== undefined)
      .map(({ at, note }) => makeSvg('text', { class: 'note', x: at[0] - 8, y: at[1] + 14 }, note ?? ''));
    this.boxes = states.map(({ name, short, x, y, means }) =>
      makeSvg(
        'g',
        { class: 'state', role: 'listitem', 'aria-label': `${name}: ${means}`, 'data-state': name },
        makeSvg('rect', { x: x - box.width / 2, y: y - box.height / 2, width: box.width, height: box.height, rx: 8 }),
        makeSvg('text', { x, y: y + 5, 'text-anchor': 'middle' }, short),
      ),
    );
    const arrow = makeSvg(
      'marker',
      { id: 'arrow', viewBox: '0 0 8 8', refX: 3, refY: 4, markerWidth: 8, markerHeight: 8, orient: 'auto', markerUnits: 'userSpaceOnUse' },
      makeSvg('path', { class: 'arrow', d: 'M0 0L8 4L0 8z' }),
    );
    place.append(
      makeSvg(
        'svg',
        { viewBox: `0 0 ${view.width} ${view.height}` },
        makeSvg('defs', {}, arrow),
        makeSvg('g', { 'aria-hidden': 'true' }, ...this.lines, ...this.counts, ...notes),
        makeSvg('g', { role: 'list', 'aria-label': 'States' }, ...this.boxes),
      ),
    );
  }

  /**
   * @param {string} present the name of the state
   * @param {number[]} counts how often each of `ways` was taken
   * @param {number} latest index of the way taken last, -1: none yet
   */
  show(present, counts, latest) {
    this.boxes.forEach((node) => {
      const lit = node.dataset.state === present;
      node.classList.toggle('lit', lit);
      setAttribute(node, 'aria-current', lit ? 'true' : null);
    });
    this.lines.forEach((line, index) => {
      line.classList.toggle('taken', counts[index] > 0);
      line.classList.toggle('latest', index === latest);
    });
    this.counts.forEach((node, index) => setText(node, countText(counts[index])));
  }
}
