import { until } from '../support/waiting.mjs';

const keyW = '.key-up';
const keyD = '.key-right';

/** What the camera itself was told, asked past the console. */
async function speedBecomes(bench, axis, speed) {
  await until(`${axis} speed ${speed}`, async () => (await bench.order('ptz'))[`${axis}Speed`] === speed);
}

async function middleOf(page, selector) {
  await page.locator(selector).scrollIntoViewIfNeeded();
  const { x, y, width, height } = await page.locator(selector).boundingBox();
  return [x + width / 2, y + height / 2];
}

async function held(page, bench, press, release, axis = 'tilt') {
  await press();
  await speedBecomes(bench, axis, 10);
  await release();
  await speedBecomes(bench, axis, 0);
}

export async function mouseHoldsAKey({ page, bench }) {
  await page.mouse.move(...(await middleOf(page, keyW)));
  await held(page, bench, () => page.mouse.down(), () => page.mouse.up());
  // The finger may leave the key before it goes up.
  await page.mouse.move(...(await middleOf(page, keyD)));
  await held(page, bench, () => page.mouse.down(), async () => {
    await page.mouse.move(5, 5);
    await page.mouse.up();
  }, 'pan');
}

export async function keyboardDrives({ page, bench }) {
  await page.focus(keyW);
  for (const key of ['Space', 'Enter', 'w'])
    await held(page, bench, () => page.keyboard.down(key), () => page.keyboard.up(key));
  // Away from the panel only with the switch, and never while somebody writes.
  await page.focus('#save-session');
  await page.keyboard.press('d');
  await page.check('#remote-keyboard');
  await page.focus('#save-session');
  await held(page, bench, () => page.keyboard.down('w'), () => page.keyboard.up('w'));
  await page.focus('#log-text');
  await page.keyboard.type('d');
  await page.fill('#log-text', '');
  await page.uncheck('#remote-keyboard');
  const { told } = await bench.order('told');
  const pans = told.filter(({ control }) => control === '0x009a0920');
  if (pans.length !== 2) throw new Error(`pan was driven ${pans.length} times, only the mouse should have: twice`);
}

export async function touchHoldsAKey({ page, bench }) {
  const session = await page.context().newCDPSession(page);
  const [x, y] = await middleOf(page, keyW);
  const touch = (type, touchPoints) => session.send('Input.dispatchTouchEvent', { type, touchPoints });
  await held(page, bench, () => touch('touchStart', [{ x, y }]), () => touch('touchEnd', []));
  await held(page, bench, () => touch('touchStart', [{ x, y }]), () => touch('touchCancel', []));
  await session.detach();
}

export async function keysAreReleased({ page, bench }) {
  await page.mouse.move(...(await middleOf(page, keyW)));
  await held(page, bench, () => page.mouse.down(), () => page.evaluate(() => dispatchEvent(new Event('blur'))));
  await page.mouse.up();
  // A key that stays down on purpose.
  await page.check('#remote-latch');
  await held(page, bench, () => page.click(keyW), () => page.click(keyW));
  await page.click(keyW);
  await speedBecomes(bench, 'tilt', 10);
  await page.uncheck('#remote-latch');
  await speedBecomes(bench, 'tilt', 0);
}
