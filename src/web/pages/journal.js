// Journal: a day's notes, blockers and plans for tomorrow, written here and kept as
// 'quorvane journal' keeps them, and the days that have an entry to go back to.
// What the person typed is never thrown away: a failed save leaves it in place, and
// text typed for one day waits there while they look at another.
import {api, change, element, param} from './common.js';

const parts = [
  ['notes', 'manualNotes', 'Notes', 'What you did today, or want to remember'],
  ['blockers', 'blockers', 'Blockers', 'What held you up'],
  ['tomorrow', 'tomorrowNotes', 'Tomorrow', 'What comes next'],
];

export const html = `
  <h1 id="journal-title">Journal</h1>
  <div class="filters" role="group" aria-label="Choose the day">
    <button type="button" id="journal-previous">Previous day</button>
    <span><label for="journal-date">Day</label><input id="journal-date" type="date" required></span>
    <button type="button" id="journal-next">Next day</button>
    <button type="button" id="journal-today">Today</button>
  </div>
  <form id="journal-entry">
    <h2 id="journal-heading"></h2>
    <p id="journal-updated" class="quiet"></p>
    ${parts.map(([name, , title, hint]) => `
    <div class="journal-part">
      <label for="journal-${name}">${title}</label>
      <span class="quiet" id="journal-${name}-hint">${hint}</span>
      <textarea id="journal-${name}" rows="4" aria-describedby="journal-${name}-hint"></textarea>
    </div>`).join('')}
    <div class="actions"><button type="submit" class="approve">Save the journal</button></div>
    <p id="journal-notice" role="status" aria-live="polite"></p>
  </form>
  <h2>Days with an entry</h2>
  <ul id="journal-days" class="journal-days"></ul>
  <p id="journal-no-days" class="quiet" hidden>No day has an entry yet. Write a few words
    about today above and save them: they go into the day's report.</p>`;

export const follows = ['journal'];

// The day shown, the text as last read or saved, and what was typed for other days.
let day;
let stored = {};
const drafts = new Map();

function typed() {
  return Object.fromEntries(parts.map(([name]) => [name, document.getElementById(`journal-${name}`).value]));
}

function dirty() {
  const now = typed();
  return parts.some(([name]) => now[name] !== stored[name]);
}

function notice(text, className = '') {
  const line = document.getElementById('journal-notice');
  line.textContent = text;
  line.className = className;
}

// "2026-11-26" moved by `days`, on the calendar alone, whatever the page's time zone.
function shifted(key, days) {
  const date = new Date(`${key}T12:00:00Z`);
  date.setUTCDate(date.getUTCDate() + days);
  return date.toISOString().slice(0, 10);
}

function go(section, key) {
  if (!/^\d{4}-\d{2}-\d{2}$/.test(key) || key === day) return;
  if (dirty()) drafts.set(day, typed());
  else drafts.delete(day);
  history.pushState(null, '', `/journal?date=${key}`);
  day = key;
  show(section).catch((error) => notice(`Cannot read the journal: ${error.message}`, 'problem'));
}

export function setup(section) {
  day = undefined;
  stored = {};
  document.getElementById('journal-previous').addEventListener('click', () => go(section, shifted(day, -1)));
  document.getElementById('journal-next').addEventListener('click', () => go(section, shifted(day, 1)));
  document.getElementById('journal-today').addEventListener('click', () => go(section, section.dataset.today));
  document.getElementById('journal-date').addEventListener('change', (event) => go(section, event.target.value));
  document.getElementById('journal-entry').addEventListener('submit', (event) => {
    event.preventDefault();
    save(section);
  });
}

function fill(values) {
  for (const [name] of parts) document.getElementById(`journal-${name}`).value = values[name];
}

function fromEntry(entry) {
  return Object.fromEntries(parts.map(([name, field]) => [name, entry?.[field] ?? '']));
}

export async function show(section, event) {
  const days = await api('/api/v1/journal/days');
  section.dataset.today = days.today;
  day ??= param('date', days.today);
  if (event === 'journal' && dirty()) {
    // Changed elsewhere while text is being typed here: the typing wins until saved.
    notice('The journal was changed elsewhere; your text here is not saved yet.', 'warning');
  } else {
    const entry = await api(`/api/v1/journal?date=${encodeURIComponent(day)}`);
    stored = fromEntry(entry);
    fill(drafts.get(day) ?? stored);
    if (drafts.has(day)) notice('Your text for this day is not saved yet.', 'warning');
    else if (event === undefined) notice('');
    document.getElementById('journal-updated').textContent = entry?.updatedAt
      ? `Last written ${new Date(entry.updatedAt).toLocaleString()}.`
      : 'Nothing written for this day yet.';
  }
  document.getElementById('journal-heading').textContent =
    day === days.today ? `Today, ${day}` : new Date(`${day}T12:00:00Z`)
      .toLocaleDateString(undefined, {weekday: 'long', year: 'numeric', month: 'long', day: 'numeric', timeZone: 'UTC'});
  document.getElementById('journal-date').value = day;
  const list = document.getElementById('journal-days');
  list.replaceChildren(...days.days.map((each) => {
    const item = element('li');
    const link = element('a', each.dateKey);
    link.href = `/journal?date=${each.dateKey}`;
    if (each.dateKey === day) link.setAttribute('aria-current', 'date');
    link.addEventListener('click', (click) => {
      click.preventDefault();
      go(section, each.dateKey);
    });
    item.append(link, element('span', each.glimpse, 'quiet'),
      element('span', each.parts.join(', '), 'word dim'));
    return item;
  }));
  document.getElementById('journal-no-days').hidden = days.days.length > 0;
}

async function save(section) {
  const button = section.querySelector('#journal-entry button[type=submit]');
  const key = day;
  const values = typed();
  button.disabled = true;
  notice('Saving…');
  try {
    const answer = await change('/api/v1/journal', {date: key, ...values});
    drafts.delete(key);
    stored = fromEntry(answer.entry);
    if (key === day) fill(stored);
    notice(answer.changed ? `Saved the journal for ${key}.` : `The journal for ${key} is unchanged.`, 'good');
    await show(section, 'saved');
  } catch (error) {
    // The text stays where it was typed, to save again.
    notice(`Not saved: ${error.message}. Your text is still here; save again when it can be written.`, 'problem');
  } finally {
    button.disabled = false;
  }
}
