// @ts-check
// Orders to the board, and the line that says what became of the latest one.
import { byId, saveBlob, setText } from './dom.js';

const patience_ms = 15000;
const status = byId('status', HTMLElement);

/**
 * @param {string} text
 * @param {'done' | 'failed' | 'plain'} [outcome]
 */
export function say(text, outcome = 'plain') {
  status.dataset.outcome = outcome;
  const mark = { done: '✓ ', failed: '✗ ', plain: '' }[outcome];
  setText(status, mark + text);
}

/** @param {unknown} error */
export function reasonOf(error) {
  if (error instanceof DOMException && error.name === 'TimeoutError')
    return 'no answer: is the bench open in several windows at once?';
  if (error instanceof TypeError) return 'the console does not answer';
  return error instanceof Error ? error.message : String(error);
}

/** @typedef {Record<string, string | number>} Fields */

/** @param {string} word @param {Fields} fields */
function inWords(word, fields) {
  return [word, ...Object.values(fields)].join(' ');
}

/** @param {string} word @param {Fields} fields */
async function post(word, fields) {
  const response = await fetch('/order', {
    method: 'POST',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ order: word, ...fields }),
    keepalive: true, // a release must arrive although the page goes
    signal: AbortSignal.timeout(patience_ms),
  });
  const answer = await response.json();
  if (!answer.ok) throw new Error(answer.error ?? `the console answers ${response.status}`);
  return answer;
}

/**
 * Orders of one lane arrive in the sequence in which they were given.
 */
export class Lane {
  constructor() {
    /** @type {Promise<unknown>} */
    this.last = Promise.resolve();
  }

  /**
   * Whether the board did it; says so on the status line either way.
   * @param {string} word
   * @param {Fields} [fields]
   * @returns {Promise<boolean>}
   */
  order(word, fields = {}) {
    const result = this.last.then(async () => {
      try {
        await post(word, fields);
        say(`${inWords(word, fields)}: done`, 'done');
        return true;
      } catch (error) {
        say(`${inWords(word, fields)}: ${reasonOf(error)}`, 'failed');
        return false;
      }
    });
    this.last = result;
    return result;
  }

  /**
   * One after the other, as long as each is done.
   * @param {[string, Fields][]} orders
   */
  async all(orders) {
    for (const [word, fields] of orders) if (!(await this.order(word, fields))) return false;
    return true;
  }
}

/**
 * A file of the console's, saved under a name.
 * @param {string} path
 * @param {string} name
 */
export async function download(path, name) {
  try {
    const response = await fetch(path, { signal: AbortSignal.timeout(patience_ms) });
    if (!response.ok) {
      const text = await response.text();
      throw new Error(text.trim() || `the console answers ${response.status}`);
    }
    saveBlob(await response.blob(), name);
    say(`${name}: saved`, 'done');
  } catch (error) {
    say(`${name}: ${reasonOf(error)}`, 'failed');
  }
}
