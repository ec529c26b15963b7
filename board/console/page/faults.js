// @ts-check
// What can be broken, and what that is in real life.

/**
 * @typedef {object} Amount a number that the reader may choose
 * @property {string} label
 * @property {string} field of the order
 * @property {number} value at first
 * @property {number} least
 * @property {number} most
 */

/**
 * @typedef {object} Fault
 * @property {string} group
 * @property {string} title
 * @property {string} life one sentence: what happens in real life
 * @property {[string, Record<string, string | number>]} order
 * @property {[string, Record<string, string | number>]} [undo]
 * @property {Amount} [amount]
 */

/** @param {number} value @returns {Amount} */
const frames = (value) => ({ label: 'frames', field: 'count', value, least: 1, most: 10000 });
/** @param {number} value @returns {Amount} */
const millionths = (value) => ({ label: 'ppm', field: 'ppm', value, least: -100000, most: 100000 });
/** @param {number} value @returns {Amount} */
const times = (value) => ({ label: 'times', field: 'count', value, least: 1, most: 1000 });

/** @param {string} kind @param {string} title @param {string} life @returns {Fault} */
const damaged = (kind, title, life) => ({
  group: 'Camera',
  title,
  life,
  order: ['payload-fault', { kind }],
  amount: frames(10),
});

/** @param {string} title @param {string} ioctl @param {string} errno @param {string} life @returns {Fault} */
const failing = (title, ioctl, errno, life) => ({
  group: 'Calls',
  title,
  life,
  order: ['fail', { ioctl, nth: 1, errno }],
  undo: ['faults-clear', {}],
  amount: times(1),
});

/** @type {Fault[]} */
export const faults = [
  {
    group: 'Camera',
    title: 'camera hangs',
    life: 'The camera’s firmware hangs: it stays on the bus and takes buffers, but no picture comes until somebody wakes it.',
    order: ['stall', { device: 'camera' }],
    undo: ['resume', { device: 'camera' }],
  },
  damaged('truncate', 'pictures cut short', 'A bad cable or a full USB bus loses the last packets of a picture.'),
  damaged('flip-bits', 'bits flipped', 'Interference on a long or cheap cable changes single bits on the way.'),
  damaged('no-huffman', 'pictures without code tables', 'Some cameras leave the code tables out of each picture, as early motion-JPEG allowed.'),
  damaged('bytes-before', 'rubbish before a picture', 'A camera puts bytes of its own in front of the picture.'),
  damaged('bytes-after', 'rubbish after a picture', 'A camera pads its pictures with whatever was left in its memory.'),
  damaged('wrong-size', 'wrong size in the picture', 'A camera’s firmware writes another size into the picture than it announced.'),
  damaged('empty', 'empty pictures', 'A camera that is busy with its exposure sends frames without content.'),
  damaged('oversized', 'oversized pictures', 'A very detailed scene compresses so badly that the picture fills the whole buffer.'),
  damaged('error-flag', 'frames marked as bad', 'The driver noticed a transmission error and says so with the frame.'),
  {
    group: 'Camera',
    title: 'now and then a bad picture',
    life: 'A worn plug: for hours every now and then a picture is damaged, each time in another way.',
    order: ['payload-mix', {}],
    undo: ['payload-mix', { permille: 0 }],
    amount: { label: 'of 1000', field: 'permille', value: 20, least: 1, most: 1000 },
  },
  {
    group: 'Camera',
    title: 'stream changes its size',
    life: 'An H.264 camera changes the size of its pictures in the middle of the stream, although the format stays.',
    order: ['encoded-size', { width: 640, height: 480 }],
  },
  {
    group: 'Display',
    title: 'page flips hang',
    life: 'The display controller takes page flips and finishes none, as after a glitch of its clock.',
    order: ['flips', { action: 'hold' }],
    undo: ['flips', { action: 'go' }],
  },
  {
    group: 'Display',
    title: 'one flip’s event is lost',
    life: 'A page flip completes, but under load its event never reaches the application.',
    order: ['lose-flip', {}],
  },
  {
    group: 'Sound',
    title: 'output runs dry',
    life: 'The machine was busy for too long, the output had nothing left to play.',
    order: ['xrun', { device: 'output' }],
  },
  {
    group: 'Sound',
    title: 'microphone runs over',
    life: 'Nobody fetched the microphone’s sound in time, some of it is lost.',
    order: ['xrun', { device: 'microphone' }],
  },
  {
    group: 'Sound',
    title: 'output stands still',
    life: 'The HDMI sink stops its sound clock, as televisions do while they switch inputs.',
    order: ['stall', { device: 'output' }],
    undo: ['resume', { device: 'output' }],
  },
  {
    group: 'Sound',
    title: 'microphone stands still',
    life: 'The USB sound function hangs while the camera’s pictures go on.',
    order: ['stall', { device: 'microphone' }],
    undo: ['resume', { device: 'microphone' }],
  },
  {
    group: 'Sound',
    title: 'output sleeps',
    life: 'Power management puts the sound controller to sleep and forgets to wake it.',
    order: ['suspend', { device: 'output', action: 'hold' }],
    undo: ['resume', { device: 'output' }],
  },
  {
    group: 'Sound',
    title: 'microphone slept briefly',
    life: 'USB power saving suspended the microphone for a moment; its stream must be set going again.',
    order: ['suspend', { device: 'microphone', action: 'brief' }],
  },
  {
    group: 'Sound',
    title: 'microphone’s clock is off',
    life: 'Two quartzes never agree: the camera’s sound comes a little faster or slower than the output plays it.',
    order: ['clock-error', { device: 'microphone' }],
    undo: ['clock-error', { device: 'microphone', ppm: 0 }],
    amount: millionths(200),
  },
  {
    group: 'Sound',
    title: 'output is taken',
    life: 'Another program has the sound card open when the application wants it.',
    order: ['open-fails', { device: 'output', errno: 'EBUSY' }],
    undo: ['open-fails', { device: 'output', errno: 0 }],
    amount: times(1),
  },
  failing('USB bandwidth is used up', 'VIDIOC_STREAMON', 'ENOSPC', 'Another device on the same hub has reserved the bandwidth that the camera’s stream needs.'),
  failing('a frame cannot be fetched', 'VIDIOC_DQBUF', 'EIO', 'The USB controller reports an error while a frame is under way.'),
  failing('no memory for buffers', 'VIDIOC_REQBUFS', 'ENOMEM', 'The kernel finds no contiguous memory for the camera’s buffers.'),
  failing('a page flip is refused', 'DRM_IOCTL_MODE_PAGE_FLIP', 'EBUSY', 'The display controller is still busy with the flip before.'),
  failing('the mode cannot be set', 'DRM_IOCTL_MODE_SETCRTC', 'EINVAL', 'The display’s clock generator cannot make the frequency that the mode needs.'),
  {
    group: 'Time',
    title: 'clock jumps an hour ahead',
    life: 'The board has no battery clock: when the network comes up, the time jumps.',
    order: ['clock-step', { ms: 3600000 }],
    undo: ['clock-step', { ms: -3600000 }],
  },
  {
    group: 'Time',
    title: 'clock jumps an hour back',
    life: 'A time server corrects a clock that ran ahead.',
    order: ['clock-step', { ms: -3600000 }],
    undo: ['clock-step', { ms: 3600000 }],
  },
];
