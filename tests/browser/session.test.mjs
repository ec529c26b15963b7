// A session that was saved on the page is replayed by the board: the application says the same.
// Without sound, which runs dry on a busy machine and says so.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { Bench, quietScenario } from './support/bench.mjs';
import { openBrowser, openPage, untilState, untilStatus } from './support/browser.mjs';
import { until } from './support/waiting.mjs';

const speed = 3; // of the board's clocks

let bench;
let browser;
let page;

before(async () => {
  [bench, browser] = await Promise.all([Bench.start({ ...quietScenario(), speed }), openBrowser()]);
  page = await openPage(browser, bench.address);
  await untilState(page, 'PLAY');
});

after(async () => {
  await browser?.close();
  await bench?.stop();
});

/** What was seen is given this much more time: a replay on a busier machine may be that much slower. */
function leaveRoom() {
  return new Promise((resolve) => setTimeout(resolve, 800));
}

/** Turns the camera, takes it away and gives it back, takes the display away and gives it back. */
async function session() {
  await page.focus('.key-up');
  for (const [turn, speed] of [['down', 10], ['up', 0]]) {
    await page.keyboard[turn]('w');
    await until(`tilt speed ${speed}`, async () => (await bench.order('ptz')).tiltSpeed === speed);
    await leaveRoom();
  }
  for (const device of ['camera', 'display']) {
    for (const state of ['NODEVICE', 'PLAY']) {
      await page.click(`[data-device="${device}"] > button`);
      await untilState(page, state);
      await leaveRoom();
    }
  }
}

test('a saved session replays to the same log lines', async () => {
  await session();
  const coming = page.waitForEvent('download');
  await page.click('#save-session');
  const download = await coming;
  assert.equal(download.suggestedFilename(), 'session.json');
  await untilStatus(page, /session\.json: saved/);
  const saved = bench.file('saved.json');
  await download.saveAs(saved);
  const expected = await bench.steadyLog();
  await browser.close();
  browser = null;

  const replay = await Bench.start(saved);
  try {
    let lines = [];
    await until('as many lines', async () => (lines = await replay.steadyLog()).length >= expected.length, 60000).catch(
      () => {}, // the comparison says more
    );
    assert.deepEqual(lines, expected);
  } finally {
    await replay.stop();
  }
});
