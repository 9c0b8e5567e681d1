// Needs attention: what waits for the person across the repositories, most urgent
// first, each with the command that settles it or the screen that does.
import {api, element, scanButton, scanEnded} from './common.js';

export const html = `
  <div class="title-row">
    <h1 id="attention-title">Needs attention</h1>
    <button id="attention-scan" type="button">Scan now</button>
  </div>
  <p id="attention-figures" class="figures" aria-live="polite"></p>
  <ol id="attention-items" class="cards attention-items"></ol>
  <p id="attention-none" class="quiet" hidden></p>`;

export const follows = ['scan', 'reminder', 'proposal', 'projects'];

// The tone of each kind, as the command line colours it.
const tones = {staleWork: 'problem', uncommitted: 'attention', unpushed: 'attention',
  behind: 'attention', account: 'problem', accountMissing: 'problem', proposals: 'attention'};

export function setup() {
  scanButton(document.getElementById('attention-scan'), document.getElementById('attention-figures'));
}

export async function show(section, event) {
  if (event === 'scan') scanEnded(document.getElementById('attention-scan'));
  const attention = await api('/api/v1/attention');
  document.getElementById('attention-figures').textContent =
    `To commit: ${attention.needsCommitCount} · to push: ${attention.needsPushCount}`
    + ` · behind: ${attention.behindCount} · account problems: ${attention.accountProblemCount}`
    + ` · proposals: ${attention.pendingProposalCount}`;
  const list = document.getElementById('attention-items');
  list.replaceChildren(...attention.items.map(itemCard));
  const none = document.getElementById('attention-none');
  none.hidden = attention.items.length > 0;
  none.textContent = 'Nothing waits for you: every tracked repository is committed, pushed and up '
    + 'to date, and no account or proposal needs a look. A scan or a sync brings this list up '
    + 'to date.';
}

function itemCard(item) {
  const card = element('li', undefined, `card attention-${item.kind}`);
  card.dataset.kind = item.kind;
  if (item.name) card.append(element('h2', item.name));
  card.append(element('p', item.title, `attention-what ${tones[item.kind] ?? 'attention'}`));
  if (item.suggestion) {
    const where = item.suggestion.cwd ? ` in ${item.suggestion.cwd}` : '';
    card.append(element('p', `${item.suggestion.title}${where}:`, 'quiet'));
    const command = element('code', item.suggestion.command);
    const copy = element('button', 'Copy the command');
    copy.type = 'button';
    copy.addEventListener('click', async () => {
      try {
        await navigator.clipboard.writeText(item.suggestion.command);
        copy.textContent = 'Copied';
      } catch {
        copy.textContent = 'Select the command to copy it';
      }
    });
    const line = element('div', undefined, 'command-line');
    line.append(command, copy);
    card.append(line);
  }
  if (item.link) {
    const link = element('a', item.link === '/review' ? 'Review the proposals' : `Open ${item.link}`);
    link.href = item.link;
    card.append(link);
  }
  return card;
}
