import assert from 'node:assert/strict';
import { test } from 'node:test';
import { nth, socketsFor } from '../test-support/socket-client.js';
import { eventually, startService } from '../test-support/start-service.js';

const ctx = await startService();
const connect = socketsFor(ctx);
const metrics = async () => {
  const response = await fetch(`${ctx.baseUrl}/metrics`);
  assert.match(response.headers.get('content-type'), /^text\/plain/);
  return response.text();
};
const value = (text, name) => Number(text.match(new RegExp(`^${name.replace(/[{}"]/g, '\\$&')} (\\S+)$`, 'm'))?.[1]);

test('every answer carries the security headers, with a policy that allows only the service itself', async () => {
  for (const path of ['/healthz', '/api/1/agent/me', '/nowhere']) {
    const { headers } = await ctx.api('GET', path);
    const policy = headers.get('content-security-policy').split(';');
    for (const directive of ["default-src 'self'", "script-src 'self'", "frame-ancestors 'none'", "object-src 'none'"]) {
      assert.ok(policy.includes(directive), `${path}: ${directive}`);
    }
    assert.ok(!policy.includes('upgrade-insecure-requests'), 'plain http keeps working');
    assert.equal(headers.get('x-content-type-options'), 'nosniff', path);
    assert.equal(headers.get('x-frame-options'), 'SAMEORIGIN', path);
  }
});

test('health answers ok, and the metrics count sessions, reachable devices and relayed frames', async () => {
  assert.deepEqual((await ctx.api('GET', '/healthz')).body, { status: 'ok' });

  await connect({ header: ctx.device.record.notification_token, credential: ctx.device.credential });
  const live = (await ctx.api('POST', '/api/1/sessions')).body;
  const ended = (await ctx.api('POST', '/api/1/sessions')).body;
  await ctx.api('POST', `/api/1/agent/sessions/${ended.id}/end`);
  const { agent_token: agentToken } = (await ctx.api('POST', `/api/1/agent/sessions/${live.id}/join`)).body;
  await ctx.api('PUT', `/api/1/sessions/${live.id}`, { state: 'active' });
  const agent = await connect({ auth: agentToken });
  const stream = await connect({ header: live.stream_token });
  for (const id of [1, 2]) stream.emit('frame', { type: 'Frame', id, image: Buffer.alloc(1000 * id), mime_type: 'image/jpeg' });
  stream.emit('screen', { type: 'Screen', class: 'Home' }); // not a frame
  await nth(agent, 'frame', 2);

  const text = await eventually(async () => {
    const scraped = await metrics();
    assert.equal(value(scraped, 'halvora_frames_relayed_total'), 2);
    return scraped;
  });
  for (const [name, expected] of [
    ['halvora_frame_bytes_relayed_total', 3000],
    ['halvora_frame_relay_seconds_count', 2],
    ['halvora_devices_registered', 1],
    ['halvora_devices_online', 1],
    ['halvora_sessions{state="pending"}', 0],
    ['halvora_sessions{state="active"}', 1],
    ['halvora_sessions{state="ended"}', 1],
  ]) {
    assert.equal(value(text, name), expected, name);
  }
  assert.ok(value(text, 'nodejs_eventloop_lag_seconds') >= 0, "Node's own figures are there");
});
