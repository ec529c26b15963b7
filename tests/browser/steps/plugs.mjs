import assert from 'node:assert/strict';
import { litState, untilState, untilStatus } from '../support/browser.mjs';
import { until } from '../support/waiting.mjs';

const plug = (page, device) => page.click(`[data-device="${device}"] > button`);
const counted = (page, way) =>
  page.evaluate((name) => {
    const items = [...document.querySelectorAll('#supervisor-diagram ul li')];
    return Number(/(\d+) times$/.exec(items.find((item) => item.textContent.startsWith(`${name}:`)).textContent)[1]);
  }, way);

export async function cameraIsReplugged({ page, bench }) {
  const before = await counted(page, 'PLAY to PLAYERR');
  await plug(page, 'camera');
  await untilStatus(page, /unplug camera: done/);
  await untilState(page, 'NODEVICE');
  assert.equal(await page.isVisible('#camera-overlay'), true);
  assert.equal(await page.textContent('#camera-overlay'), 'unplugged');
  for (const way of ['PLAY to PLAYERR', 'PLAYERR to OPENFAID', 'OPENFAID to NODEVICE'])
    assert.equal(await counted(page, way), before + 1, way);
  assert.equal((await bench.order('state')).cameraPlugged, false);
  await plug(page, 'camera');
  await untilState(page, 'PLAY');
  assert.equal(await page.isVisible('#camera-overlay'), false);
}

export async function displayIsReplugged({ page }) {
  const before = await counted(page, 'DISCONNECT to NODEVICE');
  assert.equal(await page.isVisible('#screen-overlay'), false);
  await plug(page, 'display');
  await until('that it shows', () => page.isVisible('#screen-overlay'));
  assert.equal(await page.textContent('#screen-overlay'), 'unplugged');
  assert.match(await page.getAttribute('#screen-canvas', 'aria-label'), /unplugged/);
  await untilState(page, 'NODEVICE');
  await until('the way there', async () => (await counted(page, 'DISCONNECT to NODEVICE')) === before + 1);
  await plug(page, 'display');
  await untilState(page, 'PLAY');
  assert.equal(await litState(page), 'PLAY');
  await until('the picture', async () => !(await page.isVisible('#screen-overlay')));
}

export async function devicesAreChosenByName({ page, bench }) {
  const row = page.locator('[data-device="camera"]');
  await row.locator('select').selectOption({ label: 'HD Pro Webcam C920 (YUYV H264 MJPG)' });
  await row.getByRole('button', { name: 'Use this' }).click();
  await untilStatus(page, /plug camera logitech-c920-h264: done/);
  assert.equal((await bench.order('state')).camera, 'logitech-c920-h264');
  const seen = page.getByLabel('Microphone hears');
  await seen.selectOption({ label: 'a tone of 1 kHz' });
  await untilStatus(page, /hear tone:1000: done/);
  const options = await page.locator('[data-device="display"] option').allTextContents();
  assert.ok(options.length > 40, `${options.length} displays`);
}
