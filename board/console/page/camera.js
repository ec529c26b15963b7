// @ts-check
// What the camera sees, its mode, and where a camera that turns points.
import { byId, fixed, make, makeSvg, setAttribute, setText } from './dom.js';
import { LivePicture } from './livepicture.js';
import { shownText } from './screen.js';

const refresh_ms = 250;
const arcSecondsPerDegree = 3600;
const mostPan_deg = 130; // the edges of the drawing
const mostTilt_deg = 90;
const drawing = { width: 260, height: 180 };

/** @param {{fourcc: string, width: number, height: number, interval: string, streaming: boolean}} camera */
function modeOf({ fourcc, width, height, interval, streaming }) {
  if (!streaming) return 'not streaming';
  const [seconds, frames] = interval.split('/').map(Number);
  return `${fourcc} ${width} × ${height}, ${fixed(frames / seconds, 0)} frames/s`;
}

class Pointer {
  /** @param {HTMLElement} place */
  constructor(place) {
    const { width, height } = drawing;
    this.view = makeSvg('rect', { class: 'ptz-view', rx: 2 });
    const svg = makeSvg(
      'svg',
      { viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true' },
      makeSvg('rect', { class: 'ptz-range', x: 1, y: 1, width: width - 2, height: height - 2, rx: 4 }),
      makeSvg('path', { class: 'ptz-axes', d: `M${width / 2} 1V${height - 1}M1 ${height / 2}H${width - 1}` }),
      this.view,
    );
    this.text = make('p', { class: 'ptz-text' });
    place.append(svg, this.text);
  }

  /** @param {Record<string, any>} ptz */
  show(ptz) {
    const { width, height } = drawing;
    const pan = ptz.pan / arcSecondsPerDegree;
    const tilt = ptz.tilt / arcSecondsPerDegree;
    const share = Math.max(0.15, 0.4 - Math.max(0, ptz.zoom) / 400); // zoomed in sees less
    const x = (0.5 + Math.max(-1, Math.min(1, pan / mostPan_deg)) / 2) * width;
    const y = (0.5 - Math.max(-1, Math.min(1, tilt / mostTilt_deg)) / 2) * height;
    const box = { x: x - (share * width) / 2, y: y - (share * height) / 2, width: share * width, height: share * height };
    for (const [name, value] of Object.entries(box)) setAttribute(this.view, name, value.toFixed(1));
    const parts = [`pan ${fixed(pan)}°`, `tilt ${fixed(tilt)}°`, `zoom ${ptz.zoom}`];
    for (const axis of ['pan', 'tilt', 'zoom'])
      if (ptz[`${axis}Speed`] !== 0) parts.push(`${axis} speed ${ptz[`${axis}Speed`]}`);
    if (ptz.tracking) parts.push('tracking');
    if (ptz.asleep) parts.push('asleep');
    setText(this.text, parts.join(', '));
  }
}

/** @param {import('./feed.js').Feed} feed */
export function startCamera(feed) {
  const canvas = byId('camera-canvas', HTMLCanvasElement);
  const overlay = byId('camera-overlay', HTMLElement);
  const figures = byId('camera-figures', HTMLElement);
  const place = byId('camera-ptz', HTMLElement);
  const pointer = new Pointer(place);
  let refreshed = 0;
  new LivePicture('/live/camera.mjpeg', canvas, (shown) => {
    if (performance.now() - refreshed < refresh_ms) return;
    refreshed = performance.now();
    setText(figures, shownText(shown));
  });

  feed.on('state', ({ state, figures: counted, ptz }) => {
    const mode = counted.camera ? modeOf(counted.camera) : 'none';
    const text = !state.cameraPlugged ? 'unplugged' : ptz?.asleep ? 'asleep' : '';
    overlay.hidden = text === '';
    setText(overlay, text);
    setText(byId('camera-facts', HTMLElement), text || `${mode} on ${state.cameraNode}`);
    if (text !== '') setText(figures, '');
    setAttribute(canvas, 'aria-label', `What the camera sees, live: ${text || mode}`);
    place.hidden = !ptz?.moves || !state.cameraPlugged;
    if (!place.hidden) pointer.show(ptz);
  });
}
