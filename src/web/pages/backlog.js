// Repo Backlog: every repository in exactly one group, from what is active to what
// needs cleaning up.
import {api, element} from './common.js';

export const html = `
  <h1 id="backlog-title">Repo Backlog</h1>
  <p class="quiet">Where every repository stands — what is active, what needs cleaning up.</p>
  <div id="backlog-groups"></div>
  <div id="backlog-empty" hidden>
    <h2>Backlog is empty.</h2>
    <p class="quiet">Connect an account and run Sync to see the repositories grouped.</p>
  </div>`;

export const follows = ['sync', 'accounts', 'scan'];

// The five groups always, in this order; a remote elsewhere than GitHub only when
// there is one.
const groups = [['active', 'Active', 'good'], ['needsCleanup', 'Needs Cleanup', 'attention'],
  ['remoteOnly', 'Remote Only', ''], ['stale', 'Stale', 'dim'], ['localOnly', 'Local Only', ''],
  ['otherRemote', 'Other Remote', '']];

export async function show() {
  const backlog = await api('/api/v1/backlog');
  const any = groups.some(([key]) => backlog[key]?.length);
  const parts = [];
  for (const [key, title, tone] of groups) {
    const items = backlog[key] ?? [];
    if (!any || (key === 'otherRemote' && !items.length)) continue;
    const part = element('section', undefined, 'backlog-group');
    part.dataset.group = key;
    const heading = element('h2');
    heading.id = `backlog-${key}`;
    heading.append(element('span', title, `word ${tone}`.trim()), ' ',
      element('span', `(${items.length})`, 'quiet count'));
    part.setAttribute('aria-labelledby', heading.id);
    part.append(heading);
    if (!items.length) {
      part.append(element('p', 'None.', 'quiet'));
    } else {
      const list = element('ul', undefined, 'backlog-items');
      for (const item of items) {
        const entry = element('li');
        entry.dataset.id = item.id;
        const name = element('strong', item.name);
        entry.append(name);
        if (item.isPrivate) entry.append(' ', element('span', 'Private', 'tag'));
        if (item.isArchived) entry.append(' ', element('span', 'Archived', 'tag'));
        entry.append(element('p', item.detail, 'quiet detail'));
        list.append(entry);
      }
      part.append(list);
    }
    parts.push(part);
  }
  document.getElementById('backlog-groups').replaceChildren(...parts);
  document.getElementById('backlog-empty').hidden = any;
}
