// Projects: every tracked repository with where it stands, its category, priority and
// aliases, and the scan folders; tracking by folder, stopping, and the scan folders
// added and removed, each removal confirmed first.
import {api, cell, change, element, scrolling, table, words} from './common.js';

export const html = `
  <h1 id="projects-title">Projects</h1>
  <p id="projects-notice" role="status" class="quiet"></p>
  <h2>Tracked repositories</h2>
  <div id="projects-repositories"></div>
  <form id="projects-track" class="filters">
    <label for="projects-track-path">Repository folder</label>
    <input id="projects-track-path" name="path" placeholder="~/code/app" required>
    <button type="submit">Track this repository</button>
  </form>
  <h2>Scan folders</h2>
  <p class="quiet">Every Git repository under a scan folder is tracked at the next scan.</p>
  <ul id="projects-folders" class="roots"></ul>
  <form id="projects-add-folder" class="filters">
    <label for="projects-folder-path">Scan folder</label>
    <input id="projects-folder-path" name="path" placeholder="~/code" required>
    <button type="submit">Add this scan folder</button>
  </form>`;

export const follows = ['scan', 'projects'];

function notice(text) {
  document.getElementById('projects-notice').textContent = text;
}

export function setup(section) {
  const track = document.getElementById('projects-track');
  track.addEventListener('submit', async (event) => {
    event.preventDefault();
    const input = document.getElementById('projects-track-path');
    notice('Tracking it and reading its recent history…');
    try {
      const done = await change('/api/v1/projects/track', {path: input.value});
      const names = done.added.map((repo) => repo.name);
      notice(names.length ? `Now tracking ${names.join(', ')}.`
        : `Already tracked: ${done.alreadyTracked.join(', ')}.`);
      input.value = '';
    } catch (error) {
      notice(`Not tracked: ${error.message}`);
    }
    await show(section);
  });
  const folder = document.getElementById('projects-add-folder');
  folder.addEventListener('submit', async (event) => {
    event.preventDefault();
    const input = document.getElementById('projects-folder-path');
    try {
      const done = await change('/api/v1/projects/folders', {action: 'add', path: input.value});
      notice(done.changed.length ? `Scan folder added: ${done.changed[0]}. The next scan tracks `
        + 'the repositories under it.' : 'That folder is a scan folder already.');
      input.value = '';
    } catch (error) {
      notice(`Not added: ${error.message}`);
    }
    await show(section);
  });
}

// A button that asks first: the first press shows what will happen and the button
// that does it, beside one that keeps things as they are.
function confirming(label, question, confirmLabel, action) {
  const holder = element('span', undefined, 'confirming');
  const ask = element('button', label);
  ask.type = 'button';
  ask.addEventListener('click', () => {
    const text = element('span', question, 'warning');
    const yes = element('button', confirmLabel, 'destructive-button');
    yes.type = 'button';
    const no = element('button', 'Keep it');
    no.type = 'button';
    no.addEventListener('click', () => holder.replaceChildren(ask));
    yes.addEventListener('click', async () => {
      yes.disabled = true;
      await action();
    });
    holder.replaceChildren(text, yes, no);
    yes.focus();
  });
  holder.append(ask);
  return holder;
}

export async function show(section) {
  const projects = await api('/api/v1/projects');
  const holder = document.getElementById('projects-repositories');
  if (!projects.repositories.length) {
    holder.replaceChildren(element('p', 'No repository is tracked yet. Track one by its folder '
      + 'below, or add a scan folder: the repositories under it are tracked at the next scan.',
    'quiet'));
  } else {
    const list = table(['Repository', 'Status', 'Category', 'Priority', 'Aliases', 'Path', 'Change'],
      'Each tracked repository, with where it stands now');
    list.id = 'projects-table';
    for (const repo of projects.repositories) {
      const row = element('tr');
      row.dataset.repo = repo.id;
      const name = repo.displayName || repo.name;
      cell(row, name);
      cell(row, repo.trackingEnabled ? (repo.standing.length ? words(repo.standing) : 'not scanned yet')
        : 'paused');
      cell(row, repo.category ?? '-');
      cell(row, repo.priority);
      cell(row, repo.aliases?.length ? repo.aliases.join(', ') : '-');
      cell(row, repo.localPath, 'path');
      cell(row, confirming(`Stop tracking ${name}`,
        `Stop tracking ${name}? What was recorded about it is removed; its folder is not touched.`,
        `Yes, stop tracking ${name}`, async () => {
          try {
            await change('/api/v1/projects/untrack', {repoID: repo.id});
            notice(`Stopped tracking ${name}. A scan folder will not track it again.`);
          } catch (error) {
            notice(`Still tracked: ${error.message}`);
          }
          await show(section);
        }));
      list.tBodies[0].append(row);
    }
    holder.replaceChildren(scrolling(list, 'Tracked repositories'));
  }
  const folders = document.getElementById('projects-folders');
  if (!projects.scanFolders.length) {
    folders.replaceChildren(element('li', 'No scan folders yet. Add one, such as the folder that '
      + 'holds your projects, and every repository under it is tracked at the next scan.', 'quiet'));
    return;
  }
  folders.replaceChildren(...projects.scanFolders.map((folder) => {
    const item = element('li');
    item.dataset.folder = folder;
    item.append(element('code', folder), confirming(`Remove ${folder}`,
      'Remove this scan folder? The repositories already tracked stay tracked.',
      'Yes, remove it', async () => {
        try {
          await change('/api/v1/projects/folders', {action: 'remove', path: folder});
          notice(`Scan folder removed: ${folder}.`);
        } catch (error) {
          notice(`Not removed: ${error.message}`);
        }
        await show(section);
      }));
    return item;
  }));
}
