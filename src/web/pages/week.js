// Week: Monday to Sunday, each day's projects, commits and time with the week's
// totals, then each repository worked on; the weeks before and after.
import {api, cell, duration, element, param, plural, scrolling, table} from './common.js';

export const html = `
  <h1 id="week-title">Week</h1>
  <nav class="filters" aria-label="Other weeks">
    <a id="week-previous" class="step">Previous week</a>
    <a id="week-next" class="step">Next week</a>
  </nav>
  <p id="week-figures" class="figures" aria-live="polite"></p>
  <p id="week-notes" class="quiet"></p>
  <h2>Day by day</h2>
  <div id="week-days-holder"></div>
  <h2>By repository</h2>
  <div id="week-repos-holder"></div>
  <p id="week-none" class="quiet" hidden>No work recorded in this week: no commits of yours and no
    work sessions. Look at another week, or at the Calendar for the days you worked.</p>`;

export const follows = ['scan'];

const count = (n) => (n ? String(n) : '-');

export async function show() {
  const date = param('date');
  const week = await api(`/api/v1/week${date === undefined ? '' : `?date=${encodeURIComponent(date)}`}`);
  document.getElementById('week-previous').href = `/week?date=${week.previousWeekKey}`;
  document.getElementById('week-next').href = `/week?date=${week.nextWeekKey}`;
  const first = week.perDay[0].dateKey;
  const last = week.perDay[week.perDay.length - 1].dateKey;
  const time = week.totalSeconds ? `, ${duration(week.totalSeconds)} of work` : '';
  document.getElementById('week-figures').textContent = `${first} to ${last}: `
    + `${plural(week.totalCommits, 'commit')} in ${plural(week.activeRepos, 'project')}${time}`;
  const notes = [];
  if (week.mostActive) notes.push(`Most active: ${week.mostActive}`);
  if (week.mostNeglected) notes.push(`most neglected: ${week.mostNeglected}`);
  document.getElementById('week-notes').textContent = notes.join(' · ');

  const days = table(['Day', 'Date', ['Projects', 'number'], ['Commits', 'number'], ['Time', 'number']]);
  days.id = 'week-days';
  for (const day of week.perDay) {
    const row = element('tr');
    cell(row, day.weekday);
    const link = element('a', day.dateKey);
    link.href = `/activity?date=${day.dateKey}`;
    cell(row, link);
    cell(row, count(day.projectCount), 'number');
    cell(row, count(day.commitCount), 'number');
    cell(row, duration(day.seconds), 'number');
    days.tBodies[0].append(row);
  }
  const total = element('tr', undefined, 'total');
  cell(total, 'Total');
  cell(total, '');
  cell(total, count(week.activeRepos), 'number');
  cell(total, count(week.totalCommits), 'number');
  cell(total, duration(week.totalSeconds), 'number');
  days.tBodies[0].append(total);
  document.getElementById('week-days-holder').replaceChildren(scrolling(days, 'The week day by day'));

  const repos = table(['Repository', ['Commits', 'number'], ['Time', 'number'], 'Folder']);
  repos.id = 'week-repos';
  for (const line of week.perRepo) {
    const row = element('tr');
    cell(row, line.name);
    cell(row, count(line.commits), 'number');
    cell(row, duration(line.seconds), 'number');
    cell(row, line.localPath, 'path');
    repos.tBodies[0].append(row);
  }
  document.getElementById('week-repos-holder').replaceChildren(
    ...(week.perRepo.length ? [scrolling(repos, 'The week by repository')] : []));
  document.getElementById('week-none').hidden = week.perRepo.length > 0;
}
