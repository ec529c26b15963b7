// @ts-check
// A WAV stream without an end, played through Web Audio as it comes.

const startDelay_s = 0.12; // against gaps: the network and the scheduler are not even
const mostAhead_s = 0.6; // what is further ahead is left out, so that the sound stays live
const bytesOfSample = 2;

/**
 * @typedef {object} Format
 * @property {number} rate in Hz
 * @property {number} channels
 * @property {number} dataAt where the samples begin
 */

/**
 * Null while the head is not complete.
 * @param {Uint8Array} bytes
 * @returns {Format | null}
 */
function readHead(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  /** @param {number} at */
  const name = (at) => String.fromCharCode(...bytes.subarray(at, at + 4));
  let rate = 0;
  let channels = 0;
  for (let at = 12; at + 8 <= bytes.length; at += 8 + view.getUint32(at + 4, true)) {
    if (name(at) === 'data') return { rate, channels, dataAt: at + 8 };
    if (name(at) === 'fmt ' && at + 16 <= bytes.length) {
      channels = view.getUint16(at + 10, true);
      rate = view.getUint32(at + 12, true);
    }
  }
  return null;
}

/** @param {Uint8Array} first @param {Uint8Array} second */
function join(first, second) {
  const whole = new Uint8Array(first.length + second.length);
  whole.set(first);
  whole.set(second, first.length);
  return whole;
}

export class SoundStream {
  /**
   * @param {string} path
   * @param {AudioContext} context
   * @param {AudioNode} target
   * @param {() => void} [onFirst] when the first samples are to be played
   */
  constructor(path, context, target, onFirst = () => {}) {
    this.path = path;
    this.context = context;
    this.target = target;
    this.onFirst = onFirst;
    this.abort = new AbortController();
    this.next_s = 0;
  }

  /** Until the stream ends or `stop`; throws when the console refuses. */
  async run() {
    const response = await fetch(this.path, { signal: this.abort.signal });
    if (!response.ok || response.body === null)
      throw new Error((await response.text()).trim() || `the console answers ${response.status}`);
    const reader = response.body.getReader();
    /** @type {Format | null} */
    let format = null;
    let bytes = new Uint8Array(0);
    for (;;) {
      const { value, done } = await reader.read();
      if (done) return;
      bytes = join(bytes, value);
      if (format === null) {
        format = readHead(bytes);
        if (format === null) continue;
        bytes = bytes.slice(format.dataAt);
      }
      bytes = this.play(bytes, format);
    }
  }

  stop() {
    this.abort.abort();
  }

  /**
   * Plays whole frames and gives back what is left.
   * @param {Uint8Array<ArrayBuffer>} bytes
   * @param {Format} format
   */
  play(bytes, { rate, channels }) {
    const frameBytes = channels * bytesOfSample;
    const frames = Math.floor(bytes.length / frameBytes);
    if (frames === 0) return bytes;
    const now = this.context.currentTime;
    if (this.next_s === 0) this.onFirst();
    if (this.next_s < now) this.next_s = now + startDelay_s;
    if (this.next_s - now < mostAhead_s) {
      const view = new DataView(bytes.buffer, bytes.byteOffset);
      const buffer = this.context.createBuffer(channels, frames, rate);
      for (let channel = 0; channel < channels; ++channel) {
        const samples = buffer.getChannelData(channel);
        for (let i = 0; i < frames; ++i)
          samples[i] = view.getInt16(i * frameBytes + channel * bytesOfSample, true) / 32768;
      }
      const source = this.context.createBufferSource();
      source.buffer = buffer;
      source.connect(this.target);
      source.start(this.next_s);
      this.next_s += frames / rate;
    }
    return bytes.slice(frames * frameBytes);
  }
}
