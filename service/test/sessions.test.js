import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { startService } from '../test-support/start-service.js';

const HEX_64 = /^[0-9a-f]{64}$/;

describe('device sessions', () => {
  let ctx;
  before(async () => {
    ctx = await startService();
  });
  after(() => ctx.close());

  test('a new session is pending and carries its channel URLs and tokens', async () => {
    const { status, body } = await ctx.api('POST', '/api/1/sessions', undefined, {
      headers: { 'X-HalvoraPlatform': 'linux', 'X-HalvoraSDKVersion': '1.5.4' },
    });
    assert.equal(status, 201);
    assert.deepEqual(Object.keys(body), [
      'type', 'id', 'code', 'state', 'control_url', 'control_token', 'stream_url', 'stream_token', 'created_at',
    ]);
    assert.equal(body.type, 'Session');
    assert.match(body.id, /^[0-9a-f]{24}$/);
    assert.match(body.code, /^[0-9]{6}$/);
    assert.equal(body.state, 'pending');
    assert.equal(body.control_url, ctx.baseUrl);
    assert.equal(body.stream_url, ctx.baseUrl);
    assert.match(body.control_token, HEX_64);
    assert.match(body.stream_token, HEX_64);
    assert.notEqual(body.control_token, body.stream_token);
    assert.equal(new Date(body.created_at).toISOString(), body.created_at);
  });

  test('a session is found by id and by code; unknown ones are 404', async () => {
    const { body: created } = await ctx.api('POST', '/api/1/sessions');
    assert.deepEqual((await ctx.api('GET', `/api/1/sessions/${created.id}`)).body, created);
    assert.deepEqual((await ctx.api('GET', `/api/1/sessions/${created.code}`)).body, created);

    const missingCode = created.code === '000000' ? '000001' : '000000';
    for (const ref of ['0123456789abcdef01234567', missingCode]) {
      const { status, body } = await ctx.api('GET', `/api/1/sessions/${ref}`);
      assert.equal(status, 404);
      assert.deepEqual(body, { message: 'Session not found' });
    }
  });

  test('activating stores device and custom_data, ending stamps ended_at', async () => {
    const { body: created } = await ctx.api('POST', '/api/1/sessions');
    const device = { name: 'Test phone', os: 'linux' };
    const active = await ctx.api('PUT', `/api/1/sessions/${created.code}`, {
      state: 'active',
      device,
      custom_data: { ticket: 42 },
    });
    assert.equal(active.status, 200);
    assert.equal(active.body.state, 'active');
    assert.deepEqual(active.body.device, device);
    assert.deepEqual(active.body.custom_data, { ticket: 42 });
    assert.equal(active.body.control_token, created.control_token);

    const ended = await ctx.api('PUT', `/api/1/sessions/${created.id}`, { state: 'ended' });
    assert.equal(ended.status, 200);
    assert.equal(ended.body.state, 'ended');
    assert.deepEqual(Object.keys(ended.body).slice(-3), ['device', 'custom_data', 'ended_at']);
    assert.ok(ended.body.ended_at >= ended.body.created_at);
    assert.deepEqual((await ctx.api('GET', `/api/1/sessions/${created.id}`)).body, ended.body);
  });

  test('a pending session can end without ever being active', async () => {
    const { body: created } = await ctx.api('POST', '/api/1/sessions');
    const { status, body } = await ctx.api('PUT', `/api/1/sessions/${created.id}`, { state: 'ended' });
    assert.equal(status, 200);
    assert.equal(body.state, 'ended');
    assert.equal(body.device, undefined);
  });

  async function sessionIn(state) {
    const { body } = await ctx.api('POST', '/api/1/sessions');
    if (state === 'active' || state === 'ended') await ctx.api('PUT', `/api/1/sessions/${body.id}`, { state: 'active' });
    if (state === 'ended') await ctx.api('PUT', `/api/1/sessions/${body.id}`, { state: 'ended' });
    return body.id;
  }

  const forbidden = [
    ['pending', 'pending'],
    ['active', 'active'],
    ['active', 'pending'],
    ['ended', 'ended'],
    ['ended', 'active'],
    ['ended', 'pending'],
  ];
  for (const [from, to] of forbidden) {
    test(`${from} -> ${to} is refused and changes nothing`, async () => {
      const id = await sessionIn(from);
      const { status, body } = await ctx.api('PUT', `/api/1/sessions/${id}`, { state: to });
      assert.equal(status, 400);
      assert.equal(body.message, `Cannot change session state from ${from} to ${to}`);
      assert.equal((await ctx.api('GET', `/api/1/sessions/${id}`)).body.state, from);
    });
  }

  test('unknown, missing or non-string states are refused', async () => {
    const id = await sessionIn('pending');
    const cases = [
      [{ state: 'paused' }, /Unknown session state "paused"/],
      [{}, /"state" is required/],
      [{ state: 1 }, /"state" must be a string/],
      [{ state: 'active', device: 'phone' }, /"device" must be an object/],
      [{ state: 'active', custom_data: [1] }, /"custom_data" must be an object or null/],
    ];
    for (const [body, message] of cases) {
      const answer = await ctx.api('PUT', `/api/1/sessions/${id}`, body);
      assert.equal(answer.status, 400, JSON.stringify(body));
      assert.match(answer.body.message, message);
    }
    assert.equal((await ctx.api('GET', `/api/1/sessions/${id}`)).body.state, 'pending');
  });
});

describe('session codes', () => {
  // Every session asks for the same code first, so collisions are certain.
  const sequence = [];
  let ctx;
  before(async () => {
    ctx = await startService({ generateCode: () => sequence.shift() ?? '123456' });
  });
  after(() => ctx.close());

  test('a code is not reused while its session is live, and then names the newest session', async () => {
    sequence.push('123456');
    const first = (await ctx.api('POST', '/api/1/sessions')).body;
    sequence.push('123456', '654321');
    const second = (await ctx.api('POST', '/api/1/sessions')).body;
    assert.equal(first.code, '123456');
    assert.equal(second.code, '654321');

    await ctx.api('PUT', `/api/1/sessions/${first.id}`, { state: 'ended' });
    sequence.push('123456');
    const third = (await ctx.api('POST', '/api/1/sessions')).body;
    assert.equal(third.code, '123456');
    assert.equal((await ctx.api('GET', '/api/1/sessions/123456')).body.id, third.id);
    assert.equal((await ctx.api('GET', `/api/1/sessions/${first.id}`)).body.state, 'ended');
  });

});
