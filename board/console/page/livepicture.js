// @ts-check
// A canvas that shows a stream of pictures, as long as somebody can see it.
import { readParts } from './multipart.js';

const retry_ms = 1000;
const rateWindow_ms = 2000;

/**
 * @typedef {object} Shown the picture on the canvas
 * @property {number | null} frame its number, null when it carries no mark
 * @property {number} age_ms
 * @property {string} size of the picture as it was sent or shown, "1920x1080"
 * @property {number} rate pictures a second on this page
 */

export class LivePicture {
  /**
   * @param {string} path
   * @param {HTMLCanvasElement} canvas
   * @param {(shown: Shown) => void} onShown after each picture
   */
  constructor(path, canvas, onShown) {
    this.path = path;
    this.canvas = canvas;
    const context = canvas.getContext('2d', { alpha: false });
    if (context === null) throw new Error('this browser draws no canvas');
    this.context = context;
    this.onShown = onShown;
    /** @type {number[]} */
    this.times = [];
    /** Keeps the stream going although the page is hidden. */
    this.needed = false;
    /** @type {AbortController | null} */
    this.running = null;
    document.addEventListener('visibilitychange', () => this.update());
    this.update();
  }

  /** @param {boolean} needed */
  setNeeded(needed) {
    this.needed = needed;
    this.update();
  }

  // A hidden page takes no pictures: encoding them costs the machine, and a browser has few
  // connections for all of a site's windows together.
  update() {
    const wanted = this.needed || !document.hidden;
    if (wanted && this.running === null) {
      this.running = new AbortController();
      this.run(this.running.signal);
    } else if (!wanted && this.running !== null) {
      this.running.abort();
      this.running = null;
    }
  }

  /** @param {AbortSignal} signal */
  async run(signal) {
    while (!signal.aborted) {
      try {
        const response = await fetch(this.path, { signal });
        if (response.ok && response.body !== null)
          for await (const part of readParts(response.body)) await this.show(part, signal);
      } catch {
        // The console is gone or goes away: it is asked again below, the page says so elsewhere.
      }
      if (!signal.aborted) await new Promise((resolve) => setTimeout(resolve, retry_ms));
    }
  }

  /**
   * @param {{headers: Map<string, string>, bytes: Uint8Array<ArrayBuffer>}} part
   * @param {AbortSignal} signal
   */
  async show({ headers, bytes }, signal) {
    const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }));
    if (!signal.aborted) {
      const { canvas } = this;
      if (canvas.width !== bitmap.width || canvas.height !== bitmap.height) {
        canvas.width = bitmap.width;
        canvas.height = bitmap.height;
      }
      this.context.drawImage(bitmap, 0, 0);
      const frame = headers.get('x-frame');
      this.onShown({
        frame: frame === undefined ? null : Number(frame),
        age_ms: Number(headers.get('x-age-ms')),
        size: headers.get('x-size') ?? '',
        rate: this.countRate(),
      });
    }
    bitmap.close();
  }

  countRate() {
    const now = performance.now();
    this.times.push(now);
    while (now - this.times[0] > rateWindow_ms) this.times.shift();
    const span = now - this.times[0];
    return span > 0 ? ((this.times.length - 1) * 1000) / span : 0;
  }
}
