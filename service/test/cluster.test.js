import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { fileURLToPath } from 'node:url';
import { after, test } from 'node:test';
import { createClient } from 'redis';
import { startRedis } from '../test-support/redis-server.js';
import { nth, openSocket, received } from '../test-support/socket-client.js';
import { LOCK_AFTER } from '../src/agents/sign-in-throttle.js';
import { eventually, rawRequest, startService } from '../test-support/start-service.js';

// Two instances behind one Redis, as a load balancer would spread clients over them: the device
// only ever talks to A, the agent only to B.
const redis = await startRedis();
const a = await startService({ redisUrl: redis.url });
const b = await startService({ redisUrl: redis.url });
const opened = [];
after(async () => {
  for (const socket of opened) socket.close();
  await Promise.all([a.close(), b.close()]);
  await redis.stop();
});
const connect = async (ctx, options) => {
  const socket = await openSocket(ctx.baseUrl, options);
  opened.push(socket);
  return socket;
};

test('a device on one instance and an agent on another share sessions, sign-ins and the live stream', async () => {
  // Signed in on A; B takes the cookie at once.
  const dana = { cookie: a.signedIn('Eli') };
  await a.service.store.shared.written(); // as the sign-in route does before it answers
  assert.equal((await b.api('GET', '/api/1/agent/devices', undefined, dana)).status, 200);

  const device = await a.registerDevice('C1', { device: { model: 'm' } });
  const notification = await connect(a, { header: device.record.notification_token, credential: device.credential });
  const listed = await eventually(async () => {
    const { devices } = (await b.api('GET', '/api/1/agent/devices', undefined, dana)).body;
    const found = devices.find(({ id }) => id === 'C1');
    assert.equal(found?.reachable, true);
    return found;
  });
  assert.equal(listed.device.model, 'm');

  const started = (await b.api('POST', '/api/1/agent/devices/C1/sessions', undefined, dana)).body;
  assert.equal((await nth(notification, 'notification', 1))['halvora-code'], started.code);

  const fetched = await a.api('GET', `/api/1/sessions/${started.code}`, undefined, { device });
  assert.equal(fetched.status, 200, 'the code B handed out is known to A');
  const control = await connect(a, { header: fetched.body.control_token });
  const stream = await connect(a, { header: fetched.body.stream_token });
  await a.api('PUT', `/api/1/sessions/${started.id}`, { state: 'active' }, { device });
  const joined = (await b.api('POST', `/api/1/agent/sessions/${started.id}/join`, undefined, dana)).body;
  assert.equal(joined.state, 'active');
  const agent = await connect(b, { auth: joined.agent_token });
  await nth(stream, 'sync', 2); // once on connecting, once for the new viewer on B
  assert.deepEqual((await b.api('GET', `/api/1/agent/sessions/${started.id}/sockets`, undefined, dana)).body,
    { control: 1, stream: 1, agent: 1 });

  stream.emit('frame', { type: 'Frame', id: 1, image: Buffer.from([0xff, 0xd8, 0xff]), mime_type: 'image/jpeg' });
  assert.deepEqual([...(await nth(agent, 'frame', 1)).image], [0xff, 0xd8, 0xff]);
  agent.emit('touch', { type: 'Touch', id: 't', state: 'touchstart', x: 0.5, y: 0.5 });
  assert.equal((await nth(stream, 'touch', 1)).state, 'touchstart');

  // Another agent is refused on either instance.
  const eve = { cookie: b.signedIn('Eve') };
  for (const ctx of [a, b]) {
    assert.equal((await ctx.api('GET', `/api/1/agent/sessions/${started.id}`, undefined, eve)).status, 403, ctx === a ? 'A' : 'B');
  }
  assert.equal((await b.api('POST', `/api/1/agent/sessions/${started.id}/end`, undefined, dana)).status, 200);
  assert.equal((await nth(control, 'session', 4)).state, 'ended');
  await eventually(() => assert.equal(received(agent, 'session').at(-1).state, 'ended'));
});

test('a new instance reads every session back from Redis, and a fresh session is found at once', async () => {
  const c = await startService({ redisUrl: redis.url });
  after(() => c.close());
  const before = a.service.store.listSessions().map(({ id }) => id);
  assert.ok(before.length > 0);
  const seen = c.service.store.listSessions().map(({ id }) => id);
  for (const id of before) assert.ok(seen.includes(id), id);
  // Made on A and asked for on C in the same breath: C reads it instead of saying "not found",
  // and every lookup that misses reads only what it names, never the whole state.
  const reads = await redisReads();
  const device = await a.registerDevice();
  const made = (await a.api('POST', '/api/1/sessions', undefined, { device })).body;
  assert.equal((await c.api('GET', `/api/1/sessions/${made.code}`, undefined, { device })).body.id, made.id);
  for (let i = 0; i < 20; i += 1) {
    await assert.rejects(openSocket(c.baseUrl, { header: `unknown-${i}` }), /Unauthorized/);
    assert.equal((await c.api('GET', `/api/1/sessions/unknown-${i}`, undefined, { device })).status, 404);
    assert.equal((await c.api('GET', '/api/1/agent/me', undefined, { cookie: `halvora_agent=unknown-${i}` })).status, 401);
  }
  assert.equal(await redisReads(), reads, 'HGETALL calls');
});

// How many times Redis was asked for a whole hash.
async function redisReads() {
  const client = createClient({ url: redis.url });
  await client.connect();
  const stats = await client.info('commandstats');
  await client.destroy();
  return Number(/cmdstat_hgetall:calls=(\d+)/.exec(stats)?.[1] ?? 0);
}

test('an account added to Redis by the service command signs in on every instance', async () => {
  const child = spawn(process.execPath, [fileURLToPath(new URL('../src/manage.js', import.meta.url)), 'add-agent', '--redis', redis.url],
    { stdio: ['pipe', 'pipe', 'pipe'] });
  child.stdin.end('Fay\nsecret horse\n');
  assert.equal((await once(child, 'exit'))[0], 0);
  for (const ctx of [a, b]) {
    const answer = await eventually(async () => {
      const signedIn = await ctx.api('POST', '/api/1/agent/sign-in', { name: 'Fay', password: 'secret horse' }, { cookie: null });
      assert.equal(signedIn.status, 200);
      return signedIn;
    });
    assert.equal(answer.body.name, 'Fay');
  }
});

test('sign-in attempts counted on one instance count on the other', async () => {
  const attempt = (ctx) => rawRequest(ctx.baseUrl, {
    method: 'POST', path: '/api/1/agent/sign-in', body: { name: 'Eli', password: 'wrong horse' }, from: '127.0.0.5',
  });
  for (let i = 0; i < LOCK_AFTER; i += 1) assert.equal((await attempt(a)).status, 401);
  assert.equal((await attempt(b)).status, 429);
});

test('an instance that loses Redis says so on /healthz', async () => {
  assert.equal((await a.api('GET', '/healthz')).status, 200);
  await redis.stop();
  await eventually(async () => assert.deepEqual((await a.api('GET', '/healthz')).body,
    { status: 'unavailable', message: 'Redis cannot be reached' }));
});
