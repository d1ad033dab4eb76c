// Plays the support agent for the demo. Agent-started (the default): waits for a device whose
// notification socket is up, starts a session for it, joins, points and draws, then operates the
// shop by touch and keyboard (tools/shop-tour.js) while printing what comes back; then ends the
// session. User-started (--code-from FILE): waits for the user to read out a code (the line
// "user: reads the code 123-456 ..." that the shop's played user writes to FILE), joins that
// session, waits for the user's approval, points and draws, and watches until the user ends it.
// With --save DIR every frame received is written there as frame-<id>.jpg, so the device's screen
// as the agent saw it can be looked at afterwards.
// It signs in with the account in FILE (what the service's --demo-agent wrote).
//   node tools/demo-agent.js SERVICE_URL --agent FILE [--save DIR] [--watch SECONDS] [--code-from FILE]
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { deflateSync } from 'node:zlib';
import { io } from 'socket.io-client';
import { readCredentials, signIn } from './agent-client.js';
import { operateShop } from './shop-tour.js';

const args = process.argv.slice(2);
const serviceUrl = args[0];
const option = (name) => {
  const at = args.indexOf(name);
  return at > 0 ? args[at + 1] : undefined;
};
const saveDir = option('--save');
const watchSeconds = Number(option('--watch') ?? 1);
const codeFrom = option('--code-from');
const agentFile = option('--agent');
if (!serviceUrl || serviceUrl.startsWith('--') || !agentFile || !(watchSeconds >= 0)) {
  console.error('usage: node tools/demo-agent.js SERVICE_URL --agent FILE [--save DIR] [--watch SECONDS] [--code-from FILE]');
  process.exit(64);
}
if (saveDir) mkdirSync(saveDir, { recursive: true });

const LIMIT_MS = 30_000;
const say = (line) => console.log(`agent: ${line}`);
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// A small PNG of a red underline stroke on transparency, the kind of drawing an agent makes.
function strokePng(width = 200, height = 40) {
  const crcTable = Array.from({ length: 256 }, (_, n) => {
    let c = n;
    for (let k = 0; k < 8; k += 1) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
    return c >>> 0;
  });
  const crc = (bytes) => {
    let c = 0xffffffff;
    for (const b of bytes) c = crcTable[(c ^ b) & 0xff] ^ (c >>> 8);
    return (c ^ 0xffffffff) >>> 0;
  };
  const chunk = (type, data) => {
    const body = Buffer.concat([Buffer.from(type, 'ascii'), data]);
    const length = Buffer.alloc(4);
    length.writeUInt32BE(data.length);
    const sum = Buffer.alloc(4);
    sum.writeUInt32BE(crc(body));
    return Buffer.concat([length, body, sum]);
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 6, 0, 0, 0], 8); // 8-bit RGBA
  const rows = Buffer.alloc((width * 4 + 1) * height);
  for (let y = 0; y < height; y += 1) {
    const wave = height / 2;
    for (let x = 0; x < width; x += 1) {
      const centre = wave + Math.round(6 * Math.sin(x / 12));
      if (Math.abs(y - centre) <= 3) rows.set([232, 50, 42, 255], y * (width * 4 + 1) + 1 + x * 4);
    }
  }
  return Buffer.concat([
    Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk('IHDR', header),
    chunk('IDAT', deflateSync(rows)),
    chunk('IEND', Buffer.alloc(0)),
  ]);
}

const call = await signIn(serviceUrl, readCredentials(agentFile));
async function api(method, path) {
  const answer = await call(method, path);
  if (answer.status >= 400) throw new Error(`${method} ${path} answered ${answer.status}: ${JSON.stringify(answer.body)}`);
  return answer.body;
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

// Connects as the agent of a joined session, printing what the device sends.
async function connect(joined) {
  const socket = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
  socket.on('alive', (payload) => say(`alive ${JSON.stringify(payload)}`));
  socket.on('screen', (payload) => say(`screen ${JSON.stringify(payload)}`));
  socket.on('frame', (payload) => {
    say(`frame ${payload?.id ?? '?'} (${payload?.image?.length ?? 0} bytes)`);
    if (saveDir && Number.isInteger(payload?.id) && Buffer.isBuffer(payload?.image)) {
      writeFileSync(join(saveDir, `frame-${payload.id}.jpg`), payload.image);
    }
  });
  await until('the agent socket', () => socket.connected);
  return socket;
}

async function pointAndDraw(socket) {
  socket.emit('probe', { n: 1 });
  for (const [x, y] of [[0.2, 0.2], [0.4, 0.3], [0.6, 0.4]]) {
    socket.emit('laser', { type: 'Laser', id: 'l1', state: 'touchmove', x, y });
    await pause(150);
  }
  socket.emit('laser', { type: 'Laser', id: 'l1', state: 'touchend', x: 0.6, y: 0.4 });
  socket.emit('drawing', { type: 'Drawing', id: 'd1', image: strokePng(), mime_type: 'image/png', x: 0.1, y: 0.1, width: 0.5, height: 0.2 });
  await pause(1000);
  socket.emit('drawing', { type: 'Drawing', id: 'd2' });
}

async function agentStarted() {
  const device = await until('a device with its notification socket open', reachableDevice);
  say(`found device ${device.id}`);
  const session = await api('POST', `/api/1/agent/devices/${device.id}/sessions`);
  say(`started session ${session.code}; the device is told over its notification socket`);
  await until('the device to join', async () => (await api('GET', `/api/1/agent/sessions/${session.id}`)).state === 'active');
  const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`, {});
  say('device joined; connecting as the agent');
  const socket = await connect(joined);
  await pointAndDraw(socket); // the drawing is cleared before operating the shop
  await operateShop(socket, { say });
  socket.emit('url', { type: 'URL', id: 'u1', url: 'https://example.com/help' });
  socket.emit('sync', {});
  socket.emit('probe', { n: 2 });
  await pause(watchSeconds * 1000);

  await api('POST', `/api/1/agent/sessions/${session.id}/end`);
  say('ended the session');
  socket.close();
}

async function userStarted() {
  const code = await until('the user to read out a code', () => {
    if (!existsSync(codeFrom)) return undefined;
    return readFileSync(codeFrom, 'utf8').match(/^user: reads the code (\d{3})-(\d{3})/m)?.slice(1).join('');
  });
  say(`heard the code ${code}`);
  const session = await until(`a waiting session with code ${code}`, async () => {
    const { sessions } = await api('GET', '/api/1/agent/sessions');
    return sessions.find((s) => s.code === code && s.state === 'pending');
  });
  const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`, {});
  say('joined; waiting for the user to approve');
  const socket = await connect(joined);
  await until('the user to approve', async () => (await api('GET', `/api/1/agent/sessions/${session.id}`)).state === 'active');
  say('the user approved');
  await pointAndDraw(socket);
  await until('the user to end the session', async () => (await api('GET', `/api/1/agent/sessions/${session.id}`)).state === 'ended');
  say('the user ended the session');
  socket.close();
}

async function main() {
  await (codeFrom ? userStarted() : agentStarted());
}

main().catch((err) => {
  console.error(`agent: ${err.message}`);
  process.exit(1);
});
