// Reads the machine-readable mark of board/media/stamp.h from a canvas in the page.

/**
 * To be evaluated in the page: the luma of the mark's 64 cells, and the number that the page says
 * belongs to the picture.
 */
export function readCells(selector) {
  const canvas = document.querySelector(selector);
  const cell = Math.floor(canvas.width / 64);
  const { data } = canvas.getContext('2d').getImageData(0, 0, cell * 16, cell * 4);
  const cells = [];
  for (let row = 0; row < 4; ++row) {
    for (let column = 0; column < 16; ++column) {
      const at = (Math.floor((row + 0.5) * cell) * cell * 16 + Math.floor((column + 0.5) * cell)) * 4;
      cells.push(0.299 * data[at] + 0.587 * data[at + 1] + 0.114 * data[at + 2]);
    }
  }
  return { cells, told: canvas.dataset.frame };
}

function checkSum(bytes) {
  let sum = 0x5a;
  for (const byte of bytes) {
    sum ^= byte;
    for (let bit = 0; bit < 8; ++bit) sum = (sum & 0x80 ? (sum << 1) ^ 0x07 : sum << 1) & 0xff;
  }
  return sum;
}

/** The frame's number, or null when the check sum does not hold. */
export function frameOf(cells) {
  const bytes = new Uint8Array(8);
  cells.forEach((luma, index) => {
    if (luma > 125) bytes[index >> 3] |= 0x80 >> (index & 7);
  });
  if (checkSum(bytes.subarray(0, 7)) !== bytes[7]) return null;
  return (bytes[0] << 16) | (bytes[1] << 8) | bytes[2];
}
