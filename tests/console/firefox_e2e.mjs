// The agent's console in Debian's Firefox, driven over WebDriver BiDi (playwright-core's driver
// needs a newer Firefox than Debian's ESR): sign in, start a session for the demo shop, see its
// picture on the canvas, tap the search field and type into it with real pointer and key input,
// see the shop report it, end. A screenshot of the live view is kept.
//   node firefox_e2e.mjs URL_FILE HALVORA_DEMO_SHOP [SCREENS_DIR]
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { freePort, poller, root, serviceRequire, SHOP } from './console_support.mjs';

const [urlFile, shop, screensArg] = process.argv.slice(2);
if (!urlFile || !shop) {
  console.error('usage: node firefox_e2e.mjs URL_FILE HALVORA_DEMO_SHOP [SCREENS_DIR]');
  process.exit(2);
}
const WebSocket = serviceRequire('ws');
const serviceUrl = readFileSync(urlFile, 'utf8').trim();
const account = JSON.parse(readFileSync(`${urlFile}.agent`, 'utf8'));
const screens = screensArg ?? join(root, 'build/default/console-screens');
mkdirSync(screens, { recursive: true });
const data = mkdtempSync(join(tmpdir(), 'halvora-firefox-'));

let firefox;
let app;
let output = '';
const cleanup = () => {
  app?.removeAllListeners('exit');
  app?.kill('SIGKILL');
  firefox?.kill('SIGKILL');
  rmSync(data, { recursive: true, force: true });
};
function fail(message) {
  console.error(`FAIL: ${message}\n--- shop stdout\n${output}`);
  cleanup();
  process.exit(1);
}
const until = poller(fail);

// Firefox with a BiDi endpoint, and a minimal client: send(method, params) resolves to the result.
const port = await freePort();
mkdirSync(join(data, 'profile'));
firefox = spawn('firefox-esr', ['--headless', '--remote-debugging-port', String(port), '--profile', join(data, 'profile'),
  'about:blank'], { stdio: ['ignore', 'ignore', 'pipe'] });
let firefoxLog = '';
firefox.stderr.on('data', (chunk) => (firefoxLog += chunk));
await until('Firefox to listen', () => firefoxLog.includes('WebDriver BiDi listening'));
const socket = new WebSocket(`ws://127.0.0.1:${port}/session`);
await new Promise((resolve, reject) => socket.once('open', resolve).once('error', reject));
const pending = new Map();
let nextId = 0;
socket.on('message', (text) => {
  const message = JSON.parse(text);
  pending.get(message.id)?.(message);
  pending.delete(message.id);
});
async function send(method, params) {
  nextId += 1;
  const answer = await new Promise((resolve) => {
    pending.set(nextId, resolve);
    socket.send(JSON.stringify({ id: nextId, method, params }));
  });
  if (answer.type !== 'success') fail(`${method}: ${answer.error} ${answer.message}`);
  return answer.result;
}

await send('session.new', { capabilities: {} });
const { contexts: [{ context }] } = await send('browsingContext.getTree', {});
await send('browsingContext.setViewport', { context, viewport: { width: 1280, height: 860 } });
// Runs an expression in the page and gives its value (JSON-able values only).
const page = async (expression) => {
  const result = await send('script.evaluate', { expression: `JSON.stringify(${expression})`, target: { context }, awaitPromise: true });
  if (result.type === 'exception') fail(`${expression}: ${result.exceptionDetails.text}`);
  return JSON.parse(result.result.value ?? 'null');
};
const visible = (id) => page(`!document.getElementById('${id}').hidden`);

app = spawn(shop, ['--api', serviceUrl, '--data', join(data, 'shop')], {
  stdio: ['ignore', 'pipe', 'inherit'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: join(data, 'shop') },
});
app.stdout.on('data', (chunk) => (output += chunk));
app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));
const deviceId = await until('the shop to register', () => output.match(/^device (\S+)$/m)?.[1]);

await send('browsingContext.navigate', { context, url: `${serviceUrl}/console/`, wait: 'complete' });
await until('the sign-in form', () => visible('sign-in-view'));
await page(`(() => {
  document.getElementById('sign-in-name').value = ${JSON.stringify(account.name)};
  document.getElementById('sign-in-password').value = ${JSON.stringify(account.password)};
  document.getElementById('sign-in-form').requestSubmit();
})()`);
await until('the shop in the device list', () => page(`document.getElementById('device-rows').textContent.includes('${deviceId}')`));
await page(`[...document.querySelectorAll('#device-rows button')].find((b) => b.getAttribute('aria-label').includes('${deviceId}')).click()`);
await until('the session to be active', async () => (await page(`document.getElementById('session-state').textContent`)) === 'Active');

// The shop's picture: many colours, in the shop's proportions.
const picture = await until('the shop on the canvas', async () => {
  const seen = await page(`(() => {
    const canvas = document.getElementById('frame-canvas');
    if (!canvas.width) return undefined;
    const { data: px } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    const colours = new Set();
    for (let i = 0; i < px.length; i += 4) colours.add(((px[i] >> 4) << 8) | ((px[i + 1] >> 4) << 4) | (px[i + 2] >> 4));
    const box = canvas.getBoundingClientRect();
    return { width: canvas.width, height: canvas.height, colours: colours.size, box: { x: box.x, y: box.y, width: box.width, height: box.height } };
  })()`);
  return seen?.colours > 20 ? seen : undefined;
});
if (Math.abs(picture.width / picture.height - SHOP.width / SHOP.height) > 0.02) fail(`the picture is ${picture.width} x ${picture.height}`);

// Real input: the Touch tool, a click on the shop's search field, then keys.
await page(`document.getElementById('tool-touch').click()`);
const { box } = picture;
const at = ([x, y]) => ({ x: Math.round(box.x + (x / SHOP.width) * box.width), y: Math.round(box.y + (y / SHOP.height) * box.height) });
await send('input.performActions', {
  context,
  actions: [
    { type: 'pointer', id: 'mouse', parameters: { pointerType: 'mouse' },
      actions: [{ type: 'pointerMove', ...at([195, 90]) }, { type: 'pointerDown', button: 0 }, { type: 'pause', duration: 50 },
        { type: 'pointerUp', button: 0 }] },
  ],
});
await new Promise((resolve) => setTimeout(resolve, 1000));
await send('input.performActions', {
  context,
  actions: [{ type: 'key', id: 'keyboard', actions: [...'mug'].flatMap((key) => [{ type: 'keyDown', value: key }, { type: 'keyUp', value: key }]) }],
});
await until('the shop to report the search', () => output.includes('app: search mug'));
await new Promise((resolve) => setTimeout(resolve, 1000)); // for the picture that shows it
const { data: png } = await send('browsingContext.captureScreenshot', { context });
writeFileSync(join(screens, 'firefox-live.png'), Buffer.from(png, 'base64'));

await page(`document.getElementById('end-session').click()`);
await until('the session to end', async () => (await page(`document.getElementById('session-state').textContent`)) === 'Ended');
console.log(`Firefox: signed in, started a session, saw the shop (${picture.colours} colours), typed "mug" into it, ended`);
cleanup();
process.exit(0);
