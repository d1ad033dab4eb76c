// The agent's console in Chromium on a desktop-sized application (the desk demo, 1280x800): the
// picture shown at actual size, one pixel per pixel, its text readable (a screenshot is kept),
// after changed regions were drawn over a whole frame; the console's pixels are then checked
// against a whole frame of the same moment, which a second agent socket asks for.
//   node desktop_e2e.mjs URL_FILE HALVORA_DESKTOP_DEMO [SCREENS_DIR]
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { agentHarness } from '../support/agent_harness.mjs';
import { fillSignIn, launchChromium, poller, root, serviceRequire, startSessionOn } from './console_support.mjs';

const [urlFile, desk, screensArg] = process.argv.slice(2);
if (!urlFile || !desk) {
  console.error('usage: node desktop_e2e.mjs URL_FILE HALVORA_DESKTOP_DEMO [SCREENS_DIR]');
  process.exit(2);
}
const DESK = { width: 1280, height: 800 };
const { buildConsole } = await import(join(root, 'service/console/build.mjs'));
const { io } = serviceRequire('socket.io-client');
const serviceUrl = readFileSync(urlFile, 'utf8').trim();
const account = JSON.parse(readFileSync(`${urlFile}.agent`, 'utf8'));
const screens = screensArg ?? join(root, 'build/default/console-screens');
mkdirSync(screens, { recursive: true });
const data = mkdtempSync(join(tmpdir(), 'halvora-desk-'));

let browser;
let page;
let app;
let watcher;
let output = '';

async function cleanup() {
  app?.removeAllListeners('exit');
  app?.kill('SIGKILL');
  watcher?.close();
  await browser?.close().catch(() => {});
  rmSync(data, { recursive: true, force: true });
}
async function fail(message) {
  console.error(`FAIL: ${message}\n--- desk stdout (end)\n${output.slice(-3000)}`);
  await page?.screenshot({ path: join(screens, 'desktop-failure.png') }).catch(() => {});
  await cleanup();
  process.exit(1);
}
const until = poller(fail);
const { api } = agentHarness({
  serviceUrl, agentFile: `${urlFile}.agent`, limitMs: 30_000, context: () => output.slice(-3000), cleanup: () => {},
});

app = spawn(desk, ['--api', serviceUrl, '--data', data], {
  stdio: ['ignore', 'pipe', 'inherit'],
  env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software' },
});
app.stdout.setEncoding('utf8').on('data', (chunk) => (output += chunk));
app.on('exit', (code, signal) => fail(`the desk exited (${code ?? signal})`));
const deviceId = await until('the desk to register', () => output.match(/^device (\S+)$/m)?.[1]);
const place = (name) => {
  const found = output.match(new RegExp(`^app: place ${name} (\\d+) (\\d+)$`, 'm'));
  return found ? [Number(found[1]), Number(found[2])] : undefined;
};

await buildConsole();
browser = await launchChromium();
// Room for the 1280x800 picture beside the console's own panels.
page = await browser.newPage({ viewport: { width: 1700, height: 1100 } });
const pageErrors = [];
page.on('pageerror', (err) => pageErrors.push(err.message));
await page.goto(`${serviceUrl}/console`);
await fillSignIn(page, account);
await startSessionOn(page, deviceId, until);
await until('the desk\'s picture', () => page.evaluate(() => document.getElementById('frame-canvas').width === 1280));

// Actual size, by the keyboard: the picture takes 1280x800 pixels of the page.
await page.locator('#size-toggle').press('Enter');
const box = await until('the picture at actual size', async () => {
  const seen = await page.locator('#frame-canvas').boundingBox();
  return seen && Math.round(seen.width) === DESK.width && Math.round(seen.height) === DESK.height ? seen : undefined;
});

// A second agent socket on the same session sees every frame the console gets.
const sessions = (await api('GET', '/api/1/agent/sessions')).sessions;
const session = sessions.find((s) => s.state === 'active' && JSON.stringify(s).includes(deviceId));
if (!session) await fail('no active session for the desk');
const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
const frames = [];
watcher = io(serviceUrl, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });
watcher.on('frame', (record) => frames.push({ ...record, arrived: Date.now() }));
watcher.on('connect', () => watcher.emit('sync', { type: 'Sync', regions: true }));
await until('a whole frame at the second socket', () => frames.some((f) => Buffer.isBuffer(f.image)));

// Operate the desk from the console: open an order in the table (the form shows it, the caret
// leaves the customer field) and wait until the picture stays still.
await page.getByRole('radio', { name: 'Touch' }).check();
const [tableX, tableY] = await until('the desk to say where its table is', () => place('table'));
// Three orders in a row, each its own changed regions drawn over the last. The table reaches the
// window's bottom; its heading is 36 points high and its rows 32.
const tableTop = 2 * tableY - DESK.height;
for (const [row, number] of [[3, 10403], [6, 10406], [9, 10409]]) {
  await page.mouse.click(box.x + tableX - 200, box.y + tableTop + 36 + 32 * row + 16);
  await until(`order #${number} to open`, () => output.includes(`app: open order #${number}`));
  await page.waitForTimeout(400);
}
await until('the picture to stay still', () => frames.length > 0 && Date.now() - frames.at(-1).arrived > 1500, 20_000);

const lastWhole = frames.findLastIndex((f) => Buffer.isBuffer(f.image));
const regionFrames = frames.slice(lastWhole + 1);
if (regionFrames.length < 2 || regionFrames.some((f) => !Array.isArray(f.regions))) {
  await fail(`after the last whole frame came ${regionFrames.length} frames, not all of them regions`);
}
// The console has drawn them all once its statistics count them; then keep what it shows.
await page.waitForTimeout(500);
await page.screenshot({ path: join(screens, 'desktop-actual-size.png') });
// A part of it at one pixel per pixel, small enough to look at as it is: the table and the form.
await page.screenshot({ path: join(screens, 'desktop-actual-size-detail.png'), clip: { x: box.x + 180, y: box.y, width: 900, height: 320 } });
await page.evaluate(() => {
  const canvas = document.getElementById('frame-canvas');
  window.shownPixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
});

// A whole frame of the same moment: this socket stops drawing regions, so the device sends whole.
const before = frames.length;
watcher.emit('sync', { type: 'Sync' });
const whole = await until('a whole frame of the same moment', () => frames.slice(before).find((f) => Buffer.isBuffer(f.image)));
const compare = (jpegBase64) => page.evaluate(async (encoded) => {
  const bytes = Uint8Array.from(atob(encoded), (c) => c.charCodeAt(0));
  const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }));
  const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
  canvas.getContext('2d').drawImage(bitmap, 0, 0);
  const reference = canvas.getContext('2d').getImageData(0, 0, bitmap.width, bitmap.height).data;
  const shown = window.shownPixels;
  if (reference.length !== shown.length) return { sizeDiffers: true };
  let far = 0;
  let largest = 0;
  for (let i = 0; i < shown.length; i += 4) {
    const d = Math.max(Math.abs(shown[i] - reference[i]), Math.abs(shown[i + 1] - reference[i + 1]), Math.abs(shown[i + 2] - reference[i + 2]));
    largest = Math.max(largest, d);
    if (d > 48) far += 1;
  }
  return { far, share: far / (shown.length / 4), largest };
}, jpegBase64);
const same = await compare(whole.image.toString('base64'));
// The comparison can tell: the whole frame the regions were drawn over differs from the moment.
const stale = await compare(frames[lastWhole].image.toString('base64'));
console.log(`composited regions against a whole frame: ${same.far} pixels differ by more than 48 levels ` +
  `(${(100 * same.share).toFixed(3)} %), largest ${same.largest}; against the frame they were drawn over: ${stale.far} pixels`);
if (same.sizeDiffers || same.share > 0.001) await fail('the console\'s picture is not the desk\'s whole frame');
if (!(stale.far > 200)) await fail('the regions changed nothing the comparison could see');
if (pageErrors.length) await fail(`the console threw: ${pageErrors.join('; ')}`);

await page.getByRole('button', { name: 'End session' }).click();
await until('the session to end', async () => (await page.locator('#session-state').textContent()) === 'Ended');
console.log(`desktop console: ${regionFrames.length} region frames drawn at actual size; screenshot ${join(screens, 'desktop-actual-size.png')}`);
await cleanup();
