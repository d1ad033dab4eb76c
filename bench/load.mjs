// Load on the reference service, first one instance and then two sharing a Redis server (or only
// the count given with --instances): simulated devices (the official JavaScript Socket.IO client, the
// way the device SDK connects) each stream 5 frames a second of 30 KB to one agent each. Sessions
// are added in steps until the median relay delay (a frame's sending to its arrival at the agent)
// passes 200 ms, or the step or time cap is reached. Per step it prints the sessions, the relay
// delay's median and p95, the service's CPU (share of one core) and resident memory, and both per
// session. Loopback only; the devices and agents run in this process, on the same cores as the
// service, so the figures are a floor for what one instance holds on its own machine.
//   node bench/load.mjs [--instances N] [STEP_SESSIONS=25] [MAX_SESSIONS=1000] [STEP_SECONDS=6]
import { readFileSync, mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { readCredentials, signIn } from '../service/tools/agent-client.js';
import { registerDevice } from '../service/tools/device-client.js';
import { startRedis } from '../service/test-support/redis-server.js';
import { startServiceProcess } from '../tests/support/service_process.mjs';

const args = process.argv.slice(2);
const only = args.indexOf('--instances');
const instanceCounts = only >= 0 ? [Number(args.splice(only, 2)[1])] : [1, 2];
const [stepArg = '25', maxArg = '1000', secondsArg = '6'] = args;
const step = Number(stepArg);
const maxSessions = Number(maxArg);
const stepSeconds = Number(secondsArg);
if (!(step > 0) || !(maxSessions >= step) || !(stepSeconds >= 2) || !instanceCounts.every((n) => n >= 1 && n <= 8)) {
  console.error('usage: node bench/load.mjs [--instances 1..8] [STEP_SESSIONS>0] [MAX_SESSIONS>=STEP] [STEP_SECONDS>=2]');
  process.exit(2);
}
const FRAME_BYTES = 30 * 1024;
const FRAMES_PER_SECOND = 5;
const DELAY_LIMIT_MS = 200;
const TIME_CAP_MS = 5 * 60 * 1000; // for each instance count

const serviceDir = fileURLToPath(new URL('../service/', import.meta.url));
const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');
const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];
const image = Buffer.alloc(FRAME_BYTES, 0x5a);

// A process's CPU time (ms) and resident memory (KiB) from /proc.
function usage(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  const ticks = Number(fields[11]) + Number(fields[12]); // utime + stime
  const rssKiB = Number(readFileSync(`/proc/${pid}/status`, 'utf8').match(/^VmRSS:\s+(\d+)/m)[1]);
  return { cpuMs: (ticks * 1000) / 100, rssKiB };
}

// Ramps sessions on `count` service instances (two or more share a Redis server) until the
// median delay passes the limit; resolves to the sessions held. With several instances every
// device talks to one and its agent to the next, so every frame crosses Redis.
async function measure(count) {
  const data = mkdtempSync(join(tmpdir(), 'halvora-load-'));
  const redis = count > 1 ? await startRedis() : undefined;
  const state = redis ? ['--redis', redis.url] : ['--memory'];
  const services = [];
  for (let i = 0; i < count; i += 1) services.push(await startServiceProcess(data, state));
  const sockets = [];
  const timers = [];
  const stop = async () => {
    for (const timer of timers) clearInterval(timer);
    for (const socket of sockets) socket.close();
    for (const service of services) service.process.kill('SIGKILL');
    await redis?.stop();
    rmSync(data, { recursive: true, force: true });
  };

  // Every instance resets the demo agent's password as it starts: the last one's is the one.
  const agentCall = await signIn(services[0].url, readCredentials(services.at(-1).agentFile)).catch(async (err) => {
    await stop();
    throw err;
  });
  const devices = new Map(); // service URL -> the device that plays every session there
  async function api(url, method, path, body) {
    if (!path.startsWith('/api/1/agent/') && !devices.has(url)) devices.set(url, await registerDevice(url, { device: { model: 'load' } }));
    const answer = path.startsWith('/api/1/agent/') ? await agentCall(method, path, body) : await devices.get(url).call(method, path, body);
    if (answer.status >= 400) throw new Error(`${method} ${path} answered ${answer.status}`);
    return answer.body;
  }
  function connect(url, options) {
    const socket = io(url, { path: '/sockets/1/events', transports: ['websocket'], forceNew: true, ...options });
    sockets.push(socket);
    return new Promise((resolve, reject) => {
      socket.once('connect', () => resolve(socket));
      socket.once('connect_error', reject);
    });
  }

  let delays = [];
  let sessions = 0;
  async function addSession() {
    const deviceSide = services[sessions % count].url;
    const agentSide = services[(sessions + 1) % count].url;
    sessions += 1;
    const session = await api(deviceSide, 'POST', '/api/1/sessions');
    const joined = await api(agentSide, 'POST', `/api/1/agent/sessions/${session.id}/join`);
    await api(deviceSide, 'PUT', `/api/1/sessions/${session.id}`, { state: 'active', device: { model: 'load' } });
    const agent = await connect(agentSide, { auth: { token: joined.agent_token } });
    agent.on('frame', (record) => delays.push(Date.now() - record.sent_at_ms));
    const device = await connect(deviceSide, { extraHeaders: { Authorization: `Bearer ${session.stream_token}` } });
    let id = 0;
    // Started at a random phase, so the sessions' frames do not all leave in the same instant.
    setTimeout(() => {
      timers.push(setInterval(() => {
        id += 1;
        device.emit('frame', { type: 'Frame', id, image, mime_type: 'image/jpeg', sent_at_ms: Date.now() });
      }, 1000 / FRAMES_PER_SECOND));
    }, Math.random() * (1000 / FRAMES_PER_SECOND));
  }
  // Summed over the instances (Redis itself not counted).
  const serviceUsage = () => services.map((service) => usage(service.process.pid))
    .reduce((sum, one) => ({ cpuMs: sum.cpuMs + one.cpuMs, rssKiB: sum.rssKiB + one.rssKiB }));

  const idle = serviceUsage();
  const started = Date.now();
  let held = 0;
  console.log(`\n${count === 1 ? 'one instance' : `${count} instances sharing Redis`}: ${FRAMES_PER_SECOND} frames/s of `
    + `${FRAME_BYTES / 1024} KB per session, +${step} sessions every ${stepSeconds} s`);
  console.log('sessions  median ms  p95 ms  cpu %  rss MiB  cpu %/session  KiB/session');
  try {
    while (sessions < maxSessions && Date.now() - started < TIME_CAP_MS) {
      for (let i = 0; i < step; i += 1) await addSession();
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
    await stop();
  }
  return { held, capped: held === sessions };
}

const results = [];
for (const count of instanceCounts) results.push([count, await measure(count)]);
console.log();
for (const [count, { held, capped }] of results) {
  console.log(`${count === 1 ? 'one instance' : `${count} instances with Redis`} held ${held} sessions with the median relay`
    + ` delay at most ${DELAY_LIMIT_MS} ms${capped ? ' (the cap was reached first)' : ''}`);
}
process.exit(0);
