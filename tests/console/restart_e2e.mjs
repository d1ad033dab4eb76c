// The reference service restarted in the middle of a session watched in the console (Chromium,
// playwright-core) and lived in the demo shop: the service comes back on the same port with its
// data, the console says it is reconnecting and then connected, the shop's stream resumes, and the
// agent goes on operating the shop without starting anything again.
//   node restart_e2e.mjs HALVORA_DEMO_SHOP [SCREENS_DIR]
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { readCredentials, signIn } from '../../service/tools/agent-client.js';
import { fillSignIn, freePort, launchChromium, pagePoint, poller, root, startSessionOn } from './console_support.mjs';

const [shop, screensArg] = process.argv.slice(2);
if (!shop) {
  console.error('usage: node restart_e2e.mjs HALVORA_DEMO_SHOP [SCREENS_DIR]');
  process.exit(2);
}
const screens = screensArg ?? join(root, 'build/default/console-screens');
mkdirSync(screens, { recursive: true });
const data = mkdtempSync(join(tmpdir(), 'halvora-restart-'));

let service;
let app;
let browser;
let page;
let output = '';
async function fail(message) {
  console.error(`FAIL: ${message}\n--- shop stdout\n${output}`);
  await page?.screenshot({ path: join(screens, 'restart-failure.png') }).catch(() => {});
  await cleanup();
  process.exit(1);
}
async function cleanup() {
  app?.removeAllListeners('exit');
  app?.kill('SIGKILL');
  service?.kill('SIGKILL');
  await browser?.close().catch(() => {});
  rmSync(data, { recursive: true, force: true });
}
const until = poller(fail);

const port = await freePort();
const serviceUrl = `http://127.0.0.1:${port}`;
const portFile = join(data, 'service.url');
async function startService() {
  rmSync(portFile, { force: true });
  service = spawn('node', [join(root, 'service/src/server.js'), '--port', String(port), '--port-file', portFile, '--quiet',
    '--data', join(data, 'state'), '--demo-agent', join(data, 'agent.json')], { stdio: 'ignore' });
  await until('the service to listen', () => {
    try {
      return readFileSync(portFile, 'utf8').length > 0;
    } catch {
      return false;
    }
  });
}

await startService();
app = spawn(shop, ['--api', serviceUrl, '--data', join(data, 'shop')], {
  stdio: ['ignore', 'pipe', 'ignore'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: join(data, 'shop') },
});
app.stdout.on('data', (chunk) => (output += chunk));
app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));
const deviceId = await until('the shop to register', () => output.match(/^device (\S+)$/m)?.[1]);

browser = await launchChromium();
page = await browser.newPage({ viewport: { width: 1280, height: 860 } });
const account = JSON.parse(readFileSync(join(data, 'agent.json'), 'utf8'));
await page.goto(`${serviceUrl}/console`);
await fillSignIn(page, account);
await startSessionOn(page, deviceId, until);
const status = () => page.locator('#connection-status').textContent();

// What the canvas shows, as a coarse fingerprint, so a new picture can be told from the old one.
const picture = () => page.evaluate(() => {
  const canvas = document.getElementById('frame-canvas');
  if (!canvas.width) return '';
  const { data: px } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
  let sum = 0;
  for (let i = 0; i < px.length; i += 4 * 61) sum = (sum * 31 + px[i] + px[i + 1] * 3 + px[i + 2] * 7) % 1e9;
  return String(sum);
});
const tap = async (point) => page.mouse.click(...(await pagePoint(page, point)));
await until('the first picture', async () => (await picture()) !== '');
await page.getByRole('radio', { name: 'Touch' }).check();

service.kill('SIGKILL');
await until('the console to say it is reconnecting', async () => (await status()) === 'Reconnecting…');
await page.screenshot({ path: join(screens, 'restart-1-reconnecting.png') });
await startService();
await until('the console to reconnect', async () => (await status()) === 'Connected');
// The shop reconnects on its own schedule: a touch sent before its stream is back reaches nobody.
const agentApi = await signIn(serviceUrl, readCredentials(join(data, 'agent.json')));
await until('the shop\'s stream to reconnect', async () => {
  const { sessions } = (await agentApi('GET', '/api/1/agent/sessions')).body;
  const live = sessions.find(({ state }) => state === 'active');
  return live && (await agentApi('GET', `/api/1/agent/sessions/${live.id}/sockets`)).body.stream > 0;
});

// The same session goes on: a tap on the first product opens it, the shop says so, and the new
// screen reaches the console.
const before = await picture();
await tap([195, 156]);
await until('the shop to open the product', () => /^app: open /m.test(output));
await until('the new screen on the canvas', async () => (await picture()) !== before);
if ((await page.locator('#session-state').textContent()) !== 'Active') await fail('the session is no longer active');
await new Promise((resolve) => setTimeout(resolve, 1000)); // past the page's slide-in
await page.screenshot({ path: join(screens, 'restart-2-resumed.png') });
console.log('restart: the console reconnected by itself, the stream resumed and the agent operated the shop again');
await cleanup();
process.exit(0);
