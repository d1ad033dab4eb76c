// The user starts the session from the shop: the shop's played user taps "Get help", reads the
// code out, approves the agent who joined with it, and later ends the session from the banner;
// the agent must see the session wait for approval, turn active, stream frames, and end. Then a
// session link given on the command line (as a desktop launches the application for one) must
// join the session it names; a second launch with a link while the shop runs must hand the link
// to the running copy and end, and must hand nothing to a socket another user put in its place.
//   node user_started_e2e.mjs SERVICE_URL_FILE HALVORA_DEMO_SHOP
import { spawn, spawnSync } from 'node:child_process';
import { chownSync, mkdtempSync, readdirSync, rmSync, statSync } from 'node:fs';
import { createServer } from 'node:net';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness, fixtureService } from '../support/agent_harness.mjs';

const [urlFile, shop] = process.argv.slice(2);
if (!urlFile || !shop) {
  console.error('usage: node user_started_e2e.mjs SERVICE_URL_FILE HALVORA_DEMO_SHOP');
  process.exit(2);
}
const { serviceUrl, agentFile } = fixtureService(urlFile);
const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));
const { io } = createRequire(join(serviceDir, 'package.json'))('socket.io-client');

const data = mkdtempSync(join(tmpdir(), 'halvora-user-'));
const shots = join(data, 'shots');
let output = '';
let errors = '';
let app;
let agent;
const { fail, api, until } = agentHarness({
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

// Copies of the shop meet on a socket in the temporary directory: this run's own.
const shopEnv = { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', TMPDIR: data, XDG_RUNTIME_DIR: '' };
function launch(args) {
  output = '';
  errors = '';
  app = spawn(shop, ['--api', serviceUrl, '--data', join(data, 'settings'), ...args], {
    stdio: ['ignore', 'pipe', 'pipe'],
    env: shopEnv,
  });
  app.stdout.on('data', (chunk) => (output += chunk));
  app.stderr.on('data', (chunk) => (errors += chunk));
  app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));
}

function stop() {
  app.removeAllListeners('exit');
  app.kill('SIGKILL');
}

const sessionState = async (id) => (await api('GET', `/api/1/agent/sessions/${id}`)).state;

// 1. User-started, approved, ended from the banner.
launch(['--play-user', '1', '--screenshots', shots]);
const code = await until('the code read out', () => output.match(/^user: reads the code (\d{3})-(\d{3}) /m)?.slice(1).join(''));
const session = await until(`the session ${code}`, async () =>
  (await api('GET', '/api/1/agent/sessions')).sessions.find((s) => s.code === code));
if (session.state !== 'pending') fail(`the session was ${session.state} before anyone approved it`);
const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
agent = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
// Joined but not yet approved, the agent taps all over the approval screen (its approve and
// decline buttons among the rest): nothing may come of it, it is the user's to answer.
agent.on('connect', () => {
  for (let row = 0; row < 12; row += 1) {
    for (let column = 0; column < 6; column += 1) {
      const point = { type: 'Touch', id: `sweep-${row}-${column}`, x: (column + 0.5) / 6, y: (row + 0.5) / 12 };
      agent.emit('touch', { ...point, state: 'touchstart' });
      agent.emit('touch', { ...point, state: 'touchend' });
    }
  }
});
// A frame that arrived before a state request that was sent later and answered "pending" came
// before the approval (states only move forward), whatever the timing of the two connections.
const frameTimes = [];
agent.on('frame', () => frameTimes.push(Date.now()));
let pendingAskedAt = 0;
await until('the session to turn active', async () => {
  const askedAt = Date.now();
  const state = await sessionState(session.id);
  if (state === 'pending') pendingAskedAt = askedAt;
  return state === 'active';
});
if (!output.includes('user: approves the agent')) fail('the session turned active without the approval');
const framesBeforeApproval = frameTimes.filter((at) => at < pendingAskedAt).length;
await until('a frame of the active session', () => frameTimes.length > framesBeforeApproval);
await until('the user to end the session', async () => (await sessionState(session.id)) === 'ended');
await until('the delegate to hear of the end', () => output.includes(`session ${code} ended`));
if (framesBeforeApproval > 0) fail(`${framesBeforeApproval} frames reached the agent before the user approved`);
const frames = frameTimes.length;
const pictures = readdirSync(shots).filter((name) => statSync(join(shots, name)).size > 0).sort();
const wanted = ['user-1-code.png', 'user-2-approval.png', 'user-3-countdown.png', 'user-4-shared.png', 'user-5-manage.png'];
if (JSON.stringify(pictures) !== JSON.stringify(wanted)) fail(`screenshots ${JSON.stringify(pictures)}`);
agent.close();
stop();
console.log(`user-started: code ${code}, approved, ${frames} frames, ended from the banner`);

// 2. A session link on the command line joins the session it names: the agent started one for
// this device while the shop was not running, and the link launches it.
const deviceId = output.match(/device ([0-9A-F-]{36})/)?.[1] ?? fail(`no device id in the shop's output`);
const waiting = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
launch([`halvora://link.halvora.io/session/${waiting.code}`]);
await until('the linked session to turn active', async () => (await sessionState(waiting.id)) === 'active');
console.log(`link: session ${waiting.code} joined`);

// 3. Launched with a link while it runs, the shop hands the link to the running copy and ends
// at once: one copy, with one device identifier. The running copy's library takes the link (a
// malformed one, so that only the link can be what it reports).
const relayPath = join(data, `halvora-links-Halvora_Shop-${process.getuid()}`);
const secondLaunch = (link) => spawnSync(shop, ['--api', serviceUrl, '--data', join(data, 'second'), link],
  { env: shopEnv, encoding: 'utf8', timeout: 20_000 });
const handed = secondLaunch('halvora://link.halvora.io/session/12');
if (handed.status !== 0 || !handed.stdout.includes('went to the copy of Halvora Shop already running')) {
  fail(`the second copy did not hand its link over: ${handed.status ?? handed.signal}\n${handed.stdout}${handed.stderr}`);
}
await until('the running copy to take the link', () => `${output}${errors}`.includes('halvora link invalid session 12'));
stop();

// 4. The attack: a socket at that place owned by another user, listening for links. The shop
// hands it nothing and runs as the only copy.
rmSync(relayPath, { force: true });
const stolen = [];
const standIn = createServer((socket) => socket.on('data', (chunk) => stolen.push(chunk.toString())));
await new Promise((resolve) => standIn.listen(relayPath, resolve));
chownSync(relayPath, 65534, 65534);
launch([`halvora://link.halvora.io/session/${waiting.code}`]);
await until('the shop to run as a copy of its own', () => /^device /m.test(output));
standIn.close();
if (stolen.length > 0) fail(`a socket of another user was handed ${JSON.stringify(stolen)}`);
stop();
console.log('second copies: a link handed to the running copy, none to another user\'s socket');
rmSync(data, { recursive: true, force: true });
process.exit(0);
