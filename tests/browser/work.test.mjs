// Needs attention, Projects and Branches in a real browser, each against the command
// line's --json for the same data, and each change the pages make against the CLI.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { look, startDashboard } from './harness.mjs';

let ctx;

before(async () => {
  ctx = await startDashboard({
    // A sync with no account still records each repository's local branches.
    prepare: (c) => { c.trackFixture(); c.q('sync'); },
  });
});

after(() => ctx?.close());

// Clicks the button of `scope` that says `text`.
async function press(page, scope, text) {
  const clicked = await page.$$eval(`${scope} button`, (buttons, wanted) => {
    const button = buttons.find((b) => b.textContent === wanted);
    button?.click();
    return Boolean(button);
  }, text);
  assert.ok(clicked, `a button "${text}" in ${scope}`);
}

test('Needs attention lists what attention --json gives, counted as today counts', async () => {
  // A proposal waits too, so that the list reaches the Review screen.
  assert.equal((await ctx.agentCall('propose_settings_change',
    { changes: [{ field: 'dailyReviewTime', value: '20:15' }] })).ok, true);
  const page = await ctx.open('attention');
  const attention = ctx.json('attention');
  assert.deepEqual(await ctx.read(page, '/api/v1/attention'), attention);
  const today = JSON.parse(ctx.q('today', '--json', '--no-scan'));
  for (const count of ['needsPushCount', 'needsCommitCount', 'behindCount']) {
    assert.equal(attention[count], today[count], count);
  }
  const find = (kind, name) => attention.items.find((i) => i.kind === kind && i.name === name);
  assert.equal(find('unpushed', 'app').suggestion.command, 'git push origin main');
  assert.equal(find('behind', 'lib').suggestion.command, 'git pull --rebase origin main');
  assert.equal(find('behind', 'lib').suggestion.cwd, ctx.fixture.lib);
  assert.equal(find('proposals', '').link, '/review');

  const cards = await page.$$eval('#attention-items > li', (all) => all.map((card) =>
    [card.dataset.kind, card.querySelector('h2')?.textContent ?? '', card.querySelector('code')?.textContent]));
  assert.deepEqual(cards, attention.items.map((i) => [i.kind, i.name, i.suggestion?.command]));
  assert.equal(await page.$eval('#attention-items a[href="/review"]', (a) => a.textContent),
    'Review the proposals');
  await look(page, 'attention', '#attention-items li');
  await page.close();
});

test('Branches shows branches --json, merged and stale, and one repository by the picker', async () => {
  const page = await ctx.open('branches');
  const branches = ctx.json('branches');
  assert.deepEqual(await ctx.read(page, '/api/v1/branches'), branches);
  const app = (name) => branches.find((b) => b.repoID === ctx.fixture.app && b.name === name);
  assert.equal(app('feature/login').merged, true);
  assert.equal(app('feature/login').suggestion.command, 'git branch -d feature/login');
  assert.equal(app('old-spike').stale, true);
  assert.equal(app('old-spike').merged, true, 'its commit is in main');
  assert.equal(app('main').merged, false, 'the default branch is never merged into itself');
  const rows = await page.$$eval('#branches-lists tbody tr', (all) => all.length);
  assert.equal(rows, branches.length);
  await look(page, 'branches', '#branches-lists tbody tr');

  await page.select('#branches-repo', ctx.fixture.app);
  await page.waitForFunction(() => location.search.startsWith('?repo='));
  await page.waitForFunction((count) =>
    document.querySelectorAll('#branches-lists tbody tr').length === count, {},
  branches.filter((b) => b.repoID === ctx.fixture.app).length);
  assert.deepEqual(await ctx.read(page, `/api/v1/branches?repo=${encodeURIComponent(ctx.fixture.app)}`),
    ctx.json('branches', ctx.fixture.app));
  assert.match((await ctx.read(page, '/api/v1/branches?repo=%2Fnowhere')).error,
    /is not a tracked repository/);
  await page.close();
});

test('Projects tracks, untracks and changes scan folders as the CLI sees it', async () => {
  const page = await ctx.open('projects');
  const projects = await ctx.read(page, '/api/v1/projects');
  assert.deepEqual(projects.repositories, ctx.json('repos', 'list'));
  assert.deepEqual(projects.scanFolders, ctx.json('folders', 'list'));
  await look(page, 'projects', '#projects-table tbody tr');
  const notice = () => page.$eval('#projects-notice', (p) => p.textContent);
  const folders = () => ctx.json('folders', 'list');

  // A scan folder added, then removed once the person confirms.
  await page.type('#projects-folder-path', ctx.fixture.code);
  await page.click('#projects-add-folder button');
  await page.waitForSelector(`#projects-folders li[data-folder="${ctx.fixture.code}"]`);
  assert.deepEqual(folders(), [ctx.fixture.code]);
  await press(page, '#projects-folders', `Remove ${ctx.fixture.code}`);
  assert.deepEqual(folders(), [ctx.fixture.code], 'nothing is removed before the confirmation');
  await press(page, '#projects-folders', 'Yes, remove it');
  await page.waitForFunction(() => !document.querySelector('#projects-folders li[data-folder]'));
  assert.deepEqual(folders(), []);

  // A bad path is refused with the CLI's reason, and nothing changes.
  await page.type('#projects-track-path', path.join(ctx.home, 'nowhere'));
  await page.click('#projects-track button');
  await page.waitForFunction(() => document.getElementById('projects-notice').textContent.startsWith('Not tracked'));
  assert.match(await notice(), /cannot track .*nowhere: no such folder/);
  assert.equal(ctx.json('repos', 'list').length, 3);

  // Untracking asks first; tracking by folder brings the repository back.
  const notes = `#projects-table tr[data-repo="${ctx.fixture.notes}"]`;
  await press(page, notes, 'Stop tracking notes');
  await press(page, notes, 'Yes, stop tracking notes');
  await page.waitForFunction((s) => !document.querySelector(s), {}, notes);
  assert.deepEqual(ctx.json('repos', 'list').map((r) => r.name), ['app', 'lib']);
  await page.$eval('#projects-track-path', (input) => { input.value = ''; });
  await page.type('#projects-track-path', ctx.fixture.notes);
  await page.click('#projects-track button');
  await page.waitForSelector(notes);
  assert.deepEqual(ctx.json('repos', 'list').map((r) => r.name), ['app', 'lib', 'notes']);
  assert.match(await notice(), /Now tracking notes/);
  await page.close();
});
