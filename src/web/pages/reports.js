// Reports: the day's or the week's report as 'quorvane report' writes it, shown
// rendered with its Markdown source a click away, its files to download, and the
// extended daily report with an AI summary written on request.
//
// The renderer knows exactly what the report writer produces: headings, lists (a
// commit list inside a project's list, "- [ ]" items), tables, **bold**, _emphasis_
// and `code`. Everything is made of elements holding text: a commit subject or a
// repository name is never read as markup.
import {api, change, element, param} from './common.js';

export const html = `
  <h1 id="reports-title">Reports</h1>
  <form id="reports-choose" class="filters">
    <span><label for="reports-kind">Report</label>
      <select id="reports-kind">
        <option value="daily">Daily</option>
        <option value="extended">Daily, with GitHub alignment</option>
        <option value="weekly">Weekly</option>
      </select></span>
    <span><label for="reports-date">Day</label><input id="reports-date" type="date"></span>
    <button type="submit">Show the report</button>
  </form>
  <div class="actions reports-files">
    <button type="button" id="reports-source" aria-pressed="false" aria-controls="reports-text">Show the Markdown source</button>
    <a id="reports-md" class="button" download>Download Markdown</a>
    <a id="reports-json" class="button" download>Download JSON</a>
    <a id="reports-csv" class="button" download>Download CSV</a>
  </div>
  <div id="reports-summary" class="card" hidden>
    <h2 id="reports-summary-title">AI summary</h2>
    <p class="quiet">The provider chosen in Settings writes a summary of the day from
      repository names, statuses, file counts, commit subjects and your journal notes;
      no code and no diffs leave this machine.</p>
    <div class="actions">
      <button type="button" id="reports-ask" class="approve">Write an AI summary</button>
      <button type="button" id="reports-cancel" hidden>Cancel the summary</button>
    </div>
    <p id="reports-progress" role="status" aria-live="polite"></p>
  </div>
  <p id="reports-problem" class="problem" hidden></p>
  <article id="reports-rendered" class="report" aria-labelledby="reports-title"></article>
  <pre id="reports-text" class="report-source" tabindex="0" aria-label="The report's Markdown source" hidden></pre>`;

export const follows = ['scan', 'journal', 'summary'];

// What is shown: the kind, the day (or a day of the week), and the Markdown drawn.
let kind;
let day;
let polling;

// The address of a report file of the chosen kind and day.
function file(extension) {
  const name = kind === 'weekly' ? 'weekly' : kind;
  const query = kind === 'weekly' ? 'week' : 'date';
  return `/api/v1/reports/${name}.${extension}?${query}=${encodeURIComponent(day)}`;
}

export function setup(section) {
  const week = param('week');
  kind = week ? 'weekly' : param('extended') ? 'extended' : 'daily';
  day = week ?? param('date', '');
  polling = undefined;
  document.getElementById('reports-choose').addEventListener('submit', (event) => {
    event.preventDefault();
    kind = document.getElementById('reports-kind').value;
    day = document.getElementById('reports-date').value || day;
    const query = kind === 'weekly' ? `week=${day}` : `date=${day}${kind === 'extended' ? '&extended=1' : ''}`;
    history.pushState(null, '', `/reports?${query}`);
    show(section).catch(problem);
  });
  const source = document.getElementById('reports-source');
  source.addEventListener('click', () => {
    const showing = source.getAttribute('aria-pressed') !== 'true';
    source.setAttribute('aria-pressed', String(showing));
    source.textContent = showing ? 'Show the report' : 'Show the Markdown source';
    document.getElementById('reports-text').hidden = !showing;
    document.getElementById('reports-rendered').hidden = showing;
  });
  document.getElementById('reports-ask').addEventListener('click', () => ask(section));
  document.getElementById('reports-cancel').addEventListener('click', cancel);
}

function problem(error) {
  const line = document.getElementById('reports-problem');
  line.textContent = error ? `Cannot show the report: ${error.message}` : '';
  line.hidden = !error;
}

export async function show(section, event) {
  // A summary under way or written is drawn by its own turn, not over by an event.
  if (event === 'summary') return follow(section);
  if (!day) {
    const today = await api('/api/v1/journal/days');
    day = today.today;
  }
  document.getElementById('reports-kind').value = kind;
  document.getElementById('reports-date').value = day;
  const answer = await fetch(file('md'));
  if (!answer.ok) {
    const reply = await answer.json().catch(() => ({}));
    throw new Error(reply.error ?? `the report could not be read (${answer.status})`);
  }
  draw(await answer.text());
  problem();
  for (const extension of ['md', 'json', 'csv']) {
    const link = document.getElementById(`reports-${extension}`);
    const offered = !(extension !== 'md' && kind === 'extended') && !(extension === 'csv' && kind === 'weekly');
    link.hidden = !offered;
    if (offered) link.href = file(extension);
  }
  document.getElementById('reports-summary').hidden = kind !== 'extended';
  if (kind === 'extended') await follow(section);
}

function draw(markdown) {
  document.getElementById('reports-text').textContent = markdown;
  document.getElementById('reports-rendered').replaceChildren(...render(markdown));
}

// ---- The AI summary ---------------------------------------------------------

async function ask(section) {
  document.getElementById('reports-ask').disabled = true;
  try {
    await change('/api/v1/reports/summary', {date: day});
  } catch (error) {
    progress(error.message, 'problem');
    document.getElementById('reports-ask').disabled = false;
    return;
  }
  await follow(section);
}

async function cancel() {
  document.getElementById('reports-cancel').disabled = true;
  await change('/api/v1/reports/summary/cancel').catch(() => {});
}

function progress(text, className = '') {
  const line = document.getElementById('reports-progress');
  line.textContent = text;
  line.className = className;
}

// Reads where the summary stands and shows it; while the provider writes, reads
// again each second, so the person sees the wait grow and can cancel or leave.
async function follow(section) {
  clearTimeout(polling);
  const status = await api('/api/v1/reports/summary');
  if (!section.isConnected || kind !== 'extended') return;
  const running = status.state === 'running';
  const ours = status.dateKey === day;
  const askButton = document.getElementById('reports-ask');
  const cancelButton = document.getElementById('reports-cancel');
  askButton.disabled = running;
  cancelButton.hidden = !running;
  cancelButton.disabled = running && status.cancelling;
  if (running) {
    progress(status.cancelling
      ? `Cancelling the request to ${status.provider}…`
      : `Asking ${status.provider} for the summary of ${status.dateKey}: ${status.elapsedSeconds} s so far. `
        + 'You may leave this screen; the summary is shown here when you come back.');
    polling = setTimeout(() => follow(section).catch(() => {}), 1000);
    return;
  }
  if (!ours || status.state === 'idle') {
    progress('');
    return;
  }
  if (status.state === 'done') {
    draw(status.result.markdown);
    progress(`${status.provider} wrote the summary in ${status.elapsedSeconds} s; it is at the end of the report, under AI Summary.`, 'good');
  } else if (status.state === 'failed') {
    progress(`${status.failure} ${status.provider} answered: ${status.problem}`, 'problem');
  } else {
    progress('The summary was cancelled. The report stands without it.');
  }
}

// ---- Markdown, as the report writer writes it ---------------------------------

// `text` with **bold**, _emphasis_ and `code` as elements, the rest as text.
function inline(text) {
  const nodes = [];
  const pattern = /\*\*([^*]+)\*\*|`([^`]+)`|(?<![\w])_([^_]+)_(?![\w])/g;
  let last = 0;
  for (const match of text.matchAll(pattern)) {
    if (match.index > last) nodes.push(document.createTextNode(text.slice(last, match.index)));
    if (match[1] !== undefined) nodes.push(element('strong', match[1]));
    else if (match[2] !== undefined) nodes.push(element('code', match[2]));
    else nodes.push(element('em', match[3]));
    last = match.index + match[0].length;
  }
  if (last < text.length) nodes.push(document.createTextNode(text.slice(last)));
  return nodes;
}

function cells(line) {
  return line.trim().replace(/^\|/, '').replace(/\|$/, '').split('|').map((cell) => cell.trim());
}

function reportTable(rows) {
  const alignRight = cells(rows[1] ?? '').map((rule) => rule.endsWith(':'));
  const made = element('table');
  const head = element('tr');
  cells(rows[0]).forEach((name, i) => {
    const th = element('th', undefined, alignRight[i] ? 'number' : undefined);
    th.scope = 'col';
    th.append(...inline(name));
    head.append(th);
  });
  made.createTHead().append(head);
  const body = element('tbody');
  for (const row of rows.slice(2)) {
    const tr = element('tr');
    cells(row).forEach((text, i) => {
      const td = element('td', undefined, alignRight[i] ? 'number' : undefined);
      td.append(...inline(text));
      tr.append(td);
    });
    body.append(tr);
  }
  made.append(body);
  const region = element('div', undefined, 'scroll');
  region.tabIndex = 0;
  region.setAttribute('role', 'region');
  region.setAttribute('aria-label', 'Report table');
  region.append(made);
  return region;
}

// The report's blocks as elements. Its "#" is the screen's second level, so that the
// page keeps one first-level heading.
export function render(markdown) {
  const blocks = [];
  const lines = markdown.split('\n');
  let list = null;   // the open top-level list
  let inner = null;  // the open list inside its last item
  let paragraph = null;
  const close = () => { list = inner = paragraph = null; };
  for (let i = 0; i < lines.length; i += 1) {
    const line = lines[i];
    const heading = /^(#{1,3}) (.*)$/.exec(line);
    if (line.trim() === '') {
      // A blank line ends a paragraph; a list goes on past one when its nested
      // commits follow its last item.
      paragraph = null;
      if (!(list && /^ {2}- /.test(lines[i + 1] ?? ''))) { list = null; }
      inner = null;
    } else if (heading) {
      close();
      const made = element(`h${heading[1].length + 1}`);
      made.append(...inline(heading[2]));
      blocks.push(made);
    } else if (line.startsWith('|')) {
      close();
      const rows = [];
      while (i < lines.length && lines[i].startsWith('|')) rows.push(lines[i++]);
      i -= 1;
      blocks.push(reportTable(rows));
    } else if (/^ {2}- /.test(line) && list) {
      if (!inner) {
        inner = element('ul');
        list.lastElementChild.append(inner);
      }
      const item = element('li');
      item.append(...inline(line.slice(4)));
      inner.append(item);
    } else if (line.startsWith('- ')) {
      if (!list) {
        list = element('ul');
        blocks.push(list);
      }
      inner = null;
      paragraph = null;
      const item = element('li');
      const pending = line.startsWith('- [ ] ');
      if (pending) item.className = 'pending';
      item.append(...inline(line.slice(pending ? 6 : 2)));
      list.append(item);
    } else {
      list = inner = null;
      if (!paragraph) {
        paragraph = element('p');
        blocks.push(paragraph);
      } else {
        paragraph.append(element('br'));
      }
      paragraph.append(...inline(line));
    }
  }
  return blocks;
}
