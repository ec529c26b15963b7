// Debian's Chromium on the page, and what the tests ask of it.
import assert from 'node:assert/strict';
import { chromium } from 'playwright-core';
import { scaled, until } from './waiting.mjs';

const flags = [
  '--no-sandbox', // there is none for root
  '--disable-gpu', // machines that test have none: drawn by the processor without a detour
  '--autoplay-policy=no-user-gesture-required',
];

export function openBrowser() {
  return chromium.launch({ executablePath: process.env.TEST_CHROMIUM || '/usr/bin/chromium', args: flags });
}

/** A page on the bench that is connected. Whatever it complains of is in `complaints`. */
export async function openPage(browser, address, options = {}) {
  const page = await browser.newPage({ viewport: { width: 1600, height: 1000 }, ...options });
  page.setDefaultTimeout(scaled(20000));
  page.complaints = [];
  page.on('pageerror', (error) => page.complaints.push(error.stack));
  page.on('console', (message) => message.type() === 'error' && page.complaints.push(message.text()));
  await page.goto(address);
  await page.waitForSelector('body[data-connected="true"]');
  return page;
}

/** The short name of the state that the diagram has lit. */
export function litState(page) {
  return page.evaluate(() => document.querySelector('#supervisor-diagram [aria-current="true"]')?.textContent);
}

export function untilState(page, name) {
  return until(`state ${name} in the diagram`, async () => (await litState(page)) === name, 30000);
}

/** The line that says what became of an order, once it has this in it. */
export async function untilStatus(page, pattern) {
  await until(`${pattern} on the status line`, async () => pattern.test(await page.textContent('#status')));
}

export async function assertNoComplaints(page) {
  assert.deepEqual(page.complaints, []);
}
