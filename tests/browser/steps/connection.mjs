import assert from 'node:assert/strict';
import { litState } from '../support/browser.mjs';
import { until } from '../support/waiting.mjs';

const connected = (page) => page.getAttribute('body', 'data-connected');

export async function connectionComesBack({ page, bench }) {
  const { port } = bench;
  await bench.console.stop();
  await until('the loss', async () => (await connected(page)) === 'false');
  assert.equal(await page.isVisible('#connection-lost'), true);
  const lines = await page.locator('#log-list li').count();
  await bench.startConsole(port);
  await until('the connection', async () => (await connected(page)) === 'true');
  assert.equal(await page.isVisible('#connection-lost'), false);
  await until('a state', () => litState(page));
  // The whole log comes again, and stands there once.
  await until('the log', async () => (await page.locator('#log-list li').count()) >= lines);
  const first = await page.locator('#log-list .text').first().textContent();
  assert.equal(await page.locator('#log-list .text').getByText(first, { exact: true }).count(), 1);
}
