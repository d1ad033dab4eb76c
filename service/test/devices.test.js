import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { expectError, startService } from '../test-support/start-service.js';

const ctx = await startService();
after(() => ctx.close());

const registration = (extra = {}) => ({ push_token: 'ab01cd', push_provider: 'halvora', device: { name: 'Test box', os: 'linux' }, ...extra });
// Registers `id` as the holder of `credential` (none: a first registration) and returns the answer.
const register = async (id, extra, credential) =>
  (await ctx.api('PUT', `/api/1/devices/${id}`, registration(extra), { device: credential && { credential } })).body;
const listedIds = async () => (await ctx.api('GET', '/api/1/agent/devices')).body.devices.map((d) => d.id);

test('registering returns the device record with a notification channel, and the first time its credential', async () => {
  const id = 'C0FFEE00-0000-4000-8000-00000000000A';
  const { status, body } = await ctx.api('PUT', `/api/1/devices/${id}`, registration(), { device: null });
  assert.equal(status, 200);
  assert.deepEqual(Object.keys(body), [
    'type', 'id', 'push_token', 'push_provider', 'device', 'registered_at',
    'next_registration', 'notification_url', 'notification_token', 'credential',
  ]);
  assert.match(body.credential, /^[0-9a-f]{64}$/);
  const again = await register(id, {}, body.credential);
  assert.equal(again.credential, undefined, 'handed out once');
  assert.deepEqual([body.type, body.id, body.push_token, body.push_provider], ['Device', id, 'ab01cd', 'halvora']);
  assert.deepEqual(body.device, { name: 'Test box', os: 'linux' });
  assert.equal(new Date(body.registered_at).toISOString(), body.registered_at);
  assert.equal(body.next_registration, 600);
  assert.equal(body.notification_url, ctx.baseUrl);
  assert.match(body.notification_token, /^[0-9a-f]{64}$/);
});

test('re-registering keeps the token, updates fields and keeps earlier custom_data', async () => {
  const first = await register('dev-again', { custom_data: { shop: 7 } });
  assert.deepEqual(Object.keys(first).slice(4, 6), ['device', 'custom_data']);
  const second = await register('dev-again', { push_token: '', push_provider: 'none' }, first.credential);
  assert.equal(second.notification_token, first.notification_token);
  assert.deepEqual([second.push_token, second.push_provider], ['', 'none']);
  assert.deepEqual(second.custom_data, { shop: 7 });
  assert.ok(second.registered_at >= first.registered_at);
  assert.deepEqual((await register('dev-again', { custom_data: { shop: 8 } }, first.credential)).custom_data, { shop: 8 });
});

test('deleting forgets the device; a second delete is 404 and re-registering is a new device', async () => {
  const { credential, ...registered } = await register('dev-gone', { custom_data: { x: 1 } });
  assert.ok((await listedIds()).includes('dev-gone'));
  const own = { device: { credential } };
  const removed = await ctx.api('DELETE', '/api/1/devices/dev-gone', undefined, own);
  assert.equal(removed.status, 200);
  assert.deepEqual(removed.body, registered);
  await expectError(ctx.api('DELETE', '/api/1/devices/dev-gone', undefined, own), 404, 'Device not found');
  assert.ok(!(await listedIds()).includes('dev-gone'));

  const fresh = await register('dev-gone');
  assert.notEqual(fresh.notification_token, registered.notification_token);
  assert.notEqual(fresh.credential, credential);
  assert.equal(fresh.custom_data, undefined);
});
