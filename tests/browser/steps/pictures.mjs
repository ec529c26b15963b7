import assert from 'node:assert/strict';
import { frameOf, readCells } from '../support/mark.mjs';
import { until } from '../support/waiting.mjs';

const canvas = '#screen-canvas';

/** The frame on the page's canvas, by its mark and by what the page says; null between pictures. */
async function frameOnPage(page) {
  const { cells, told } = await page.evaluate(readCells, canvas);
  const frame = frameOf(cells);
  return frame === null || told === '' ? null : { frame, told: Number(told) };
}

export async function pictureMoves({ page }) {
  const first = await until('a picture with a mark', () => frameOnPage(page));
  const moved = await until('a later picture', async () => {
    const now = await frameOnPage(page);
    return now && now.frame > first.frame + 30 ? now : null;
  });
  assert.ok(moved.frame > first.frame);
  const facts = await page.textContent('#screen-facts');
  assert.match(facts, /640 × 360, 60 Hz/);
  assert.match(await page.textContent('#camera-facts'), /YUYV 640 × 360, 30 frames\/s/);
}

export async function pictureCarriesItsNumber({ page, bench }) {
  let before = (await bench.order('figures')).display.lastFrame;
  for (let round = 0; round < 5; ++round) {
    const floor = before;
    const { frame, told } = await until('a picture of that moment', async () => {
      const now = await frameOnPage(page);
      return now && now.frame >= floor ? now : null;
    });
    const { lastFrame } = (await bench.order('figures')).display;
    assert.equal(frame, told, 'the mark in the picture and the number beside it');
    assert.ok(frame <= lastFrame, `frame ${frame} on the page, the display is at ${lastFrame}`);
    before = lastFrame;
  }
}

export async function pictureFillsTheScreen({ page }) {
  const filling = () => page.evaluate(() => document.fullscreenElement?.id);
  await page.click('#screen-full');
  await until('full screen', async () => (await filling()) === 'screen-frame');
  await page.evaluate(() => document.exitFullscreen());
  await until('the page again', async () => (await filling()) === undefined);
}
