import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { eventually, nextEvent, openSocket, recorder } from '../test-support/socket-client.js';
import { startService } from '../test-support/start-service.js';

describe('sockets', () => {
  let ctx;
  const opened = [];
  before(async () => {
    ctx = await startService();
  });
  after(async () => {
    for (const socket of opened) socket.close();
    await ctx.close();
  });

  const connect = async (options) => {
    const socket = await openSocket(ctx.baseUrl, options);
    opened.push(socket);
    return socket;
  };
  const post = async (path) => (await ctx.api('POST', path)).body;
  const newSession = () => post('/api/1/sessions');
  const join = (session) => post(`/api/1/agent/sessions/${session.id}/join`);
  const end = (session) => post(`/api/1/agent/sessions/${session.id}/end`);
  const register = async (id) =>
    (await ctx.api('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device: {} })).body;

  test('a device control socket authenticates by header and follows the session', async () => {
    const session = await newSession();
    const control = await connect({
      header: session.control_token,
      headers: { 'X-HalvoraSDKVersion': '1.2.3', 'X-HalvoraPlatform': 'linux' },
    });
    const sessions = recorder(control, 'session');
    assert.deepEqual(await sessions.nth(1), session);
    const joined = await join(session);
    assert.deepEqual((await sessions.nth(2)).agent, joined.agent);
    assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.code}/sockets`)).body, {
      control: 1,
      stream: 0,
      agent: 0,
    });
    await end(session);
    assert.equal((await sessions.nth(3)).state, 'ended');
    assert.equal(control.connected, true, 'the device closes its own sockets');
    assert.ok(ctx.logLines.some((l) => l.includes(`control session=${session.id}`) && l.includes('sdk=1.2.3 platform=linux')));
  });

  test('unknown, missing and ended-session tokens are refused', async () => {
    const session = await newSession();
    await assert.rejects(connect({ header: 'f'.repeat(64) }), { message: 'Unauthorized' });
    await assert.rejects(connect({ auth: 'nope' }), { message: 'Unauthorized' });
    await assert.rejects(connect({}), { message: 'Unauthorized' });
    // A header that is not a bearer token falls back to the handshake auth.
    await connect({ headers: { Authorization: 'Basic abc' }, auth: session.control_token });

    const { agent_token: agentToken } = await join(session);
    await end(session);
    await assert.rejects(connect({ header: session.stream_token }), { message: 'Session has ended' });
    await assert.rejects(connect({ auth: agentToken }), { message: 'Session has ended' });
    for (const token of [session.control_token, session.stream_token, agentToken]) {
      assert.ok(!ctx.logLines.some((line) => line.includes(token)), 'tokens never reach the log');
    }
  });

  test('agent events reach the stream socket only when well formed; probe and alive round trip', async () => {
    const session = await newSession();
    const stream = await connect({ header: session.stream_token });
    const agent = await connect({ auth: (await join(session)).agent_token });
    let deep = {};
    for (let i = 0; i < 200; i++) deep = { inner: deep };
    for (const bad of ['text', [1, 2], deep]) agent.emit('laser', bad);
    agent.emit('laser', { x: 0.5, y: 0.25 }, 'extra');
    agent.emit('sync');
    assert.deepEqual(await recorder(stream, 'laser').nth(1), { x: 0.5, y: 0.25 });
    assert.deepEqual(await recorder(stream, 'sync').nth(1), {});
    assert.equal(recorder(stream, 'laser').seen.length, 1);

    stream.emit('laser', { x: 1 }); // not the device's to send: reaches nobody
    agent.emit('probe', { id: 7 });
    assert.deepEqual(await recorder(stream, 'probe').nth(1), { id: 7 });
    stream.emit('alive', { id: 7 });
    assert.deepEqual(await recorder(agent, 'alive').nth(1), { id: 7 });
    assert.equal(recorder(agent, 'laser').seen.length, 0);
  });

  test('frames reach the agent as binary; a late agent gets the latest screen and frame', async () => {
    const session = await newSession();
    const agentToken = (await join(session)).agent_token;
    const stream = await connect({ header: session.stream_token });
    const early = await connect({ auth: agentToken });
    const image = Buffer.from(Array.from({ length: 30_000 }, (_, i) => i % 251));
    stream.emit('screen', { width: 1080, height: 1920 });
    stream.emit('frame', { id: 1, image });
    assert.ok((await recorder(early, 'frame').nth(1)).image.equals(image));
    stream.emit('frame', { id: 2, image });
    await recorder(early, 'frame').nth(2);
    assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}/frames`)).body, { ids: [1, 2] });

    const late = await connect({ auth: agentToken });
    assert.deepEqual(await recorder(late, 'screen').nth(1), { width: 1080, height: 1920 });
    assert.ok((await recorder(late, 'frame').nth(1)).image.equals(image));

    await end(session);
    early.emit('laser', { x: 1 });
    await eventually(() => assert.match(ctx.logLines.join('\n'), /dropped: laser .*session has ended/));
  });

  test('an agent-started session notifies the device; deleting the device disconnects it', async () => {
    const id = 'dev-notify-1';
    const socket = await connect({ header: (await register(id)).notification_token });
    const notified = nextEvent(socket, 'notification');
    const started = await ctx.api('POST', `/api/1/agent/devices/${id}/sessions`);
    assert.equal(started.status, 201);
    assert.deepEqual(await notified, { 'halvora-notification': true, 'halvora-code': started.body.code });
    assert.deepEqual((await ctx.api('GET', `/api/1/agent/devices/${id}/sockets`)).body, { notification: 1 });

    const gone = nextEvent(socket, 'disconnect');
    await ctx.api('DELETE', `/api/1/devices/${id}`);
    assert.equal(await gone, 'io server disconnect');
  });

  test('rotating session tokens drops the device transports and only the new tokens open', async () => {
    const session = await newSession();
    const control = await connect({ header: session.control_token });
    const stream = await connect({ header: session.stream_token });
    const dropped = [nextEvent(control, 'disconnect'), nextEvent(stream, 'disconnect')];
    const rotated = await post(`/api/1/agent/sessions/${session.code}/rotate-tokens`);
    assert.notEqual(rotated.stream_token, session.stream_token);
    // A transport close, not a namespace disconnect, so the device's client reconnects by itself.
    assert.deepEqual(await Promise.all(dropped), ['transport close', 'transport close']);
    assert.equal(recorder(control, 'session').seen.at(-1).control_token, rotated.control_token);

    await assert.rejects(connect({ header: session.stream_token }), { message: 'Unauthorized' });
    await connect({ header: rotated.stream_token });
    await eventually(async () =>
      assert.deepEqual((await ctx.api('GET', `/api/1/agent/sessions/${session.id}/sockets`)).body, {
        control: 0,
        stream: 1,
        agent: 0,
      }),
    );
    await end(session);
    assert.equal((await ctx.api('POST', `/api/1/agent/sessions/${session.id}/rotate-tokens`)).status, 409);
  });

  test('rotating a notification token drops the device transport', async () => {
    const device = await register('dev-rotate-1');
    const socket = await connect({ header: device.notification_token });
    const dropped = nextEvent(socket, 'disconnect');
    const rotated = await post(`/api/1/agent/devices/${device.id}/rotate-token`);
    assert.equal(await dropped, 'transport close');
    await assert.rejects(connect({ header: device.notification_token }), { message: 'Unauthorized' });
    await connect({ header: rotated.notification_token });
  });
});
