// The dashboard's one page: each screen is a section, chosen by the address.
const pages = ['today', 'review', 'settings'];

async function api(path) {
  const answer = await fetch(path, {headers: {Accept: 'application/json'}});
  if (!answer.ok) throw new Error(`${path}: ${answer.status}`);
  return answer.json();
}

// A change: the session's CSRF token goes with it, which only this page can read.
let csrf;
async function change(path, body) {
  csrf ??= (await api('/api/v1/session')).csrfToken;
  const headers = {'X-Quorvane-CSRF': csrf};
  if (body !== undefined) headers['Content-Type'] = 'application/json';
  const answer = await fetch(path, {method: 'POST', headers,
    body: body === undefined ? undefined : JSON.stringify(body)});
  const reply = await answer.json();
  if (!answer.ok) throw new Error(reply.error ?? `${path}: ${answer.status}`);
  return reply;
}

function element(tag, text, className) {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  if (className) made.className = className;
  return made;
}

function cell(row, text, className) {
  const td = document.createElement('td');
  td.textContent = text;
  if (className) td.className = className;
  row.append(td);
}

function plural(count, word) {
  return `${count} ${word}${count === 1 ? '' : 's'}`;
}

// Seconds of estimated work as the command line shows them: "1 h 05 min", "25 min".
function duration(seconds) {
  if (!seconds) return '-';
  const minutes = Math.round(seconds / 60);
  if (minutes < 60) return `${minutes} min`;
  return `${Math.floor(minutes / 60)} h ${String(minutes % 60).padStart(2, '0')} min`;
}

async function showToday() {
  const [today, reminders] = await Promise.all([api('/api/v1/today'), api('/api/v1/reminders')]);
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
    const status = document.createElement('td');
    for (const word of line.standing) status.append(element('span', word.text, `word ${word.tone}`));
    row.append(status);
    body.append(row);
  }
  document.getElementById('today-none').hidden = today.lines.length > 0;
  const list = document.getElementById('today-reminders');
  list.replaceChildren(...reminders.map((reminder) => element('li', reminder.message)));
  document.getElementById('today-no-reminders').hidden = reminders.length > 0;
}

async function scanNow() {
  const button = document.getElementById('scan-now');
  button.disabled = true;
  button.textContent = 'Scanning…';
  try {
    await change('/api/v1/scan');
  } catch (error) {
    button.disabled = false;
    button.textContent = 'Scan now';
    document.getElementById('today-figures').textContent = `Cannot scan: ${error.message}`;
  }
}

// One proposal as the person must read it before deciding.
function proposalCard(proposal) {
  const card = element('li', undefined, 'card');
  const title = element('h2');
  if (proposal.destructive) title.append(element('span', 'DESTRUCTIVE', 'destructive'));
  title.append(proposal.title);
  card.append(title, element('p', proposal.summary));
  if (proposal.evidence?.length) {
    const list = element('ul');
    for (const line of proposal.evidence) list.append(element('li', line));
    card.append(list);
  }
  if (proposal.change) card.append(beforeAfter(proposal.change));
  const facts = element('dl', undefined, 'change');
  const fact = (name, value) => facts.append(element('dt', name), element('dd', value));
  if (proposal.intendedTool) fact('Tool', proposal.intendedTool);
  if (proposal.git) {
    fact('Connects to', [proposal.git.remote, ...proposal.git.urls].join(' '));
  } else if (!proposal.change && proposal.payloadJSON && proposal.payloadJSON !== '{}') {
    fact('Change', proposal.payloadJSON);
  }
  if (proposal.confidence !== undefined && proposal.confidence !== null) {
    fact('Confidence', `${proposal.confidence}%`);
  }
  card.append(facts);
  const actions = element('div', undefined, 'actions');
  const approve = element('button', 'Approve', 'approve');
  const reject = element('button', 'Reject');
  approve.addEventListener('click', () => decide(proposal, 'approve'));
  reject.addEventListener('click', () => decide(proposal, 'reject'));
  actions.append(approve, reject);
  card.append(actions);
  return card;
}

// What the change does: each thing as it is now and as it will be, what to look
// at first, and the exact command that will run.
function beforeAfter(change) {
  const holder = element('div', undefined, 'before-after');
  if (change.rows?.length) {
    const table = element('table');
    const head = element('tr');
    for (const name of ['What', 'Now', 'After']) {
      const th = element('th', name);
      th.scope = 'col';
      head.append(th);
    }
    table.append(element('thead'));
    table.tHead.append(head);
    const body = element('tbody');
    for (const row of change.rows) {
      const tr = element('tr');
      cell(tr, row.what);
      cell(tr, display(row.before), 'before');
      cell(tr, display(row.after), 'after');
      body.append(tr);
    }
    table.append(body);
    holder.append(table);
  }
  for (const warning of change.warnings ?? []) holder.append(element('p', `⚠ ${warning}`, 'warning'));
  if (change.command) {
    const runs = element('p', 'Runs: ');
    runs.append(element('code', change.command));
    holder.append(runs);
  }
  return holder;
}

async function decide(proposal, decision) {
  const notice = document.getElementById('review-token');
  try {
    const answer = await change(`/api/v1/proposals/${proposal.id}/${decision}`);
    notice.replaceChildren();
    if (decision === 'approve') {
      notice.append(`Approved: ${proposal.title}. The agent fetches its token itself; it is shown `
        + `once here, valid until ${new Date(answer.expiresAt).toLocaleTimeString()}: `);
      notice.append(element('code', answer.confirmationToken));
    } else {
      notice.append(`Rejected: ${proposal.title}.`);
    }
  } catch (error) {
    notice.textContent = `Not done: ${error.message}`;
  }
  notice.hidden = false;
  await showReview();
}

// The cards on the screen, by proposal id. A card stays the same element for as
// long as its proposal waits, so reading the list again (on every event) neither
// moves the person's focus nor replaces the button under their pointer.
const cards = new Map();
function placeCards(proposals) {
  const list = document.getElementById('review-list');
  const wanted = proposals.map((proposal) => {
    if (!cards.has(proposal.id)) cards.set(proposal.id, proposalCard(proposal));
    return cards.get(proposal.id);
  });
  for (const [id, card] of cards) {
    if (!wanted.includes(card)) {
      card.remove();
      cards.delete(id);
    }
  }
  wanted.forEach((card, index) => {
    if (list.children[index] !== card) list.insertBefore(card, list.children[index] ?? null);
  });
}

async function showReview() {
  const [proposals, history] = await Promise.all([api('/api/v1/proposals'),
    api('/api/v1/proposals/history')]);
  placeCards(proposals);
  document.getElementById('review-empty').hidden = proposals.length > 0;
  const body = document.querySelector('#review-history tbody');
  body.replaceChildren();
  for (const proposal of history) {
    const row = document.createElement('tr');
    cell(row, new Date(proposal.createdAt).toLocaleString());
    cell(row, proposal.title);
    cell(row, proposal.status);
    body.append(row);
  }
  await showAudit();
}

async function showAudit() {
  const filters = new URLSearchParams();
  for (const name of ['tool', 'status', 'actor']) {
    const value = document.getElementById(`audit-${name}`).value.trim();
    if (value) filters.set(name, value);
  }
  const entries = await api(`/api/v1/audit?${filters}`);
  const body = document.querySelector('#review-audit tbody');
  body.replaceChildren();
  for (const entry of entries) {
    const row = document.createElement('tr');
    cell(row, new Date(entry.at).toLocaleString());
    cell(row, entry.actor);
    cell(row, entry.tool);
    cell(row, entry.status);
    cell(row, entry.detail ?? '');
    body.append(row);
  }
  document.getElementById('audit-empty').hidden = entries.length > 0;
}

// A value as a person reads and types it, as the command line shows it.
function display(value) {
  if (value === null) return 'none';
  return typeof value === 'string' ? value : String(value);
}

const groups = [['', 'General'], ['reminders', 'Reminders'], ['sync', 'GitHub sync'],
  ['ai', 'AI summaries'], ['mapping', 'Mapping'], ['agent', 'MCP'], ['dashboard', 'Dashboard']];

async function showSettings() {
  const [values, keys] = await Promise.all([api('/api/v1/settings'), api('/api/v1/settings/keys')]);
  // Built whole before it replaces what is shown, so the screen never shows half of it.
  const sections = [];
  for (const [prefix, title] of groups) {
    const inGroup = keys.filter((key) =>
      prefix ? key.name.startsWith(`${prefix}.`) : !key.name.includes('.'));
    if (!inGroup.length) continue;
    const section = element('section');
    section.setAttribute('aria-label', title);
    section.append(element('h2', title));
    for (const key of inGroup) {
      const form = element('form', undefined, 'setting');
      const id = `setting-${key.name.replace('.', '-')}`;
      const label = element('label', key.name);
      label.htmlFor = id;
      const input = element('input');
      input.id = id;
      input.name = key.name;
      input.value = display(values[key.name]);
      input.setAttribute('aria-describedby', `${id}-meaning`);
      const save = element('button', 'Save');
      save.type = 'submit';
      const meaning = element('p', `${key.meaning} (${key.allowed})`, 'meaning');
      meaning.id = `${id}-meaning`;
      form.append(label, input, save, meaning);
      form.addEventListener('submit', async (event) => {
        event.preventDefault();
        const notice = document.getElementById('settings-notice');
        try {
          const saved = await change('/api/v1/settings', {name: key.name, value: input.value});
          notice.textContent = `${saved.name}: ${display(saved.before)} → ${display(saved.after)}`;
          if (saved.name === 'theme') applyTheme(saved.after);
        } catch (error) {
          notice.textContent = `Not saved: ${error.message}`;
        }
      });
      section.append(form);
    }
    if (prefix === 'agent') section.append(await agentPanel());
    if (prefix === 'ai') section.append(await aiKeyForm());
    sections.push(section);
  }
  document.getElementById('settings-groups').replaceChildren(...sections);
}

// The agent server's facts, and the folders an agent may name.
async function agentPanel() {
  const agent = await api('/api/v1/agent');
  const panel = element('div');
  const facts = element('dl', undefined, 'change');
  facts.append(element('dt', 'Tools'), element('dd', String(agent.toolCount)),
    element('dt', 'Socket'), element('dd', agent.socket),
    element('dt', 'Serving'), element('dd', agent.running ? 'yes' : 'no'));
  panel.append(facts);
  const heading = element('h3', 'Allowed Roots');
  heading.id = 'allowed-roots';
  panel.append(heading, element('p',
    'An agent may only name folders inside these. None: it may name no folder.', 'meaning'));
  const list = element('ul', undefined, 'roots');
  for (const root of agent.allowedRoots) {
    const item = element('li');
    const remove = element('button', 'Remove');
    remove.setAttribute('aria-label', `Remove ${root}`);
    remove.addEventListener('click', () => changeRoot('remove', root));
    item.append(element('code', root), remove);
    list.append(item);
  }
  const add = element('form', undefined, 'setting');
  const label = element('label', 'Add a folder');
  label.htmlFor = 'allowed-root-new';
  const input = element('input');
  input.id = 'allowed-root-new';
  input.placeholder = '~/code';
  const button = element('button', 'Add');
  button.type = 'submit';
  add.append(label, input, button);
  add.addEventListener('submit', (event) => {
    event.preventDefault();
    changeRoot('add', input.value);
  });
  panel.append(list, add);
  return panel;
}

async function changeRoot(action, path) {
  const notice = document.getElementById('settings-notice');
  try {
    const saved = await change('/api/v1/agent/allowed-roots', {action, path});
    notice.textContent = `Allowed Roots: ${saved.allowedRoots.join(', ') || 'none'}`;
  } catch (error) {
    notice.textContent = `Not saved: ${error.message}`;
  }
  await showSettings();
}

// The API key is typed here and goes to the secret store; the page never has it back.
async function aiKeyForm() {
  const agent = await api('/api/v1/agent');
  const form = element('form', undefined, 'setting');
  const label = element('label', 'API key');
  label.htmlFor = 'ai-key';
  const input = element('input');
  input.id = 'ai-key';
  input.type = 'password';
  input.autocomplete = 'off';
  input.placeholder = agent.aiKeyStored ? 'a key is stored' : 'no key stored';
  const button = element('button', 'Store');
  button.type = 'submit';
  form.append(label, input, button);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const notice = document.getElementById('settings-notice');
    try {
      const stored = await change('/api/v1/ai-key', {key: input.value});
      notice.textContent = `The API key is stored in ${stored.where}.`;
    } catch (error) {
      notice.textContent = `Not stored: ${error.message}`;
    }
    input.value = '';
  });
  return form;
}

// The theme setting wins over the desktop's preference unless it is "system".
function applyTheme(theme) {
  if (theme === 'light' || theme === 'dark') document.documentElement.dataset.theme = theme;
  else delete document.documentElement.dataset.theme;
}

function show() {
  const name = location.pathname.slice(1);
  const page = pages.includes(name) ? name : 'today';
  for (const each of pages) document.getElementById(each).hidden = each !== page;
  for (const link of document.querySelectorAll('nav a')) {
    if (link.dataset.page === page) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  if (page === 'today') showToday().catch((error) => {
    document.getElementById('today-figures').textContent = `Cannot read today: ${error.message}`;
  });
  if (page === 'settings') showSettings().catch((error) => {
    document.getElementById('settings-notice').textContent = `Cannot read settings: ${error.message}`;
  });
  if (page === 'review') showReview().catch((error) => {
    document.getElementById('review-empty').textContent = `Cannot read proposals: ${error.message}`;
    document.getElementById('review-empty').hidden = false;
  });
}

// The service tells an open page what changed; the page reads again what it shows.
function follow() {
  const events = new EventSource('/api/v1/events');
  const current = () => location.pathname.slice(1) || 'today';
  events.addEventListener('scan', () => {
    const button = document.getElementById('scan-now');
    button.disabled = false;
    button.textContent = 'Scan now';
    if (current() === 'today') showToday().catch(() => {});
  });
  events.addEventListener('reminder', () => {
    if (current() === 'today') showToday().catch(() => {});
  });
  events.addEventListener('proposal', () => {
    if (current() === 'review') showReview().catch(() => {});
  });
}

document.getElementById('scan-now').addEventListener('click', scanNow);
document.getElementById('audit-filters').addEventListener('submit', (event) => {
  event.preventDefault();
  showAudit().catch(() => {});
});
api('/api/v1/settings').then((values) => applyTheme(values.theme)).catch(() => {});
show();
follow();
