// @ts-check
// Where the supervisor is, and by which ways it came.
import { byId, make, setAttribute, setText } from './dom.js';
import { Diagram, states, ways } from './diagram.js';

/** The state that a log line names, which may have a reason in brackets. @param {string} name */
function stateNamed(name) {
  const plain = name.replace(/\(.*\)$/, '');
  // Nothing is printed before the first transition.
  return states.find((state) => state.name === (plain || 'STATUE_POLL_NODEVICE'));
}

/** @param {import('./feed.js').Feed} feed */
export function startSupervisor(feed) {
  const place = byId('supervisor-diagram', HTMLElement);
  const diagram = new Diagram(place);
  // The counts of the drawing once more, for those who do not see it.
  const list = make('ul', { class: 'unseen', 'aria-label': 'Transitions taken' });
  place.append(list);
  const now = byId('supervisor-now', HTMLElement);
  const chip = byId('chip-supervisor', HTMLElement);

  feed.on('state', ({ supervisor }) => {
    const taken = ways.map(({ from, to }) =>
      supervisor.transitions.find((/** @type {any} */ way) => way.from === from && way.to === to),
    );
    const counts = taken.map((way) => way?.count ?? 0);
    const times = taken.map((way) => way?.last_ms ?? -1);
    const latest = Math.max(...times);
    const present = stateNamed(supervisor.state);
    diagram.show(present?.name ?? '', counts, latest < 0 ? -1 : times.indexOf(latest));
    setText(now, present ? `${present.short}: ${present.means}` : supervisor.state);
    setText(chip, present?.short ?? supervisor.state);
    setAttribute(chip, 'data-good', String(present?.short === 'PLAY'));
    const lines = ways.map(({ name }, index) => `${name}: ${counts[index]} times`);
    if (list.childElementCount !== lines.length) list.replaceChildren(...lines.map(() => make('li')));
    lines.forEach((line, index) => setText(list.children[index], line));
  });
}
