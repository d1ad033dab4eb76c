import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Store } from '../src/store.js';

const registration = { pushToken: '', pushProvider: 'none', device: {} };

test('tokens resolve to the channel they were issued for', () => {
  const store = new Store();
  const session = store.createSession();
  const { agentToken } = store.joinSession(session.id);
  const device = store.registerDevice('D1', registration);

  assert.deepEqual(store.resolveToken(session.control_token), { channel: 'control', sessionId: session.id });
  assert.deepEqual(store.resolveToken(session.stream_token), { channel: 'stream', sessionId: session.id });
  assert.deepEqual(store.resolveToken(agentToken), { channel: 'agent', sessionId: session.id });
  assert.deepEqual(store.resolveToken(device.notification_token), { channel: 'notification', deviceId: 'D1' });
  assert.equal(store.resolveToken('0'.repeat(64)), undefined);
  assert.equal(store.resolveToken(undefined), undefined);
});

test('rotating or deleting a device retires its notification token', () => {
  const store = new Store();
  const before = store.registerDevice('D1', registration).notification_token;
  const rotated = store.rotateNotificationToken('D1').notification_token;
  assert.notEqual(rotated, before);
  assert.equal(store.resolveToken(before), undefined);
  assert.equal(store.registerDevice('D1', registration).notification_token, rotated);

  store.removeDevice('D1');
  assert.equal(store.resolveToken(rotated), undefined);
});
