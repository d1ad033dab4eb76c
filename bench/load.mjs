// Load on one reference service: simulated devices (the official JavaScript Socket.IO client, the
// way the device SDK connects) each stream 5 frames a second of 30 KB to one agent each. Sessions
// are added in steps until the median relay delay (a frame's sending to its arrival at the agent)
// passes 200 ms, or the step or time cap is reached. Per step it prints the sessions, the relay
// delay's median and p95, the service's CPU (share of one core) and resident memory, and both per
// session. Loopback only; the devices and agents run in this process, on the same cores as the
// service, so the figures are a floor for what one instance holds on its own machine.
//   node bench/load.mjs [STEP_SESSIONS=25] [MAX_SESSIONS=1000] [STEP_SECONDS=6]
import { readFileSync, mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { startServiceProcess } from '../tests/support/service_process.mjs';
import { readCredentials, signIn } from '../service/tools/agent-client.js';

const [stepArg = '25', maxArg = '1000', secondsArg = '6'] = process.argv.slice(2);
const step = Number(stepArg);
const maxSessions = Number(maxArg);
const stepSeconds = Number(secondsArg);
if (!(step > 0) || !(maxSessions >= step) || !(stepSeconds >= 2)) {
  console.error('usage: node bench/load.mjs [STEP_SESSIONS>0] [MAX_SESSIONS>=STEP] [STEP_SECONDS>=2]');
  process.exit(2);
}
const FRAME_BYTES = 30 * 1024;
const FRAMES_PER_SECOND = 5;
const DELAY_LIMIT_MS = 200;
const TIME_CAP_MS = 10 * 60 * 1000;

const serviceDir = fileURLToPath(new URL('../service/', import.meta.url));
const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');
const data = mkdtempSync(join(tmpdir(), 'halvora-load-'));
const service = await startServiceProcess(data, ['--memory', '--agent-rate-limit', '0']);
const pid = service.process.pid;
const sockets = [];
const timers = [];
const stop = () => {
  for (const timer of timers) clearInterval(timer);
  for (const socket of sockets) socket.close();
  service.process.kill('SIGKILL');
  rmSync(data, { recursive: true, force: true });
};

// One agent account joins every session; the agent API's rate limit is off (--agent-rate-limit 0)
// because the ramp is one client making hundreds of calls a minute.
const agentCall = await signIn(service.url, readCredentials(service.agentFile));
async function api(method, path, body) {
  const answer = path.startsWith('/api/1/agent/')
    ? await agentCall(method, path, body)
    : await fetch(`${service.url}${path}`, {
      method,
      headers: { 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    }).then(async (response) => ({ status: response.status, body: await response.json() }));
  if (answer.status >= 400) throw new Error(`${method} ${path} answered ${answer.status}`);
  return answer.body;
}

function connect(options) {
  const socket = io(service.url, { path: '/sockets/1/events', transports: ['websocket'], forceNew: true, ...options });
  sockets.push(socket);
  return new Promise((resolve, reject) => {
    socket.once('connect', () => resolve(socket));
    socket.once('connect_error', reject);
  });
}

let delays = [];
const image = Buffer.alloc(FRAME_BYTES, 0x5a);
async function addSession() {
  const session = await api('POST', '/api/1/sessions');
  await api('PUT', `/api/1/sessions/${session.id}`, { state: 'active', device: { model: 'load' } });
  const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
  const agent = await connect({ auth: { token: joined.agent_token } });
  agent.on('frame', (record) => delays.push(Date.now() - record.sent_at_ms));
  const device = await connect({ extraHeaders: { Authorization: `Bearer ${session.stream_token}` } });
  let id = 0;
  // Started at a random phase, so the sessions' frames do not all leave in the same instant.
  setTimeout(() => {
    timers.push(setInterval(() => {
      id += 1;
      device.emit('frame', { type: 'Frame', id, image, mime_type: 'image/jpeg', sent_at_ms: Date.now() });
    }, 1000 / FRAMES_PER_SECOND));
  }, Math.random() * (1000 / FRAMES_PER_SECOND));
}

// The service's CPU time (ms) and resident memory (KiB) from /proc.
function serviceUsage() {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  const ticks = Number(fields[11]) + Number(fields[12]); // utime + stime
  const rssKiB = Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/^VmRSS:\s+(\d+)/m)[1]);
  return { cpuMs: (ticks * 1000) / 100, rssKiB };
}

const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];
const idle = serviceUsage();
const started = Date.now();
let sessions = 0;
let held = 0;
console.log(`${FRAMES_PER_SECOND} frames/s of ${FRAME_BYTES / 1024} KB per session, +${step} sessions every ${stepSeconds} s`);
console.log('sessions  median ms  p95 ms  cpu %  rss MiB  cpu %/session  KiB/session');
try {
  while (sessions < maxSessions && Date.now() - started < TIME_CAP_MS) {
    for (let i = 0; i < step; i += 1) await addSession();
    sessions += step;
    await new Promise((resolve) => setTimeout(resolve, 1000)); // settle
    delays = [];
    const before = serviceUsage();
    const from = Date.now();
    await new Promise((resolve) => setTimeout(resolve, stepSeconds * 1000));
    const after = serviceUsage();
    const sorted = delays.sort((a, b) => a - b);
    const median = percentile(sorted, 50);
    const cpu = (100 * (after.cpuMs - before.cpuMs)) / (Date.now() - from);
    const perSessionKiB = (after.rssKiB - idle.rssKiB) / sessions;
    console.log(`${String(sessions).padStart(8)}  ${String(median).padStart(9)}  ${String(percentile(sorted, 95)).padStart(6)}`
      + `  ${cpu.toFixed(0).padStart(5)}  ${(after.rssKiB / 1024).toFixed(0).padStart(7)}`
      + `  ${(cpu / sessions).toFixed(2).padStart(13)}  ${perSessionKiB.toFixed(0).padStart(11)}`);
    if (median > DELAY_LIMIT_MS) break;
    held = sessions;
  }
} finally {
  stop();
}
console.log(`one instance held ${held} sessions with the median relay delay at most ${DELAY_LIMIT_MS} ms`
  + (held === sessions ? ' (the cap was reached first)' : ''));
console.log('two instances with Redis: not measured yet (the service has no Redis mode)');
process.exit(0);
