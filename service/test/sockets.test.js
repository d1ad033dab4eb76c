import assert from 'node:assert/strict';
import { test } from 'node:test';
import { nth, received, socketsFor } from '../test-support/socket-client.js';
import { MAX_DEVICE_PAYLOAD_BYTES } from '../src/sockets/relay.js';
import { MAX_MESSAGE_BYTES } from '../src/sockets/socket-server.js';
import { eventually, expectError, startService } from '../test-support/start-service.js';

const ctx = await startService();
const connect = socketsFor(ctx);
const post = async (path) => (await ctx.api('POST', path)).body;
const newSession = () => post('/api/1/sessions');
const join = (session) => post(`/api/1/agent/sessions/${session.id}/join`);
const activate = (session) => ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' });
const end = (session) => post(`/api/1/agent/sessions/${session.id}/end`);
const socketCounts = async (path) => (await ctx.api('GET', `/api/1/agent/${path}/sockets`)).body;
const refused = (token, message = 'Unauthorized') => assert.rejects(connect({ header: token }), { message });

test('a device control socket authenticates by header and hears every change to its session', async () => {
  const session = await newSession();
  const headers = { 'X-HalvoraSDKVersion': '1.2.3', 'X-HalvoraPlatform': 'linux' };
  const control = await connect({ header: session.control_token, headers });
  assert.deepEqual(await nth(control, 'session', 1), session);
  const joined = await join(session);
  assert.deepEqual((await nth(control, 'session', 2)).agent, joined.agent);
  assert.deepEqual(await socketCounts(`sessions/${session.code}`), { control: 1, stream: 0, agent: 0 });
  await activate(session);
  assert.equal((await nth(control, 'session', 3)).state, 'active');
  await expectError(ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' }), 400, /Cannot change/);
  await end(session);
  assert.equal((await nth(control, 'session', 4)).state, 'ended', 'a refused change is not published');
  assert.equal(control.connected, true, 'the device closes its own sockets');
  assert.ok(ctx.logLines.some((l) => l.includes(`control session=${session.id}`) && l.includes('sdk=1.2.3 platform=linux')));
});

test('unknown, missing and ended-session tokens are refused, and tokens never reach the log', async () => {
  const session = await newSession();
  await refused('f'.repeat(64));
  await assert.rejects(connect({ auth: 'nope' }), { message: 'Unauthorized' });
  await assert.rejects(connect({}), { message: 'Unauthorized' });
  // A page of another site cannot open a socket with a token it got hold of.
  await assert.rejects(connect({ header: session.control_token, headers: { Origin: 'https://evil.example' } }));
  await connect({ header: session.control_token, headers: { Origin: ctx.baseUrl } });
  // A header that is not a bearer token falls back to the handshake auth.
  await connect({ headers: { Authorization: 'Basic abc' }, auth: session.control_token });

  const { agent_token: agentToken } = await join(session);
  await end(session);
  await refused(session.stream_token, 'Session has ended');
  await assert.rejects(connect({ auth: agentToken }), { message: 'Session has ended' });
  for (const token of [session.control_token, session.stream_token, agentToken]) {
    assert.ok(!ctx.logLines.some((line) => line.includes(token)), 'tokens never reach the log');
  }
});

test('agent input reaches the stream socket only while the session is active and when well formed; probe and alive round trip', async () => {
  const session = await newSession();
  const stream = await connect({ header: session.stream_token });
  const agent = await connect({ auth: (await join(session)).agent_token });
  // Joined but not yet let in by the user: the agent's input goes nowhere, nor do pictures.
  for (const event of ['touch', 'keypress', 'url', 'laser', 'drawing']) agent.emit(event, { x: 0.5 });
  stream.emit('frame', { id: 1 });
  await eventually(() => assert.equal(ctx.logLines.filter((l) => l.includes(`session=${session.id}`) && l.includes('is not active')).length, 6));
  await activate(session);
  let deep = {};
  for (let i = 0; i < 200; i++) deep = { inner: deep };
  for (const bad of ['text', [1, 2], deep]) agent.emit('laser', bad);
  agent.emit('laser', { x: 0.5, y: 0.25 }, 'extra');
  agent.emit('sync');
  assert.deepEqual(await nth(stream, 'laser', 1), { x: 0.5, y: 0.25 });
  // Asked for a picture when it connected, when a frameless agent connected, and by the agent.
  assert.deepEqual(await nth(stream, 'sync', 3), {});
  assert.equal(received(stream, 'laser').length, 1);

  stream.emit('laser', { x: 1 }); // not the device's to send: reaches nobody
  agent.emit('probe', { id: 7 });
  assert.deepEqual(await nth(stream, 'probe', 1), { id: 7 });
  stream.emit('alive', { id: 7 });
  assert.deepEqual(await nth(agent, 'alive', 1), { id: 7 });
  assert.equal(received(agent, 'laser').length, 0);
});

test('frames reach the agent as binary; a late agent gets the latest screen and frame', async () => {
  const session = await newSession();
  const agentToken = (await join(session)).agent_token;
  await activate(session);
  const stream = await connect({ header: session.stream_token });
  const early = await connect({ auth: agentToken });
  const image = Buffer.from(Array.from({ length: 30_000 }, (_, i) => i % 251));
  stream.emit('screen', { width: 1080, height: 1920 });
  stream.emit('frame', { id: 1, image: image.subarray(1) });
  assert.ok((await nth(early, 'frame', 1)).image.equals(image.subarray(1)));
  stream.emit('frame', { id: 2, image });
  await nth(early, 'frame', 2);

  // Over the frame limit: dropped, and the stream goes on; over the socket's message limit: cut off.
  stream.emit('frame', { id: 3, image: Buffer.alloc(MAX_DEVICE_PAYLOAD_BYTES + 1) });
  await eventually(() => assert.match(ctx.logLines.join('\n'), /dropped: frame .*larger than 8388608 bytes/));
  stream.emit('frame', { id: 4, image });
  assert.equal((await nth(early, 'frame', 3)).id, 4);
  const flooder = await connect({ header: session.stream_token });
  flooder.emit('frame', { id: 5, image: Buffer.alloc(MAX_MESSAGE_BYTES + 1) });
  assert.equal(await nth(flooder, 'disconnect', 1), 'transport close');
  stream.emit('frame', { id: 2, image });
  await nth(early, 'frame', 4);

  const late = await connect({ auth: agentToken });
  assert.deepEqual(await nth(late, 'screen', 1), { width: 1080, height: 1920 });
  assert.ok((await nth(late, 'frame', 1)).image.equals(image));
  assert.equal(received(late, 'frame').length, 1);
  assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}/frames`)).body, { count: 4, first_id: 1, last_id: 2, gaps: 2 });
  // Asked when it connected and when the early agent had nothing to see; the late agent got the replay.
  assert.equal(received(stream, 'sync').length, 2);

  await end(session);
  early.emit('laser', { x: 1 });
  await eventually(() => assert.match(ctx.logLines.join('\n'), /dropped: laser .*session has ended/));
});

test('regions are announced to the device only while every console draws them, and only whole frames are replayed', async () => {
  const session = await newSession();
  const agentToken = (await join(session)).agent_token;
  await activate(session);
  const stream = await connect({ header: session.stream_token });
  const drawing = await connect({ auth: agentToken });
  assert.deepEqual(await nth(stream, 'sync', 2), {}); // the stream's own, then the frameless console's
  drawing.emit('sync', { regions: true });
  assert.deepEqual(await nth(stream, 'sync', 3), { regions: true });

  const image = Buffer.from([0xff, 0xd8, 1, 2, 3]);
  stream.emit('frame', { type: 'Frame', id: 1, image });
  stream.emit('frame', { type: 'Frame', id: 2, width: 64, height: 64, base: 1, regions: [{ x: 0, y: 0, width: 32, height: 32, image }] });
  assert.ok((await nth(drawing, 'frame', 2)).regions[0].image.equals(image));

  // A console that says nothing of regions: it is replayed the whole frame, not the regions, and
  // the device hears that whole frames are wanted; once it leaves, regions again.
  const plain = await connect({ auth: agentToken });
  assert.equal((await nth(plain, 'frame', 1)).id, 1);
  plain.emit('sync', { regions: 'yes' });
  assert.deepEqual(await nth(stream, 'sync', 4), {});
  plain.close();
  assert.deepEqual(await nth(stream, 'sync', 5), { regions: true });
  assert.equal(received(plain, 'frame').length, 1);
  assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}/frames`)).body, { count: 2, first_id: 1, last_id: 2, gaps: 0 });
});

test('an agent starts a session for a registered device, which hears of it; deleting the device cuts it off', async () => {
  const id = 'C0FFEE00-0000-4000-8000-000000000001';
  await expectError(ctx.api('POST', `/api/1/agent/devices/${id}/sessions`), 404, 'Device not found');
  const device = await ctx.registerDevice(id);
  const token = device.record.notification_token;
  // The token alone does not open it: the device's credential goes with it.
  await refused(token);
  const socket = await connect({ header: token, credential: device.credential });
  const started = await ctx.api('POST', `/api/1/agent/devices/${id}/sessions`);
  assert.equal(started.status, 201);
  assert.equal(started.body.device_id, id);
  assert.equal(started.body.state, 'pending');
  assert.deepEqual(await nth(socket, 'notification', 1), { 'halvora-notification': true, 'halvora-code': started.body.code });
  assert.deepEqual(await socketCounts(`devices/${id}`), { notification: 1 });

  await ctx.api('DELETE', `/api/1/devices/${id}`, undefined, { device });
  assert.equal(await nth(socket, 'disconnect', 1), 'io server disconnect');
  await assert.rejects(connect({ header: token, credential: device.credential }), { message: 'Unauthorized' });
});

test('rotating session tokens drops the device transports, tells whoever held them nothing, and only the new tokens open', async () => {
  const session = await newSession();
  const control = await connect({ header: session.control_token });
  const stream = await connect({ header: session.stream_token });
  const answer = await post(`/api/1/agent/sessions/${session.code}/rotate-tokens`);
  assert.equal(answer.stream_token, undefined, 'the agent never sees the device\'s tokens');
  // A transport close, not a namespace disconnect, so the device's client reconnects by itself,
  // and fetches the new tokens with its credential.
  assert.deepEqual([await nth(control, 'disconnect', 1), await nth(stream, 'disconnect', 1)], ['transport close', 'transport close']);
  const rotated = (await ctx.api('GET', `/api/1/sessions/${session.id}`)).body;
  assert.notEqual(rotated.stream_token, session.stream_token);
  assert.ok(received(control, 'session').every(({ control_token: token }) => token === session.control_token));

  await refused(session.stream_token);
  await connect({ header: rotated.stream_token });
  await eventually(async () => assert.deepEqual(await socketCounts(`sessions/${session.id}`), { control: 0, stream: 1, agent: 0 }));
});

test('rotating a notification token drops the device transport and only the new token opens', async () => {
  const { id, credential, record } = await ctx.registerDevice('dev-rotate-1');
  const socket = await connect({ header: record.notification_token, credential });
  assert.equal((await post(`/api/1/agent/devices/${id}/rotate-token`)).notification_token, undefined);
  assert.equal(await nth(socket, 'disconnect', 1), 'transport close');
  await assert.rejects(connect({ header: record.notification_token, credential }), { message: 'Unauthorized' });
  const { notification_token: rotated } = (await ctx.api('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device: {} }, { device: { credential } })).body;
  assert.notEqual(rotated, record.notification_token);
  await connect({ header: rotated, credential });
});
