// quorvane-mcp end to end, as an agent meets it: the published MCP client library
// starts the bridge over stdio, and the bridge talks to a real `quorvane daemon`
// that this file starts, stops and starts again in a folder of its own.
//
// CTest passes the programs and the client library's install in the environment:
//   QUORVANE_BINARY             the built quorvane
//   QUORVANE_MCP_BINARY         the built quorvane-mcp
//   QUORVANE_MCP_CLIENT_MODULES build-mcp-client/node_modules
//
// A confirmation token is a secret the person hands to the agent: no assertion
// here prints one, and none may turn up in what the bridge logs.
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';
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
const { LATEST_PROTOCOL_VERSION, SUPPORTED_PROTOCOL_VERSIONS } =
  require('@modelcontextprotocol/sdk/types.js');
const Ajv = require('ajv').default;
const Ajv2020 = require('ajv/dist/2020').default;
const addFormats = require('ajv-formats').default;

const run = promisify(execFile);

// The sanitizer builds run the daemon many times slower: every wait is generous,
// and each ends as soon as what it waits for has happened.
const kStartLimit = 120_000;
const kCallTimeout = 120_000;

// What the daemon serves, by the level that permits it.
const kReadTools = [
  'list_accounts', 'list_remote_repositories', 'list_local_repositories', 'get_repository',
  'get_repository_status', 'get_repositories_status', 'get_unmapped_remote_repositories',
  'get_unmapped_local_repositories', 'get_mapping_candidates', 'get_daily_summary',
  'get_weekly_summary', 'get_activity_ranking', 'get_settings', 'get_audit_log',
  'get_proposal_status', 'list_pending_proposals', 'get_project_health_overview',
  'get_branch_overview', 'find_duplicate_clones', 'find_missing_local_clones',
  'search_local_projects', 'scan_folder_for_git_repos', 'rescan_now', 'inspect_local_git_repo',
  'sync_remote_inventory_now', 'read_git_remote', 'read_git_branches', 'read_git_commits',
  'read_git_status', 'compute_repo_fingerprint', 'infer_project_metadata',
  'generate_daily_report', 'generate_weekly_report', 'generate_mapping_report',
  'generate_cleanup_plan', 'generate_project_health_report', 'export_report_markdown',
];
const kProposeTools = ['propose_repository_mapping', 'propose_settings_change', 'propose_cleanup_plan'];
// Each of these changes something only with a token from an approved proposal;
// turning a mapping down is the one apply tool that needs none.
const kConfirmedTools = [
  'apply_repository_mapping', 'mark_repository_remote_only', 'mark_repository_local_only',
  'mark_repository_ignored', 'update_mapping_confidence', 'update_scan_folders',
  'set_default_clone_folder', 'set_repository_category', 'set_repository_priority',
  'set_repository_reminder_rules', 'set_daily_review_time', 'enable_repository_tracking',
  'disable_repository_tracking', 'update_project_aliases',
  'git_fetch', 'git_pull_ff_only', 'git_push', 'git_set_upstream_push',
];
// Turning a proposal down needs no confirmation, and settings recipes are not built:
// that tool refuses every call and changes nothing.
const kAllTools = [...kReadTools, ...kProposeTools, 'reject_repository_mapping',
  'apply_settings_recipe', ...kConfirmedTools];

const kResources = [
  'quorvane://repositories/local', 'quorvane://repositories/remote',
  'quorvane://repositories/unmapped', 'quorvane://repositories/needs-attention',
  'quorvane://mappings/candidates', 'quorvane://reports/today', 'quorvane://reports/week',
  'quorvane://settings', 'quorvane://audit-log',
];

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

async function stopDaemon() {
  daemon.kill('SIGTERM');
  const code = await exitOf(daemon, kStartLimit);
  assert.equal(code, 0, `the daemon's exit:\n${fs.readFileSync(daemonLog, 'utf8')}`);
}

// A bridge process driven by raw lines, for what the client library never sends.
function rawBridge(args) {
  const child = spawn(bridge, args, { env, stdio: ['pipe', 'pipe', 'pipe'] });
  const lines = [];
  let wake = null;
  let stderr = '';
  let ended = false;
  child.stderr.on('data', (chunk) => { stderr += chunk; });
  // A bridge that died is seen as the end of its stdout, not as a broken pipe here.
  child.stdin.on('error', () => {});
  readline.createInterface({ input: child.stdout })
    .on('line', (line) => {
      lines.push(line);
      if (wake) wake();
    })
    .on('close', () => {
      ended = true;
      if (wake) wake();
    });
  return {
    child,
    stderr: () => stderr,
    send(text) { child.stdin.write(text); },
    // The next line on stdout, parsed; every line the bridge writes there is one
    // JSON-RPC message.
    async next() {
      if (lines.length === 0 && !ended) {
        await new Promise((resolve, reject) => {
          const timer = setTimeout(() => reject(new Error(
            `no reply from the bridge within ${kCallTimeout} ms; its stderr:\n${stderr}`)), kCallTimeout);
          wake = () => { clearTimeout(timer); wake = null; resolve(); };
        });
      }
      if (lines.length === 0) throw new Error(`the bridge closed its stdout; its stderr:\n${stderr}`);
      const line = lines.shift();
      let message;
      assert.doesNotThrow(() => { message = JSON.parse(line); }, `not JSON on stdout: ${line}`);
      assert.equal(message.jsonrpc, '2.0', line);
      return message;
    },
    async ask(request) {
      this.send(`${JSON.stringify({ jsonrpc: '2.0', ...request })}\n`);
      return this.next();
    },
    initialize(protocolVersion) {
      return this.ask({
        id: 1, method: 'initialize',
        params: { protocolVersion, capabilities: {}, clientInfo: { name: 'raw', version: '0' } },
      });
    },
  };
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

  test('initialize names Quorvane, its version and what it serves', async () => {
    const { stdout } = await run(quorvane, ['--version'], { env, timeout: kCallTimeout });
    const version = stdout.match(/\d+\.\d+\.\d+\S*/)?.[0];
    assert.ok(version, `no version in: ${stdout}`);
    const server = client.getServerVersion();
    assert.deepEqual([server.name, server.version], ['quorvane', version]);
    const capabilities = client.getServerCapabilities();
    assert.equal(typeof capabilities.tools, 'object');
    assert.equal(typeof capabilities.resources, 'object');
    assert.ok(SUPPORTED_PROTOCOL_VERSIONS.includes(LATEST_PROTOCOL_VERSION));
    assert.equal(negotiated, LATEST_PROTOCOL_VERSION, 'the bridge takes the newest version offered');
  });

  test('every tool is listed once, with a schema that compiles', async () => {
    const { tools, nextCursor } = await client.listTools(undefined, { timeout: kCallTimeout });
    assert.equal(nextCursor, undefined, 'one page');
    assert.deepEqual(tools.map((tool) => tool.name).sort(), [...kAllTools].sort());
    // Unknown keywords are errors: a misspelt `required` would otherwise pass as
    // a schema that requires nothing.
    const options = { strictSchema: true, strictTypes: false, strictTuples: false };
    const draft07 = addFormats(new Ajv(options));
    const draft2020 = addFormats(new Ajv2020(options));
    // Named in full, so one run shows every tool still to describe.
    const undescribed = [];
    const unconfirmed = [];
    for (const tool of tools) {
      if (!tool.title || !tool.description) undescribed.push(tool.name);
      if (kConfirmedTools.includes(tool.name) && !/confirm/i.test(tool.description ?? '')) {
        unconfirmed.push(tool.name);
      }
      assert.equal(tool.inputSchema.type, 'object', tool.name);
      const ajv = /draft-07/.test(tool.inputSchema.$schema ?? '') ? draft07 : draft2020;
      let validate;
      assert.doesNotThrow(() => { validate = ajv.compile(tool.inputSchema); },
        `${tool.name}'s inputSchema: ${JSON.stringify(tool.inputSchema)}`);
      validators.set(tool.name, validate);
    }
    assert.deepEqual(undescribed, [], `tools without a title or a description: ${undescribed.join(' ')}`);
    assert.deepEqual(unconfirmed, [],
      `tools whose description does not say they wait for the person: ${unconfirmed.join(' ')}`);
  });

  test('read tools answer with the daemon\'s JSON', async () => {
    const repos = await call('list_local_repositories');
    assert.equal(repos.isError, false, textOf(repos));
    const appPath = fs.realpathSync(path.join(codeDir, 'app'));
    const listed = JSON.parse(textOf(repos));
    assert.deepEqual(listed.map((repo) => [repo.name, repo.localPath]), [['app', appPath]]);

    const settings = await call('get_settings');
    assert.equal(settings.isError, false, textOf(settings));
    assert.deepEqual(JSON.parse(textOf(settings)).scanFolders, [codeDir]);

    // A name the daemon does not serve never reaches it.
    await assert.rejects(call('rm_rf'), (error) => error.code === -32602);
  });

  test('a change waits for the person, and goes through once approved', async () => {
    const args = { time: '18:30' };
    const asked = await call('set_daily_review_time', args);
    assert.equal(asked.isError, true);
    const hint = textOf(asked);
    assert.match(hint, /^confirmation_required: /);
    const id = hint.match(/\(proposal ([0-9a-f-]{36})\)/i)?.[1];
    assert.ok(id, `no proposal in: ${hint}`);

    const pending = await call('get_proposal_status', { proposalId: id });
    assert.equal(JSON.parse(textOf(pending)).status, 'pending');
    await quorvaneCli(['proposals', 'approve', id]);
    const status = await call('get_proposal_status', { proposalId: id });
    assert.equal(status.isError, false);
    const token = JSON.parse(textOf(status)).confirmationToken;
    assert.ok(typeof token === 'string' && /^[0-9a-f-]{36}$/i.test(token), 'the agent is given a token');

    const applied = await call('set_daily_review_time', { ...args, confirmationToken: token });
    assert.equal(applied.isError, false, textOf(applied));
    const { stdout } = await quorvaneCli(['config', 'get', 'dailyReviewTime']);
    assert.equal(stdout.trim(), '18:30');
    const again = await call('set_daily_review_time', { ...args, confirmationToken: token });
    assert.equal(again.isError, true);
    assert.match(textOf(again), /^invalid_token: /, 'a token is spent once');
    assert.ok(!bridgeStderr.includes(token), 'the bridge logged a confirmation token');
    assert.ok(!fs.readFileSync(daemonLog, 'utf8').includes(token), 'the daemon logged a confirmation token');
  });

  test('resources are listed and read as JSON', async () => {
    const { resources } = await client.listResources(undefined, { timeout: kCallTimeout });
    assert.deepEqual(resources.map((resource) => resource.uri).sort(), [...kResources].sort());
    for (const resource of resources) assert.equal(resource.mimeType, 'application/json', resource.uri);

    const read = await client.readResource({ uri: 'quorvane://settings' }, { timeout: kCallTimeout });
    assert.equal(read.contents.length, 1);
    const [content] = read.contents;
    assert.equal(content.uri, 'quorvane://settings');
    assert.equal(content.mimeType, 'application/json');
    const settings = await call('get_settings');
    assert.deepEqual(JSON.parse(content.text), JSON.parse(textOf(settings)));

    await assert.rejects(
      client.readResource({ uri: 'quorvane://settings/extra' }, { timeout: kCallTimeout }),
      (error) => error.code === -32002);
  });

  test('broken requests get JSON-RPC errors and the bridge keeps serving', async () => {
    const raw = rawBridge(['--socket', socketPath]);
    try {
      const hello = await raw.initialize('2024-11-05');
      assert.equal(hello.result.protocolVersion, '2024-11-05', 'an older version the bridge supports');
      raw.send('{"jsonrpc":"2.0","method":"notifications/initialized"}\n');

      raw.send('{not json\n');
      const unreadable = await raw.next();
      assert.equal(unreadable.error?.code, -32700, JSON.stringify(unreadable));
      assert.equal(unreadable.id, null);
      raw.send('{"jsonrpc":"1.0","id":2,"method":"ping"}\n');
      assert.equal((await raw.next()).error?.code, -32600);
      const unknown = await raw.ask({ id: 3, method: 'tools/destroy' });
      assert.deepEqual([unknown.id, unknown.error?.code], [3, -32601]);
      const listArgs = await raw.ask({ id: 4, method: 'tools/call', params: { name: 'get_settings', arguments: [1] } });
      assert.deepEqual([listArgs.id, listArgs.error?.code], [4, -32602]);

      assert.deepEqual(await raw.ask({ id: 5, method: 'ping' }), { jsonrpc: '2.0', id: 5, result: {} });
      const settings = await raw.ask({ id: 6, method: 'tools/call', params: { name: 'get_settings', arguments: {} } });
      assert.equal(settings.result?.isError, false, JSON.stringify(settings));

      raw.child.stdin.end();
      assert.equal(await exitOf(raw.child, kStartLimit), 0, `the bridge ends with its input:\n${raw.stderr()}`);
    } finally {
      raw.child.kill('SIGKILL');
    }
  });

  test('a protocol version the bridge does not know is answered with one it does', async () => {
    const raw = rawBridge(['--data-dir', dataDir]);
    try {
      const offered = await raw.initialize('2099-01-01');
      assert.ok(SUPPORTED_PROTOCOL_VERSIONS.includes(offered.result?.protocolVersion), JSON.stringify(offered));
    } finally {
      raw.child.kill('SIGKILL');
    }
  });

  test('a stopped daemon is reported, and the same session goes on once it is back', async () => {
    const before = textOf(await call('get_settings'));
    await stopDaemon();
    const down = await call('get_settings');
    assert.equal(down.isError, true);
    // The command that starts it, for this data folder or the default one.
    assert.match(textOf(down), /quorvane (--data-dir \S+ )?daemon/);

    await startDaemon('daemon-again.log');
    const back = await call('get_settings');
    assert.equal(back.isError, false, textOf(back));
    assert.deepEqual(JSON.parse(textOf(back)), JSON.parse(before));
  });
});
