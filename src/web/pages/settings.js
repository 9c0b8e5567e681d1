// Settings: every setting with what it means, the agent server's Allowed Roots, and
// the AI provider's key, which goes to the secret store and never comes back.
import {api, change, display, element} from './common.js';
import {applyTheme} from './theme.js';

export const html = `
  <h1 id="settings-title">Settings</h1>
  <div id="settings-notice" role="status" class="quiet"></div>
  <div id="settings-groups"></div>`;

const groups = [['', 'General'], ['reminders', 'Reminders'], ['sync', 'GitHub sync'],
  ['ai', 'AI summaries'], ['mapping', 'Mapping'], ['agent', 'MCP'], ['dashboard', 'Dashboard']];

export async function show() {
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
  await show();
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
