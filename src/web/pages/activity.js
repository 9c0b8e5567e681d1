// Activity: one day's work sessions in each repository, the commits inside each, and
// the commits no session holds; any day, by its neighbours or by its date.
import {api, duration, element, param, plural} from './common.js';

export const html = `
  <h1 id="activity-title">Activity</h1>
  <form id="activity-pick" class="filters">
    <a id="activity-previous" class="step">Previous day</a>
    <span><label for="activity-date">Day</label><input id="activity-date" type="date" required></span>
    <button id="activity-go" type="submit">Show this day</button>
    <a id="activity-next" class="step">Next day</a>
  </form>
  <p id="activity-figures" class="figures" aria-live="polite"></p>
  <p id="activity-none" class="quiet" hidden>No work sessions and no commits of yours on this day.
    Sessions come from what scans and file changes notice while the service runs, and commits
    from the scans of your tracked repositories; choose another day to look further back.</p>
  <div id="activity-days"></div>`;

export const follows = ['scan'];

// The day shown: the address's ?date=, or today (the API decides which day that is).
function asked() {
  const date = param('date');
  return date === undefined ? '' : `?date=${encodeURIComponent(date)}`;
}

export function setup() {
  document.getElementById('activity-pick').addEventListener('submit', (event) => {
    event.preventDefault();
    const date = document.getElementById('activity-date').value;
    if (date) location.assign(`/activity?date=${date}`);
  });
}

function commitList(commits) {
  const list = element('ul', undefined, 'commits');
  for (const {commit, time} of commits) {
    const item = element('li');
    item.append(element('span', time, 'time'), element('code', commit.shortSha),
      element('span', commit.message, 'subject'));
    if (commit.isLocalOnly) item.append(element('span', 'not pushed', 'word attention'));
    list.append(item);
  }
  return list;
}

function repositoryCard(repo) {
  const card = element('article', undefined, 'card');
  card.append(element('h2', repo.name));
  card.append(element('p', `${plural(repo.commitCount, 'commit')} · ${plural(repo.sessions.length,
    'work session')} · ${repo.seconds ? duration(repo.seconds) : 'no time estimated'}`, 'quiet'));
  if (repo.sessions.length) {
    const timeline = element('ol', undefined, 'timeline');
    for (const entry of repo.sessions) {
      const item = element('li', undefined, 'session');
      const span = element('p');
      span.append(element('strong', `${entry.start} – ${entry.end}`),
        ` · ${entry.session.estimatedSeconds ? duration(entry.session.estimatedSeconds) : 'under a minute'}`
        + ` · from ${entry.evidence}, ${entry.session.confidence} confidence`);
      item.append(span);
      if (entry.commits.length) item.append(commitList(entry.commits));
      timeline.append(item);
    }
    card.append(timeline);
  }
  if (repo.outside.length) {
    card.append(element('h3', 'Commits outside a work session'), commitList(repo.outside));
  }
  return card;
}

export async function show() {
  const day = await api(`/api/v1/activity${asked()}`);
  document.getElementById('activity-date').value = day.dateKey;
  const previous = document.getElementById('activity-previous');
  previous.href = `/activity?date=${day.previousDateKey}`;
  const next = document.getElementById('activity-next');
  next.hidden = !day.nextDateKey;
  if (day.nextDateKey) next.href = `/activity?date=${day.nextDateKey}`;
  const time = day.seconds ? `, ${duration(day.seconds)} of work` : '';
  document.getElementById('activity-figures').textContent =
    `${day.dateKey}: ${plural(day.commitCount, 'commit')} in ${plural(day.sessionCount, 'work session')}${time}`;
  document.getElementById('activity-none').hidden = day.repositories.length > 0;
  document.getElementById('activity-days').replaceChildren(...day.repositories.map(repositoryCard));
}
