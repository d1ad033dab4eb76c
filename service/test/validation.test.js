import assert from 'node:assert/strict';
import { once } from 'node:events';
import http from 'node:http';
import { after, test } from 'node:test';
import { expectError, startService } from '../test-support/start-service.js';

const ctx = await startService();
after(() => ctx.close());
const session = (await ctx.api('POST', '/api/1/sessions')).body;
const stateOf = async () => (await ctx.api('GET', `/api/1/sessions/${session.id}`)).body;

test('bodies that are not JSON, or not an object, are refused', async () => {
  for (const [method, path] of [
    ['PUT', `/api/1/sessions/${session.id}`],
    ['PUT', '/api/1/devices/D1'],
    ['POST', '/api/1/sessions'],
    ['POST', `/api/1/agent/sessions/${session.id}/join`],
  ]) {
    // The last is well-formed JSON apart from a byte that is not UTF-8.
    for (const raw of ['{"state": ', 'state=active', Buffer.from('{"name":"\xff"}', 'latin1')]) {
      await expectError(ctx.api(method, path, undefined, { raw }), 400, 'Request body is not valid JSON');
    }
    for (const raw of ['[]', '"active"', '7', 'null']) {
      await expectError(ctx.api(method, path, undefined, { raw }), 400, 'Request body must be a JSON object');
    }
  }
  await expectError(ctx.api('PUT', '/api/1/devices/D1', undefined, { raw: '' }), 400, /Request body is required/);
  assert.equal((await stateOf()).state, 'pending');
  assert.equal((await stateOf()).agent, undefined);
});

test('fields from outside are checked and each error names its field', async () => {
  const device = (change) => ['PUT', '/api/1/devices/D2', { push_token: 'ab01', push_provider: 'p', device: {}, ...change }];
  const state = (body) => ['PUT', `/api/1/sessions/${session.id}`, body];
  for (const [[method, path, body], message] of [
    [device({ push_token: 'AB01' }), '"push_token" must be lowercase hexadecimal or empty'],
    [device({ push_token: 'a'.repeat(1025) }), '"push_token" must be at most 1024 characters'],
    [device({ push_token: 12 }), '"push_token" must be a string'],
    [device({ push_token: undefined }), '"push_token" is required'],
    [device({ push_provider: null }), '"push_provider" must be a string'],
    [device({ push_provider: undefined }), '"push_provider" is required'],
    [device({ device: 'box' }), '"device" must be an object'],
    [device({ device: [] }), '"device" must be an object'],
    [device({ device: null }), '"device" must be an object'],
    [device({ device: undefined }), '"device" is required'],
    [device({ custom_data: 'x' }), '"custom_data" must be an object or null'],
    [state({ state: 'paused' }), /^Unknown session state "paused"/],
    [state({}), '"state" is required'],
    [state({ state: 1 }), '"state" must be a string'],
    [state({ state: 'active', device: 'phone' }), '"device" must be an object'],
    [state({ state: 'active', custom_data: [1] }), '"custom_data" must be an object or null'],
  ]) {
    await expectError(ctx.api(method, path, body), 400, message);
  }
  await expectError(ctx.api('DELETE', '/api/1/devices/D2'), 404, 'Device not found');
  assert.equal((await stateOf()).state, 'pending');
  assert.equal((await stateOf()).agent, undefined);
  assert.equal((await ctx.api(...device({ push_token: 'f'.repeat(1024) }))).status, 200);
});

// The timeout only stops a service that never stops reading from hanging the run.
test('bodies over 1 MiB are refused with 413, with or without a declared length', { timeout: 120_000 }, async () => {
  const huge = JSON.stringify({ push_token: '', push_provider: 'p', device: { pad: 'x'.repeat(1024 * 1024) } });
  await expectError(ctx.api('PUT', '/api/1/devices/D1', undefined, { raw: huge }), 413, /larger than 1048576 bytes/);

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
  for (const id of ['has%20space', 'a'.repeat(129), 'semi;colon', 'caf%C3%A9']) {
    for (const [method, path, message] of [
      ['GET', `/api/1/sessions/${id}`, 'Invalid session id or code'],
      ['PUT', `/api/1/devices/${id}`, 'Invalid device id'],
      ['DELETE', `/api/1/devices/${id}`, 'Invalid device id'],
      ['POST', `/api/1/agent/sessions/${id}/join`, 'Invalid session id or code'],
      ['POST', `/api/1/agent/devices/${id}/sessions`, 'Invalid device id'],
    ]) {
      await expectError(ctx.api(method, path, method === 'PUT' ? {} : undefined), 400, message);
    }
  }
  assert.equal((await ctx.api('GET', `/api/1/sessions/${'a'.repeat(128)}`)).status, 404);

  // fetch would resolve dot segments itself; a raw request sends them as they are.
  const { hostname, port } = new URL(ctx.baseUrl);
  const [response] = await once(http.get({ hostname, port, path: '/api/1/sessions/..' }), 'response');
  response.resume();
  assert.equal(response.statusCode, 400);
});

test('unknown paths are 404 and known paths with other methods are 405 with Allow', async () => {
  for (const path of ['/', '/api/1', '/api/2/sessions', '/api/1/sessions/x/y', '/api//1/sessions', '/sockets/1']) {
    await expectError(ctx.api('GET', path), 404, 'Not found');
  }
  for (const [method, path, allow] of [
    ['GET', '/api/1/sessions', 'POST'],
    ['DELETE', '/api/1/sessions/abc', 'GET, PUT'],
    ['POST', '/api/1/devices/abc', 'PUT, DELETE'],
    ['PUT', '/api/1/agent/sessions', 'GET'],
    ['GET', '/api/1/agent/sessions/abc/end', 'POST'],
  ]) {
    const answer = ctx.api(method, path);
    await expectError(answer, 405, 'Method not allowed');
    assert.equal((await answer).headers.get('allow'), allow);
  }
});

test('an unexpected failure is a 500 with a log line, and the service keeps going', async (t) => {
  t.mock.method(ctx.service.store, 'createSession', () => {
    throw new TypeError('store exploded');
  });
  await expectError(ctx.api('POST', '/api/1/sessions'), 500, 'Internal error');
  assert.ok(ctx.logLines.some((line) => line.includes('POST /api/1/sessions failed') && line.includes('store exploded')));
  t.mock.restoreAll();
  assert.equal((await ctx.api('POST', '/api/1/sessions')).status, 201);
});
