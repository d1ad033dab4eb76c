import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { Store } from '../src/store.js';
import { expectError, startService } from '../test-support/start-service.js';

const ctx = await startService();
after(() => ctx.close());

const HEX_64 = /^[0-9a-f]{64}$/;
const newSession = async () => (await ctx.api('POST', '/api/1/sessions')).body;
// A session the agent has joined, so that its device may start it.
const joinedSession = async () => {
  const session = await newSession();
  await agentPost(session.id, 'join');
  return session;
};
const put = (session, body) => ctx.api('PUT', `/api/1/sessions/${session.id}`, body);
const get = async (ref) => (await ctx.api('GET', `/api/1/sessions/${ref}`)).body;
const agentPost = (ref, action, body) => ctx.api('POST', `/api/1/agent/sessions/${ref}/${action}`, body);

test('a new session is pending, carries its channel URLs and tokens, and is found by id and by code by its device', async () => {
  const { status, body } = await ctx.api('POST', '/api/1/sessions');
  assert.equal(status, 201);
  assert.deepEqual(Object.keys(body), [
    'type', 'id', 'code', 'state', 'control_url', 'control_token', 'stream_url', 'stream_token', 'created_at',
  ]);
  assert.equal(body.type, 'Session');
  assert.match(body.id, /^[0-9a-f]{24}$/);
  assert.match(body.code, /^[0-9]{6}$/);
  assert.equal(body.state, 'pending');
  assert.deepEqual([body.control_url, body.stream_url], [ctx.baseUrl, ctx.baseUrl]);
  assert.match(body.control_token, HEX_64);
  assert.match(body.stream_token, HEX_64);
  assert.notEqual(body.control_token, body.stream_token);
  assert.equal(new Date(body.created_at).toISOString(), body.created_at);

  assert.deepEqual(await get(body.id), body);
  assert.deepEqual(await get(body.code), body);
  for (const ref of ['0123456789abcdef01234567', body.code === '000000' ? '000001' : '000000']) {
    await expectError(ctx.api('GET', `/api/1/sessions/${ref}`), 404, 'Session not found');
  }
});

test('activating stores device and custom_data, ending stamps ended_at', async () => {
  const created = await joinedSession();
  const device = { name: 'Test phone', os: 'linux' };
  const active = await ctx.api('PUT', `/api/1/sessions/${created.code}`, { state: 'active', device, custom_data: { ticket: 42 } });
  assert.equal(active.status, 200);
  assert.equal(active.body.state, 'active');
  assert.deepEqual(active.body.device, device);
  assert.deepEqual(active.body.custom_data, { ticket: 42 });
  assert.equal(active.body.control_token, created.control_token);

  const ended = await put(created, { state: 'ended' });
  assert.equal(ended.status, 200);
  assert.equal(ended.body.state, 'ended');
  assert.deepEqual(Object.keys(ended.body).slice(-4), ['agent', 'device', 'custom_data', 'ended_at']);
  assert.ok(ended.body.ended_at >= ended.body.created_at);
  assert.deepEqual(await get(created.id), ended.body);
});

test('a session only moves forward; a refused change changes nothing', async () => {
  const forbidden = [['pending', 'pending'], ['active', 'active'], ['active', 'pending'], ['ended', 'ended'], ['ended', 'active'], ['ended', 'pending']];
  for (const [from, to] of forbidden) {
    const session = await joinedSession();
    // A pending session may end without ever being active.
    if (from !== 'pending') assert.equal((await put(session, { state: from })).status, 200);
    await expectError(put(session, { state: to }), 400, `Cannot change session state from ${from} to ${to}`);
    assert.equal((await get(session.id)).state, from);
  }
});

test('the signed-in agent who joins has the session: a token only it sees; once ended, join, end and rotate are refused', async () => {
  const session = await newSession();
  const joined = await agentPost(session.code, 'join');
  assert.equal(joined.status, 200);
  assert.deepEqual(joined.body.agent, { id: ctx.service.store.agents.findByName('Dana').id, name: 'Dana' });
  assert.match(joined.body.agent_token, HEX_64);
  assert.ok(![session.control_token, session.stream_token].includes(joined.body.agent_token));
  assert.equal(joined.body.state, 'pending');
  const seen = await get(session.id);
  assert.deepEqual(seen.agent, joined.body.agent);
  assert.equal(seen.agent_token, undefined);

  await put(session, { state: 'active', device: { os: 'linux' } });
  assert.deepEqual(Object.keys(await get(session.id)).slice(9, 11), ['agent', 'device']);
  const ended = await agentPost(session.code, 'end');
  assert.equal(ended.status, 200);
  assert.equal(ended.body.state, 'ended');
  assert.ok(ended.body.ended_at >= ended.body.created_at);
  await expectError(agentPost(session.id, 'join'), 409, 'Session has ended');
  await expectError(agentPost(session.id, 'end'), 409, 'Session has already ended');
  await expectError(agentPost(session.id, 'rotate-tokens'), 409, 'Session has ended');
  assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}`)).body, ended.body);
  await expectError(agentPost('nosuchsession', 'end'), 404, 'Session not found');
});

test('nothing on the agent API without a sign-in, and another agent\'s session stays its own', async () => {
  const device = (await ctx.api('PUT', '/api/1/devices/OWN1', { push_token: '', push_provider: 'none', device: {} })).body;
  const started = (await ctx.api('POST', `/api/1/agent/devices/${device.id}/sessions`)).body;
  const waiting = await newSession(); // user-started, nobody has joined
  const routes = [
    ['GET', '/api/1/agent/devices'],
    ['POST', `/api/1/agent/devices/${device.id}/sessions`],
    ['POST', `/api/1/agent/devices/${device.id}/rotate-token`],
    ['GET', `/api/1/agent/devices/${device.id}/sockets`],
    ['GET', '/api/1/agent/sessions'],
    ['GET', `/api/1/agent/sessions/${started.id}`],
    ['POST', `/api/1/agent/sessions/${started.id}/join`],
    ['POST', `/api/1/agent/sessions/${started.id}/rotate-tokens`],
    ['GET', `/api/1/agent/sessions/${started.id}/sockets`],
    ['GET', `/api/1/agent/sessions/${started.id}/frames`],
    ['POST', `/api/1/agent/sessions/${started.id}/end`],
  ];
  for (const cookie of [null, 'halvora_agent=0123456789abcdef', 'other=1']) {
    for (const [method, path] of routes) await expectError(ctx.api(method, path, undefined, { cookie }), 401, 'Sign in first');
  }

  const eve = { cookie: ctx.signedIn('Eve') };
  for (const [method, path] of routes.filter(([, path]) => path.includes(started.id))) {
    await expectError(ctx.api(method, path, undefined, eve), 403, 'This session belongs to another agent');
  }
  const listed = async (options) => (await ctx.api('GET', '/api/1/agent/sessions', undefined, options)).body.sessions.map(({ id }) => id);
  assert.ok(!(await listed(eve)).includes(started.id));
  assert.ok((await listed()).includes(started.id));
  // A session nobody has joined is anyone's to take, and then only theirs.
  assert.ok((await listed(eve)).includes(waiting.id));
  assert.equal((await ctx.api('POST', `/api/1/agent/sessions/${waiting.code}/join`, undefined, eve)).status, 200);
  await expectError(agentPost(waiting.id, 'join'), 403, 'This session belongs to another agent');
  assert.ok(!(await listed()).includes(waiting.id));
  assert.equal((await ctx.api('GET', `/api/1/agent/sessions/${started.id}`)).body.state, 'pending', 'the refused calls changed nothing');
});

test('a code is not reused while its session is live, and then names the newest session', () => {
  // Every session asks for 123456 first, so collisions are certain.
  const codes = ['123456', '123456', '654321'];
  const store = new Store({ generateCode: () => codes.shift() ?? '123456' });
  const first = store.createSession();
  const second = store.createSession();
  assert.deepEqual([first.code, second.code], ['123456', '654321']);

  store.changeSessionState(first.id, { state: 'ended' });
  const third = store.createSession();
  assert.equal(third.code, '123456');
  assert.equal(store.getSession('123456').id, third.id);
  assert.equal(store.getSession(first.id).state, 'ended');
});
