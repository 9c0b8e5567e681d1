// Today, Agent Review and Settings in a real browser, and the server's refusals.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { look, shown, startDashboard } from './harness.mjs';

let ctx;
let q;
let home;
let data;
let browser;
let port;
let raw;
let agentCall;

before(async () => {
  ctx = await startDashboard();
  ({ q, home, data, browser, port, raw, agentCall } = ctx);
});

after(() => ctx?.close());

test('quorvane open logs the browser in, and Today shows what today --json gives', async () => {
  const printed = q('open', 'today');
  const link = printed.match(/http:\/\/127\.0\.0\.1:\d+\/login\?\S+/)[0];
  const page = await browser.newPage();
  await page.goto(link);
  assert.equal(new URL(page.url()).pathname, '/today', 'the login leaves a clean address');
  const today = JSON.parse(q('today', '--json', '--no-scan'));
  const plural = (count, word) => `${count} ${word}${count === 1 ? '' : 's'}`;
  const expected = `${plural(today.activeProjects, 'active project')}, ${plural(today.totalCommits, 'commit')}`;
  await page.waitForFunction((text) =>
    document.getElementById('today-figures').textContent.startsWith(text), {}, expected);
  assert.deepEqual(JSON.parse(await page.evaluate(() => fetch('/api/v1/today').then((a) => a.text()))),
    today, 'the page reads what today --json gives');
  const statuses = await page.$$eval('#today-lines tbody tr td:last-child',
    (cells) => cells.map((c) => [...c.querySelectorAll('.word')].map((w) => w.textContent)));
  assert.deepEqual(statuses, today.lines.map((line) => line.standing.map((word) => word.text)),
    'each repository\'s status in the words the command line uses');
  assert.ok(statuses.flat().length > 0);

  // Scan now: the page hears the scan end on its event stream and reads again.
  await page.click('#scan-now');
  await page.waitForFunction(() => document.getElementById('scan-now').textContent === 'Scan now'
    && !document.getElementById('scan-now').disabled);

  // A change needs the page's CSRF token and its own Origin, whatever the cookie.
  const refused = await page.evaluate(() => fetch('/api/v1/scan', { method: 'POST' }).then((a) => a.status));
  assert.equal(refused, 403, 'a POST without the CSRF token');
  const cookie = (await page.cookies()).map((c) => `${c.name}=${c.value}`).join('; ');
  const csrf = await page.evaluate(() => fetch('/api/v1/session').then((a) => a.json()))
    .then((session) => session.csrfToken);
  assert.equal(await raw('/api/v1/scan', { Cookie: cookie, 'X-Quorvane-CSRF': csrf,
    Origin: 'http://evil.example' }, 'POST'), 403, 'a POST from another Origin');

  await page.goto(link);
  assert.match(await page.content(), /used already/, 'a login link works once');
  await page.close();
});

test('a proposal appears in Agent Review unasked, and Approve yields the token the agent spends', async () => {
  const page = await browser.newPage();
  await page.goto(q('dashboard', 'url', 'review').trim());
  await shown(page);
  assert.equal(await page.$eval('#review-empty', (p) => p.hidden), false, 'nothing waits yet');
  const propose = (time) => agentCall('propose_settings_change',
    { changes: [{ field: 'dailyReviewTime', value: time }] });
  const first = await propose('20:15');
  assert.equal(first.ok, true, 'a proposal is made and waits for the person');
  // The open page is told: no reload, and no more than two seconds.
  await page.waitForSelector('#review-list .card', { timeout: 2000 });
  const second = await propose('20:45');
  assert.equal(second.ok, true);
  await page.waitForFunction(() => document.querySelectorAll('#review-list .card').length === 2,
    { timeout: 2000 });
  const cards = await page.$$eval('#review-list .card', (all) => all.map((c) => c.textContent));
  const early = cards.findIndex((text) => text.includes('20:15'));
  assert.ok(early >= 0 && cards.some((text) => text.includes('20:45')), 'each with its change');
  const rows = await page.$$eval(`#review-list .card:nth-child(${early + 1}) .before-after tbody tr`,
    (all) => all.map((row) => [...row.cells].map((c) => c.textContent)));
  const configured = JSON.parse(q('config', 'list', '--json')).dailyReviewTime;
  assert.deepEqual(rows, [['dailyReviewTime', configured, '20:15']], 'the setting now and after');

  await page.click(`#review-list .card:nth-child(${early + 1}) button.approve`);
  await page.waitForFunction(() => /Approved/.test(document.getElementById('review-token').textContent));
  const token = await page.$eval('#review-token code', (code) => code.textContent);
  assert.match(token, /\S{16,}/, 'the token is shown once, to hand to the agent');
  const spent = await agentCall('set_daily_review_time', { time: '20:15', confirmationToken: token });
  assert.equal(spent.ok, true, JSON.stringify(spent));
  const saved = JSON.parse(fs.readFileSync(path.join(data, 'config.json'), 'utf8'));
  assert.equal(saved.dailyReviewTime, '20:15', 'the approved change is applied');
  const again = await agentCall('set_daily_review_time', { time: '20:15', confirmationToken: token });
  assert.equal(again.ok, false, 'a token works once');

  await page.waitForFunction(() => document.querySelectorAll('#review-list .card').length === 1);
  await page.click('#review-list .card button:not(.approve)');
  await page.waitForFunction(() => /Rejected/.test(document.getElementById('review-token').textContent));
  await page.waitForFunction(() => !document.getElementById('review-empty').hidden);
  const decided = JSON.parse(q('proposals', '--all', '--json'));
  const statusOf = (time) => decided.find((p) => p.payloadJSON.includes(time)).status;
  assert.deepEqual([statusOf('20:15'), statusOf('20:45')], ['applied', 'rejected']);
  await page.waitForFunction(() => document.querySelectorAll('#review-history tbody tr').length === 2);
  // The audit log is read after the decisions: it shows the person's and the agent's.
  await page.waitForFunction(() => {
    const tools = [...document.querySelectorAll('#review-audit tbody tr')].map((r) => r.cells[2].textContent);
    return tools.includes('agent_review.confirm') && tools.includes('set_daily_review_time');
  });
  await page.type('#audit-tool', 'agent_review.reject');
  await page.click('#audit-filters button');
  await page.waitForFunction(() => [...document.querySelectorAll('#review-audit tbody tr')]
    .every((r) => r.cells[2].textContent === 'agent_review.reject'));
  await page.close();
});

test('a setting changed in Settings is in config.json, and a refused one says why', async () => {
  const page = await browser.newPage();
  await page.goto(q('dashboard', 'url', 'settings').trim());
  await shown(page);
  const field = '#setting-dailyReviewTime';
  await page.waitForSelector(field);
  assert.deepEqual(JSON.parse(await page.evaluate(() =>
    fetch('/api/v1/settings').then((a) => a.text()))), JSON.parse(q('config', 'list', '--json')),
    'the page reads what config list --json gives');
  await page.$eval(field, (input) => { input.value = '19:05'; });
  await page.click(`${field} ~ button`);
  await page.waitForFunction(() => /→ 19:05/.test(document.getElementById('settings-notice').textContent));
  const saved = JSON.parse(fs.readFileSync(path.join(data, 'config.json'), 'utf8'));
  assert.equal(saved.dailyReviewTime, '19:05');
  await page.$eval(field, (input) => { input.value = '25:00'; });
  await page.click(`${field} ~ button`);
  await page.waitForFunction(() => /Not saved/.test(document.getElementById('settings-notice').textContent));

  // The MCP section: what the agent's hints name, and the roots it may look into.
  const headings = await page.$$eval('h2, h3', (all) => all.map((h) => h.textContent));
  assert.ok(headings.includes('MCP') && headings.includes('Allowed Roots'), headings.join(', '));
  const rootsNow = () => JSON.parse(fs.readFileSync(path.join(data, 'config.json'), 'utf8'))
    .agent.allowedRoots;
  const before = rootsNow();
  await page.type('#allowed-root-new', home);
  await page.click('#allowed-root-new ~ button');
  await page.waitForFunction((root) => [...document.querySelectorAll('.roots code')]
    .some((code) => code.textContent === root), {}, home);
  assert.deepEqual(rootsNow(), [...before, home]);
  await page.click(`.roots button[aria-label="Remove ${home}"]`);
  await page.waitForFunction((root) => ![...document.querySelectorAll('.roots code')]
    .some((code) => code.textContent === root), {}, home);
  assert.deepEqual(rootsNow(), before);

  // The API key goes in through a password field and never comes back to a page.
  const key = 'sk-ant-dashboard-test-0000';
  await page.type('#ai-key', key);
  await page.click('#ai-key ~ button');
  await page.waitForFunction(() => /The API key is stored in/.test(document.getElementById('settings-notice').textContent));
  assert.equal(await page.$eval('#ai-key', (input) => input.value), '', 'the field is emptied');
  const answers = await page.evaluate(() => Promise.all(['/api/v1/settings', '/api/v1/agent', '/api/v1/today']
    .map((address) => fetch(address).then((a) => a.text()))));
  assert.ok(answers.every((text) => !text.includes(key)), 'no answer holds the key');
  assert.equal(JSON.parse(answers[1]).aiKeyStored, true);
  assert.ok(!fs.readFileSync(path.join(data, 'config.json'), 'utf8').includes(key), 'nor config.json');
  await page.close();
});

test('without the cookie or from another Host the server refuses', async () => {
  assert.equal(await raw('/api/v1/today'), 401);
  const page = await browser.createBrowserContext().then((context) => context.newPage());
  const answer = await page.goto(`http://127.0.0.1:${port}/review`);
  assert.equal(answer.status(), 401);
  assert.match(await page.content(), /Run <code>quorvane open<\/code>/, 'a person reads what to do');
  await page.close();
  assert.equal(await raw('/api/v1/today', { Host: `rebound.example:${port}` }), 403);
});

test('Today, Agent Review and Settings are readable light and dark, wide and narrow', async () => {
  // Something to review, so that the screen is seen with a proposal on it.
  await agentCall('propose_settings_change',
    { changes: [{ field: 'scanFolders', value: [path.join(home, 'code')] }] });
  for (const [screen, ready] of [['today', '#today-lines tbody tr'], ['review', '#review-list .card'],
    ['settings', '#settings-groups section']]) {
    const page = await ctx.open(screen);
    await look(page, screen, ready);
    await page.close();
  }
});
