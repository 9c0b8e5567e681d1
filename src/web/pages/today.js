// Today: the day's figures, each repository with work or waiting, and the reminders.
import {api, cell, duration, element, plural, scanButton, scanEnded, words} from './common.js';

export const html = `
  <div class="title-row">
    <h1 id="today-title">Today</h1>
    <button id="scan-now" type="button">Scan now</button>
  </div>
  <p id="today-figures" class="figures" aria-live="polite"></p>
  <p id="today-attention" class="quiet"></p>
  <table id="today-lines">
    <caption class="quiet">Repositories with work today or waiting for you</caption>
    <thead><tr><th scope="col">Repository</th><th scope="col">Branch</th>
      <th scope="col" class="number">Commits</th><th scope="col" class="number">Time</th>
      <th scope="col">Status</th></tr></thead>
    <tbody></tbody>
  </table>
  <p id="today-none" class="quiet" hidden>Nothing done yet today: no commits, no work noticed and nothing uncommitted.</p>
  <h2>Reminders</h2>
  <ul id="today-reminders"></ul>
  <p id="today-no-reminders" class="quiet" hidden>No open reminders.</p>`;

export const follows = ['scan', 'reminder'];

export function setup() {
  scanButton(document.getElementById('scan-now'), document.getElementById('today-figures'));
}

export async function show(section, event) {
  if (event === 'scan') scanEnded(document.getElementById('scan-now'));
  const [today, reminders] = await Promise.all([api('/api/v1/today'), api('/api/v1/reminders')]);
  // The first visit, with nothing tracked, is the welcome, unless the person skipped it.
  if (!today.lines.length && sessionStorage.getItem('quorvane.onboarding') !== 'skipped'
      && (await api('/api/v1/onboarding')).needed) {
    location.replace('/onboarding');
    return;
  }
  const pulled = today.pulledInCommits ? ` (and ${today.pulledInCommits} pulled in from others)` : '';
  document.getElementById('today-figures').textContent =
    `${plural(today.activeProjects, 'active project')}, ${plural(today.totalCommits, 'commit')}${pulled}`;
  document.getElementById('today-attention').textContent =
    `To push: ${today.needsPushCount} · to commit: ${today.needsCommitCount} · behind: ${today.behindCount}`
    + ` · files modified: ${today.modifiedFiles}, staged: ${today.stagedFiles}`;
  const body = document.querySelector('#today-lines tbody');
  body.replaceChildren();
  for (const line of today.lines) {
    const row = document.createElement('tr');
    cell(row, line.name);
    cell(row, line.branch || '(detached)');
    cell(row, line.commitsToday ? String(line.commitsToday) : '-', 'number');
    cell(row, duration(line.estimatedSeconds), 'number');
    cell(row, words(line.standing));
    body.append(row);
  }
  document.getElementById('today-none').hidden = today.lines.length > 0;
  const list = document.getElementById('today-reminders');
  list.replaceChildren(...reminders.map((reminder) => element('li', reminder.message)));
  document.getElementById('today-no-reminders').hidden = reminders.length > 0;
}
