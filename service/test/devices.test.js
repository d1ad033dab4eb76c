import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import { after, before, describe, test } from 'node:test';
import { startService } from '../test-support/start-service.js';

const deviceId = () => randomUUID().toUpperCase();
const registration = (extra = {}) => ({
  push_token: 'ab01cd',
  push_provider: 'halvora',
  device: { name: 'Test box', os: 'linux' },
  ...extra,
});

describe('device registration', () => {
  let ctx;
  before(async () => {
    ctx = await startService();
  });
  after(() => ctx.close());

  test('registering returns the device record with a notification channel', async () => {
    const id = deviceId();
    const { status, body } = await ctx.api('PUT', `/api/1/devices/${id}`, registration());
    assert.equal(status, 200);
    assert.deepEqual(Object.keys(body), [
      'type', 'id', 'push_token', 'push_provider', 'device', 'registered_at',
      'next_registration', 'notification_url', 'notification_token',
    ]);
    assert.equal(body.type, 'Device');
    assert.equal(body.id, id);
    assert.equal(body.push_token, 'ab01cd');
    assert.deepEqual(body.device, { name: 'Test box', os: 'linux' });
    assert.equal(body.next_registration, 600);
    assert.equal(body.notification_url, ctx.baseUrl);
    assert.match(body.notification_token, /^[0-9a-f]{64}$/);
  });

  test('re-registering keeps the token, updates fields and keeps earlier custom_data', async () => {
    const id = deviceId();
    const first = (await ctx.api('PUT', `/api/1/devices/${id}`, registration({ custom_data: { shop: 7 } }))).body;
    assert.deepEqual(first.custom_data, { shop: 7 });
    assert.deepEqual(Object.keys(first).slice(4, 6), ['device', 'custom_data']);

    const second = (await ctx.api('PUT', `/api/1/devices/${id}`, registration({ push_token: '', push_provider: 'none' }))).body;
    assert.equal(second.notification_token, first.notification_token);
    assert.equal(second.push_token, '');
    assert.equal(second.push_provider, 'none');
    assert.deepEqual(second.custom_data, { shop: 7 });
    assert.ok(second.registered_at >= first.registered_at);

    const third = (await ctx.api('PUT', `/api/1/devices/${id}`, registration({ custom_data: { shop: 8 } }))).body;
    assert.deepEqual(third.custom_data, { shop: 8 });
  });

  test('deleting forgets the device; a second delete is 404 and re-registering is a new device', async () => {
    const id = deviceId();
    const registered = (await ctx.api('PUT', `/api/1/devices/${id}`, registration({ custom_data: { x: 1 } }))).body;

    const removed = await ctx.api('DELETE', `/api/1/devices/${id}`);
    assert.equal(removed.status, 200);
    assert.deepEqual(removed.body, registered);

    const again = await ctx.api('DELETE', `/api/1/devices/${id}`);
    assert.equal(again.status, 404);
    assert.deepEqual(again.body, { message: 'Device not found' });
    const listed = (await ctx.api('GET', '/api/1/agent/devices')).body.devices;
    assert.ok(!listed.some((d) => d.id === id));

    const fresh = (await ctx.api('PUT', `/api/1/devices/${id}`, registration())).body;
    assert.notEqual(fresh.notification_token, registered.notification_token);
    assert.equal(fresh.custom_data, undefined);
  });

  test('registration fields are checked and each error names its field', async () => {
    const id = deviceId();
    const cases = [
      [{ push_token: 'AB01' }, /"push_token" must be lowercase hexadecimal/],
      [{ push_token: 'a'.repeat(1025) }, /"push_token" must be at most 1024 characters/],
      [{ push_token: 12 }, /"push_token" must be a string/],
      [{ push_provider: null }, /"push_provider" must be a string/],
      [{ device: 'box' }, /"device" must be an object/],
      [{ device: [] }, /"device" must be an object/],
      [{ custom_data: 'x' }, /"custom_data" must be an object/],
    ];
    for (const [change, message] of cases) {
      const { status, body } = await ctx.api('PUT', `/api/1/devices/${id}`, registration(change));
      assert.equal(status, 400, JSON.stringify(change));
      assert.match(body.message, message);
    }
    for (const field of ['push_token', 'push_provider', 'device']) {
      const body = registration();
      delete body[field];
      const answer = await ctx.api('PUT', `/api/1/devices/${id}`, body);
      assert.equal(answer.status, 400);
      assert.equal(answer.body.message, `"${field}" is required`);
    }
    assert.equal((await ctx.api('DELETE', `/api/1/devices/${id}`)).status, 404, 'nothing was registered');

    const longest = await ctx.api('PUT', `/api/1/devices/${id}`, registration({ push_token: 'f'.repeat(1024) }));
    assert.equal(longest.status, 200);
  });
});

test('--next-registration is handed to devices', async () => {
  const ctx = await startService({ nextRegistration: 30 });
  try {
    const { body } = await ctx.api('PUT', `/api/1/devices/${deviceId()}`, registration());
    assert.equal(body.next_registration, 30);
  } finally {
    await ctx.close();
  }
});
