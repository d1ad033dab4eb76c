// Plays the support agent for the demo: waits for a device whose notification socket is up,
// starts a session for it, joins, and sends one of each agent event while printing what comes
// back; then ends the session.
//   node tools/demo-agent.js SERVICE_URL
import { io } from 'socket.io-client';

const [serviceUrl] = process.argv.slice(2);
if (!serviceUrl) {
  console.error('usage: node tools/demo-agent.js SERVICE_URL');
  process.exit(64);
}

const LIMIT_MS = 30_000;
const say = (line) => console.log(`agent: ${line}`);
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function api(method, path) {
  const response = await fetch(`${serviceUrl}${path}`, { method });
  const text = await response.text();
  if (!response.ok) throw new Error(`${method} ${path} answered ${response.status}: ${text}`);
  return text ? JSON.parse(text) : undefined;
}

async function until(what, check) {
  const deadline = Date.now() + LIMIT_MS;
  for (;;) {
    const value = await check();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`gave up waiting for ${what}`);
    await pause(100);
  }
}

async function reachableDevice() {
  const { devices } = await api('GET', '/api/1/agent/devices');
  for (const device of devices.reverse()) {
    const open = await api('GET', `/api/1/agent/devices/${device.id}/sockets`);
    if (open.notification > 0) return device;
  }
  return undefined;
}

async function main() {
  const device = await until('a device with its notification socket open', reachableDevice);
  say(`found device ${device.id}`);
  const session = await api('POST', `/api/1/agent/devices/${device.id}/sessions`);
  say(`started session ${session.code}; the device is told over its notification socket`);
  await until('the device to join', async () => (await api('GET', `/api/1/agent/sessions/${session.id}`)).state === 'active');
  const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`, {});
  say('device joined; connecting as the agent');

  const socket = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
  socket.on('alive', (payload) => say(`alive ${JSON.stringify(payload)}`));
  socket.on('screen', (payload) => say(`screen ${JSON.stringify(payload)}`));
  socket.on('frame', (payload) => say(`frame ${payload?.id ?? '?'} (${payload?.image?.length ?? 0} bytes)`));
  await until('the agent socket', () => socket.connected);

  socket.emit('probe', { n: 1 });
  for (const [x, y] of [[0.2, 0.2], [0.4, 0.3], [0.6, 0.4]]) {
    socket.emit('laser', { type: 'Laser', id: 'l1', state: 'touchmove', x, y });
    await pause(150);
  }
  socket.emit('laser', { type: 'Laser', id: 'l1', state: 'touchend', x: 0.6, y: 0.4 });
  socket.emit('drawing', { type: 'Drawing', id: 'd1', image: Buffer.from('not really a png'), mime_type: 'image/png', x: 0.1, y: 0.1, width: 0.5, height: 0.2 });
  socket.emit('touch', { type: 'Touch', id: 't1', state: 'touchstart', x: 0.5, y: 0.5 });
  socket.emit('touch', { type: 'Touch', id: 't1', state: 'touchend', x: 0.5, y: 0.6 });
  socket.emit('keypress', { type: 'KeyPress', key: 'a', code: 'KeyA', state: 'keydown' });
  socket.emit('url', { type: 'URL', id: 'u1', url: 'https://example.com/help' });
  socket.emit('sync', {});
  socket.emit('probe', { n: 2 });
  await pause(1000);

  await api('POST', `/api/1/agent/sessions/${session.id}/end`);
  say('ended the session');
  socket.close();
}

main().catch((err) => {
  console.error(`agent: ${err.message}`);
  process.exit(1);
});
