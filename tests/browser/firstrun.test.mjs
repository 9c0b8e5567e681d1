// The first run in a real browser, from an empty data folder to Today with the
// repositories tracked, without a command; and the panel beside `status --bar`.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { git, look, shown, startDashboard } from './harness.mjs';

let ctx;
const scanFolders = () => JSON.parse(fs.readFileSync(path.join(ctx.data, 'config.json'), 'utf8'))
  .scanFolders ?? [];

function repository(folder) {
  execFileSync('git', ['init', '-q', '-b', 'main', folder]);
  git(folder, 'config', 'user.email', 'me@example.com');
  git(folder, 'commit', '-q', '--allow-empty', '-m', `Start ${path.basename(folder)}`);
}

before(async () => {
  ctx = await startDashboard({
    emptyDataFolder: true,
    prepare(c) {
      // Two usual folders with repositories, one empty, and nothing tracked.
      for (const name of ['api', 'web']) repository(path.join(c.home, 'code', name));
      repository(path.join(c.home, 'work', 'client'));
      fs.mkdirSync(path.join(c.home, 'src'));
      // Start at login writes the unit into this home, and no service manager of the
      // machine running the test is reached.
      for (const name of ['XDG_CONFIG_HOME', 'XDG_RUNTIME_DIR', 'DBUS_SESSION_BUS_ADDRESS']) {
        delete c.env[name];
      }
    },
  });
});

after(() => ctx?.close());

test('the first visit offers the usual folders and ends on Today with their repositories tracked', async () => {
  const page = await ctx.browser.newPage();
  await page.goto(ctx.q('open', 'today').match(/http:\/\/127\.0\.0\.1:\d+\/login\?\S+/)[0]);
  await page.waitForFunction(() => location.pathname === '/onboarding');
  await shown(page);
  const offered = await page.$$eval('#onboarding-folders label', (all) =>
    all.map((label) => [label.querySelector('code').textContent, label.querySelector('span span').textContent,
      label.querySelector('input').checked]));
  assert.deepEqual(offered, [['~/code', '2 repositories', true], ['~/src', 'no repository', false],
    ['~/work', '1 repository', true]]);
  await look(page, 'onboarding', '#onboarding-folders li');

  // GitHub is optional: the form adds an account as Accounts does, and says why not.
  await page.click('#onboarding-github-connect');
  await page.waitForFunction(() => document.getElementById('onboarding-github-notice').textContent
    === 'Not connected: type the token');

  // A folder that is not there refuses the whole choice, and saves nothing.
  await page.type('#onboarding-other', '~/nowhere');
  await page.click('#onboarding-add');
  await page.click('#onboarding-start');
  await page.waitForFunction(() => /Nothing was saved: .*not a folder/
    .test(document.getElementById('onboarding-notice').textContent));
  assert.deepEqual(scanFolders(), []);

  await page.$eval('#onboarding-folders li:last-child input', (box) => { box.checked = false; });
  await Promise.all([page.waitForNavigation({ timeout: 60_000 }), page.click('#onboarding-start')]);
  assert.equal(new URL(page.url()).pathname, '/today');
  await shown(page);
  assert.deepEqual(scanFolders(),
    [path.join(ctx.home, 'code'), path.join(ctx.home, 'work')]);
  const tracked = ctx.json('repos', 'list').map((repo) => repo.name).sort();
  assert.deepEqual(tracked, ['api', 'client', 'web']);
  const rows = await page.$$eval('#today-lines tbody tr', (all) => all.map((row) => row.cells[0].textContent));
  assert.deepEqual(rows.sort(), ctx.json('today', '--no-scan').lines.map((line) => line.name).sort());
  const unit = fs.readFileSync(path.join(ctx.home, '.config', 'systemd', 'user', 'quorvane.service'), 'utf8');
  assert.match(unit, /ExecStart=".*quorvane" daemon --data-dir ".*data"/, 'start at login is the service');
  await page.close();
});

test('the panel shows what status --bar prints', async () => {
  fs.writeFileSync(path.join(ctx.home, 'code', 'api', 'new.txt'), 'work in progress\n');
  ctx.q('scan');
  const bar = JSON.parse(ctx.q('status', '--bar'));
  const today = ctx.json('today', '--no-scan');
  assert.deepEqual([bar.toPush, bar.toPull, bar.uncommitted],
    [today.needsPushCount, today.behindCount, today.needsCommitCount], 'the counts Today gives');
  assert.equal(bar.uncommitted, 1);
  assert.match(bar.tooltip, /1 repository with uncommitted work: api/);
  const page = await ctx.open('panel');
  assert.deepEqual(await ctx.read(page, '/api/v1/panel'), bar);
  assert.equal(await page.$eval('#panel-bar', (p) => p.textContent), bar.text);
  assert.equal(await page.$eval('header', (h) => getComputedStyle(h).display), 'none', 'no menu in the panel');
  await look(page, 'panel', '#panel-waits li');
  await page.close();
});
