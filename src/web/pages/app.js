// The dashboard's one page: the address names the screen, whose module draws it.
// Each screen is a module of its own, loaded when it is opened, that gives
//   html     its content, placed once;
//   setup()  what to do once it is placed (listeners);
//   show(section, event)  read the API and draw, on opening and on each event it
//            follows;
//   follows  the kinds of the service's events that change what it shows.
import {api, element} from './common.js';
import {applyTheme} from './theme.js';

const screens = ['today', 'activity', 'attention', 'week', 'calendar', 'projects', 'branches',
  'journal', 'reports', 'alignment', 'inventory', 'backlog', 'accounts', 'review', 'settings',
  'onboarding', 'panel'];

function current() {
  const name = location.pathname.slice(1);
  return screens.includes(name) ? name : 'today';
}

async function open(name) {
  const main = document.getElementById('main');
  const section = element('section');
  section.id = name;
  main.replaceChildren(section);
  for (const link of document.querySelectorAll('nav a')) {
    if (link.dataset.page === name) {
      link.setAttribute('aria-current', 'page');
      // On a phone the menu is one row that scrolls: the current screen is in view.
      link.scrollIntoView({block: 'nearest', inline: 'center'});
    } else {
      link.removeAttribute('aria-current');
    }
  }
  // The panel is the page drawn small, for a window beside the tray: no menu.
  document.body.classList.toggle('compact', name === 'panel');
  let screen;
  try {
    screen = await import(`./${name}.js`);
    section.innerHTML = screen.html;
    const title = section.querySelector('h1');
    if (title) {
      title.id ||= `${name}-title`;
      section.setAttribute('aria-labelledby', title.id);
      document.title = `${title.textContent} · Quorvane`;
    }
    screen.setup?.(section);
    await screen.show(section);
  } catch (error) {
    section.append(element('p', `Cannot show this screen: ${error.message}`, 'problem'));
    section.dataset.state = 'failed';
    return;
  }
  // Once drawn from what it read: what a test, or a person's script, may wait for.
  section.dataset.state = 'shown';
  follow(screen, section);
}

// The service tells an open page what changed; the screen reads again what it shows.
// One stream per page, and none for a screen that follows nothing: the service
// serves a few at once. It is closed as the page goes, so its place is free at once.
function follow(screen, section) {
  if (!screen.follows?.length) return;
  const events = new EventSource('/api/v1/events');
  for (const kind of screen.follows) {
    events.addEventListener(kind, () => screen.show(section, kind).catch(() => {}));
  }
  addEventListener('pagehide', () => events.close());
}

api('/api/v1/settings').then((values) => applyTheme(values.theme)).catch(() => {});
open(current());
