import assert from 'node:assert/strict';
import { until } from '../support/waiting.mjs';

const lines = '#log-list li';
const current = (page) => page.textContent('#log-list .found-now .text');

export async function logIsSearched({ page, bench }) {
  const { length: known } = (await bench.steadyLog()).filter((line) => line.includes('STATUE_POOL_OPENDEVICE'));
  assert.ok(known >= 2);
  await page.fill('#log-text', 'statue_pool_openDevice');
  await until('the count', async () => (await page.textContent('#log-hits')) === `${known} found`);
  assert.equal(await page.locator('#log-list .found').count(), known);
  await page.press('#log-text', 'Enter');
  assert.match(await current(page), /NODEVICE ==> STATUE_POOL_OPENDEVICE/);
  assert.equal(await page.textContent('#log-hits'), `1 of ${known}`);
  await page.click('#log-next');
  assert.match(await current(page), /OPENDEVICE ==> STATUE_POOL_PLAY/);
  await page.click('#log-previous');
  await page.press('#log-text', 'Shift+Enter'); // from the first to the last
  assert.equal(await page.textContent('#log-hits'), `${known} of ${known}`);
  await page.fill('#log-text', 'what nobody prints');
  assert.equal(await page.textContent('#log-hits'), '0 found');
  assert.equal(await page.isDisabled('#log-next'), true);
  assert.equal(await page.locator('#log-list mark').count(), 0);
  await page.fill('#log-text', '');
  assert.equal(await page.textContent('#log-hits'), '');
}

export async function logIsExplained({ page }) {
  const explanation = '#log-explanation';
  const line = page.locator(lines, { hasText: 'OPENDEVICE ==> STATUE_POOL_PLAY' }).last();
  await line.scrollIntoViewIfNeeded();
  await line.hover();
  await until('an explanation', async () => /What to do/.test(await page.textContent(explanation)));
  assert.equal(await line.getAttribute('data-kind'), 'state');
  assert.equal(await line.locator('.tag').textContent(), 'state');
  await page.mouse.move(5, 5);
  // Every line is reached with the arrows, and says what it means to a reader of the screen too.
  await page.evaluate(() => document.querySelector('#log-list li[tabindex="0"]').focus());
  await page.keyboard.press('Home');
  assert.equal(await page.evaluate(() => document.activeElement === document.querySelector('#log-list').firstElementChild), true);
  assert.equal(await page.evaluate(() => document.activeElement.getAttribute('aria-describedby')), 'log-explanation');
  assert.match(await page.textContent(explanation), /What to do/);
  await page.keyboard.press('ArrowDown');
  assert.equal(await page.evaluate(() => document.activeElement === document.querySelector('#log-list').children[1]), true);
}
