// The agent operates the demo shop through a live session on the reference service: the official
// JavaScript Socket.IO client sends touches and keys (service/tools/shop-tour.js), and the shop's
// own handlers must report each result exactly once, in order: a list scrolled and a row opened,
// a SpinBox stepped, a Button clicked, a TextField typed into, a Switch toggled, a Slider dragged
// to where the finger let go, a tab selected.
//   node remote_control_e2e.mjs SERVICE_URL_FILE HALVORA_DEMO_SHOP
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness, fixtureService } from '../support/agent_harness.mjs';

const [urlFile, shop] = process.argv.slice(2);
if (!urlFile || !shop) {
  console.error('usage: node remote_control_e2e.mjs SERVICE_URL_FILE HALVORA_DEMO_SHOP');
  process.exit(2);
}
const { serviceUrl, agentFile } = fixtureService(urlFile);
const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));
const require = createRequire(join(serviceDir, 'package.json'));
const { io } = require('socket.io-client');
const { operateShop, expectedReports } = await import(join(serviceDir, 'tools/shop-tour.js'));

const data = mkdtempSync(join(tmpdir(), 'halvora-remote-'));
let output = '';
let errors = '';
let app;
let agent;
const { fail, api, until, deviceReady } = agentHarness({
  serviceUrl,
  agentFile,
  limitMs: 30_000,
  context: () => `--- shop stdout\n${output}\n--- shop stderr\n${errors.slice(-4000)}`,
  cleanup: () => {
    app?.kill('SIGKILL');
    agent?.close();
    rmSync(data, { recursive: true, force: true });
  },
});

app = spawn(shop, ['--api', serviceUrl, '--data', data], {
  stdio: ['ignore', 'pipe', 'pipe'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: data },
});
app.stdout.on('data', (chunk) => (output += chunk));
app.stderr.on('data', (chunk) => (errors += chunk));
app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));

const deviceId = await deviceReady(() => output);
const session = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
agent = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
let frames = 0;
agent.on('frame', () => (frames += 1));
await until('the first frame', () => frames > 0);

// A sanitized build renders and animates several times slower: each step waits longer for the
// shop's page transitions to end before the next tap.
await operateShop(agent, process.env.HALVORA_SANITIZED === '1' ? { settle: 3000 } : {});
await until('the last result', () => output.includes(`app: ${expectedReports.at(-1)}`));

// The slider reports every step of the drag; the other controls exactly once each.
const reports = [...output.matchAll(/^app: (.*)$/gm)].map((match) => match[1]);
const dragged = reports.filter((line) => line.startsWith('text size '));
const once = reports.filter((line) => !line.startsWith('text size '));
const expectedOnce = expectedReports.filter((line) => !line.startsWith('text size '));
if (JSON.stringify(once) !== JSON.stringify(expectedOnce)) {
  fail(`the shop reported ${JSON.stringify(once)}, expected ${JSON.stringify(expectedOnce)}`);
}
if (dragged.length < 3 || dragged.at(-1) !== expectedReports.find((line) => line.startsWith('text size '))) {
  fail(`the slider reported ${JSON.stringify(dragged)}`);
}
console.log(`the agent operated the shop: ${once.length} controls, the slider in ${dragged.length} steps, ${frames} frames`);
app.removeAllListeners('exit');
app.kill('SIGKILL');
agent.close();
rmSync(data, { recursive: true, force: true });
process.exit(0);
