// The panel: what waits, small enough for a window beside the tray or a status bar's
// pop-up, with the way into the dashboard.
import {api, element, plural, scanButton, scanEnded} from './common.js';

export const html = `
  <h1 id="panel-title" class="panel-title">Quorvane</h1>
  <p id="panel-bar" class="panel-bar" aria-live="polite"></p>
  <p id="panel-today" class="quiet"></p>
  <ul id="panel-waits" class="panel-waits"></ul>
  <div class="actions">
    <a id="panel-review" href="/review" target="_blank" rel="noopener">Agent Review</a>
    <a href="/today" target="_blank" rel="noopener">Open the dashboard</a>
    <button id="panel-scan" type="button">Scan now</button>
  </div>`;

export const follows = ['scan', 'reminder', 'proposal'];

export function setup() {
  scanButton(document.getElementById('panel-scan'), document.getElementById('panel-today'));
}

export async function show(section, event) {
  if (event === 'scan') scanEnded(document.getElementById('panel-scan'));
  const [bar, today] = await Promise.all([api('/api/v1/panel'), api('/api/v1/today')]);
  const shown = document.getElementById('panel-bar');
  shown.textContent = bar.text;
  shown.title = bar.tooltip;
  shown.className = `panel-bar ${bar.class}`;
  document.getElementById('panel-today').textContent =
    `Today: ${plural(today.totalCommits, 'commit')} in ${plural(today.activeProjects, 'project')}`;
  // The tooltip's lines after its first, which is the program's name.
  const lines = bar.tooltip.split('\n').slice(1);
  document.getElementById('panel-waits').replaceChildren(
    ...(lines.length ? lines : ['Nothing waits for you.']).map((line) => element('li', line)));
  document.getElementById('panel-review').textContent =
    bar.proposals ? `Agent Review (${bar.proposals} waiting)` : 'Agent Review';
}
