import assert from 'node:assert/strict';
import http from 'node:http';
import { after, before, describe, test } from 'node:test';
import { startService } from '../test-support/start-service.js';

describe('request validation', () => {
  let ctx;
  before(async () => {
    ctx = await startService();
  });
  after(() => ctx.close());

  test('a bodiless POST with a JSON content type creates a session; so does an empty object', async () => {
    const bare = await ctx.api('POST', '/api/1/sessions', undefined, { raw: '' });
    assert.equal(bare.status, 201);
    const empty = await ctx.api('POST', '/api/1/sessions', {});
    assert.equal(empty.status, 201);
  });

  test('bodies that are not JSON are refused', async () => {
    const session = (await ctx.api('POST', '/api/1/sessions')).body;
    for (const [method, path] of [
      ['PUT', `/api/1/sessions/${session.id}`],
      ['PUT', '/api/1/devices/D1'],
      ['POST', '/api/1/sessions'],
      ['POST', `/api/1/agent/sessions/${session.id}/join`],
    ]) {
      for (const raw of ['{"state": ', 'state=active', '\xff\xfe']) {
        const { status, body } = await ctx.api(method, path, undefined, { raw });
        assert.equal(status, 400, `${method} ${path} ${raw}`);
        assert.deepEqual(body, { message: 'Request body is not valid JSON' });
      }
    }
    assert.equal((await ctx.api('GET', `/api/1/sessions/${session.id}`)).body.state, 'pending');
  });

  test('bodies that must be objects are refused when they are not', async () => {
    const session = (await ctx.api('POST', '/api/1/sessions')).body;
    for (const raw of ['[]', '"active"', '7', 'null']) {
      const { status, body } = await ctx.api('PUT', `/api/1/sessions/${session.id}`, undefined, { raw });
      assert.equal(status, 400, raw);
      assert.equal(body.message, 'Request body must be a JSON object');
    }
    const missing = await ctx.api('PUT', '/api/1/devices/D1', undefined, { raw: '' });
    assert.equal(missing.status, 400);
    assert.match(missing.body.message, /Request body is required/);
  });

  // The timeout only stops a service that never stops reading from hanging the run.
  test('bodies over 1 MiB are refused with 413, with or without a declared length', { timeout: 120_000 }, async () => {
    const huge = JSON.stringify({ push_token: '', push_provider: 'p', device: { pad: 'x'.repeat(1024 * 1024) } });
    const declared = await ctx.api('PUT', '/api/1/devices/D1', undefined, { raw: huge });
    assert.equal(declared.status, 413);
    assert.match(declared.body.message, /larger than 1048576 bytes/);

    const chunk = new TextEncoder().encode('x'.repeat(64 * 1024));
    let sent = 0;
    const endless = new ReadableStream({
      pull(controller) {
        sent += chunk.length;
        controller.enqueue(chunk);
      },
    });
    const streamed = await fetch(`${ctx.baseUrl}/api/1/devices/D1`, { method: 'PUT', body: endless, duplex: 'half' });
    assert.equal(streamed.status, 413);
    await streamed.text();
    assert.ok(sent < 64 * 1024 * 1024, `the service kept reading (${sent} bytes)`);

    // Exactly the limit is still fine as far as size goes.
    const atLimit = ' '.repeat(1024 * 1024 - 2) + '{}';
    assert.equal((await ctx.api('POST', '/api/1/sessions', undefined, { raw: atLimit })).status, 201);
  });

  test('malformed ids in paths are refused', async () => {
    const bad = ['has%20space', 'a'.repeat(129), 'semi;colon', 'caf%C3%A9'];
    for (const id of bad) {
      for (const [method, path, message] of [
        ['GET', `/api/1/sessions/${id}`, 'Invalid session id or code'],
        ['PUT', `/api/1/devices/${id}`, 'Invalid device id'],
        ['DELETE', `/api/1/devices/${id}`, 'Invalid device id'],
        ['POST', `/api/1/agent/sessions/${id}/join`, 'Invalid session id or code'],
        ['POST', `/api/1/agent/devices/${id}/sessions`, 'Invalid device id'],
      ]) {
        const answer = await ctx.api(method, path, method === 'PUT' ? {} : undefined);
        assert.equal(answer.status, 400, `${method} ${path}`);
        assert.deepEqual(answer.body, { message });
      }
    }
    assert.equal((await ctx.api('GET', `/api/1/sessions/${'a'.repeat(128)}`)).status, 404);

    // fetch would resolve dot segments itself; a raw request sends them as they are.
    const dots = await new Promise((resolve, reject) => {
      const { hostname, port } = new URL(ctx.baseUrl);
      http.get({ hostname, port, path: '/api/1/sessions/..' }, (res) => {
        res.resume();
        res.on('end', () => resolve(res.statusCode));
      }).on('error', reject);
    });
    assert.equal(dots, 400);
  });

  test('unknown paths are 404 and known paths with other methods are 405 with Allow', async () => {
    for (const path of ['/', '/api/1', '/api/2/sessions', '/api/1/sessions/x/y', '/api//1/sessions', '/sockets/1']) {
      const { status, body } = await ctx.api('GET', path);
      assert.equal(status, 404, path);
      assert.deepEqual(body, { message: 'Not found' });
    }
    for (const [method, path, allow] of [
      ['GET', '/api/1/sessions', 'POST'],
      ['DELETE', '/api/1/sessions/abc', 'GET, PUT'],
      ['POST', '/api/1/devices/abc', 'PUT, DELETE'],
      ['PUT', '/api/1/agent/sessions', 'GET'],
      ['GET', '/api/1/agent/sessions/abc/end', 'POST'],
    ]) {
      const { status, body, headers } = await ctx.api(method, path);
      assert.equal(status, 405, `${method} ${path}`);
      assert.deepEqual(body, { message: 'Method not allowed' });
      assert.equal(headers.get('allow'), allow);
    }
  });

  test('an unexpected failure is a 500 with a log line, and the service keeps going', async () => {
    const { store } = ctx.service;
    const original = store.createSession;
    store.createSession = () => {
      throw new TypeError('store exploded');
    };
    try {
      const { status, body } = await ctx.api('POST', '/api/1/sessions');
      assert.equal(status, 500);
      assert.deepEqual(body, { message: 'Internal error' });
      assert.ok(ctx.logLines.some((line) => line.includes('POST /api/1/sessions failed') && line.includes('store exploded')));
    } finally {
      store.createSession = original;
    }
    assert.equal((await ctx.api('POST', '/api/1/sessions')).status, 201);
  });
});

test('request log lines name method, path and status but never tokens', async () => {
  const ctx = await startService({ logRequests: true });
  try {
    const session = (await ctx.api('POST', '/api/1/sessions')).body;
    await ctx.api('GET', `/api/1/sessions/${session.id}?token=${session.control_token}`);
    const deadline = Date.now() + 10_000;
    while (ctx.logLines.length < 2 && Date.now() < deadline) await new Promise((resolve) => setImmediate(resolve));
    assert.match(ctx.logLines[0], /^POST \/api\/1\/sessions 201 \d+ms$/);
    assert.match(ctx.logLines[1], new RegExp(`^GET /api/1/sessions/${session.id} 200 `));
    assert.ok(!ctx.logLines.join('\n').includes(session.control_token));
  } finally {
    await ctx.close();
  }
});
