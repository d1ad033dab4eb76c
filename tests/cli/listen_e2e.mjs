// halvora-cli listen end to end against a running reference service, with an agent played by the
// official JavaScript client:
//   node listen_e2e.mjs SERVICE_URL_FILE HALVORA_CLI
// The agent starts a session for the listening device; the device joins and connects both
// sockets; a probe comes back as "alive"; after a token rotation the device reconnects with the
// new tokens; the agent ends the session and the tool exits 0 with both sockets closed.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness, fixtureService } from '../support/agent_harness.mjs';

const [urlFile, cli] = process.argv.slice(2);
if (!urlFile || !cli) {
  console.error('usage: node listen_e2e.mjs SERVICE_URL_FILE HALVORA_CLI');
  process.exit(2);
}
const { serviceUrl, agentFile } = fixtureService(urlFile);
const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));
const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');

const LIMIT_MS = 20_000;
const data = mkdtempSync(join(tmpdir(), 'halvora-listen-'));
let output = '';
let errors = '';

const { fail, api, until } = agentHarness({
  serviceUrl,
  agentFile,
  limitMs: LIMIT_MS,
  context: () => `--- stdout\n${output}\n--- stderr\n${errors}`,
  cleanup: () => rmSync(data, { recursive: true, force: true }),
});

const sockets = (id) => api('GET', `/api/1/agent/sessions/${id}/sockets`);

const tool = spawn(cli, ['listen', '--api', serviceUrl, '--data', data, '--duration', '60'], {
  stdio: ['ignore', 'pipe', 'pipe'],
});
tool.stdout.on('data', (chunk) => (output += chunk));
tool.stderr.on('data', (chunk) => (errors += chunk));
const exited = new Promise((resolve) => tool.on('exit', (code) => resolve(code)));

const deviceId = await until('registration', () => output.match(/registered as (\S+);/)?.[1]);
// The notification socket must be up before the agent starts the session, or the event is lost.
await until('the notification socket', async () =>
  (await api('GET', `/api/1/agent/devices/${deviceId}/sockets`)).notification === 1);

const started = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
await until('the device to join', () => output.includes(`session ${started.code} is active`));
await until('both sockets', async () => {
  const open = await sockets(started.id);
  return open.control === 1 && open.stream === 1;
});

const joined = await api('POST', `/api/1/agent/sessions/${started.id}/join`);
const agent = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
const alive = [];
agent.on('alive', (payload) => alive.push(payload));
await until('the agent socket', () => agent.connected);

agent.emit('probe', { n: 5 });
await until('"alive" for the first probe', () => alive.some((p) => p?.n === 5));

const beforeRotation = output.length;
// The device's connections drop and it fetches the new tokens with its credential.
await api('POST', `/api/1/agent/sessions/${started.id}/rotate-tokens`);
await until('reconnection with the rotated tokens', async () => {
  const open = await sockets(started.id);
  return open.control === 1 && open.stream === 1 && output.slice(beforeRotation).includes('  error ');
});
agent.emit('probe', { n: 6 });
await until('"alive" after the rotation', () => alive.some((p) => p?.n === 6));

await api('POST', `/api/1/agent/sessions/${started.id}/end`);
const code = await Promise.race([exited, new Promise((r) => setTimeout(() => r('timeout'), LIMIT_MS).unref())]);
if (code !== 0) fail(`listen exited with ${code}, expected 0`);
if (!output.includes('session ended')) fail('the tool did not report the end');
await until('both sockets closed', async () => {
  const open = await sockets(started.id);
  return open.control === 0 && open.stream === 0;
});
agent.close();
rmSync(data, { recursive: true, force: true });
console.log('listen end to end: OK');
