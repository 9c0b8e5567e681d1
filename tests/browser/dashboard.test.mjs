// The dashboard in a real browser: Debian's chromium, driven by puppeteer-core,
// against a real `quorvane daemon` that this file starts in a folder of its own.
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
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';

const quorvane = process.env.QUORVANE_BINARY;
const modules = process.env.QUORVANE_BROWSER_MODULES;
const chromium = process.env.QUORVANE_CHROMIUM;
const shots = process.env.QUORVANE_SCREENSHOTS;
if (!modules || !fs.existsSync(path.join(modules, 'puppeteer-core', 'package.json'))) {
  throw new Error(`puppeteer-core is not installed in ${modules}: run bash scripts/browser-tools.sh`);
}
const require = createRequire(path.join(path.dirname(modules), 'package.json'));
const puppeteer = require('puppeteer-core');
const axeSource = fs.readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');

// The sanitizer builds run the daemon many times slower; each wait ends as soon as
// what it waits for has happened.
const kStartLimit = 120_000;

const home = fs.mkdtempSync(path.join(os.tmpdir(), 'quorvane-browser-'));
const data = path.join(home, 'data');
// No desktop: `quorvane open` prints the address instead of starting a browser.
const env = { ...process.env, HOME: home, TZ: 'UTC', DISPLAY: '', WAYLAND_DISPLAY: '' };
delete env.DISPLAY;
delete env.WAYLAND_DISPLAY;
let daemon;
let browser;
let port;

function q(...args) {
  return execFileSync(quorvane, ['--data-dir', data, ...args], { env, encoding: 'utf8' });
}

function git(cwd, ...args) {
  execFileSync('git', ['-C', cwd, '-c', 'user.email=me@example.com', '-c', 'user.name=Me', ...args]);
}

// A request the browser would never send: another Host, no cookie.
function raw(pathname, headers = {}) {
  return new Promise((resolve, reject) => {
    http.get({ host: '127.0.0.1', port, path: pathname, headers }, (answer) => {
      answer.resume();
      answer.on('end', () => resolve(answer.statusCode));
    }).on('error', reject);
  });
}

before(async () => {
  const repo = path.join(home, 'app');
  fs.mkdirSync(repo);
  git(repo, 'init', '-q');
  git(repo, 'config', 'user.email', 'me@example.com');
  git(repo, 'commit', '-q', '--allow-empty', '-m', 'first');
  q('repos', 'add', repo);
  // A port of its own, so that parallel runs rarely meet; a taken one moves on.
  q('config', 'set', 'dashboard.port', String(20000 + (process.pid % 20000)));
  daemon = spawn(quorvane, ['--data-dir', data, 'daemon'], { env, stdio: 'ignore' });
  const address = path.join(data, 'dashboard.json');
  const deadline = Date.now() + kStartLimit;
  while (!fs.existsSync(address)) {
    assert.ok(Date.now() < deadline, 'the daemon did not serve its dashboard in time');
    await delay(100);
  }
  port = JSON.parse(fs.readFileSync(address, 'utf8')).port;
  browser = await puppeteer.launch({
    executablePath: chromium,
    headless: true,
    // The sandbox needs namespaces a CI container may not give.
    args: ['--no-sandbox', '--disable-gpu'],
  });
});

after(async () => {
  await browser?.close();
  daemon?.kill('SIGTERM');
  fs.rmSync(home, { recursive: true, force: true });
});

test('quorvane open logs the browser in, and Today shows what today --json gives', async () => {
  const printed = q('open', 'today');
  const link = printed.match(/http:\/\/127\.0\.0\.1:\d+\/login\?\S+/)[0];
  const page = await browser.newPage();
  await page.goto(link);
  assert.equal(new URL(page.url()).pathname, '/today', 'the login leaves a clean address');
  const today = JSON.parse(q('today', '--json', '--no-scan'));
  const expected = `${today.activeProjects} active projects, ${today.totalCommits} commits`;
  await page.waitForFunction((text) =>
    document.getElementById('today-figures').textContent.startsWith(text), {}, expected);
  assert.equal(await page.$$eval('#today-lines tbody tr', (rows) => rows.length), today.lines.length);

  await page.goto(link);
  assert.match(await page.content(), /used already/, 'a login link works once');
  await page.close();
});

test('without the cookie or from another Host the server refuses', async () => {
  assert.equal(await raw('/api/v1/today'), 401);
  assert.equal(await raw('/api/v1/today', { Host: `rebound.example:${port}` }), 403);
});

test('each screen is readable light and dark, wide and narrow, with no serious accessibility fault', async () => {
  const page = await browser.newPage();
  // axe is injected as a script of its own; the dashboard's policy forbids that.
  await page.setBypassCSP(true);
  await page.goto(q('dashboard', 'url', 'today').trim());
  fs.mkdirSync(shots, { recursive: true });
  for (const screen of ['today', 'review', 'settings']) {
    await page.goto(`http://127.0.0.1:${port}/${screen}`);
    await page.addScriptTag({ content: axeSource });
    const faults = await page.evaluate(async () =>
      (await axe.run()).violations.filter((v) => ['serious', 'critical'].includes(v.impact))
        .map((v) => `${v.id}: ${v.help}`));
    assert.deepEqual(faults, [], `${screen} has no serious accessibility fault`);
    for (const [width, height] of [[1280, 800], [390, 844]]) {
      for (const scheme of ['light', 'dark']) {
        await page.setViewport({ width, height });
        await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
        await page.screenshot({ path: path.join(shots, `${screen}-${width}x${height}-${scheme}.png`) });
      }
    }
  }
  await page.close();
});
