import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { Store } from '../src/store.js';
import { expectError, startService } from '../test-support/start-service.js';

const ctx = await startService();
after(() => ctx.close());

const HEX_64 = /^[0-9a-f]{64}$/;
const newSession = async () => (await ctx.api('POST', '/api/1/sessions')).body;
const put = (session, body) => ctx.api('PUT', `/api/1/sessions/${session.id}`, body);
const get = async (ref) => (await ctx.api('GET', `/api/1/sessions/${ref}`)).body;
const agentPost = (ref, action, body) => ctx.api('POST', `/api/1/agent/sessions/${ref}/${action}`, body);

test('a new session is pending, carries its channel URLs and tokens, and is found by id and by code', async () => {
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
  const created = await newSession();
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
  assert.deepEqual(Object.keys(ended.body).slice(-3), ['device', 'custom_data', 'ended_at']);
  assert.ok(ended.body.ended_at >= ended.body.created_at);
  assert.deepEqual(await get(created.id), ended.body);
});

test('a session only moves forward; a refused change changes nothing', async () => {
  const forbidden = [['pending', 'pending'], ['active', 'active'], ['active', 'pending'], ['ended', 'ended'], ['ended', 'active'], ['ended', 'pending']];
  for (const [from, to] of forbidden) {
    const session = await newSession();
    // A pending session may end without ever being active.
    if (from !== 'pending') assert.equal((await put(session, { state: from })).status, 200);
    await expectError(put(session, { state: to }), 400, `Cannot change session state from ${from} to ${to}`);
    assert.equal((await get(session.id)).state, from);
  }
});

test('joining without a body names a default agent and hands out a token only the agent sees', async () => {
  const session = await newSession();
  const { status, body } = await agentPost(session.code, 'join');
  assert.equal(status, 200);
  assert.equal(body.agent.name, 'Agent');
  assert.match(body.agent.id, /^[0-9a-f]{24}$/);
  assert.match(body.agent_token, HEX_64);
  assert.ok(![session.control_token, session.stream_token].includes(body.agent_token));
  assert.equal(body.state, 'pending');

  const seen = await get(session.id);
  assert.deepEqual(seen.agent, body.agent);
  assert.equal(seen.agent_token, undefined);
  assert.deepEqual(Object.keys(seen).slice(-1), ['agent']);
});

test('an agent joins an active session by name and id; once ended, join, end and rotate are refused', async () => {
  const session = await newSession();
  await put(session, { state: 'active', device: { os: 'linux' } });
  const joined = await agentPost(session.id, 'join', { name: 'Dana', id: 'agent-7' });
  assert.equal(joined.status, 200);
  assert.deepEqual(joined.body.agent, { id: 'agent-7', name: 'Dana' });
  assert.deepEqual(Object.keys(joined.body).slice(9, 11), ['agent', 'device']);

  const ended = await agentPost(session.code, 'end');
  assert.equal(ended.status, 200);
  assert.equal(ended.body.state, 'ended');
  assert.ok(ended.body.ended_at >= ended.body.created_at);
  await expectError(agentPost(session.id, 'join', { name: 'Eve' }), 409, 'Session has ended');
  await expectError(agentPost(session.id, 'end'), 409, 'Session has already ended');
  await expectError(agentPost(session.id, 'rotate-tokens'), 409, 'Session has ended');
  assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}`)).body, ended.body);
  await expectError(agentPost('nosuchsession', 'end'), 404, 'Session not found');
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
