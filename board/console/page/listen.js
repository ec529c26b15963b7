// @ts-check
// Hears in the browser what the microphone hears or the output plays.
import { byId, setAttribute, setText } from './dom.js';
import { reasonOf, say } from './orders.js';
import { SoundStream } from './soundstream.js';

export function startListening() {
  const button = byId('listen', HTMLButtonElement);
  const card = byId('listen-card', HTMLSelectElement);
  /** @type {SoundStream | null} */
  let stream = null;
  /** @type {AudioContext | null} */
  let context = null;

  /** @param {boolean} on */
  const show = (on) => {
    setAttribute(button, 'aria-pressed', String(on));
    delete button.dataset.playing;
    setText(button, on ? 'Stop listening' : 'Listen');
  };

  const stop = () => {
    stream?.stop();
    context?.close();
    stream = null;
    context = null;
    show(false);
  };

  const start = async () => {
    context = new AudioContext();
    const path = `/live/sound?card=${card.value}`;
    const mine = new SoundStream(path, context, context.destination, () => {
      button.dataset.playing = 'true';
      say(`you hear ${card.selectedOptions[0].text}`);
    });
    stream = mine;
    show(true);
    try {
      await mine.run();
      if (stream === mine) say('the sound ended');
    } catch (error) {
      if (stream === mine) say(`listening: ${reasonOf(error)}`, 'failed');
    }
    if (stream === mine) stop();
  };

  button.addEventListener('click', () => (stream === null ? start() : stop()));
  card.addEventListener('change', () => {
    if (stream === null) return;
    stop();
    start();
  });
}
