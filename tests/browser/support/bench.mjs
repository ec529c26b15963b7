// A board, the application and the console as processes of their own, for one test file.
import { execFile, spawn } from 'node:child_process';
import { closeSync, mkdirSync, mkdtempSync, openSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { until } from './waiting.mjs';

const run = promisify(execFile);
export const source = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../..');
const build = process.env.TEST_BUILD_DIR || path.join(source, 'build-release');
const programs = {
  board: path.join(build, 'board/daemon/virtual-board'),
  preload: path.join(build, 'board/preload/libboardclient.so'),
  orders: path.join(build, 'board/ctl/boardctl'),
  console: path.join(build, 'board/console/board-console'),
  application: path.join(build, 'control/supervise/uvcbridge'),
  steadyLog: path.join(build, 'tests/support/steadylog'),
};

// A test that breaks off, or is killed, leaves nothing running.
const withUs = ['setpriv', '--pdeathsig', 'KILL', 'env'];

class Program {
  /** @param {string} out where standard output and error go, as files */
  constructor(command, args, out, err, env = {}) {
    const files = [openSync(out, 'w'), openSync(err, 'w')];
    const words = [...withUs, ...Object.entries(env).map(([name, value]) => `${name}=${value}`), command, ...args];
    this.child = spawn(words[0], words.slice(1), { stdio: ['ignore', ...files] });
    files.forEach((file) => closeSync(file));
    this.name = path.basename(command);
    this.out = out;
    this.err = err;
    this.ended = new Promise((resolve) => this.child.once('close', resolve));
  }

  output() {
    return readFileSync(this.out, 'utf8') + readFileSync(this.err, 'utf8');
  }

  /** The first match in the output. */
  expect(pattern) {
    return until(`${pattern} from ${this.name}; it said: ${this.output().slice(-2000)}`, () => {
      if (this.child.exitCode !== null) throw new Error(`${this.name} ended: ${this.output()}`);
      return pattern.exec(this.output());
    });
  }

  async stop() {
    this.child.kill('SIGTERM');
    await this.ended;
  }
}

export class Bench {
  /** `scenario`: a scenario document, or the path of one. */
  static async start(scenario) {
    const bench = new Bench();
    bench.folder = mkdtempSync(path.join(tmpdir(), 'browser-test.'));
    bench.board = path.join(bench.folder, 'board');
    mkdirSync(bench.board);
    try {
      await bench.startAll(scenario);
    } catch (error) {
      await bench.stop();
      throw error;
    }
    return bench;
  }

  file(name) {
    return path.join(this.folder, name);
  }

  async startAll(scenario) {
    let document = scenario;
    if (typeof scenario !== 'string') {
      document = this.file('scenario.json');
      writeFileSync(document, JSON.stringify(scenario));
    }
    const args = ['--run', this.board, '--scenario', document];
    this.daemon = new Program(programs.board, args, this.file('board.out'), this.file('board.err'));
    await this.daemon.expect(/^ready /m);
    this.application = new Program(programs.application, [], this.file('app.out'), this.file('app.err'), {
      VIRTUAL_BOARD: this.board,
      LD_PRELOAD: programs.preload,
    });
    await this.startConsole(0);
  }

  async startConsole(port) {
    this.console = new Program(
      programs.console,
      ['--board', this.board, '--log', this.application.out, '--err', this.application.err, '--port', String(port),
        '--page', path.join(source, 'board/console/page')],
      this.file('console.out'),
      this.file('console.err'),
    );
    [, this.address] = await this.console.expect(/^console: (http:\S+)/m);
  }

  get port() {
    return Number(new URL(this.address).port);
  }

  /** An order past the console; the board's answer, also when it refuses. */
  async order(...words) {
    const args = ['--board', this.board, '--json', ...words];
    const { stdout } = await run(programs.orders, args).catch((error) => error);
    return JSON.parse(stdout);
  }

  /** The application's log as two runs can be compared. */
  async steadyLog() {
    const { stdout } = await run(programs.steadyLog, [this.application.out], { maxBuffer: 1 << 26 });
    return stdout.split('\n').slice(0, -1);
  }

  async stop() {
    for (const program of [this.console, this.application, this.daemon]) await program?.stop();
    rmSync(this.folder, { recursive: true, force: true });
  }
}

/** A small camera that turns, its remote and a display: cheap to run. */
export function quietScenario() {
  return JSON.parse(readFileSync(path.join(source, 'tests/system/scenarios/small-ptz.json'), 'utf8'));
}

/** The same with sound cards. */
export function soundScenario() {
  return { ...quietScenario(), microphone: 'synthetic-microphone', output: 'synthetic-output' };
}
