// The page against a running bench: pictures, remote, plugs, log, orders, files, accessibility.
import { after, before, test } from 'node:test';
import { Bench, soundScenario } from './support/bench.mjs';
import { assertNoComplaints, openBrowser, openPage, untilState } from './support/browser.mjs';
import { accessibleEverywhere, keyboardReachesAll } from './steps/accessibility.mjs';
import { keepsFiles } from './steps/files.mjs';
import { everyFaultIsAnOrder, wrongOrderShowsItsError } from './steps/faults.mjs';
import { logIsExplained, logIsSearched } from './steps/log.mjs';
import { pictureCarriesItsNumber, pictureFillsTheScreen, pictureMoves } from './steps/pictures.mjs';
import { cameraIsReplugged, devicesAreChosenByName, displayIsReplugged } from './steps/plugs.mjs';
import { keyboardDrives, keysAreReleased, mouseHoldsAKey, touchHoldsAKey } from './steps/remote.mjs';
import { connectionComesBack } from './steps/connection.mjs';
import { soundIsHeard } from './steps/sound.mjs';

let bench;
let browser;
let page;

before(async () => {
  [bench, browser] = await Promise.all([Bench.start(soundScenario()), openBrowser()]);
  page = await openPage(browser, bench.address);
  await untilState(page, 'PLAY');
});

after(async () => {
  await browser?.close();
  await bench?.stop();
});

const steps = {
  'the picture moves': pictureMoves,
  'the picture carries the number that the page and the board say': pictureCarriesItsNumber,
  'the picture fills the screen': pictureFillsTheScreen,
  'W held with the mouse is tilt speed 10, and 0 when it is let go': mouseHoldsAKey,
  'the remote works with the keyboard': keyboardDrives,
  'the remote works by touch': touchHoldsAKey,
  'no key stays down when the page loses it': keysAreReleased,
  'the sound shows on the meters and can be heard': soundIsHeard,
  'pictures and recordings are saved': keepsFiles,
  'the log is searched': logIsSearched,
  'the log is explained under the pointer and on the keyboard': logIsExplained,
  'a wrong order shows its error': wrongOrderShowsItsError,
  'the camera is unplugged and plugged in': cameraIsReplugged,
  'the display is unplugged and plugged in': displayIsReplugged,
  'nothing that matters is inaccessible': accessibleEverywhere,
  'the tab key reaches everything, and one sees where it is': keyboardReachesAll,
  'devices are chosen by their real names': devicesAreChosenByName,
  'every fault of the menu is an order': everyFaultIsAnOrder,
};

for (const [name, step] of Object.entries(steps)) {
  test(name, async () => {
    await step({ page, bench, browser });
    await assertNoComplaints(page);
  });
}

// The browser itself complains when the console is gone.
test('the page connects again by itself', () => connectionComesBack({ page, bench }));
