import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { LOCK_AFTER, SignInThrottle, SLOW_AFTER, SLOW_DELAY_MS, WINDOW_MS } from '../src/agents/sign-in-throttle.js';
import { createService } from '../src/app.js';
import { parseCliOptions } from '../src/cli-options.js';
import { startService } from '../test-support/start-service.js';

const MANAGE = fileURLToPath(new URL('../src/manage.js', import.meta.url));

async function tempDir(t) {
  const dir = await mkdtemp(join(tmpdir(), 'halvora-agents-'));
  t.after(() => rm(dir, { recursive: true, force: true }));
  return dir;
}

async function manage(dir, args, input = '') {
  const child = spawn(process.execPath, [MANAGE, ...args, '--data', dir], { stdio: ['pipe', 'pipe', 'pipe'] });
  let output = '';
  child.stdout.on('data', (chunk) => (output += chunk));
  child.stderr.on('data', (chunk) => (output += chunk));
  child.stdin.end(input);
  const [code] = await once(child, 'exit');
  return { code, output };
}

async function serve(t, dir, options = {}) {
  const service = createService({ dataDir: dir, ...options });
  await service.listen(0);
  const baseUrl = `http://127.0.0.1:${service.server.address().port}`; // whatever the public URL
  t.after(() => service.close());
  const call = async (method, path, { body, cookie, origin } = {}) => {
    const headers = { 'Content-Type': 'application/json' };
    if (cookie) headers.Cookie = cookie;
    if (origin) headers.Origin = origin;
    const response = await fetch(`${baseUrl}${path}`, { method, headers, body: body && JSON.stringify(body) });
    const text = await response.text();
    return { status: response.status, headers: response.headers, body: text ? JSON.parse(text) : undefined };
  };
  return { service, baseUrl, call };
}

const signIn = (ctx, name, password, extra = {}) => ctx.call('POST', '/api/1/agent/sign-in', { body: { name, password }, ...extra });
const cookieOf = (answer) => answer.headers.get('set-cookie').split(';')[0];

test('accounts come from the service command, whose password comes only from standard input', async (t) => {
  const dir = await tempDir(t);
  for (const [args, input, code, output] of [
    [['add-agent'], 'Dana\ncorrect horse\n', 0, /added agent "Dana"/],
    [['add-agent'], 'DANA\nanother one\n', 1, /already exists/],
    [['add-agent', 'hunter22'], 'Eli\n', 1, /password is read from standard input/],
    [['add-agent'], 'Eli\nshort\n', 1, /8 to 1024 characters/],
    [['add-agent'], ' \nlong enough\n', 1, /the name must be/],
    [['list-agents'], '', 0, /^Dana\n$/],
  ]) {
    const result = await manage(dir, args, input);
    assert.equal(result.code, code, `${args.join(' ')}: ${result.output}`);
    assert.match(result.output, output);
  }
});

test('signing in sets a strict HttpOnly cookie that names the agent until sign-out, across a restart', async (t) => {
  const dir = await tempDir(t);
  await manage(dir, ['add-agent'], 'Dana\ncorrect horse\n');
  const first = await serve(t, dir);
  for (const [name, password] of [['Dana', 'wrong horse'], ['Nobody', 'correct horse']]) {
    const refused = await signIn(first, name, password);
    assert.deepEqual([refused.status, refused.body], [401, { message: 'Wrong name or password' }], name);
  }
  // An account added while the service runs can sign in at once.
  await manage(dir, ['add-agent'], 'Eli\nsecond agent\n');
  assert.equal((await signIn(first, 'eli', 'second agent')).status, 200);

  const answer = await signIn(first, 'dana', 'correct horse');
  assert.equal(answer.status, 200);
  assert.equal(answer.body.name, 'Dana');
  const attributes = answer.headers.get('set-cookie').split(';').map((part) => part.trim().toLowerCase());
  for (const attribute of ['httponly', 'samesite=strict', 'path=/']) assert.ok(attributes.includes(attribute), attribute);
  assert.ok(!attributes.includes('secure'), 'plain http: no Secure');
  const cookie = cookieOf(answer);
  assert.deepEqual((await first.call('GET', '/api/1/agent/me', { cookie })).body, answer.body);
  await first.service.close();

  const second = await serve(t, dir);
  assert.deepEqual((await second.call('GET', '/api/1/agent/me', { cookie })).body, answer.body);
  assert.equal((await second.call('POST', '/api/1/agent/sign-out', { cookie })).status, 200);
  assert.equal((await second.call('GET', '/api/1/agent/me', { cookie })).status, 401);
  assert.equal((await second.call('GET', '/api/1/agent/me')).status, 401);
});

test('over TLS the cookie is Secure, and requests from another site are refused', async (t) => {
  const dir = await tempDir(t);
  await manage(dir, ['add-agent'], 'Dana\ncorrect horse\n');
  const ctx = await serve(t, dir, { publicUrl: 'https://support.example.com' });
  const answer = await signIn(ctx, 'Dana', 'correct horse', { origin: 'https://support.example.com' });
  assert.equal(answer.status, 200);
  assert.match(answer.headers.get('set-cookie'), /;\s*Secure/i);
  for (const [method, path] of [['POST', '/api/1/agent/sign-in'], ['POST', '/api/1/sessions'], ['PUT', '/api/1/devices/D1']]) {
    const refused = await ctx.call(method, path, { body: { name: 'Dana', password: 'correct horse' }, origin: 'https://evil.example' });
    assert.deepEqual([refused.status, refused.body], [403, { message: 'Cross-origin request refused' }], path);
  }
});

test('repeated failures slow sign-in down and then refuse it for a while, even with the right password', async (t) => {
  let now = 0;
  const throttle = new SignInThrottle({ now: () => now });
  const dir = await tempDir(t);
  await manage(dir, ['add-agent'], 'Dana\ncorrect horse\n');
  const ctx = await serve(t, dir, { signInThrottle: throttle });
  for (let i = 0; i < LOCK_AFTER; i += 1) {
    const started = Date.now();
    assert.equal((await signIn(ctx, 'Dana', `guess ${i}`)).status, 401);
    if (i === SLOW_AFTER) assert.ok(Date.now() - started >= SLOW_DELAY_MS, 'slowed');
  }
  const locked = await signIn(ctx, 'Dana', 'correct horse');
  assert.equal(locked.status, 429);
  assert.match(locked.body.message, /^Too many failed sign-ins; try again in 15 minutes$/);
  assert.equal(locked.headers.get('retry-after'), String(WINDOW_MS / 1000));
  now += WINDOW_MS + 1;
  assert.equal((await signIn(ctx, 'Dana', 'correct horse')).status, 200);
});

test('the agent API is rate-limited per client, and behind a trusted proxy each forwarded client counts alone', async (t) => {
  for (const [trustProxy, separate] of [[undefined, false], [['127.0.0.1'], true]]) {
    const ctx = await startService({ agentRateLimit: 3, trustProxy });
    t.after(() => ctx.close());
    const devices = (client) => ctx.api('GET', '/api/1/agent/devices', undefined, { headers: { 'X-Forwarded-For': client } });
    for (let i = 0; i < 3; i += 1) assert.equal((await devices('10.0.0.1')).status, 200);
    const limited = await devices('10.0.0.1');
    assert.equal(limited.status, 429);
    assert.match(limited.body.message, /^Too many requests; try again in \d+ seconds$/);
    assert.ok(Number(limited.headers.get('retry-after')) > 0);
    assert.equal((await devices('10.0.0.2')).status, separate ? 200 : 429, `trusted proxy: ${separate}`);
  }
});

test('only proxy addresses and ranges are trusted from the command line', () => {
  assert.deepEqual(parseCliOptions(['--trust-proxy', '10.0.0.1, 192.168.0.0/16,::1']).trustProxy, ['10.0.0.1', '192.168.0.0/16', '::1']);
  for (const bad of ['true', '2', '10.0.0.1/33', 'proxy.example', '10.0.0.0/8/1', '']) {
    assert.throws(() => parseCliOptions(['--trust-proxy', bad]), /IP addresses or CIDR ranges/, bad);
  }
});
