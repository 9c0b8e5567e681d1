// Accounts: the GitHub accounts sync reads, with how many repositories each reaches
// and how many of those are linked here; added, imported, checked and removed one
// action at a time. A token is typed into a password field, sent once in a POST
// body, and never shown again, by this page or by any answer.
import {api, cell, change, element, scrolling, table} from './common.js';

export const html = `
  <div class="title-row">
    <h1 id="accounts-title">Accounts</h1>
    <div class="actions">
      <button id="accounts-sync" type="button">Sync now</button>
      <button id="accounts-import" type="button">Import from gh</button>
      <button id="accounts-add" type="button">Add account</button>
    </div>
  </div>
  <p class="quiet">Your connected GitHub accounts. Tokens are stored in the Keychain.</p>
  <p id="accounts-notice" role="status" aria-live="polite"></p>
  <details id="accounts-server">
    <summary>On a GitHub Enterprise Server</summary>
    <p class="quiet">Leave this empty for github.com. Import and Add use this address.</p>
    <form class="setting" id="accounts-server-form">
      <label for="accounts-api-url">REST API address</label>
      <input id="accounts-api-url" type="url" placeholder="https://github.example.com/api/v3" autocomplete="off">
    </form>
  </details>
  <form id="accounts-add-form" class="card sheet" hidden aria-labelledby="accounts-add-title">
    <h2 id="accounts-add-title">Add GitHub account</h2>
    <div class="setting">
      <label for="accounts-name">Display name</label>
      <input id="accounts-name" autocomplete="off" required>
    </div>
    <div class="setting">
      <label for="accounts-token">Personal Access Token</label>
      <input id="accounts-token" type="password" autocomplete="off" spellcheck="false" required>
    </div>
    <p class="quiet">A read-only fine-grained PAT is enough. The token is stored in the Keychain.</p>
    <div class="actions">
      <button id="accounts-add-cancel" type="button">Cancel</button>
      <button id="accounts-add-confirm" type="submit" class="approve">Add</button>
    </div>
  </form>
  <div id="accounts-rows"></div>
  <div id="accounts-empty" hidden>
    <h2>No GitHub account connected.</h2>
    <p class="quiet">Add a Personal Access Token — a read-only fine-grained one is enough — or import the active account from <code>gh</code>.</p>
  </div>
  <dialog id="accounts-remove" aria-labelledby="accounts-remove-title">
    <form method="dialog">
      <h2 id="accounts-remove-title">Remove this account?</h2>
      <p id="accounts-remove-who" class="figures"></p>
      <p>Its token is deleted from the Keychain and its GitHub data is removed. This can't be undone.</p>
      <div class="actions">
        <button value="cancel" type="submit">Cancel</button>
        <button id="accounts-remove-confirm" value="remove" type="submit" class="danger">Remove</button>
      </div>
    </form>
  </dialog>`;

export const follows = ['accounts', 'sync'];

const labels = {connected: ['Connected', 'good'], tokenInvalid: ['Token Invalid', 'problem'],
  unchecked: ['Unchecked', 'dim'], error: ['Error', 'problem']};

// While an action runs here, or another page's runs, every action waits.
let busyHere = false;

export function setup() {
  document.getElementById('accounts-sync').addEventListener('click', () =>
    act('/api/v1/accounts/sync', undefined, 'Syncing…', syncDone));
  document.getElementById('accounts-import').addEventListener('click', () =>
    act('/api/v1/accounts/import-gh', {apiURL: apiURL()}, 'Importing the gh account…', checkDone));
  const form = document.getElementById('accounts-add-form');
  document.getElementById('accounts-add').addEventListener('click', () => {
    form.hidden = false;
    document.getElementById('accounts-name').focus();
  });
  document.getElementById('accounts-add-cancel').addEventListener('click', closeAddForm);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const token = document.getElementById('accounts-token');
    const body = {displayName: document.getElementById('accounts-name').value,
      token: token.value, apiURL: apiURL()};
    // The field forgets the token at once, whatever GitHub answers.
    token.value = '';
    if (await act('/api/v1/accounts/add', body, 'Adding the account…', checkDone)) closeAddForm();
  });
}

function apiURL() {
  return document.getElementById('accounts-api-url').value.trim();
}

function closeAddForm() {
  const form = document.getElementById('accounts-add-form');
  form.reset();
  form.hidden = true;
}

function notice(text, className = '') {
  const shown = document.getElementById('accounts-notice');
  shown.className = className;
  shown.textContent = text;
}

function setBusy(busy) {
  const section = document.getElementById('accounts');
  section?.setAttribute('aria-busy', String(busy));
  for (const button of document.querySelectorAll('#accounts button:not([value="cancel"])')) {
    if (button.id !== 'accounts-add-cancel') button.disabled = busy;
  }
}

// One action: busy until the service has done it and read the rows again. True
// when it was done.
async function act(path, body, working, done) {
  busyHere = true;
  setBusy(true);
  notice(working, 'quiet');
  try {
    const state = await change(path, body);
    notice(done(state.outcome), state.outcome?.problem ? 'problem' : 'good');
    draw(state);
    return true;
  } catch (error) {
    notice(`Not done: ${error.message}`, 'problem');
    return false;
  } finally {
    busyHere = false;
    setBusy(false);
  }
}

function who(account) {
  return account.username && account.username !== account.displayName
    ? `${account.displayName} (${account.username})` : account.displayName;
}

function checkDone(outcome) {
  const [label] = labels[outcome.account.status] ?? [outcome.account.status];
  return outcome.problem ? `${who(outcome.account)}: ${label} — ${outcome.problem}`
    : `${who(outcome.account)}: ${label}.`;
}

function syncDone(summary) {
  if (summary.skipped) return `Sync skipped: ${summary.skippedReason}.`;
  const text = `Synced ${summary.accountsSynced} of ${summary.accountsSynced + summary.accountsFailed} accounts: `
    + `${summary.remoteRepos} repositories on GitHub, ${summary.mappedRepos} linked here.`;
  return summary.errors.length ? `${text} ${summary.errors.join(' ')}` : text;
}

export async function show() {
  draw(await api('/api/v1/accounts'));
}

function draw(state) {
  if (!busyHere) setBusy(state.isBusy);
  const holder = document.getElementById('accounts-rows');
  document.getElementById('accounts-empty').hidden = !state.didLoad || state.rows.length > 0;
  if (!state.rows.length) {
    holder.replaceChildren();
    return;
  }
  const listing = table(['Account', 'Login', 'Status', ['Repos', 'number'], ['Mapped', 'number'],
    'Last sync', 'Actions'], 'Connected accounts');
  listing.id = 'accounts-table';
  for (const {account, reposCount, mappedCount} of state.rows) {
    const row = element('tr');
    row.dataset.id = account.id;
    cell(row, account.displayName);
    cell(row, account.username || '-');
    const [label, tone] = labels[account.status] ?? [account.status, ''];
    cell(row, element('span', label, `word ${tone}`));
    cell(row, String(reposCount), 'number');
    cell(row, String(mappedCount), 'number');
    cell(row, account.lastSyncAt ? new Date(account.lastSyncAt).toLocaleString() : 'never');
    const actions = element('div', undefined, 'actions');
    const check = element('button', 'Revalidate');
    check.type = 'button';
    check.setAttribute('aria-label', `Revalidate ${account.displayName}`);
    check.addEventListener('click', () => act(`/api/v1/accounts/${account.id}/revalidate`,
      undefined, `Checking ${account.displayName} with GitHub…`, checkDone));
    const remove = element('button', 'Remove');
    remove.type = 'button';
    remove.setAttribute('aria-label', `Remove ${account.displayName}`);
    remove.addEventListener('click', () => confirmRemoval(account));
    actions.append(check, remove);
    cell(row, actions);
    listing.tBodies[0].append(row);
  }
  holder.replaceChildren(scrolling(listing, 'GitHub accounts'));
  if (busyHere) setBusy(true);
}

function confirmRemoval(account) {
  const dialog = document.getElementById('accounts-remove');
  document.getElementById('accounts-remove-who').textContent = who(account);
  dialog.onclose = () => {
    if (dialog.returnValue !== 'remove') return;
    act(`/api/v1/accounts/${account.id}/remove`, undefined, `Removing ${account.displayName}…`,
      () => `Removed ${account.displayName}.`);
  };
  dialog.returnValue = '';
  dialog.showModal();
}
