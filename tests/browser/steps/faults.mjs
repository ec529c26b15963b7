import assert from 'node:assert/strict';
import { untilStatus } from '../support/browser.mjs';

export async function wrongOrderShowsItsError({ page }) {
  await page.selectOption('#fault', { label: 'stream changes its size' });
  assert.match(await page.textContent('#fault-sentence'), /H\.264/);
  await page.click('#fault-do');
  await untilStatus(page, /^✗ encoded-size 640 480: .*H264/);
  assert.equal(await page.getAttribute('#status', 'data-outcome'), 'failed');
  await page.selectOption('#fault', { label: 'pictures cut short' });
  await page.fill('#fault-amount', '3');
  await page.click('#fault-do');
  await untilStatus(page, /^✓ payload-fault truncate 3: done/);
}

/** As the page gives it, without waiting for what it does. */
async function give(page, [order, fields], amount) {
  const body = { order, ...fields, ...(amount && { [amount.field]: amount.value }) };
  return page.evaluate(async (text) => {
    const headers = { 'Content-Type': 'application/json' };
    return (await fetch('/order', { method: 'POST', headers, body: text })).json();
  }, JSON.stringify(body));
}

export async function everyFaultIsAnOrder({ page }) {
  const faults = await page.evaluate(async () => (await import('/faults.js')).faults);
  assert.ok(faults.length > 20);
  for (const { title, life, order, undo, amount } of faults) {
    assert.match(life, /^[A-Z].*\.$/, title);
    const answer = await give(page, order, amount);
    // The camera's format does not go with every kind of damage: such are refused, and say why.
    assert.ok(answer.ok || /format|H264/.test(answer.error), `${title}: ${answer.error}`);
    if (undo) assert.deepEqual((await give(page, undo)).ok, true, `${title}, mended`);
  }
}
