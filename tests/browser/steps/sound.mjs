import { until } from '../support/waiting.mjs';

export async function soundIsHeard({ page }) {
  for (const name of ['Microphone, left', 'Output, right']) {
    const meter = page.getByRole('meter', { name });
    await until(`a level: ${name}`, async () => Number(await meter.getAttribute('aria-valuenow')) > -50);
  }
  const request = page.waitForResponse(/live\/sound\?card=output$/);
  await page.click('#listen');
  const response = await request;
  if (response.status() !== 200) throw new Error(`the sound is refused: ${response.status()}`);
  await until('that it plays', async () => (await page.getAttribute('#listen', 'data-playing')) === 'true');
  await page.click('#listen');
  await until('the end of it', async () => (await page.textContent('#listen')) === 'Listen');
}
