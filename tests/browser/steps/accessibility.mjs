import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';

const widths = [360, 1920];
const themes = ['light', 'dark'];
const serious = ['serious', 'critical'];
const axeFile = createRequire(import.meta.url).resolve('axe-core/axe.min.js');

/** What axe-core finds, as text a person can act on. Of the log the latest lines: they are all alike. */
async function faultsOf(page) {
  const { violations } = await page.evaluate(() =>
    axe.run({ exclude: ['#log-list li:nth-last-child(n+30)'] }, { resultTypes: ['violations'] }),
  );
  return violations
    .filter(({ impact }) => serious.includes(impact))
    .flatMap(({ id, nodes }) => nodes.map(({ target, failureSummary }) => `${id} at ${target}: ${failureSummary}`));
}

export async function accessibleEverywhere({ page }) {
  const axe = await readFile(axeFile, 'utf8');
  await page.evaluate(axe);
  const before = page.viewportSize();
  for (const width of widths) {
    await page.setViewportSize({ width, height: 900 });
    for (const theme of themes) {
      await page.selectOption('#theme', theme);
      assert.deepEqual(await faultsOf(page), [], `${theme}, ${width} px`);
    }
    const scrolls = await page.evaluate(() => document.documentElement.scrollWidth > innerWidth);
    assert.equal(scrolls, false, `sideways scrolling at ${width} px`);
  }
  await page.selectOption('#theme', 'system');
  await page.setViewportSize(before);
}

/** Goes through the page with the tab key alone; what was reached, and what showed no focus. */
async function walk(page) {
  await page.focus('#save-session');
  await page.keyboard.press('Shift+Tab'); // the skip link comes before it
  const reached = [];
  for (;;) {
    const now = await page.evaluate(() => {
      const node = document.activeElement;
      if (node === document.body || node.dataset.walked) return null;
      node.dataset.walked = 'yes';
      const { outlineStyle, outlineWidth } = getComputedStyle(node);
      return { seen: outlineStyle !== 'none' && parseFloat(outlineWidth) >= 1, name: node.id || node.textContent };
    });
    if (now === null) return reached;
    reached.push(now);
    await page.keyboard.press('Tab');
  }
}

export async function keyboardReachesAll({ page }) {
  const reached = await walk(page);
  assert.deepEqual(reached.filter(({ seen }) => !seen), []);
  const missed = await page.evaluate(() =>
    [...document.querySelectorAll('a[href], button:enabled, select, input')]
      .filter((node) => node.checkVisibility() && !node.dataset.walked)
      .map((node) => node.id || node.textContent),
  );
  assert.deepEqual(missed, []);
  assert.ok(reached.some(({ name }) => /==>|:/.test(name)), 'a line of the log');
}
