// Activity, Week and Calendar in a real browser: each screen's figures against the
// command line's --json for the same days, their day-to-day moves and the refusals
// of a bad ?date=.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { git, look, shown, startDashboard } from './harness.mjs';

let ctx;
// Local day keys (the daemon runs in UTC): today, and one, two and three days ago.
const day = (back) => new Date(Date.now() - back * 86_400_000).toISOString().slice(0, 10);

before(async () => {
  ctx = await startDashboard({
    prepare(c) {
      c.trackFixture();
      // A commit between two scans opens a work session today that holds it.
      c.q('scan');
      fs.writeFileSync(path.join(c.fixture.app, 'main.c'), 'int main(void) { return 3; }\n');
      git(c.fixture.app, 'commit', '-q', '-am', 'Tidy <b>the</b> entry point');
      c.q('scan');
    },
  });
});

after(() => ctx?.close());

// What the page's session gets for `address`: the status and the JSON.
async function answer(page, address) {
  return page.evaluate((a) => fetch(a).then(async (r) => [r.status, await r.json()]), address);
}

test('Activity shows the day\'s sessions and commits as sessions and commits --json give them', async () => {
  const page = await ctx.open('activity');
  const today = await ctx.read(page, '/api/v1/activity');
  assert.deepEqual(await ctx.read(page, `/api/v1/activity?date=${day(0)}`), today);
  const sessions = today.repositories.flatMap((repo) => repo.sessions.map((entry) => entry.session));
  const bySha = (a, b) => a.sha.localeCompare(b.sha);
  const byStart = (a, b) => a.startedAt.localeCompare(b.startedAt);
  assert.deepEqual(sessions.sort(byStart), ctx.json('sessions', '--date', day(0)).sort(byStart));
  const mine = ctx.json('commits', '--all');
  const commitsOn = (key) => mine.filter((c) => c.committedAt.startsWith(key)).sort(bySha);
  const drawn = (activity) => activity.repositories.flatMap((repo) =>
    [...repo.sessions.flatMap((entry) => entry.commits), ...repo.outside].map((c) => c.commit))
    .sort(bySha);
  assert.deepEqual(drawn(today), commitsOn(day(0)), 'each of the day\'s commits once');
  const held = today.repositories.flatMap((repo) => repo.sessions)
    .find((entry) => entry.commits.some((c) => c.commit.message.startsWith('Tidy')));
  assert.ok(held, 'the commit that opened a session is shown inside it');
  assert.equal(today.sessionCount, sessions.length);
  assert.ok(sessions.length > 0 && today.commitCount === commitsOn(day(0)).length);

  // The page: a figure line, each session's row and each commit, names as text.
  await page.waitForFunction((n) => document.querySelectorAll('#activity-days .session').length === n,
    {}, sessions.length);
  const figures = await page.$eval('#activity-figures', (p) => p.textContent);
  assert.match(figures, new RegExp(`${today.commitCount} commits? in ${sessions.length} work sessions?`));
  const subjects = await page.$$eval('#activity-days .subject', (all) => all.map((s) => s.textContent));
  assert.equal(subjects.length, today.commitCount);
  assert.ok(subjects.includes('Tidy <b>the</b> entry point'), 'a subject is shown as the text it is');
  await look(page, 'activity', '#activity-days .session');

  // The previous day by its button, then a day with nothing by the date field.
  await Promise.all([page.waitForNavigation(), page.click('#activity-previous')]);
  await shown(page);
  assert.equal(new URL(page.url()).search, `?date=${day(1)}`);
  const yesterday = await ctx.read(page, '/api/v1/activity' + new URL(page.url()).search);
  assert.deepEqual(drawn(yesterday), commitsOn(day(1)));
  assert.equal(await page.$$eval('#activity-days .subject', (all) => all.length), 2);
  await page.$eval('#activity-date', (input, key) => { input.value = key; }, day(2));
  await Promise.all([page.waitForNavigation(), page.click('#activity-go')]);
  await shown(page);
  assert.equal(await page.$eval('#activity-none', (p) => p.hidden), false, 'a quiet day says so');
  await look(page, 'activity-empty');

  // A ?date= that names no day is refused with its reason, on every screen of days.
  for (const screen of ['activity', 'week']) {
    for (const bad of ['2026-02-30', '0999-12-31', '', 'tomorrow', '2026-11-01&date=2026-11-02']) {
      const [status, reply] = await answer(page, `/api/v1/${screen}?date=${bad}`);
      assert.equal(status, 400, `${screen} ?date=${bad}`);
      assert.match(reply.error, /date/);
    }
  }
  const failed = await ctx.open('activity?date=2026-13-01').catch((error) => error);
  assert.match(String(failed), /not a day/, 'the page says why it shows nothing');
  await page.close();
});

test('Week shows Monday to Sunday as week --json gives it, and moves a week at a time', async () => {
  const page = await ctx.open(`week?date=${day(1)}`);
  const week = await ctx.read(page, `/api/v1/week?date=${day(1)}`);
  assert.deepEqual(week, ctx.json('week', '--date', day(1)));
  const rows = await page.$$eval('#week-days tbody tr', (all) =>
    all.map((row) => [...row.cells].map((c) => c.textContent)));
  assert.equal(rows.length, 8, 'seven days and the total');
  assert.deepEqual(rows.slice(0, 7).map((row) => row[3]),
    week.perDay.map((d) => (d.commitCount ? String(d.commitCount) : '-')));
  assert.equal(rows[7][3], String(week.totalCommits));
  const repos = await page.$$eval('#week-repos tbody tr', (all) => all.map((r) => r.cells[0].textContent));
  assert.deepEqual(repos, week.perRepo.map((line) => line.name));
  await look(page, 'week', '#week-days tbody tr');

  await Promise.all([page.waitForNavigation(), page.click('#week-previous')]);
  await shown(page);
  assert.equal(new URL(page.url()).search, `?date=${week.previousWeekKey}`);
  assert.deepEqual(await ctx.read(page, `/api/v1/week?date=${week.previousWeekKey}`),
    ctx.json('week', '--date', week.previousWeekKey));
  await page.close();
});

test('Calendar draws the year of commits as heatmap --json counts it, each day a named link', async () => {
  const page = await ctx.open('calendar');
  const calendar = await ctx.read(page, '/api/v1/calendar');
  const days = ctx.json('heatmap');
  assert.deepEqual(calendar.days, days, 'the days as heatmap --json prints them');
  assert.equal(days.length, 365);
  const sum = (f) => days.reduce((total, d) => total + f(d), 0);
  assert.equal(calendar.totalCommits, sum((d) => d.commitCount));
  assert.equal(calendar.activeDays, sum((d) => (d.commitCount || d.seconds ? 1 : 0)));
  assert.equal(calendar.longestStreak, Math.max(...days.map((d) => d.streak)));
  // The fixture worked today and yesterday, and not the day before.
  assert.deepEqual([calendar.currentStreak, calendar.longestStreak], [2, 2]);

  const cells = await page.$$eval('#calendar-grid a.day', (all) =>
    all.map((a) => [a.getAttribute('aria-label'), a.getAttribute('href')]));
  assert.equal(cells.length, 365);
  const last = days.at(-1);
  assert.ok(last.commitCount > 1);
  assert.deepEqual(cells.at(-1), [`${last.commitCount} commits on ${last.dateKey}`,
    `/activity?date=${last.dateKey}`]);
  const quiet = days.find((d) => d.commitCount === 0);
  assert.ok(cells.some(([name]) => name === `No commits on ${quiet.dateKey}`));
  const figures = await page.$eval('#calendar-figures', (p) => p.textContent);
  assert.match(figures, new RegExp(`${calendar.totalCommits} commits on ${calendar.activeDays} days`));

  await look(page, 'calendar', '#calendar-grid a.day');

  // By keyboard: a day's cell takes the focus, and names its activity and its report.
  await page.focus(`#calendar-grid a.day[data-date="${last.dateKey}"]`);
  await page.waitForFunction(() => document.querySelectorAll('#calendar-day a').length === 2);
  const links = await page.$$eval('#calendar-day a', (all) => all.map((a) => a.getAttribute('href')));
  assert.deepEqual(links, [`/activity?date=${last.dateKey}`, `/reports?date=${last.dateKey}`]);
  await Promise.all([page.waitForNavigation(), page.keyboard.press('Enter')]);
  assert.equal(new URL(page.url()).pathname, '/activity');
  await page.close();
});
