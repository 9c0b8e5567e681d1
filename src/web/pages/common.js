// What every screen of the dashboard uses: reading the API, sending a change with
// the session's CSRF token, and building the page's elements from text (never from
// markup, so nothing a repository or an agent names can become a tag).

export async function api(path) {
  const answer = await fetch(path, {headers: {Accept: 'application/json'}});
  if (!answer.ok) {
    const reply = await answer.json().catch(() => ({}));
    throw new Error(reply.error ?? `${path}: ${answer.status}`);
  }
  return answer.json();
}

// A change: the session's CSRF token goes with it, which only this page can read.
let csrf;
export async function change(path, body, method = 'POST') {
  csrf ??= (await api('/api/v1/session')).csrfToken;
  const headers = {'X-Quorvane-CSRF': csrf};
  if (body !== undefined) headers['Content-Type'] = 'application/json';
  const answer = await fetch(path, {method, headers,
    body: body === undefined ? undefined : JSON.stringify(body)});
  const reply = await answer.json();
  if (!answer.ok) throw new Error(reply.error ?? `${path}: ${answer.status}`);
  return reply;
}

export function element(tag, text, className) {
  const made = document.createElement(tag);
  if (text !== undefined && text !== null) made.textContent = text;
  if (className) made.className = className;
  return made;
}

export function cell(row, text, className) {
  const td = document.createElement('td');
  if (text instanceof Node) td.append(text);
  else td.textContent = text;
  if (className) td.className = className;
  row.append(td);
  return td;
}

// A table with a head of `columns` (a name, or [name, className]) and no rows yet;
// the rows go into its tBodies[0].
export function table(columns, caption) {
  const made = element('table');
  if (caption) made.append(element('caption', caption, 'quiet'));
  const head = element('tr');
  for (const column of columns) {
    const [name, className] = Array.isArray(column) ? column : [column];
    const th = element('th', name, className);
    th.scope = 'col';
    head.append(th);
  }
  made.createTHead().append(head);
  made.append(element('tbody'));
  return made;
}

// A wide table scrolls sideways on a phone rather than widening the page; the region
// is named so that a keyboard can reach and scroll it.
export function scrolling(content, label) {
  const region = element('div', undefined, 'scroll');
  region.tabIndex = 0;
  region.setAttribute('role', 'region');
  region.setAttribute('aria-label', label);
  region.append(content);
  return region;
}

export function plural(count, word, many = `${word}s`) {
  return `${count} ${count === 1 ? word : many}`;
}

// Seconds of estimated work as the command line shows them: "1 h 05 min", "25 min".
export function duration(seconds) {
  if (!seconds) return '-';
  const minutes = Math.round(seconds / 60);
  if (minutes < 60) return `${minutes} min`;
  return `${Math.floor(minutes / 60)} h ${String(minutes % 60).padStart(2, '0')} min`;
}

// A value as a person reads and types it, as the command line shows it.
export function display(value) {
  if (value === null || value === undefined) return 'none';
  return typeof value === 'string' ? value : String(value);
}

// The status words of a row, each in its tone, as the command line colours them.
export function words(standing) {
  const holder = element('span', undefined, 'words');
  for (const word of standing ?? []) holder.append(element('span', word.text, `word ${word.tone}`));
  return holder;
}

// A local day's key, "2026-11-26", as the API's ?date= takes it.
export function dayKey(date) {
  const pad = (n) => String(n).padStart(2, '0');
  return `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())}`;
}

// The ?name= of the page's address, or `fallback`.
export function param(name, fallback) {
  return new URLSearchParams(location.search).get(name) ?? fallback;
}

// A "Scan now" button: it asks the service for a scan and waits, disabled, until the
// page hears the scan end (`scanEnded`); a refusal is said where `notice` shows it.
export function scanButton(button, notice) {
  button.addEventListener('click', async () => {
    button.disabled = true;
    button.textContent = 'Scanning…';
    try {
      await change('/api/v1/scan');
    } catch (error) {
      scanEnded(button);
      notice.textContent = `Cannot scan: ${error.message}`;
    }
  });
}

export function scanEnded(button) {
  button.disabled = false;
  button.textContent = 'Scan now';
}
