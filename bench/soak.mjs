// A soak run of the demo shop against a reference service of its own, with an agent watching:
// one long session while the shop tours its screens, then many sessions started and ended in a
// row. Prints the shop's resident memory, open files and threads before and after, and fails when
// any grew by more than 5 %.
//   node bench/soak.mjs HALVORA_DEMO_SHOP [MINUTES=30] [SESSIONS=200]
// Both samples are taken with no session open, the first after a warm-up tour and session.
import { execSync, spawn } from 'node:child_process';
import { mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness } from '../tests/support/agent_harness.mjs';
import { startServiceProcess } from '../tests/support/service_process.mjs';

const [shop, minutes = '30', sessions = '200'] = process.argv.slice(2);
if (!shop) {
  console.error('usage: node bench/soak.mjs HALVORA_DEMO_SHOP [MINUTES] [SESSIONS]');
  process.exit(2);
}
const serviceDir = fileURLToPath(new URL('../service/', import.meta.url));
const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const data = mkdtempSync(join(tmpdir(), 'halvora-soak-'));
let output = '';
let app;
let service;

const started = await startServiceProcess(data);
service = started.process;
const serviceUrl = started.url;
const { fail, api, until, deviceReady } = agentHarness({
  serviceUrl,
  agentFile: started.agentFile,
  limitMs: 30_000,
  context: () => `--- shop stdout (end)\n${output.slice(-2000)}`,
  cleanup: () => {
    app?.kill('SIGKILL');
    service?.kill('SIGKILL');
    rmSync(data, { recursive: true, force: true });
  },
});

app = spawn(shop, ['--api', serviceUrl, '--data', data, '--tour', '0.5'], {
  stdio: ['ignore', 'pipe', 'ignore'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: data },
});
app.stdout.on('data', (chunk) => (output = (output + chunk).slice(-100_000)));
app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));

const sample = () => {
  const status = readFileSync(`/proc/${app.pid}/status`, 'utf8');
  const field = (name) => Number(status.match(new RegExp(`^${name}:\\s+(\\d+)`, 'm'))[1]);
  // A connection the service closed stays open in the HTTP client's pool, half closed, until the
  // client's next request prunes it: whether one is there depends on timing, so those are not counted.
  const halfClosed = execSync(`ss -tanp state close-wait 2>/dev/null`).toString()
    .split('\n').filter((line) => line.includes(`pid=${app.pid},`)).length;
  return { rssKiB: field('VmRSS'), files: readdirSync(`/proc/${app.pid}/fd`).length - halfClosed, threads: field('Threads') };
};

async function session(deviceId, watchMs) {
  const started = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
  await until(`session ${started.code} to become active`, () => output.includes(`session ${started.code}: active`));
  if (watchMs > 0) {
    const joined = await api('POST', `/api/1/agent/sessions/${started.id}/join`);
    const agent = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
    let frames = 0;
    agent.on('frame', () => (frames += 1));
    const end = Date.now() + watchMs;
    while (Date.now() < end) {
      await sleep(Math.min(60_000, end - Date.now()));
      console.log(`  ${Math.round((watchMs - (end - Date.now())) / 1000)} s: ${frames} frames, ${JSON.stringify(sample())}`);
    }
    agent.close();
    if (frames === 0) fail('no frame arrived during the long session');
  }
  await api('POST', `/api/1/agent/sessions/${started.id}/end`);
  await until(`session ${started.code} to end`, () => output.includes(`session ${started.code} ended`));
}

const deviceId = await deviceReady(() => output);
// Warm-up: every screen of the tour drawn, and one session started and ended, so that what the
// library makes once (its sending thread, the network thread's connections) is in both samples.
// Both samples 10 s after a session ended: by then the service has closed the HTTP client's idle
// pooled connection (node closes idle keep-alive connections after 5 s), whenever it was last used.
await session(deviceId, 10_000);
await sleep(10_000);
const before = sample();
console.log(`before: ${JSON.stringify(before)}`);
console.log(`one session of ${minutes} min`);
await session(deviceId, Number(minutes) * 60_000);
console.log(`${sessions} sessions in a row`);
for (let i = 0; i < Number(sessions); i += 1) await session(deviceId, 0);
await sleep(10_000);
const after = sample();
console.log(`after:  ${JSON.stringify(after)}`);

const grown = Object.keys(before).filter((key) => after[key] > before[key] * 1.05);
app.removeAllListeners('exit');
app.kill('SIGTERM');
service.kill('SIGTERM');
rmSync(data, { recursive: true, force: true });
for (const key of Object.keys(before)) {
  console.log(`${key.padEnd(8)} ${String(before[key]).padStart(8)} -> ${String(after[key]).padStart(8)}` +
    `  ratio ${(after[key] / before[key]).toFixed(3)} (bound 1.050)`);
}
if (grown.length) fail(`grew by more than 5 %: ${grown.join(', ')}`);
console.log('flat');
