// The first run: which folders hold the person's repositories, whether Quorvane
// starts at login, and then Today with the repositories tracked.
import {api, change, element, plural} from './common.js';

export const html = `
  <h1 id="onboarding-title">Welcome to Quorvane</h1>
  <p>Quorvane keeps a record of your daily Git work: what you committed, what is not
    pushed yet, and how long you worked. It only reads your repositories; it never
    changes them.</p>
  <p id="onboarding-tracked" class="quiet" hidden></p>
  <form id="onboarding-form">
    <fieldset>
      <legend>Where are your repositories?</legend>
      <p class="quiet">Every repository in the folders you choose is tracked, now and
        when you add new ones. You can change this later in Projects.</p>
      <ul id="onboarding-folders" class="choices"></ul>
      <p id="onboarding-none" class="quiet" hidden>None of ~/code, ~/src, ~/projects, ~/git
        or ~/work is here. Type the folder that holds your repositories.</p>
      <div class="other-folder">
        <label for="onboarding-other">Another folder</label>
        <input id="onboarding-other" placeholder="~/dev" autocomplete="off">
        <button type="button" id="onboarding-add">Add</button>
      </div>
    </fieldset>
    <fieldset>
      <legend>GitHub (optional)</legend>
      <p class="quiet">With a GitHub account connected, Quorvane says how each repository
        stands against GitHub. You can connect one now or later.</p>
      <div class="connect">
        <label for="onboarding-github-name">Display name</label>
        <input id="onboarding-github-name" placeholder="Personal" autocomplete="off">
        <label for="onboarding-github-token">Personal Access Token</label>
        <input id="onboarding-github-token" type="password" autocomplete="off"
          aria-describedby="onboarding-github-note">
        <button type="button" id="onboarding-github-connect">Connect</button>
      </div>
      <p id="onboarding-github-note" class="quiet">A read-only fine-grained token is enough. It is
        stored in your secret store, never in a file Quorvane writes. More ways (gh, GitHub
        Enterprise) are in <a href="/accounts">Accounts</a>.</p>
      <p id="onboarding-github-notice" role="status" aria-live="polite"></p>
    </fieldset>
    <fieldset>
      <legend>At login</legend>
      <p id="onboarding-service-done" class="quiet" hidden>Quorvane already starts at login.</p>
      <label class="choice" id="onboarding-service-choice">
        <input type="checkbox" id="onboarding-service" checked>
        <span>Start Quorvane at every login, so it keeps watching (the same as
        <code>quorvane service install</code>)</span>
      </label>
    </fieldset>
    <div class="actions">
      <button type="submit" class="approve" id="onboarding-start">Start tracking</button>
      <a href="/today" id="onboarding-skip">Skip for now</a>
    </div>
    <p id="onboarding-notice" role="status" aria-live="polite"></p>
  </form>`;

// The scan that tracks the chosen folders' repositories ends with this event.
export const follows = ['scan'];
let started = false;

export function setup() {
  document.getElementById('onboarding-add').addEventListener('click', addTyped);
  document.getElementById('onboarding-other').addEventListener('keydown', (event) => {
    if (event.key === 'Enter') {
      event.preventDefault();
      addTyped();
    }
  });
  document.getElementById('onboarding-form').addEventListener('submit', start);
  document.getElementById('onboarding-github-connect').addEventListener('click', connect);
  document.getElementById('onboarding-skip').addEventListener('click', () => {
    sessionStorage.setItem('quorvane.onboarding', 'skipped');
  });
}

// One folder to choose, ticked when it holds a repository.
function choice(path, shown, repositories) {
  const item = element('li');
  const label = element('label', undefined, 'choice');
  const box = element('input');
  box.type = 'checkbox';
  box.value = path;
  box.checked = repositories === undefined || repositories > 0;
  const text = element('span');
  text.append(element('code', shown));
  if (repositories !== undefined) {
    text.append(' ', element('span', repositories
      ? plural(repositories, 'repository', 'repositories') : 'no repository', 'quiet'));
  }
  label.append(box, text);
  item.append(label);
  return item;
}

export async function show(section, event) {
  if (event === 'scan') {
    if (started) location.assign('/today');
    return;
  }
  const state = await api('/api/v1/onboarding');
  const list = document.getElementById('onboarding-folders');
  list.replaceChildren(...state.suggestions.map((each) =>
    choice(each.path, each.shown, each.repositories)));
  document.getElementById('onboarding-none').hidden = state.suggestions.length > 0;
  const tracked = document.getElementById('onboarding-tracked');
  tracked.hidden = state.needed;
  tracked.textContent = `Quorvane tracks ${plural(state.tracked, 'repository', 'repositories')} `
    + `already${state.scanFolders.length ? `, in ${state.scanFolders.join(', ')}` : ''}. `
    + 'Choose more folders here, or go to Today.';
  document.getElementById('onboarding-service-done').hidden = !state.startsAtLogin;
  document.getElementById('onboarding-service-choice').hidden = state.startsAtLogin;
  document.getElementById('onboarding-service').checked = !state.startsAtLogin;
}

function addTyped() {
  const input = document.getElementById('onboarding-other');
  const typed = input.value.trim();
  if (!typed) return;
  document.getElementById('onboarding-folders').append(choice(typed, typed));
  document.getElementById('onboarding-none').hidden = true;
  input.value = '';
}

async function start(event) {
  event.preventDefault();
  const notice = document.getElementById('onboarding-notice');
  const button = document.getElementById('onboarding-start');
  const folders = [...document.querySelectorAll('#onboarding-folders input:checked')]
    .map((box) => box.value);
  if (!folders.length) {
    notice.textContent = 'Choose at least one folder, or add the one that holds your repositories.';
    return;
  }
  button.disabled = true;
  try {
    const answer = await change('/api/v1/onboarding', {folders,
      startAtLogin: document.getElementById('onboarding-service').checked});
    // The scan asked for after saving is the one that tracks them.
    started = true;
    notice.textContent = 'Looking for repositories in your folders…';
    if (answer.startAtLoginProblem) {
      notice.textContent += ` Quorvane could not be set to start at login: ${answer.startAtLoginProblem}.`
        + ' Run quorvane service install later.';
    }
  } catch (error) {
    button.disabled = false;
    notice.textContent = `Nothing was saved: ${error.message}`;
  }
}

// The account is added as Accounts adds it: the token goes to the secret store, and
// the field is emptied whatever the answer.
async function connect() {
  const notice = document.getElementById('onboarding-github-notice');
  const token = document.getElementById('onboarding-github-token');
  const button = document.getElementById('onboarding-github-connect');
  button.disabled = true;
  notice.textContent = 'Checking the token with GitHub…';
  try {
    const answer = await change('/api/v1/accounts/add', {
      displayName: document.getElementById('onboarding-github-name').value || 'GitHub',
      token: token.value});
    const {account, problem} = answer.outcome;
    notice.textContent = problem ? `The account is kept, but GitHub said: ${problem}`
      : `Connected as ${account.username || account.displayName}.`;
  } catch (error) {
    notice.textContent = `Not connected: ${error.message}`;
  }
  token.value = '';
  button.disabled = false;
}
