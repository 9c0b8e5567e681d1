// What every browser test of the dashboard shares: a home folder of its own with a
// fixture of real repositories, a real `quorvane daemon` serving the dashboard,
// Debian's chromium driven by puppeteer-core, and the look at each screen (axe-core
// and screenshots, light and dark, wide and narrow).
//
// CTest passes in the environment:
//   QUORVANE_BINARY           the built quorvane
//   QUORVANE_BROWSER_MODULES  build-browser/node_modules
//   QUORVANE_CHROMIUM         the browser
//   QUORVANE_SCREENSHOTS      where the screenshots go (under the build folder)
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

const quorvane = process.env.QUORVANE_BINARY;
const modules = process.env.QUORVANE_BROWSER_MODULES;
const chromium = process.env.QUORVANE_CHROMIUM;
export const shots = process.env.QUORVANE_SCREENSHOTS;
if (!modules || !fs.existsSync(path.join(modules, 'puppeteer-core', 'package.json'))) {
  throw new Error(`puppeteer-core is not installed in ${modules}: run bash scripts/browser-tools.sh`);
}
const require = createRequire(path.join(path.dirname(modules), 'package.json'));
const puppeteer = require('puppeteer-core');
const axeSource = fs.readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');

// The sanitizer builds run the daemon many times slower; each wait ends as soon as
// what it waits for has happened.
const kStartLimit = 120_000;

export function git(cwd, ...args) {
  return execFileSync('git', ['-C', cwd, '-c', 'user.email=me@example.com', '-c', 'user.name=Me',
    ...args], { encoding: 'utf8', env: { ...process.env, ...gitDates } });
}

// The dates the next commits carry; set by `at`.
let gitDates = {};
function at(date) {
  const text = date.toISOString();
  gitDates = { GIT_AUTHOR_DATE: text, GIT_COMMITTER_DATE: text };
}

function commit(repo, file, text, message, when) {
  at(when);
  fs.writeFileSync(path.join(repo, file), text);
  git(repo, 'add', file);
  git(repo, 'commit', '-q', '-m', message);
  gitDates = {};
}

// The fixture every screen is tested on, in HOME/code, each with a real history:
//   app    on GitHub-like remote: pushed work yesterday, two commits today (one not
//          pushed), a modified file, a merged branch and a branch untouched for
//          forty days;
//   lib    one commit today, and behind its remote by a commit someone else pushed;
//   notes  no remote: a commit three days ago and a file never added.
// Today's commits fall between midnight and now, whatever the time of the run.
export function makeFixture(home) {
  const code = path.join(home, 'code');
  const remotes = path.join(home, 'remotes');
  fs.mkdirSync(code, { recursive: true });
  fs.mkdirSync(remotes, { recursive: true });
  const now = new Date();
  const midnight = new Date(now);
  midnight.setUTCHours(0, 0, 0, 0);
  const today = (share) => new Date(midnight.getTime() + (now - midnight) * share);
  const daysAgo = (days) => new Date(midnight.getTime() - days * 86_400_000 + 10 * 3_600_000);

  const app = path.join(code, 'app');
  execFileSync('git', ['init', '-q', '--bare', '-b', 'main', path.join(remotes, 'app.git')]);
  execFileSync('git', ['init', '-q', '-b', 'main', app]);
  git(app, 'config', 'user.email', 'me@example.com');
  git(app, 'remote', 'add', 'origin', path.join(remotes, 'app.git'));
  commit(app, 'README.md', '# app\n', 'Start the app', daysAgo(40));
  git(app, 'branch', 'old-spike');
  commit(app, 'main.c', 'int main(void) { return 0; }\n', 'Add the entry point', daysAgo(1));
  git(app, 'checkout', '-q', '-b', 'feature/login');
  commit(app, 'login.c', 'int login(void) { return 1; }\n', 'Add the login', daysAgo(1));
  git(app, 'checkout', '-q', 'main');
  git(app, 'merge', '-q', '--ff-only', 'feature/login');
  git(app, 'push', '-q', '-u', 'origin', 'main', 'feature/login');
  commit(app, 'main.c', 'int main(void) { return 1; }\n', 'Return the login result', today(0.3));
  git(app, 'push', '-q');
  commit(app, 'NOTES.md', 'todo\n', 'Note what is left', today(0.6));
  fs.writeFileSync(path.join(app, 'main.c'), 'int main(void) { return 2; }\n');

  const lib = path.join(code, 'lib');
  const other = path.join(home, 'other-lib');
  execFileSync('git', ['init', '-q', '--bare', '-b', 'main', path.join(remotes, 'lib.git')]);
  execFileSync('git', ['init', '-q', '-b', 'main', lib]);
  git(lib, 'config', 'user.email', 'me@example.com');
  git(lib, 'remote', 'add', 'origin', path.join(remotes, 'lib.git'));
  commit(lib, 'lib.c', 'int f(void);\n', 'Declare f', today(0.2));
  git(lib, 'push', '-q', '-u', 'origin', 'main');
  execFileSync('git', ['clone', '-q', path.join(remotes, 'lib.git'), other]);
  execFileSync('git', ['-C', other, '-c', 'user.email=someone@example.com', '-c', 'user.name=Someone',
    'commit', '-q', '--allow-empty', '-m', 'Someone else\'s change']);
  execFileSync('git', ['-C', other, 'push', '-q']);
  git(lib, 'fetch', '-q');

  const notes = path.join(code, 'notes');
  execFileSync('git', ['init', '-q', '-b', 'main', notes]);
  git(notes, 'config', 'user.email', 'me@example.com');
  commit(notes, 'ideas.md', '- one\n', 'Write down ideas', daysAgo(3));
  fs.writeFileSync(path.join(notes, 'draft.md'), 'draft\n');
  return { code, app, lib, notes };
}

// A daemon on a home folder of its own, and a browser. `prepare(ctx)` runs before
// the daemon starts, with `ctx.q` ready; by default it tracks the fixture. With
// `emptyDataFolder` the daemon starts on a data folder that does not exist yet, as
// on a first run, and serves on the first free port from the default one.
export async function startDashboard({ prepare = (ctx) => ctx.trackFixture(),
  emptyDataFolder = false } = {}) {
  const home = fs.mkdtempSync(path.join(os.tmpdir(), 'quorvane-browser-'));
  const data = path.join(home, 'data');
  // No desktop: `quorvane open` prints the address instead of starting a browser.
  const env = { ...process.env, HOME: home, TZ: 'UTC' };
  delete env.DISPLAY;
  delete env.WAYLAND_DISPLAY;
  const ctx = {
    home,
    data,
    env,
    q: (...args) => execFileSync(quorvane, ['--data-dir', data, ...args], { env, encoding: 'utf8' }),
    json: (...args) => JSON.parse(ctx.q(...args, '--json')),
    trackFixture() {
      ctx.fixture = makeFixture(home);
      for (const repo of [ctx.fixture.app, ctx.fixture.lib, ctx.fixture.notes]) ctx.q('repos', 'add', repo);
    },
  };
  await prepare(ctx);
  // A port of its own, so that parallel runs rarely meet; a taken one moves on.
  if (!emptyDataFolder) ctx.q('config', 'set', 'dashboard.port', String(20000 + (process.pid % 20000)));
  assert.equal(fs.existsSync(data), !emptyDataFolder, 'the data folder is as asked');
  ctx.daemon = spawn(quorvane, ['--data-dir', data, 'daemon'], { env, stdio: 'ignore' });
  const address = path.join(data, 'dashboard.json');
  const deadline = Date.now() + kStartLimit;
  while (!fs.existsSync(address)) {
    assert.ok(Date.now() < deadline, 'the daemon did not serve its dashboard in time');
    await delay(100);
  }
  ctx.port = JSON.parse(fs.readFileSync(address, 'utf8')).port;
  ctx.browser = await puppeteer.launch({
    executablePath: chromium,
    headless: true,
    // The sandbox needs namespaces a CI container may not give, and a container's
    // /dev/shm is often too small for the browser's shared memory.
    args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
  });

  // A page logged in and open on `screen` (with its ?query), once the screen has
  // drawn what it read.
  ctx.open = async (screen) => {
    const page = await ctx.browser.newPage();
    await page.goto(ctx.q('dashboard', 'url').trim());
    await page.goto(`http://127.0.0.1:${ctx.port}/${screen}`);
    await shown(page);
    return page;
  };
  // What the page's own session reads from the API.
  ctx.read = async (page, address) =>
    JSON.parse(await page.evaluate((a) => fetch(a).then((answer) => answer.text()), address));

  // A request the browser would never send: another Host, no cookie.
  ctx.raw = (pathname, headers = {}, method = 'GET') => new Promise((resolve, reject) => {
    http.request({ host: '127.0.0.1', port: ctx.port, path: pathname, headers, method }, (answer) => {
      answer.resume();
      answer.on('end', () => resolve(answer.statusCode));
    }).on('error', reject).end();
  });

  // One call on the daemon's agent socket, as an agent makes it: a JSON line out, a
  // JSON line back.
  ctx.agentCall = (tool, args) => new Promise((resolve, reject) => {
    const socket = net.connect(path.join(data, 'quorvane-agent.sock'));
    let reply = '';
    socket.on('connect', () => socket.write(`${JSON.stringify({ tool, args })}\n`));
    socket.on('data', (chunk) => {
      reply += chunk;
      if (reply.includes('\n')) {
        socket.end();
        resolve(JSON.parse(reply.slice(0, reply.indexOf('\n'))));
      }
    });
    socket.on('error', reject);
  });

  ctx.close = async () => {
    await ctx.browser?.close();
    ctx.daemon?.kill('SIGTERM');
    fs.rmSync(home, { recursive: true, force: true });
  };
  return ctx;
}

// Waits for the screen to draw what it read, and fails with what it says if it
// could not.
export async function shown(page) {
  await page.waitForSelector('main section[data-state]');
  const state = await page.$eval('main section', (section) =>
    [section.dataset.state, section.textContent.trim().slice(-200)]);
  assert.equal(state[0], 'shown', state[1]);
}

// The screen as a person sees it: no serious or critical axe-core fault, and a
// screenshot wide and narrow, light and dark, named after `name`.
// `ready`, when given, is a selector to wait for beyond the first drawing.
export async function look(page, name, ready) {
  // axe is injected as a script of its own, which the dashboard's policy forbids:
  // the page is loaded again without it.
  await page.setBypassCSP(true);
  await page.reload();
  await shown(page);
  if (ready) await page.waitForSelector(ready);
  await page.addScriptTag({ content: axeSource });
  const faults = await page.evaluate(async () =>
    (await axe.run()).violations.filter((v) => ['serious', 'critical'].includes(v.impact))
      .map((v) => `${v.id}: ${v.help} at ${v.nodes.map((n) => n.target.join(' ')).join(', ')}`));
  assert.deepEqual(faults, [], `${name} has no serious accessibility fault`);
  fs.mkdirSync(shots, { recursive: true });
  for (const [width, height] of [[1280, 800], [390, 844]]) {
    for (const scheme of ['light', 'dark']) {
      await page.setViewport({ width, height });
      await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
      await page.screenshot({ path: path.join(shots, `${name}-${width}x${height}-${scheme}.png`), fullPage: true });
    }
  }
}
