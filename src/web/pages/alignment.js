// Git Alignment: how each tracked repository stands against GitHub, grouped by what
// differs, each with the command that aligns it. Quorvane runs none of them: the
// person copies one, or opens the repository in a terminal or VS Code to run it.
import {api, change, element} from './common.js';

export const html = `
  <h1 id="alignment-title">Git Alignment</h1>
  <p class="quiet">Local ↔ GitHub differences, with safe commands to align them. Quorvane never runs a git command that modifies your repository on its own — you copy the commands below and run them yourself.</p>
  <h2 id="alignment-counts-title">Local ↔ Remote</h2>
  <ul id="alignment-counts" class="counts" aria-labelledby="alignment-counts-title"></ul>
  <p id="alignment-derived" class="word attention" hidden>local-derived · connect GitHub for the real state</p>
  <p id="alignment-notice" role="status" class="quiet"></p>
  <div id="alignment-sections"></div>
  <div id="alignment-empty" hidden>
    <h2>Everything aligned ✨</h2>
    <p class="quiet">Local and GitHub are in sync for every tracked repository.</p>
  </div>`;

export const follows = ['scan', 'sync', 'accounts'];

// The counts always shown, then those shown only when they have rows.
const counts = [['withRemote', 'On GitHub'], ['localOnly', 'Local only'], ['synced', 'Synced'],
  ['needsPush', 'Needs push'], ['needsPull', 'Needs pull'], ['noUpstream', 'No upstream'],
  ['diverged', 'Diverged']];
const countsWhenAny = [['remoteOnly', 'Remote only'], ['otherRemote', 'Other remote'],
  ['accountIssues', 'Account issues'], ['branchMismatch', 'Branch mismatch']];

const tones = {needsPush: 'attention', needsPull: 'attention', diverged: 'problem',
  noUpstream: 'attention', accountMissing: 'problem', remoteInaccessible: 'problem',
  branchMismatch: 'attention'};

export async function show() {
  const view = await api('/api/v1/alignment');
  const list = document.getElementById('alignment-counts');
  list.replaceChildren();
  for (const [key, label] of counts) list.append(count(label, view.overview?.[key] ?? 0));
  for (const [key, label] of countsWhenAny) {
    if (view.overview?.[key]) list.append(count(label, view.overview[key]));
  }
  document.getElementById('alignment-derived').hidden = !view.derivedOffline;
  document.getElementById('alignment-sections').replaceChildren(...view.sections.map(section));
  // Shown only from what was read: an aligned set, not a screen still loading.
  document.getElementById('alignment-empty').hidden = view.sections.length > 0;
}

function count(label, value) {
  const item = element('li');
  item.append(element('span', label, 'quiet'), ' ', element('strong', String(value)));
  return item;
}

function section(group) {
  const part = element('section', undefined, 'alignment-section');
  part.dataset.section = group.section;
  const title = element('h2', group.title, `word ${tones[group.status] ?? ''}`.trim());
  title.id = `alignment-${group.section}`;
  part.setAttribute('aria-labelledby', title.id);
  const entries = element('ul', undefined, 'cards');
  entries.append(...group.entries.map(entry));
  part.append(title, entries);
  return part;
}

function entry({line, suggestion}) {
  const card = element('li', undefined, 'card');
  card.dataset.repo = line.repoID;
  card.append(element('h3', line.name));
  const facts = [];
  if (line.branch) facts.push(line.branch);
  if (line.ahead || line.behind) facts.push(`↑${line.ahead} ↓${line.behind}`);
  if (line.account) facts.push(line.account);
  if (facts.length) card.append(element('p', facts.join(' · '), 'quiet'));
  const actions = element('div', undefined, 'actions');
  if (suggestion) {
    card.append(element('p', suggestion.title), element('pre', suggestion.command, 'command'));
    const copy = element('button', 'Copy Command');
    copy.type = 'button';
    copy.setAttribute('aria-label', `Copy Command for ${line.name}`);
    copy.addEventListener('click', () => copyCommand(suggestion.command, line.name));
    actions.append(copy);
  }
  // Only GitHub has a remote-only repository: there is no folder to open.
  if (line.syncStatus !== 'remoteOnly') {
    for (const [label, where] of [['Open Terminal', 'terminal'], ['Open in VS Code', 'vscode']]) {
      const button = element('button', label);
      button.type = 'button';
      button.setAttribute('aria-label', `${label} for ${line.name}`);
      button.addEventListener('click', () => openIn(where, line));
      actions.append(button);
    }
  }
  if (actions.childElementCount) card.append(actions);
  return card;
}

function notice(text, className = 'quiet') {
  const shown = document.getElementById('alignment-notice');
  shown.className = className;
  shown.textContent = text;
}

async function copyCommand(command, name) {
  try {
    await navigator.clipboard.writeText(command);
    notice(`Copied the command for ${name}: paste it into a terminal in the repository and run it.`);
  } catch (error) {
    notice(`Cannot copy to the clipboard (${error.message}): select the command and copy it by hand.`, 'problem');
  }
}

async function openIn(where, line) {
  const what = where === 'terminal' ? 'a terminal' : 'VS Code';
  try {
    const opened = await change(`/api/v1/alignment/${where}`, {repoID: line.repoID});
    if (opened.opened) notice(`Opened ${line.name} in ${what}.`);
    else notice(`Cannot open ${line.name} in ${what}: ${opened.problem}.`, 'problem');
  } catch (error) {
    notice(`Cannot open ${line.name} in ${what}: ${error.message}.`, 'problem');
  }
}
