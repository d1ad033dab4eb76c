// What strangers, devices and agents once got from this service that was not theirs, each tried
// the way it was done, and refused. (The Redis lookups are in cluster.test.js, the data files'
// modes in durable.test.js, the relaying of input before a session starts in sockets.test.js.)
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { LOCK_AFTER } from '../src/agents/sign-in-throttle.js';
import { createService } from '../src/app.js';
import { MAX_LIVE_CODES, SessionCodes } from '../src/session-codes.js';
import { LatestRecords } from '../src/sockets/latest-records.js';
import { MAX_PENDING_PER_DEVICE, Store } from '../src/store.js';
import { nth, socketsFor } from '../test-support/socket-client.js';
import { rawRequest as raw, startService } from '../test-support/start-service.js';

const ctx = await startService();
after(() => ctx.close());
const connect = socketsFor(ctx);
const registration = { push_token: '', push_provider: 'none', device: {} };
const agentState = async (id) => (await ctx.api('GET', `/api/1/agent/sessions/${id}`)).body.state;

test('a session\'s code or id opens nothing without its own device\'s credential', async () => {
  const userStarted = (await ctx.api('POST', '/api/1/sessions')).body;
  const target = await ctx.registerDevice();
  const agentStarted = (await ctx.api('POST', `/api/1/agent/devices/${target.id}/sessions`)).body;
  const stranger = await ctx.registerDevice();
  for (const [session, owner] of [[userStarted, ctx.device], [agentStarted, target]]) {
    const callers = [['nobody', null, 401], ['a made-up credential', { credential: 'f'.repeat(64) }, 401], ['another device', stranger, 404]];
    for (const [who, device, status] of callers) {
      for (const ref of [session.code, session.id]) {
        for (const [method, body] of [['GET'], ['PUT', { state: 'active' }], ['PUT', { state: 'ended' }]]) {
          const answer = await ctx.api(method, `/api/1/sessions/${ref}`, body, { device });
          assert.equal(answer.status, status, `${who} ${method} ${ref}`);
          assert.deepEqual(Object.keys(answer.body), ['message'], 'nothing of the session is told');
        }
      }
    }
    assert.equal(await agentState(session.id), 'pending');
    assert.equal((await ctx.api('GET', `/api/1/sessions/${session.code}`, undefined, { device: owner })).status, 200);
  }
  // The agent who has a session gets its own token, never the device's.
  const joined = (await ctx.api('POST', `/api/1/agent/sessions/${agentStarted.id}/join`)).body;
  for (const record of [agentStarted, joined]) assert.equal(record.control_token ?? record.stream_token, undefined);
});

test('guessing codes from one address, or asking as one device from many, is cut short', async (t) => {
  const limited = await startService({ deviceRateLimit: 25 });
  t.after(() => limited.close());
  const statuses = [];
  for (let code = 0; code < 25; code += 1) {
    statuses.push((await limited.api('GET', `/api/1/sessions/${String(code).padStart(6, '0')}`, undefined, { device: null })).status);
  }
  assert.deepEqual([statuses.at(0), statuses.at(-1)], [401, 429]);
  // A fifth of that for one device, from whichever address.
  const from = ['127.0.0.2', '127.0.0.3', '127.0.0.4', '127.0.0.5', '127.0.0.6'];
  const answers = [];
  for (const address of from) {
    const headers = { Authorization: `Bearer ${limited.device.credential}` };
    answers.push((await raw(limited.baseUrl, { path: `/api/1/sessions/${address}`, headers, from: address })).status);
  }
  assert.deepEqual(answers, [404, 404, 404, 404, 429]);
  // At most ten sessions a minute for one device, and sixty new devices an hour from one address.
  const unlimited = await startService({ deviceRateLimit: 1_000_000 });
  t.after(() => unlimited.close());
  const created = [];
  for (let i = 0; i < 11; i += 1) created.push((await unlimited.api('POST', '/api/1/sessions')).status);
  assert.deepEqual([created.at(-2), created.at(-1)], [201, 429]);
  const registered = [];
  for (let i = 0; i < 60; i += 1) registered.push((await raw(unlimited.baseUrl, { method: 'PUT', path: `/api/1/devices/N${i}`, body: registration, from: '127.0.0.7' })).status);
  assert.deepEqual([registered.at(-2), registered.at(-1)], [200, 200]);
  assert.equal((await raw(unlimited.baseUrl, { method: 'PUT', path: '/api/1/devices/N60', body: registration, from: '127.0.0.7' })).status, 429);
});

test('knowing a device\'s id gives a stranger nothing: no registration, no notification, no removal', async () => {
  const victim = await ctx.registerDevice(undefined, { custom_data: { account: 'A-1042' } });
  const socket = await connect({ header: victim.record.notification_token, credential: victim.credential });
  for (const device of [null, { credential: 'f'.repeat(64) }, ctx.device]) {
    for (const method of ['PUT', 'DELETE']) {
      const answer = await ctx.api(method, `/api/1/devices/${victim.id}`, method === 'PUT' ? registration : undefined, { device });
      assert.deepEqual([answer.status, answer.body], [401, { message: 'Device credential refused' }], method);
    }
  }
  const listed = (await ctx.api('GET', '/api/1/agent/devices')).body.devices.find(({ id }) => id === victim.id);
  assert.deepEqual(listed.custom_data, { account: 'A-1042' }, 'unchanged');
  assert.equal(listed.notification_token, undefined, 'agents never see it');
  // Its own socket was not cut off and still hears the next session's code; the token without
  // the device's credential opens nothing.
  const started = (await ctx.api('POST', `/api/1/agent/devices/${victim.id}/sessions`)).body;
  assert.equal((await nth(socket, 'notification', 1))['halvora-code'], started.code);
  await assert.rejects(connect({ header: victim.record.notification_token }), { message: 'Unauthorized' });
});

test('a device starts only a session an agent has joined, and ends only its own', async () => {
  const waiting = (await ctx.api('POST', '/api/1/sessions')).body;
  const refused = await ctx.api('PUT', `/api/1/sessions/${waiting.id}`, { state: 'active' });
  assert.deepEqual([refused.status, refused.body], [409, { message: 'No agent has joined this session yet' }]);
  assert.equal(await agentState(waiting.id), 'pending');
  await ctx.api('POST', `/api/1/agent/sessions/${waiting.id}/join`);
  assert.equal((await ctx.api('PUT', `/api/1/sessions/${waiting.id}`, { state: 'active' })).status, 200);
});

test('a device cannot grow the service: waiting sessions are few and expire, old records go, codes never need a scan', () => {
  let now = Date.parse('2026-01-01T00:00:00Z');
  const store = new Store({ now: () => new Date(now), pendingExpiryMs: 600_000, endedRetentionMs: 3_600_000, deviceRetentionMs: 86_400_000 });
  const { credential } = store.registerDevice('D', { pushToken: '', pushProvider: 'none', device: {} });
  const device = store.deviceFor(credential);
  const made = Array.from({ length: MAX_PENDING_PER_DEVICE + 2 }, () => store.createSessionForDevice(device));
  const states = made.map(({ id }) => store.getSession(id).state);
  assert.deepEqual(states, ['ended', 'ended', ...Array(MAX_PENDING_PER_DEVICE).fill('pending')]);

  // Expired, and gone at the next sweep: nobody ever had them. One an agent had is kept a while.
  const joined = store.startSessionForDevice('D', { id: 'A', name: 'Dana' });
  store.endSession(joined.id);
  now += 600_001;
  assert.deepEqual(store.sweep(), { expired: MAX_PENDING_PER_DEVICE, removedSessions: 2, removedDevices: 0 });
  assert.equal(store.getSession(made.at(-1).code).state, 'ended');
  assert.equal(store.sweep().removedSessions, MAX_PENDING_PER_DEVICE);
  assert.throws(() => store.getSession(made.at(-1).code), /Session not found/);
  assert.equal(store.getSession(joined.id).state, 'ended');
  now += 3_600_001;
  assert.equal(store.sweep().removedSessions, 1);
  now += 86_400_001;
  assert.equal(store.sweep().removedDevices, 1);
  assert.equal(store.deviceFor(credential), undefined);

  // Half the codes live: the next is refused at once rather than searched for.
  const codes = new SessionCodes();
  for (let i = 0; i < MAX_LIVE_CODES; i += 1) codes.restore(String(i * 2).padStart(6, '0'), `s${i}`, true);
  assert.throws(() => codes.pick(), /No session codes are free/);

  // Whatever ids a device puts on its frames, one session keeps one frame and four numbers.
  const latest = new LatestRecords();
  for (let i = 0; i < 1000; i += 1) latest.remember('S', 'frame', { id: 'x'.repeat(1024) + i, image: Buffer.alloc(1) });
  assert.deepEqual(latest.frameStats('S'), { count: 1000, first_id: null, last_id: null, gaps: 999 });
  assert.equal(latest.replay('S').length, 1);
});

test('sign-in attempts count before the password is checked, lock out only their own address, and outlive a restart', async (t) => {
  const dir = await mkdtemp(join(tmpdir(), 'halvora-attacks-'));
  t.after(() => rm(dir, { recursive: true, force: true }));
  const child = spawn(process.execPath, [fileURLToPath(new URL('../src/manage.js', import.meta.url)), 'add-agent', '--data', dir]);
  child.stdin.end('Dana\ncorrect horse\n');
  assert.equal((await once(child, 'exit'))[0], 0);
  const signIn = (url, password, from) => raw(url, { method: 'POST', path: '/api/1/agent/sign-in', body: { name: 'Dana', password }, from });

  const first = createService({ dataDir: dir });
  const firstUrl = await first.listen(0);
  const guesses = await Promise.all(Array.from({ length: 100 }, (_, i) => signIn(firstUrl, `guess ${i}`, '127.0.0.9')));
  const checked = guesses.filter(({ status }) => status === 401).length;
  assert.equal(checked, LOCK_AFTER, 'passwords checked');
  assert.equal(guesses.filter(({ status }) => status === 429).length, 100 - LOCK_AFTER);
  assert.equal((await signIn(firstUrl, 'correct horse', '127.0.0.1')).status, 200, 'the agent elsewhere is only slowed');
  await first.close();

  const second = createService({ dataDir: dir });
  const secondUrl = await second.listen(0);
  t.after(() => second.close());
  assert.equal((await signIn(secondUrl, 'correct horse', '127.0.0.9')).status, 429, 'the address stays locked');
});

test('only the service\'s own names are answered: a foreign Host is refused on every route and socket', async (t) => {
  const served = createService({ publicUrl: 'https://support.example.com' });
  await served.listen(0);
  t.after(() => served.close());
  const { port } = served.server.address();
  const url = `http://127.0.0.1:${port}`;
  for (const [host, status] of [
    ['evil.example', 421], [`evil.example:${port}`, 421], ['127.0.0.1.evil.example', 421],
    [`127.0.0.1:${port}`, 200], [`localhost:${port}`, 200], [`[::1]:${port}`, 200], ['support.example.com', 200],
  ]) {
    for (const path of ['/healthz', '/console/', '/api/1/agent/me']) {
      const answer = await raw(url, { path, headers: { Host: host, Origin: `http://${host}` } });
      if (status === 421) assert.deepEqual([answer.status, answer.body], [421, { message: 'Unknown host' }], `${host} ${path}`);
      else assert.notEqual(answer.status, 421, `${host} ${path}`);
    }
    const handshake = await raw(url, { path: '/sockets/1/events/?EIO=4&transport=polling', headers: { Host: host } });
    assert.equal(handshake.status === 200, status === 200, `socket handshake with Host ${host}: ${handshake.status}`);
  }
});
