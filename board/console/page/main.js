// @ts-check
// The page: one stream of events from the console, and a panel a module.
import { startAge } from './age.js';
import { startCamera } from './camera.js';
import { byId, setAttribute, setText } from './dom.js';
import { startFaults } from './faultpanel.js';
import { Feed } from './feed.js';
import { startLog } from './log.js';
import { download } from './orders.js';
import { startPlugs } from './plugs.js';
import { startRemote } from './remote.js';
import { startScreen } from './screen.js';
import { startSound } from './sound.js';
import { startSupervisor } from './supervisor.js';
import { startTheme } from './theme.js';

/** @param {Feed} feed */
function startChips(feed) {
  const connection = byId('chip-connection', HTMLElement);
  const application = byId('chip-application', HTMLElement);
  const lost = byId('connection-lost', HTMLElement);
  feed.on('connection', (connected) => {
    setText(connection, connected ? 'connected' : 'connection lost');
    setAttribute(connection, 'data-good', String(connected));
    setAttribute(document.body, 'data-connected', String(connected));
    lost.hidden = connected;
    setText(lost, connected ? '' : 'The console does not answer. What stands here is the last that it said; the page connects again by itself.');
  });
  feed.on('state', ({ application: { running } }) => {
    setText(application, running ? 'application at work' : 'application uses no device');
    setAttribute(application, 'data-good', String(running));
  });
}

startTheme();
const feed = new Feed();
startChips(feed);
startScreen(feed);
startCamera(feed);
startAge(feed);
startSound(feed);
startRemote(feed);
startSupervisor(feed);
startFaults();
startLog(feed);
startPlugs(feed);
byId('save-session', HTMLButtonElement).addEventListener('click', () =>
  download('/session.json', 'session.json'),
);

// A hidden page needs no news; the console tells everything anew afterwards.
document.addEventListener('visibilitychange', () => (document.hidden ? feed.close() : feed.open()));
feed.open();
