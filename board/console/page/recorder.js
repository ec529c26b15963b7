// @ts-check
// Records a canvas and a sound stream of the console to a file of the browser's.
import { saveBlob } from './dom.js';
import { SoundStream } from './soundstream.js';

const picturesPerSecond = 30;
const types = ['video/webm;codecs=vp8,opus', 'video/webm', 'video/mp4'];

export class Recorder {
  /** @param {HTMLCanvasElement} canvas @param {string} soundPath */
  constructor(canvas, soundPath) {
    this.canvas = canvas;
    this.soundPath = soundPath;
    /** @type {MediaRecorder | null} */
    this.recorder = null;
    /** @type {Blob[]} */
    this.pieces = [];
    /** @type {() => void} */
    this.release = () => {};
  }

  get running() {
    return this.recorder !== null;
  }

  async start() {
    const type = types.find((name) => MediaRecorder.isTypeSupported(name));
    if (type === undefined) throw new Error('this browser cannot record');
    const context = new AudioContext();
    const sink = context.createMediaStreamDestination();
    const sound = new SoundStream(this.soundPath, context, sink);
    // Without an output there is silence; the picture is recorded all the same.
    sound.run().catch(() => {});
    const stream = this.canvas.captureStream(picturesPerSecond);
    sink.stream.getAudioTracks().forEach((track) => stream.addTrack(track));
    this.release = () => {
      sound.stop();
      stream.getTracks().forEach((track) => track.stop());
      context.close();
    };
    this.pieces = [];
    this.recorder = new MediaRecorder(stream, { mimeType: type });
    this.recorder.ondataavailable = (event) => this.pieces.push(event.data);
    this.recorder.start(1000);
  }

  /**
   * Saves the file; its whole name.
   * @param {string} stem ends with the dot
   */
  async stop(stem) {
    const recorder = this.recorder;
    if (recorder === null) throw new Error('nothing is being recorded');
    this.recorder = null;
    await new Promise((resolve) => {
      recorder.onstop = resolve;
      recorder.stop();
    });
    this.release();
    const name = stem + (recorder.mimeType.startsWith('video/mp4') ? 'mp4' : 'webm');
    saveBlob(new Blob(this.pieces, { type: recorder.mimeType }), name);
    return name;
  }
}
