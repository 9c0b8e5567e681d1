// Calendar: the year of the person's commits, one column per week from Monday to
// Sunday as 'heatmap' draws it; each day opens its activity, and its report.
import {api, element, plural, scrolling} from './common.js';

export const html = `
  <h1 id="calendar-title">Calendar</h1>
  <p id="calendar-figures" class="figures" aria-live="polite"></p>
  <p id="calendar-streaks"></p>
  <div id="calendar-holder"></div>
  <p class="legend quiet" aria-hidden="true">Fewer
    <span class="day l0"></span><span class="day l1"></span><span class="day l2"></span><span
    class="day l3"></span><span class="day l4"></span> more commits</p>
  <p id="calendar-day" aria-live="polite">Choose a day to open its activity or its report.</p>`;

export const follows = ['scan'];

const kMonths = ['Jan', 'Feb', 'Mar', 'Apr', 'May', 'Jun', 'Jul', 'Aug', 'Sep', 'Oct', 'Nov', 'Dec'];
const kRows = ['Mon', '', 'Wed', '', 'Fri', '', 'Sun'];

function name(day) {
  return day.commitCount ? `${plural(day.commitCount, 'commit')} on ${day.dateKey}`
    : `No commits on ${day.dateKey}`;
}

// What the chosen day offers: its activity and its report.
function choose(day) {
  const holder = document.getElementById('calendar-day');
  const activity = element('a', `its activity`);
  activity.href = `/activity?date=${day.dateKey}`;
  const report = element('a', `its report`);
  report.href = `/reports?date=${day.dateKey}`;
  holder.replaceChildren(`${name(day)}: open `, activity, ' or ', report, '.');
}

export async function show() {
  const calendar = await api('/api/v1/calendar');
  const {days} = calendar;
  if (!days.length) return;
  document.getElementById('calendar-figures').textContent =
    `${plural(calendar.totalCommits, 'commit')} on ${plural(calendar.activeDays, 'day')} `
    + `from ${days[0].dateKey} to ${days[days.length - 1].dateKey}`;
  document.getElementById('calendar-streaks').textContent =
    `Days in a row with work: ${calendar.currentStreak} now, ${calendar.longestStreak} at most.`;

  // Column 1 names the rows; each week is a column after it, the first holding the
  // first day at its weekday's row.
  const grid = element('div');
  grid.id = 'calendar-grid';
  kRows.forEach((label, row) => {
    const head = element('span', label, 'weekday');
    head.setAttribute('aria-hidden', 'true');
    head.style.gridRow = String(row + 2);
    grid.append(head);
  });
  days.forEach((day, index) => {
    const place = calendar.lead + index;
    const column = Math.floor(place / 7) + 2;
    if (day.dateKey.endsWith('-01')) {
      const month = element('span', kMonths[Number(day.dateKey.slice(5, 7)) - 1], 'month');
      month.setAttribute('aria-hidden', 'true');
      month.style.gridRow = '1';
      month.style.gridColumn = `${column} / span 4`;
      grid.append(month);
    }
    const link = element('a', undefined, `day l${day.level}`);
    link.href = `/activity?date=${day.dateKey}`;
    link.dataset.date = day.dateKey;
    link.setAttribute('aria-label', name(day));
    link.title = name(day);
    link.style.gridRow = String((place % 7) + 2);
    link.style.gridColumn = String(column);
    link.addEventListener('focus', () => choose(day));
    link.addEventListener('mouseenter', () => choose(day));
    grid.append(link);
  });
  const region = scrolling(grid, 'The year of commits, a column per week');
  document.getElementById('calendar-holder').replaceChildren(region);
  // On a narrow screen the latest weeks are the ones in view; older ones scroll in.
  region.scrollLeft = region.scrollWidth;
}
