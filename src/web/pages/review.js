// Agent Review: what agents proposed, each with what it changes, decided here; what
// was decided, and the audit log of the agents' calls.
import {api, cell, change, display, element} from './common.js';

export const html = `
  <h1 id="review-title">Agent Review</h1>
  <p id="review-empty" class="quiet" hidden>No proposals are waiting for you.</p>
  <div id="review-token" class="token" role="status" hidden></div>
  <ol id="review-list" class="cards"></ol>
  <h2>Decided</h2>
  <div class="scroll" tabindex="0" role="region" aria-label="Decided proposals">
  <table id="review-history">
    <thead><tr><th scope="col">Proposed</th><th scope="col">Proposal</th>
      <th scope="col">Now</th></tr></thead>
    <tbody></tbody>
  </table>
  </div>
  <h2>Audit log</h2>
  <form id="audit-filters" class="filters">
    <span><label for="audit-tool">Tool</label><input id="audit-tool" placeholder="any"></span>
    <span><label for="audit-status">Status</label><input id="audit-status" placeholder="any"></span>
    <span><label for="audit-actor">Who</label><input id="audit-actor" placeholder="any"></span>
    <button type="submit">Filter</button>
  </form>
  <div class="scroll" tabindex="0" role="region" aria-label="Audit log entries">
  <table id="review-audit">
    <thead><tr><th scope="col">When</th><th scope="col">Who</th><th scope="col">Tool</th>
      <th scope="col">Status</th><th scope="col">Detail</th></tr></thead>
    <tbody></tbody>
  </table>
  </div>
  <p id="audit-empty" class="quiet" hidden>No calls match.</p>`;

export const follows = ['proposal'];

export function setup() {
  document.getElementById('audit-filters').addEventListener('submit', (event) => {
    event.preventDefault();
    showAudit().catch(() => {});
  });
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
  await show();
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

export async function show() {
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
