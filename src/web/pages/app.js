// The dashboard's one page: each screen is a section, chosen by the address.
const pages = ['today', 'review', 'settings'];

async function api(path) {
  const answer = await fetch(path, {headers: {Accept: 'application/json'}});
  if (!answer.ok) throw new Error(`${path}: ${answer.status}`);
  return answer.json();
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
}

show();
