import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { until } from '../support/waiting.mjs';

async function saved(page, selector) {
  const coming = page.waitForEvent('download');
  await page.click(selector);
  const download = await coming;
  return { name: download.suggestedFilename(), bytes: await readFile(await download.path()) };
}

export async function keepsFiles({ page }) {
  const still = await saved(page, '#screen-png');
  assert.match(still.name, /^screen-.*\.png$/);
  assert.equal(still.bytes.toString('latin1', 1, 4), 'PNG');
  assert.deepEqual([still.bytes.readUInt32BE(16), still.bytes.readUInt32BE(20)], [640, 360]);

  await page.click('#screen-record');
  await until('the recording', async () => (await page.getAttribute('#screen-record', 'aria-pressed')) === 'true');
  const shown = () => page.evaluate(() => Number(document.querySelector('#screen-canvas').dataset.frame));
  const begin = await shown();
  await until('pictures to record', async () => (await shown()) > begin + 30);
  const film = await saved(page, '#screen-record');
  assert.match(film.name, /^screen-.*\.webm$/);
  assert.equal(film.bytes.readUInt32BE(0), 0x1a45dfa3); // EBML
  assert.ok(film.bytes.length > 5000, `${film.bytes.length} bytes`);
}
