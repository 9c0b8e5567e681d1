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

async function showToday() {
  const today = await api('/api/v1/today');
  const pulled = today.pulledInCommits ? ` (and ${today.pulledInCommits} pulled in)` : '';
  document.getElementById('today-figures').textContent =
    `${today.activeProjects} active projects, ${today.totalCommits} commits${pulled}`;
  const body = document.querySelector('#today-lines tbody');
  body.replaceChildren();
  for (const line of today.lines) {
    const row = document.createElement('tr');
    cell(row, line.name);
    cell(row, line.branch);
    cell(row, String(line.commitsToday), 'number');
    cell(row, line.statuses.join(', '));
    body.append(row);
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
  const facts = element('dl', undefined, 'change');
  const fact = (name, value) => facts.append(element('dt', name), element('dd', value));
  if (proposal.intendedTool) fact('Tool', proposal.intendedTool);
  if (proposal.git) {
    const command = element('dd');
    command.append(element('code', proposal.git.command.join(' ')));
    facts.append(element('dt', 'Runs'), command);
    fact('Connects to', [proposal.git.remote, ...proposal.git.urls].join(' '));
  } else if (proposal.payloadJSON && proposal.payloadJSON !== '{}') {
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

async function showReview() {
  const proposals = await api('/api/v1/proposals');
  document.getElementById('review-list').replaceChildren(...proposals.map(proposalCard));
  document.getElementById('review-empty').hidden = proposals.length > 0;
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
  const holder = document.getElementById('settings-groups');
  holder.replaceChildren();
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
        } catch (error) {
          notice.textContent = `Not saved: ${error.message}`;
        }
      });
      section.append(form);
    }
    holder.append(section);
  }
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

show();
