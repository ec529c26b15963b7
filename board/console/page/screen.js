// @ts-check
// The display: its picture, full screen, a still, a recording.
import { byId, fixed, setAttribute, setText } from './dom.js';
import { LivePicture } from './livepicture.js';
import { download, reasonOf, say } from './orders.js';
import { Recorder } from './recorder.js';

const refresh_ms = 250; // of figures that a person reads

/** A name with the time in it, so that files do not overwrite each other. @param {string} end */
export function fileName(end) {
  const time = new Date().toISOString().slice(0, 19).replaceAll(':', '');
  return `screen-${time}.${end}`;
}

/** "1920x1080@60" in words. @param {string} mode */
export function modeText(mode) {
  const match = /^(\d+)x(\d+)@(\d+)$/.exec(mode);
  return match ? `${match[1]} × ${match[2]}, ${match[3]} Hz` : mode;
}

/** @param {import('./livepicture.js').Shown} shown */
export function shownText({ frame, age_ms, rate }) {
  const number = frame === null ? 'no frame number' : `frame ${frame}`;
  const age = Number.isFinite(age_ms) ? `, ${fixed(age_ms)} ms old` : '';
  return `${number}${age}, ${fixed(rate, 0)} pictures/s here`;
}

/** @param {import('./feed.js').Feed} feed */
export function startScreen(feed) {
  const canvas = byId('screen-canvas', HTMLCanvasElement);
  const frame = byId('screen-frame', HTMLElement);
  const overlay = byId('screen-overlay', HTMLElement);
  const figures = byId('screen-figures', HTMLElement);
  let refreshed = 0;
  const picture = new LivePicture('/live/screen.mjpeg', canvas, (shown) => {
    canvas.dataset.frame = shown.frame === null ? '' : String(shown.frame);
    if (performance.now() - refreshed < refresh_ms) return;
    refreshed = performance.now();
    setText(figures, shownText(shown));
  });

  feed.on('state', ({ state }) => {
    const text = !state.displayPlugged ? 'unplugged' : state.mode === '' ? 'no mode set' : '';
    overlay.hidden = text === '';
    setText(overlay, text);
    setAttribute(frame, 'data-plugged', String(state.displayPlugged));
    const mode = state.mode === '' ? 'no picture' : modeText(state.mode);
    setText(byId('screen-facts', HTMLElement), `${state.display}: ${text || mode}`);
    if (text !== '') setText(figures, '');
    setAttribute(canvas, 'aria-label', `The display's picture, live: ${text || mode}`);
  });

  const full = byId('screen-full', HTMLButtonElement);
  full.addEventListener('click', () => {
    if (document.fullscreenElement === frame) document.exitFullscreen();
    else frame.requestFullscreen().catch((error) => say(`full screen: ${reasonOf(error)}`, 'failed'));
  });
  byId('screen-png', HTMLButtonElement).addEventListener('click', () =>
    download('/screen.png', fileName('png')),
  );
  startRecording(picture, canvas);
}

/** @param {LivePicture} picture @param {HTMLCanvasElement} canvas */
function startRecording(picture, canvas) {
  const button = byId('screen-record', HTMLButtonElement);
  const recorder = new Recorder(canvas, '/live/sound?card=output');
  button.addEventListener('click', async () => {
    try {
      const starts = !recorder.running;
      picture.setNeeded(starts);
      if (starts) {
        await recorder.start();
        say('recording picture and sound of this page');
      } else {
        const name = await recorder.stop(fileName(''));
        say(`${name}: saved`, 'done');
      }
    } catch (error) {
      picture.setNeeded(false);
      say(`recording: ${reasonOf(error)}`, 'failed');
    }
    setAttribute(button, 'aria-pressed', String(recorder.running));
    setText(button, recorder.running ? 'Stop recording' : 'Record');
  });
}
