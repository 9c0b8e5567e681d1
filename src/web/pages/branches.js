// Branches: each repository's branches here and on GitHub as the last sync recorded
// them, what is merged or stale, and the safe command that tidies each.
import {api, cell, element, param, scrolling, table} from './common.js';

export const html = `
  <h1 id="branches-title">Branches</h1>
  <form id="branches-pick" class="filters">
    <label for="branches-repo">Repository</label>
    <select id="branches-repo" name="repo"><option value="">All repositories</option></select>
  </form>
  <p id="branches-notice" role="status" class="quiet"></p>
  <div id="branches-lists"></div>`;

export const follows = ['scan', 'projects'];

export function setup(section) {
  document.getElementById('branches-repo').addEventListener('change', async (event) => {
    const chosen = event.currentTarget.value;
    history.replaceState(null, '', chosen ? `/branches?repo=${encodeURIComponent(chosen)}` : '/branches');
    await show(section);
  });
}

function yes(flag) {
  return flag ? 'yes' : '-';
}

export async function show() {
  const projects = await api('/api/v1/projects');
  const picker = document.getElementById('branches-repo');
  const wanted = param('repo', '');
  const known = projects.repositories.some((repo) => repo.id === wanted);
  picker.replaceChildren(element('option', 'All repositories'));
  picker.options[0].value = '';
  for (const repo of projects.repositories) {
    const option = element('option', repo.displayName || repo.name);
    option.value = repo.id;
    picker.append(option);
  }
  picker.value = known ? wanted : '';
  const notice = document.getElementById('branches-notice');
  notice.textContent = wanted && !known
    ? 'That repository is not tracked; all repositories are shown instead.' : '';
  const branches = await api(known ? `/api/v1/branches?repo=${encodeURIComponent(wanted)}`
    : '/api/v1/branches');
  const lists = document.getElementById('branches-lists');
  if (!branches.length) {
    lists.replaceChildren(element('p', 'No branches recorded yet: a sync reads them. Run '
      + '“quorvane sync”, or wait for the daemon’s next sync.', 'quiet'));
    return;
  }
  const byRepo = new Map();
  for (const branch of branches) {
    if (!byRepo.has(branch.repoID)) byRepo.set(branch.repoID, []);
    byRepo.get(branch.repoID).push(branch);
  }
  const names = new Map(projects.repositories.map((repo) => [repo.id, repo.displayName || repo.name]));
  const parts = [];
  for (const [repoID, rows] of byRepo) {
    const name = names.get(repoID) ?? repoID;
    parts.push(element('h2', name));
    const folder = rows.find((branch) => branch.suggestion?.cwd)?.suggestion.cwd;
    if (folder) parts.push(element('p', `The commands run in ${folder}.`, 'quiet'));
    const list = table(['Branch', 'Here', 'GitHub', 'Upstream', ['Ahead', 'number'],
      ['Behind', 'number'], 'Last commit', 'State', 'Safe command'], `The branches of ${name}`);
    for (const branch of rows) {
      const row = element('tr');
      row.dataset.branch = branch.name;
      cell(row, branch.name);
      cell(row, yes(branch.isLocal));
      cell(row, yes(branch.isRemote));
      cell(row, branch.upstreamName ?? '-');
      cell(row, String(branch.aheadCount), branch.aheadCount ? 'number word attention' : 'number');
      cell(row, String(branch.behindCount), branch.behindCount ? 'number word attention' : 'number');
      cell(row, branch.lastCommitDate ? branch.lastCommitDate.slice(0, 10) : '-');
      const state = element('span', undefined, 'words');
      if (branch.merged) state.append(element('span', 'merged', 'word good'));
      if (branch.stale) state.append(element('span', 'stale', 'word attention'));
      cell(row, state.childNodes.length ? state : '-');
      if (branch.suggestion) {
        const what = element('span');
        what.append(element('span', `${branch.suggestion.title}: `, 'quiet'),
          element('code', branch.suggestion.command));
        cell(row, what);
      } else {
        cell(row, '-');
      }
      list.tBodies[0].append(row);
    }
    parts.push(scrolling(list, `Branches of ${name}`));
  }
  lists.replaceChildren(...parts);
}
