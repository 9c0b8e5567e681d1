// GitHub Inventory: every repository the last sync saw, on GitHub, here or both,
// narrowed by a filter (read again by the service) and a search (applied to what
// was read, without reading again).
import {api, cell, change, element, scrolling, table} from './common.js';

export const html = `
  <h1 id="inventory-title">GitHub Inventory</h1>
  <form id="inventory-filters" class="filters" role="search">
    <span><label for="inventory-filter">Filter</label><select id="inventory-filter"></select></span>
    <span><label for="inventory-search">Search</label>
      <input id="inventory-search" type="search" placeholder="Search by name or account" autocomplete="off"></span>
  </form>
  <p id="inventory-count" class="figures" aria-live="polite"></p>
  <p id="inventory-notice" role="status" class="problem"></p>
  <div id="inventory-rows"></div>
  <p id="inventory-empty" class="quiet" hidden></p>`;

export const follows = ['sync', 'accounts', 'scan'];

const badges = {mapped: ['Mapped', 'good'], localOnly: ['Local', ''], remoteOnly: ['Remote', ''],
  accountMismatch: ['Account?', 'problem'], remoteInaccessible: ['Inaccessible', 'problem']};

export function setup() {
  const form = document.getElementById('inventory-filters');
  form.addEventListener('submit', (event) => event.preventDefault());
  document.getElementById('inventory-filter').addEventListener('change', (event) =>
    send({filter: event.target.value}));
  document.getElementById('inventory-search').addEventListener('input', (event) =>
    send({search: event.target.value}));
}

// The latest request wins: an answer to an older one is not drawn over a newer.
let asked = 0;
async function send(body) {
  const mine = ++asked;
  try {
    const state = await change('/api/v1/inventory', body);
    if (mine === asked) draw(state);
  } catch (error) {
    document.getElementById('inventory-notice').textContent = `Not changed: ${error.message}`;
  }
}

export async function show() {
  draw(await api('/api/v1/inventory'));
}

function draw(state) {
  document.getElementById('inventory-notice').textContent = '';
  const select = document.getElementById('inventory-filter');
  if (!select.options.length) {
    for (const {filter, label} of state.filters) select.append(new Option(label, filter));
  }
  select.value = state.filter;
  const search = document.getElementById('inventory-search');
  if (document.activeElement !== search) search.value = state.search;
  const rows = state.filtered;
  document.getElementById('inventory-count').textContent =
    `${rows.length} repositories (remote + local).`;
  const holder = document.getElementById('inventory-rows');
  // The filter the rows drawn were read for.
  holder.dataset.filter = state.filter;
  const empty = document.getElementById('inventory-empty');
  empty.hidden = !state.didLoad || rows.length > 0;
  // No row at all, whatever the filter: nothing was synced yet.
  empty.textContent = state.rows.length === 0 && state.filter === 'all'
    ? 'Add an account and run Sync to populate the inventory.'
    : 'No repository matches this filter.';
  if (!rows.length) {
    holder.replaceChildren();
    return;
  }
  const listing = table(['Name', 'Kind', 'Account', 'Tags', 'Local folder'], 'Repositories');
  listing.id = 'inventory-table';
  for (const row of rows) {
    const tr = element('tr');
    tr.dataset.id = row.id;
    cell(tr, row.name);
    const [label, tone] = row.otherRemote ? ['Other remote', ''] : badges[row.kind] ?? [row.kind, ''];
    cell(tr, element('span', label, `badge ${tone}`.trim()));
    cell(tr, row.account || '-');
    const tags = element('span', undefined, 'words');
    if (row.isPrivate) tags.append(element('span', 'Private', 'tag'));
    if (row.isArchived) tags.append(element('span', 'Archived', 'tag'));
    cell(tr, tags);
    cell(tr, row.localPath ? row.localPath + (row.localNotTracked ? ' (not tracked)' : '') : '-');
    listing.tBodies[0].append(tr);
  }
  holder.replaceChildren(scrolling(listing, 'Inventory repositories'));
}
