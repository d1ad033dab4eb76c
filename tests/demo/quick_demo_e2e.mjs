// The demo shop end to end against a running reference service, offscreen, with the agent played by
// the official JavaScript client:
//   node quick_demo_e2e.mjs SERVICE_URL HALVORA_DEMO_SHOP
// The agent starts a session for the shop; the shop joins and streams while it tours its screens.
// Every frame the agent receives must decode as a JPEG whose longer side is at most 500 pixels;
// the frames the device sent are numbered consecutively; the checkout screen is
// announced, and from its announcement until the end no frame shows the colour of its sensitive
// items (#ff00cc, used nowhere else).
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness } from '../support/agent_harness.mjs';

const [serviceUrl, shop] = process.argv.slice(2);
if (!serviceUrl || !shop) {
  console.error('usage: node quick_demo_e2e.mjs SERVICE_URL HALVORA_DEMO_SHOP');
  process.exit(2);
}
const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));
const require = createRequire(join(serviceDir, 'package.json'));
const { io } = require('socket.io-client');
const jpeg = require('jpeg-js');

const LIMIT_MS = 30_000;
const SENSITIVE = [0xff, 0x00, 0xcc];
const data = mkdtempSync(join(tmpdir(), 'halvora-shop-'));
let output = '';
let errors = '';
let app;

const { fail, api, until, deviceReady } = agentHarness({
  serviceUrl,
  limitMs: LIMIT_MS,
  context: () => `--- stdout\n${output}\n--- stderr\n${errors.slice(-4000)}`,
  cleanup: () => {
    app?.kill('SIGKILL');
    rmSync(data, { recursive: true, force: true });
  },
});

// Whether a decoded picture has a pixel near the sensitive colour (JPEG shifts colours a little).
function showsSensitiveColour({ width, height, data: pixels }) {
  for (let i = 0; i < width * height * 4; i += 4) {
    if (Math.abs(pixels[i] - SENSITIVE[0]) < 40 && Math.abs(pixels[i + 1] - SENSITIVE[1]) < 40 &&
        Math.abs(pixels[i + 2] - SENSITIVE[2]) < 40) return true;
  }
  return false;
}

app = spawn(shop, ['--api', serviceUrl, '--data', data, '--tour', '0.7'], {
  stdio: ['ignore', 'pipe', 'pipe'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: data },
});
app.stdout.on('data', (chunk) => (output += chunk));
app.stderr.on('data', (chunk) => (errors += chunk));
app.on('exit', (code) => fail(`the shop exited early with ${code}`));

const deviceId = await deviceReady(() => output);
const session = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
const agent = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });

const received = []; // { kind: 'frame' | 'screen', record }
agent.on('frame', (record) => received.push({ kind: 'frame', record }));
agent.on('screen', (record) => received.push({ kind: 'screen', record }));
await until('the device to stream', () => received.some((r) => r.kind === 'frame'));
// Two tours: the checkout screen appears (at least once) after the session became active.
await until('the checkout screen twice', () =>
  received.filter((r) => r.kind === 'screen' && r.record.class === 'CheckoutPage').length >= 2);
agent.emit('sync', {});
await new Promise((resolve) => setTimeout(resolve, 1000));
const sent = (await api('GET', `/api/1/agent/sessions/${session.id}/frames`)).ids;
await api('POST', `/api/1/agent/sessions/${session.id}/end`);
await until('the shop to see the end', () => output.includes('ended'));
agent.close();

if (sent.length < 3) fail(`only ${sent.length} frames were sent`);
// A pass that runs before the stream has connected spends its number without sending (on a loaded
// machine the first one or two do); from the first frame that arrives on, none may go missing.
sent.forEach((id, index) => {
  if (id !== sent[0] + index) fail(`frame numbers sent: ${sent.join(',')}`);
});

let checkoutAnnounced = false;
let checkedFrames = 0;
for (const { kind, record } of received) {
  if (kind === 'screen') {
    if (record.type !== 'Screen' || typeof record.timestamp !== 'string') fail(`bad screen ${JSON.stringify(record)}`);
    if (record.class === 'CheckoutPage') checkoutAnnounced = true;
    continue;
  }
  if (record.type !== 'Frame' || record.mime_type !== 'image/jpeg') fail(`bad frame ${JSON.stringify({ ...record, image: '…' })}`);
  let picture;
  try {
    picture = jpeg.decode(record.image, { useTArray: true, formatAsRGBA: true });
  } catch (err) {
    fail(`frame ${record.id} is not a JPEG: ${err.message}`);
  }
  if (Math.max(picture.width, picture.height) > 500) fail(`frame ${record.id} is ${picture.width}x${picture.height}`);
  if (checkoutAnnounced) {
    checkedFrames += 1;
    if (showsSensitiveColour(picture)) fail(`frame ${record.id} shows the sensitive colour`);
  }
}
if (checkedFrames === 0) fail('no frame arrived after the checkout screen appeared');

app.removeAllListeners('exit');
app.kill('SIGTERM');
rmSync(data, { recursive: true, force: true });
console.log(`ok: ${sent.length} frames sent (${sent[0]}..${sent[sent.length - 1]}), ${checkedFrames} checked after the checkout screen appeared`);
process.exit(0);
