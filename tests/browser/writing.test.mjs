// Journal and Reports in a real browser: the journal written on the page and read
// back with the command line and the other way round, the reports' figures and
// files against 'quorvane report', and the AI summary from a slow local stand-in
// for Ollama.
import assert from 'node:assert/strict';
import http from 'node:http';
import { after, before, test } from 'node:test';
import { git, look, startDashboard } from './harness.mjs';

// Answers /api/chat as Ollama does, after `delay` ms, keeping each request's body.
function ollamaStandIn(delay) {
  const asked = [];
  const server = http.createServer((request, response) => {
    let body = '';
    request.on('data', (chunk) => { body += chunk; });
    request.on('end', () => {
      asked.push({ path: request.url, body: JSON.parse(body) });
      const timer = setTimeout(() => {
        response.writeHead(200, { 'Content-Type': 'application/json' });
        response.end(JSON.stringify({ model: 'llama3.1', created_at: new Date().toISOString(),
          message: { role: 'assistant', content: 'You shipped the login and left one commit to push.' },
          done: true }));
      }, delay);
      request.socket.on('close', () => clearTimeout(timer));
    });
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve({ server, asked })));
}

const hostile = 'Escape <img src=x onerror="window.__pwned=1"> in names';
let ctx;
let ollama;

before(async () => {
  ollama = await ollamaStandIn(2500);
  ctx = await startDashboard({
    prepare(c) {
      c.trackFixture();
      git(c.fixture.notes, 'commit', '-q', '--allow-empty', '-m', hostile);
      c.q('config', 'set', 'ai.provider', 'ollama');
      c.q('config', 'set', 'ai.ollamaBaseURL', `http://127.0.0.1:${ollama.server.address().port}`);
    },
  });
  ctx.q('scan');
});

after(async () => {
  await ctx?.close();
  ollama?.server.close();
});

test('the journal written on the page is what the command line reads, and the other way round', async () => {
  const page = await ctx.open('journal');
  const day = await page.$eval('#journal-date', (input) => input.value);
  assert.equal(await page.$eval('#journal-no-days', (p) => p.hidden), false, 'no entry yet, and why');
  await page.type('#journal-notes', 'Finished the login');
  await page.type('#journal-blockers', 'Waiting on review');
  await page.click('#journal-entry button[type=submit]');
  await page.waitForFunction(() => /^Saved/.test(document.getElementById('journal-notice').textContent));
  const written = ctx.json('journal', '--date', day);
  assert.equal(written.manualNotes, 'Finished the login');
  assert.equal(written.blockers, 'Waiting on review');
  assert.deepEqual(await ctx.read(page, `/api/v1/journal?date=${day}`), written,
    'the page reads what journal --json gives');
  await page.waitForFunction((d) => [...document.querySelectorAll('#journal-days a')]
    .some((a) => a.textContent === d), {}, day);

  // Written by the command line for the day before: the open page hears of it, and
  // its own unsaved text is not overwritten.
  const yesterday = new Date(`${day}T12:00:00Z`);
  yesterday.setUTCDate(yesterday.getUTCDate() - 1);
  const before = yesterday.toISOString().slice(0, 10);
  await page.type('#journal-tomorrow', 'Ask for the review again');
  ctx.q('journal', '--date', before, '--notes', 'Planned <b>the</b> login', '--tomorrow', 'Build it');
  await page.waitForFunction((d) => [...document.querySelectorAll('#journal-days a')]
    .some((a) => a.textContent === d), {}, before);
  assert.equal(await page.$eval('#journal-tomorrow', (t) => t.value), 'Ask for the review again');
  await page.click('#journal-previous');
  await page.waitForFunction(() => document.getElementById('journal-notes').value === 'Planned <b>the</b> login');
  assert.equal(await page.$eval('#journal-tomorrow', (t) => t.value), 'Build it');
  assert.equal(new URL(page.url()).search, `?date=${before}`);
  await page.click('#journal-next');
  await page.waitForFunction(() => document.getElementById('journal-tomorrow').value === 'Ask for the review again');

  // A save that fails keeps the text and says why; nothing reaches the journal.
  await page.setRequestInterception(true);
  let failing = true;
  const refuse = (request) => {
    if (failing && request.method() === 'POST') {
      failing = false;
      request.respond({ status: 500, contentType: 'application/json', body: '{"error":"the disk is full"}' });
    } else {
      request.continue();
    }
  };
  page.on('request', refuse);
  await page.click('#journal-entry button[type=submit]');
  await page.waitForFunction(() => /Not saved: the disk is full/.test(document.getElementById('journal-notice').textContent));
  assert.equal(await page.$eval('#journal-tomorrow', (t) => t.value), 'Ask for the review again');
  assert.equal(ctx.json('journal', '--date', day).tomorrowNotes, undefined);
  page.off('request', refuse);
  await page.setRequestInterception(false);
  await page.click('#journal-entry button[type=submit]');
  await page.waitForFunction(() => /^Saved/.test(document.getElementById('journal-notice').textContent));
  assert.equal(ctx.json('journal', '--date', day).tomorrowNotes, 'Ask for the review again');

  assert.equal((await page.evaluate(() => fetch('/api/v1/journal?date=2026-02-30').then((a) => a.status))), 400);
  await look(page, 'journal', '#journal-days li');
  await page.close();
});

test('the report shows the figures and files of quorvane report, and a hostile subject as text', async () => {
  const exported = ctx.q('report', 'daily', '--format', 'json', '--out', '-');
  const figures = JSON.parse(exported);
  const page = await ctx.open(`reports?date=${figures.dateKey}`);
  const summary = await page.$$eval('#reports-rendered h3 + ul li', (items) =>
    Object.fromEntries(items.map((li) => [li.firstChild.textContent.replace(/:.*/, ''), li.querySelector('strong')?.textContent])));
  assert.equal(summary['Active projects'], String(figures.activeProjects));
  assert.equal(summary['Commits today'], String(figures.totalCommits));
  const projects = await page.$$eval('#reports-rendered h4', (all) => all.map((h) => h.firstChild.textContent.trim()));
  assert.deepEqual(projects, figures.lines.map((line) => `${line.name} (`));

  // The subject is shown as the text it is, and no element came of it.
  const subjects = await page.$$eval('#reports-rendered li li', (all) => all.map((li) => li.textContent));
  assert.ok(subjects.some((text) => text.endsWith(hostile)), subjects.join('\n'));
  assert.equal(await page.$('#reports-rendered img'), null);
  assert.equal(await page.evaluate(() => window.__pwned), undefined);

  // The source is a click away, and each file is what the command line prints.
  await page.click('#reports-source');
  assert.equal(await page.$eval('#reports-text', (pre) => pre.textContent),
    ctx.q('report', 'daily', '--out', '-'));
  for (const [format, name] of [['json', `daily-${figures.dateKey}.json`], ['csv', `daily-${figures.dateKey}.csv`]]) {
    const href = await page.$eval(`#reports-${format}`, (a) => a.href);
    const [body, disposition] = await page.evaluate((address) => fetch(address)
      .then(async (a) => [await a.text(), a.headers.get('Content-Disposition')]), href);
    assert.equal(body, ctx.q('report', 'daily', '--format', format, '--out', '-'), format);
    assert.equal(disposition, `attachment; filename="${name}"`);
  }
  const day = figures.dateKey;
  const weekly = await page.evaluate((d) => fetch(`/api/v1/reports/weekly.json?week=${d}`).then((a) => a.text()), day);
  assert.equal(weekly, ctx.q('report', 'weekly', '--date', day, '--format', 'json', '--out', '-'));
  const refused = await page.evaluate(() => Promise.all(['/api/v1/reports/daily.md?date=tomorrow',
    '/api/v1/reports/weekly.csv'].map((a) => fetch(a).then(async (r) => [r.status, (await r.json()).error]))));
  assert.equal(refused[0][0], 400);
  assert.match(refused[0][1], /YYYY-MM-DD/);
  assert.equal(refused[1][0], 404);
  await look(page, 'reports', '#reports-rendered table, #reports-rendered h4');
  await page.close();
});

test('the AI summary is asked for, shown waiting, can be cancelled, and lands in the extended report', async () => {
  const page = await ctx.open('reports?extended=1');
  assert.equal(await page.$eval('#reports-summary', (card) => card.hidden), false);
  const extended = ctx.q('report', 'daily', '--extended', '--out', '-');
  assert.equal(await page.$eval('#reports-text', (pre) => pre.textContent), extended);

  await page.click('#reports-ask');
  await page.waitForFunction(() => /Asking Ollama/.test(document.getElementById('reports-progress').textContent));
  await page.click('#reports-cancel');
  await page.waitForFunction(() => /cancelled/.test(document.getElementById('reports-progress').textContent));
  const asked = ollama.asked.length;

  await page.click('#reports-ask');
  await page.waitForFunction(() => /Asking Ollama .*: [1-9]\d* s so far/
    .test(document.getElementById('reports-progress').textContent));
  await page.waitForFunction(() => /wrote the summary/.test(document.getElementById('reports-progress').textContent),
    { timeout: 20_000 });
  const rendered = await page.$eval('#reports-rendered', (article) => article.textContent);
  assert.match(rendered, /AI Summary/);
  assert.match(rendered, /You shipped the login and left one commit to push\./);
  assert.equal(ollama.asked.length, asked + 1, 'one request for the summary after the cancelled one');

  // What went to the provider: commit subjects and counts, as the command line sends them.
  const prompt = ollama.asked.at(-1).body.messages.find((m) => m.role === 'user').content;
  assert.match(prompt, /Return the login result/);
  assert.match(prompt, /Finished the login/, 'the journal notes');
  assert.doesNotMatch(prompt, /int main/, 'never a file\'s contents');
  await page.close();
});
