import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { startService } from '../test-support/start-service.js';

describe('agent API', () => {
  let ctx;
  before(async () => {
    ctx = await startService();
  });
  after(() => ctx.close());

  const newSession = async () => (await ctx.api('POST', '/api/1/sessions')).body;

  test('joining without a body names a default agent and hands out the agent token', async () => {
    const session = await newSession();
    const { status, body } = await ctx.api('POST', `/api/1/agent/sessions/${session.code}/join`);
    assert.equal(status, 200);
    assert.equal(body.agent.name, 'Agent');
    assert.match(body.agent.id, /^[0-9a-f]{24}$/);
    assert.match(body.agent_token, /^[0-9a-f]{64}$/);
    assert.ok(![session.control_token, session.stream_token].includes(body.agent_token));
    assert.equal(body.state, 'pending');

    // The device sees the agent but never the agent's token.
    const seen = (await ctx.api('GET', `/api/1/sessions/${session.id}`)).body;
    assert.deepEqual(seen.agent, body.agent);
    assert.equal(seen.agent_token, undefined);
    assert.deepEqual(Object.keys(seen).slice(-1), ['agent']);
  });

  test('joining an active session with a name and id records them; ended sessions refuse', async () => {
    const session = await newSession();
    await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active', device: { os: 'linux' } });
    const joined = await ctx.api('POST', `/api/1/agent/sessions/${session.id}/join`, { name: 'Dana', id: 'agent-7' });
    assert.equal(joined.status, 200);
    assert.deepEqual(joined.body.agent, { id: 'agent-7', name: 'Dana' });
    assert.deepEqual(Object.keys(joined.body).slice(9, 11), ['agent', 'device']);

    await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'ended' });
    const late = await ctx.api('POST', `/api/1/agent/sessions/${session.id}/join`, { name: 'Eve' });
    assert.equal(late.status, 409);
    assert.equal((await ctx.api('GET', `/api/1/agent/sessions/${session.id}`)).body.agent.name, 'Dana');
  });

  test('join bodies are checked', async () => {
    const session = await newSession();
    for (const [body, message] of [
      [{ name: 5 }, /"name" must be a string/],
      [{ name: '' }, /"name" must not be empty/],
      [{ id: 'has space' }, /"id" must be 1 to 128 characters/],
      [['Dana'], /Request body must be a JSON object/],
    ]) {
      const answer = await ctx.api('POST', `/api/1/agent/sessions/${session.id}/join`, body);
      assert.equal(answer.status, 400);
      assert.match(answer.body.message, message);
    }
  });

  test('ending works once, from pending or active', async () => {
    for (const activate of [false, true]) {
      const session = await newSession();
      if (activate) await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' });
      const ended = await ctx.api('POST', `/api/1/agent/sessions/${session.code}/end`);
      assert.equal(ended.status, 200);
      assert.equal(ended.body.state, 'ended');
      assert.ok(ended.body.ended_at);
      const again = await ctx.api('POST', `/api/1/agent/sessions/${session.id}/end`);
      assert.equal(again.status, 409);
      assert.equal(again.body.message, 'Session has already ended');
    }
    assert.equal((await ctx.api('POST', '/api/1/agent/sessions/nosuchsession/end')).status, 404);
  });

  test('an agent can start a session for a registered device only', async () => {
    const id = 'C0FFEE00-0000-4000-8000-000000000001';
    const unknown = await ctx.api('POST', `/api/1/agent/devices/${id}/sessions`);
    assert.equal(unknown.status, 404);
    assert.equal(unknown.body.message, 'Device not found');

    await ctx.api('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device: {} });
    const started = await ctx.api('POST', `/api/1/agent/devices/${id}/sessions`);
    assert.equal(started.status, 201);
    assert.equal(started.body.state, 'pending');
    assert.equal(started.body.device_id, id);
    // The device can pick the session up by its code like any other.
    assert.deepEqual((await ctx.api('GET', `/api/1/sessions/${started.body.code}`)).body, started.body);
  });

});

describe('change events', () => {
  let ctx;
  const events = [];
  before(async () => {
    ctx = await startService();
    ctx.service.store.on('change', (event) => events.push(event));
  });
  after(() => ctx.close());

  test('every change through the API is published with the fresh record', async () => {
    const session = (await ctx.api('POST', '/api/1/sessions')).body;
    await ctx.api('POST', `/api/1/agent/sessions/${session.id}/join`);
    await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' });
    await ctx.api('POST', `/api/1/agent/sessions/${session.id}/end`);
    await ctx.api('PUT', '/api/1/devices/dev-1', { push_token: '', push_provider: 'none', device: {} });
    await ctx.api('DELETE', '/api/1/devices/dev-1');
    await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' }); // refused: no event

    assert.deepEqual(
      events.map((e) => [e.kind, e.action, e.record.state ?? e.record.id]),
      [
        ['session', 'created', 'pending'],
        ['session', 'updated', 'pending'],
        ['session', 'updated', 'active'],
        ['session', 'updated', 'ended'],
        ['device', 'created', 'dev-1'],
        ['device', 'deleted', 'dev-1'],
      ],
    );
    assert.equal(events[1].record.agent.name, 'Agent');
  });

});
