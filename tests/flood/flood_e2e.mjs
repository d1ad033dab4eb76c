// The reference service under a flood it must shrug off, for a minute (or SECONDS), with its
// default limits and its data file, as an operator would run it:
//   - a device in an active session sends frames whose ids are 1 MB each, 20 a second;
//   - a stranger, from 16 loopback addresses at once, registers devices and creates sessions as
//     fast as the service lets it.
// Meanwhile /healthz is asked every 100 ms from a client of its own. Printed beside their bounds:
// the service's resident memory at its highest (bound: what it used before the flood plus
// MEMORY_BOUND_MIB) and the slowest /healthz answer (bound: HEALTH_BOUND_MS, or HEALTH_SLOWDOWN
// times the slowest answer of a quiet second measured just before, when this machine is slower
// or busier than that). Exits 1 past either bound.
//   node flood_e2e.mjs [SECONDS]
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { Agent, request } from 'node:http';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { isMainThread, parentPort, Worker, workerData } from 'node:worker_threads';
import { readCredentials, signIn } from '../../service/tools/agent-client.js';
import { registerDevice } from '../../service/tools/device-client.js';
import { startServiceProcess } from '../support/service_process.mjs';

const MEMORY_BOUND_MIB = 200;
const HEALTH_BOUND_MS = 100;
const HEALTH_SLOWDOWN = 5;
const HEALTH_EVERY_MS = 100;
const STRANGER_ADDRESSES = 16;
const FRAMES_PER_SECOND = 20;
const ID_BYTES = 1024 * 1024;

if (isMainThread) await main();
else await flood(workerData);

async function main() {
  const seconds = Number(process.argv[2] ?? 60);
  const dir = mkdtempSync(join(tmpdir(), 'halvora-flood-'));
  // Its own data file and the default rate limits, as deployed.
  const service = await startServiceProcess(dir, ['--data', join(dir, 'data'), '--agent-rate-limit', '600', '--device-rate-limit', '600']);
  const stop = () => {
    service.process.kill('SIGKILL');
    rmSync(dir, { recursive: true, force: true });
  };
  try {
    await health(service.url); // warm
    const quiet = [];
    for (let i = 0; i < 10; i += 1) {
      quiet.push(await health(service.url));
      await new Promise((resolve) => setTimeout(resolve, HEALTH_EVERY_MS));
    }
    const healthBound = Math.max(HEALTH_BOUND_MS, HEALTH_SLOWDOWN * Math.max(...quiet));
    const before = residentMiB(service.process.pid);
    let highest = before;
    const sampler = setInterval(() => (highest = Math.max(highest, residentMiB(service.process.pid))), 250);
    const latencies = [];
    const asker = setInterval(async () => latencies.push(await health(service.url)), HEALTH_EVERY_MS);

    const worker = new Worker(new URL(import.meta.url), { workerData: { url: service.url, agentFile: service.agentFile, seconds } });
    const counts = await new Promise((resolve, reject) => {
      worker.once('message', resolve);
      worker.once('error', reject);
    });
    clearInterval(asker);
    clearInterval(sampler);
    await new Promise((resolve) => setTimeout(resolve, HEALTH_EVERY_MS * 2));

    latencies.sort((a, b) => a - b);
    const slowest = latencies.at(-1);
    const p99 = latencies[Math.floor(latencies.length * 0.99)];
    const memoryBound = before + MEMORY_BOUND_MIB;
    console.log(`flood for ${seconds} s: ${JSON.stringify(counts)}`);
    console.log(`memory: ${before.toFixed(0)} MiB before, ${highest.toFixed(0)} MiB at most; bound ${memoryBound.toFixed(0)} MiB, ratio ${(highest / memoryBound).toFixed(2)}`);
    console.log(`/healthz: ${latencies.length} answers, p99 ${p99.toFixed(1)} ms, slowest ${slowest.toFixed(1)} ms; bound ${healthBound.toFixed(0)} ms (quiet: slowest ${Math.max(...quiet).toFixed(1)} ms), ratio ${(slowest / healthBound).toFixed(2)}`);
    const failures = [];
    if (highest > memoryBound) failures.push('memory past its bound');
    if (slowest > healthBound || latencies.length < (seconds * 1000) / HEALTH_EVERY_MS / 2) failures.push('/healthz too slow');
    if (counts.frames === 0) failures.push('no frame reached the agent');
    if (counts.refused === 0) failures.push('the stranger was never refused');
    if (failures.length > 0) {
      console.error(`FAIL: ${failures.join('; ')}`);
      process.exitCode = 1;
    }
  } finally {
    stop();
  }
  process.exit();
}

// Resolves to how long /healthz took to answer 200, in ms (Infinity when it did not).
function health(url) {
  const started = performance.now();
  return fetch(`${url}/healthz`, { signal: AbortSignal.timeout(5000) })
    .then((answer) => (answer.ok ? performance.now() - started : Infinity), () => Infinity);
}

function residentMiB(pid) {
  const kib = Number(/^VmRSS:\s+(\d+)/m.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))?.[1] ?? 0);
  return kib / 1024;
}

// In a thread of its own, so that the health checks above never wait behind it.
async function flood({ url, agentFile, seconds }) {
  const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));
  const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');
  const until = Date.now() + seconds * 1000;
  const counts = { frames: 0, created: 0, refused: 0, registered: 0 };

  // The device with a real session, an agent watching it.
  const agentCall = await signIn(url, readCredentials(agentFile));
  const device = await registerDevice(url, { device: { model: 'flood' } });
  const session = (await device.call('POST', '/api/1/sessions')).body;
  const joined = (await agentCall('POST', `/api/1/agent/sessions/${session.id}/join`)).body;
  await device.call('PUT', `/api/1/sessions/${session.id}`, { state: 'active', device: {} });
  const connect = (options) => new Promise((resolve, reject) => {
    const socket = io(url, { path: '/sockets/1/events', transports: ['websocket'], forceNew: true, ...options });
    socket.once('connect', () => resolve(socket));
    socket.once('connect_error', reject);
  });
  const agent = await connect({ auth: { token: joined.agent_token } });
  agent.on('frame', () => (counts.frames += 1));
  const stream = await connect({ extraHeaders: { Authorization: `Bearer ${session.stream_token}` } });
  const image = Buffer.alloc(30_000, 7);
  let n = 0;
  const frames = setInterval(() => {
    n += 1;
    stream.emit('frame', { type: 'Frame', id: `${n}`.padEnd(ID_BYTES, 'x'), image, mime_type: 'image/jpeg' });
  }, 1000 / FRAMES_PER_SECOND);

  // The stranger: as many devices and sessions as it can make.
  const stranger = async (address) => {
    const agentFrom = new Agent({ keepAlive: true, localAddress: address });
    const call = (method, path, body, credential) => new Promise((resolve) => {
      const headers = { 'Content-Type': 'application/json' };
      if (credential) headers.Authorization = `Bearer ${credential}`;
      const { port } = new URL(url);
      const req = request({ host: '127.0.0.1', port, method, path, headers, agent: agentFrom }, (res) => {
        let text = '';
        res.on('data', (chunk) => (text += chunk));
        res.on('end', () => resolve({ status: res.statusCode, body: text }));
      });
      req.on('error', () => resolve({ status: 0 }));
      req.end(body && JSON.stringify(body));
    });
    while (Date.now() < until) {
      const id = `STRANGER-${address}-${Math.random().toString(16).slice(2)}`;
      const registered = await call('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device: {} });
      if (registered.status !== 200) {
        counts.refused += 1;
        await new Promise((resolve) => setTimeout(resolve, 200));
        continue;
      }
      counts.registered += 1;
      const { credential } = JSON.parse(registered.body);
      for (;;) {
        const made = await call('POST', '/api/1/sessions', undefined, credential);
        if (made.status !== 201 || Date.now() >= until) {
          if (made.status === 429) counts.refused += 1;
          break;
        }
        counts.created += 1;
      }
    }
    agentFrom.destroy();
  };
  await Promise.all(Array.from({ length: STRANGER_ADDRESSES }, (_, i) => stranger(`127.0.0.${i + 2}`)));
  clearInterval(frames);
  stream.close();
  agent.close();
  parentPort.postMessage(counts);
}
