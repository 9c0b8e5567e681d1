// quorvane-mcp end to end, as an agent meets it: the published MCP client library
// starts the bridge over stdio, and the bridge talks to a real `quorvane daemon`
// that this file starts in a folder of its own.
//
// CTest passes the programs and the client library's install in the environment:
//   QUORVANE_BINARY             the built quorvane
//   QUORVANE_MCP_BINARY         the built quorvane-mcp
//   QUORVANE_MCP_CLIENT_MODULES build-mcp-client/node_modules
//
// A confirmation token is a secret the person hands to the agent: no assertion
// here prints one, and none may turn up in what the bridge logs.
import assert from 'node:assert/strict';
import { execFile, spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';
import { promisify } from 'node:util';

const quorvane = process.env.QUORVANE_BINARY;
const bridge = process.env.QUORVANE_MCP_BINARY;
const modules = process.env.QUORVANE_MCP_CLIENT_MODULES;
for (const [name, value] of [['QUORVANE_BINARY', quorvane], ['QUORVANE_MCP_BINARY', bridge]]) {
  if (!value || !fs.existsSync(value)) throw new Error(`${name} does not name a built program: ${value}`);
}
if (!modules || !fs.existsSync(path.join(modules, '@modelcontextprotocol', 'sdk', 'package.json'))) {
  throw new Error(
    `the MCP client library is not installed in ${modules}: run bash scripts/mcp-client.sh`);
}

// Resolved from the install, as a package of its own would resolve them.
const require = createRequire(path.join(path.dirname(modules), 'package.json'));
const { Client } = require('@modelcontextprotocol/sdk/client/index.js');
const { StdioClientTransport } = require('@modelcontextprotocol/sdk/client/stdio.js');
const { LATEST_PROTOCOL_VERSION } = require('@modelcontextprotocol/sdk/types.js');
const Ajv = require('ajv').default;
const Ajv2020 = require('ajv/dist/2020').default;
const addFormats = require('ajv-formats').default;

const run = promisify(execFile);

// The sanitizer builds run the daemon many times slower: every wait is generous,
// and each ends as soon as what it waits for has happened.
const kStartLimit = 120_000;
const kCallTimeout = 120_000;

// Checks `condition` every 100 ms until it holds or `limitMs` passes; true when it held.
async function eventually(limitMs, condition) {
  const deadline = Date.now() + limitMs;
  for (;;) {
    if (await condition()) return true;
    if (Date.now() >= deadline) return false;
    await delay(100);
  }
}

// Resolves with the exit code (128 + signal for a killed child), or null when
// `limitMs` passed first.
function exitOf(child, limitMs) {
  if (child.exitCode !== null || child.signalCode !== null) {
    return Promise.resolve(child.exitCode ?? 128 + os.constants.signals[child.signalCode]);
  }
  return new Promise((resolve) => {
    const timer = setTimeout(() => resolve(null), limitMs);
    child.once('exit', (code, signal) => {
      clearTimeout(timer);
      resolve(code ?? 128 + os.constants.signals[signal]);
    });
  });
}

// The text of a tool's reply, which the bridge gives as one text item.
function textOf(result) {
  assert.equal(result.content.length, 1, 'one content item');
  assert.equal(result.content[0].type, 'text');
  return result.content[0].text;
}

// Real from the start, so that paths the daemon resolves compare equal to these.
const root = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'quorvane-mcp-')));
const dataDir = path.join(root, 'data');
const codeDir = path.join(root, 'code');
const socketPath = path.join(dataDir, 'quorvane-agent.sock');

// Everything started here gets its own home, data folders, git identity and zone,
// and no session bus, so nothing reads or writes the person's own.
const env = { ...process.env };
for (const name of ['GIT_DIR', 'GIT_WORK_TREE', 'DBUS_SESSION_BUS_ADDRESS']) delete env[name];
Object.assign(env, {
  HOME: path.join(root, 'home'),
  XDG_DATA_HOME: path.join(root, 'home', '.local', 'share'),
  XDG_CONFIG_HOME: path.join(root, 'home', '.config'),
  XDG_RUNTIME_DIR: path.join(root, 'run'),
  TMPDIR: root,
  GIT_CONFIG_NOSYSTEM: '1',
  GIT_AUTHOR_NAME: 'Quorvane Tester',
  GIT_AUTHOR_EMAIL: 'tester@example.invalid',
  GIT_COMMITTER_NAME: 'Quorvane Tester',
  GIT_COMMITTER_EMAIL: 'tester@example.invalid',
  LC_ALL: 'C',
  TZ: 'UTC',
});
fs.mkdirSync(env.HOME, { recursive: true });
fs.mkdirSync(env.XDG_RUNTIME_DIR, { recursive: true, mode: 0o700 });

// Runs `quorvane WORDS --data-dir DATA`; its output, which the caller must not
// print when it may hold a token.
async function quorvaneCli(words) {
  try {
    return await run(quorvane, [...words, '--data-dir', dataDir],
      { env, timeout: kCallTimeout, maxBuffer: 16 << 20 });
  } catch (error) {
    // stderr only: an approval prints its token on stdout.
    throw new Error(`quorvane ${words.join(' ')} failed (${error.code}): ${error.stderr}`);
  }
}

async function git(cwd, words) {
  await run('git', words, { cwd, env, timeout: kCallTimeout });
}

let daemon = null;
let daemonLog = '';

async function startDaemon(logName) {
  daemonLog = path.join(root, logName);
  const out = fs.openSync(daemonLog, 'w');
  daemon = spawn(quorvane, ['daemon', '--data-dir', dataDir],
    { env, stdio: ['ignore', out, out] });
  fs.closeSync(out);
  const ready = await eventually(kStartLimit, () =>
    daemon.exitCode !== null || fs.readFileSync(daemonLog, 'utf8').includes('quorvane daemon: ready'));
  const log = fs.readFileSync(daemonLog, 'utf8');
  assert.ok(ready && daemon.exitCode === null, `the daemon did not come up:\n${log}`);
  assert.ok(fs.existsSync(socketPath), `the daemon has no agent socket:\n${log}`);
}

describe('quorvane-mcp between the MCP client library and a running daemon', () => {
  let client;
  let transport;
  let negotiated = null;
  let bridgeStderr = '';
  const validators = new Map();

  // Calls a tool through the client, after checking that the tool's own schema
  // accepts the arguments the daemon takes.
  async function call(name, args = {}) {
    const validate = validators.get(name);
    if (validate) assert.ok(validate(args), `${name}'s inputSchema refuses arguments the daemon takes: `
      + JSON.stringify(validate.errors));
    return client.callTool({ name, arguments: args }, undefined, { timeout: kCallTimeout });
  }

  before(async () => {
    await git(root, ['init', '-q', '-b', 'main', path.join(codeDir, 'app')]);
    fs.writeFileSync(path.join(codeDir, 'app', 'main.c'), 'int main(void) { return 0; }\n');
    await git(path.join(codeDir, 'app'), ['add', '-A']);
    await git(path.join(codeDir, 'app'), ['commit', '-q', '-m', 'first']);
    await quorvaneCli(['folders', 'add', codeDir]);
    await quorvaneCli(['scan']);
    // The person's approval comes from this script, which has no terminal.
    await quorvaneCli(['config', 'set', 'agent.requireGuiConfirmation', 'false']);
    await startDaemon('daemon.log');

    transport = new StdioClientTransport({
      command: bridge, args: ['--data-dir', dataDir], env, stderr: 'pipe',
    });
    transport.stderr.on('data', (chunk) => { bridgeStderr += chunk; });
    // The client hands the transport the version the bridge agreed to.
    transport.setProtocolVersion = (version) => { negotiated = version; };
    client = new Client({ name: 'quorvane-bridge-test', version: '1.0.0' });
    try {
      await client.connect(transport, { timeout: kCallTimeout });
    } catch (error) {
      throw new Error(`no session with the bridge: ${error.message}; its stderr:\n${bridgeStderr}`);
    }
  });

  after(async () => {
    await client?.close();
    if (daemon && daemon.exitCode === null && daemon.signalCode === null) {
      daemon.kill('SIGTERM');
      if (await exitOf(daemon, kStartLimit) === null) daemon.kill('SIGKILL');
    }
    fs.rmSync(root, { recursive: true, force: true });
  });

  test('initialize names Quorvane and its version, and a ping is answered', async () => {
    const { stdout } = await run(quorvane, ['--version'], { env, timeout: kCallTimeout });
    const version = stdout.match(/\d+\.\d+\.\d+\S*/)?.[0];
    assert.ok(version, `no version in: ${stdout}`);
    const server = client.getServerVersion();
    assert.deepEqual([server.name, server.version], ['quorvane', version]);
    assert.equal(negotiated, LATEST_PROTOCOL_VERSION, 'the bridge takes the newest version offered');
    assert.deepEqual(await client.ping({ timeout: kCallTimeout }), {});
  });

  test('every tool is listed once, with a schema the client can compile', async () => {
    const { tools, nextCursor } = await client.listTools(undefined, { timeout: kCallTimeout });
    assert.equal(nextCursor, undefined, 'one page');
    const names = tools.map((tool) => tool.name);
    assert.equal(new Set(names).size, names.length, `a name listed twice: ${names.join(' ')}`);
    // Unknown keywords are errors: a misspelt `required` would otherwise pass as
    // a schema that requires nothing.
    const options = { strictSchema: true, strictTypes: false, strictTuples: false };
    const draft07 = addFormats(new Ajv(options));
    const draft2020 = addFormats(new Ajv2020(options));
    for (const tool of tools) {
      const ajv = /draft-07/.test(tool.inputSchema.$schema ?? '') ? draft07 : draft2020;
      let validate;
      assert.doesNotThrow(() => { validate = ajv.compile(tool.inputSchema); },
        `${tool.name}'s inputSchema: ${JSON.stringify(tool.inputSchema)}`);
      validators.set(tool.name, validate);
    }
  });

  test('a read tool and a resource answer with the daemon\'s JSON', async () => {
    const repos = await call('list_local_repositories');
    assert.equal(repos.isError, false, textOf(repos));
    const appPath = fs.realpathSync(path.join(codeDir, 'app'));
    const listed = JSON.parse(textOf(repos));
    assert.deepEqual(listed.map((repo) => [repo.name, repo.localPath]), [['app', appPath]]);

    const { resources } = await client.listResources(undefined, { timeout: kCallTimeout });
    assert.ok(resources.some((resource) => resource.uri === 'quorvane://settings'));
    const read = await client.readResource({ uri: 'quorvane://settings' }, { timeout: kCallTimeout });
    assert.equal(read.contents.length, 1);
    const settings = await call('get_settings');
    assert.deepEqual(JSON.parse(read.contents[0].text), JSON.parse(textOf(settings)));
    assert.deepEqual(JSON.parse(textOf(settings)).scanFolders, [codeDir]);
  });

  test('a change waits for the person, and goes through once approved', async () => {
    const args = { time: '18:30' };
    const asked = await call('set_daily_review_time', args);
    assert.equal(asked.isError, true);
    const hint = textOf(asked);
    assert.match(hint, /^confirmation_required: /);
    const id = hint.match(/\(proposal ([0-9a-f-]{36})\)/i)?.[1];
    assert.ok(id, `no proposal in: ${hint}`);

    await quorvaneCli(['proposals', 'approve', id]);
    const status = await call('get_proposal_status', { proposalId: id });
    assert.equal(status.isError, false);
    const token = JSON.parse(textOf(status)).confirmationToken;
    assert.ok(typeof token === 'string' && /^[0-9a-f-]{36}$/i.test(token), 'the agent is given a token');

    const applied = await call('set_daily_review_time', { ...args, confirmationToken: token });
    assert.equal(applied.isError, false, textOf(applied));
    const { stdout } = await quorvaneCli(['config', 'get', 'dailyReviewTime']);
    assert.equal(stdout.trim(), '18:30');
    assert.ok(!bridgeStderr.includes(token), 'the bridge logged a confirmation token');
    assert.ok(!fs.readFileSync(daemonLog, 'utf8').includes(token), 'the daemon logged a confirmation token');
  });

  // The socket named outright, an older version, a notification and the end of
  // input, which the client library never sends this way.
  test('a bridge given the socket serves raw lines and ends with its input', () => {
    const lines = [
      { id: 1, method: 'initialize', params: { protocolVersion: '2024-11-05', capabilities: {},
        clientInfo: { name: 'raw', version: '0' } } },
      { method: 'notifications/initialized' },
      { id: 2, method: 'tools/call', params: { name: 'get_settings', arguments: {} } },
    ].map((message) => `${JSON.stringify({ jsonrpc: '2.0', ...message })}\n`).join('');
    const raw = spawnSync(bridge, ['--socket', socketPath],
      { env, input: lines, encoding: 'utf8', timeout: kCallTimeout });
    assert.equal(raw.status, 0, raw.stderr);
    const [hello, settings, ...rest] = raw.stdout.trim().split('\n').map((line) => JSON.parse(line));
    assert.equal(hello.result.protocolVersion, '2024-11-05', 'an older version the bridge supports');
    assert.deepEqual([settings.id, settings.result?.isError], [2, false], JSON.stringify(settings));
    assert.deepEqual(rest, [], 'no reply to a notification');
  });
  // A session that outlives a restart of the daemon is AgentSocketLinkTest's.
});
