// The agent's web console in a real browser (Debian's Chromium, driven by playwright-core) against
// the reference service and the demo shop, as a support agent uses it:
//   agent-started  a wrong password is refused; sign in; find the shop in the device list; start a
//                  session; the shop's screen is drawn; the wheel, a tap, typing and a shortcut
//                  on the screen reach the shop's own controls; a stroke drawn in the console shows in the shop's window
//                  where it was drawn and goes again with "Clear drawing"; the shop is asked to
//                  open a web address; end the session.
//   user-started   the shop's played user asks for help and reads out the code; a link to the
//                  session asks before joining it; join by the code, wait for the user's approval,
//                  see the screen, end the session.
// A screenshot of the console is kept for each step.
//   node console_e2e.mjs URL_FILE HALVORA_DEMO_SHOP [SCREENS_DIR]
// URL_FILE holds the service's base URL and URL_FILE.agent the demo agent's {"name", "password"}
// (scripts/service-fixture.sh writes both).
import { spawn } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fillSignIn, launchChromium, pagePoint, poller, root, SHOP, startSessionOn } from './console_support.mjs';

const [urlFile, shop, screensArg] = process.argv.slice(2);
if (!urlFile || !shop) {
  console.error('usage: node console_e2e.mjs URL_FILE HALVORA_DEMO_SHOP [SCREENS_DIR]');
  process.exit(2);
}
const { buildConsole } = await import(join(root, 'service/console/build.mjs'));

const serviceUrl = readFileSync(urlFile, 'utf8').trim();
if (!existsSync(`${urlFile}.agent`)) {
  console.error(`FAIL: ${urlFile}.agent is missing: the service fixture writes the demo agent's account there`);
  process.exit(1);
}
const account = JSON.parse(readFileSync(`${urlFile}.agent`, 'utf8'));
const screens = screensArg ?? join(root, 'build/default/console-screens');
mkdirSync(screens, { recursive: true });
const data = mkdtempSync(join(tmpdir(), 'halvora-console-'));

let browser;
let page;
let app;
let output = '';
let errors = '';
let step = 0;

async function fail(message) {
  console.error(`FAIL: ${message}\n--- shop stdout\n${output}\n--- shop stderr\n${errors.slice(-4000)}`);
  await page?.screenshot({ path: join(screens, 'failure.png') }).catch(() => {});
  await cleanup();
  process.exit(1);
}

async function cleanup() {
  app?.removeAllListeners('exit');
  app?.kill('SIGKILL');
  await browser?.close().catch(() => {});
  rmSync(data, { recursive: true, force: true });
}

const until = poller(fail);

async function shot(name) {
  step += 1;
  await page.screenshot({ path: join(screens, `${String(step).padStart(2, '0')}-${name}.png`) });
}

function launchShop(args) {
  output = '';
  errors = '';
  const shopData = mkdtempSync(join(data, 'shop-'));
  app = spawn(shop, ['--api', serviceUrl, '--data', shopData, ...args], {
    stdio: ['pipe', 'pipe', 'pipe'],
    env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software', XDG_DATA_HOME: shopData },
  });
  app.stdout.on('data', (chunk) => (output += chunk));
  app.stderr.on('data', (chunk) => (errors += chunk));
  app.on('exit', (code, signal) => fail(`the shop exited (${code ?? signal})`));
}

function stopShop() {
  app.removeAllListeners('exit');
  app.kill('SIGKILL');
}

const stateText = () => page.locator('#session-state').textContent();

// Clicks (or drags through) points of the shop's window on the console's picture of it.
const screenPoint = (point) => pagePoint(page, point);

// The picture on the console's canvas: its size, how many colours, and pixels of the shop's
// product tiles (blue #2a6fdb, green #2e9d57, orange #e8891c).
const canvasSummary = () => page.evaluate(() => {
  const canvas = document.getElementById('frame-canvas');
  const { data: px } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
  const colours = new Set();
  const tiles = { blue: 0, green: 0, orange: 0 };
  const near = (i, [r, g, b]) => Math.abs(px[i] - r) + Math.abs(px[i + 1] - g) + Math.abs(px[i + 2] - b) < 60;
  for (let i = 0; i < px.length; i += 4) {
    colours.add(((px[i] >> 4) << 8) | ((px[i + 1] >> 4) << 4) | (px[i + 2] >> 4));
    if (near(i, [0x2a, 0x6f, 0xdb])) tiles.blue += 1;
    if (near(i, [0x2e, 0x9d, 0x57])) tiles.green += 1;
    if (near(i, [0xe8, 0x89, 0x1c])) tiles.orange += 1;
  }
  return { width: canvas.width, height: canvas.height, colours: colours.size, tiles };
});

async function expectShopOnCanvas(where) {
  const summary = await until(`the shop's picture on the canvas (${where})`, async () => {
    const seen = await canvasSummary();
    return seen.colours > 20 && Object.values(seen.tiles).every((count) => count > 50) ? seen : undefined;
  });
  const ratio = summary.width / summary.height;
  if (Math.abs(ratio - SHOP.width / SHOP.height) > 0.02) await fail(`the picture is ${summary.width} x ${summary.height}`);
  return summary;
}

// The shop's own window, saved on request ("screenshot NAME" on its standard input): which of the
// pixels in a box (shop points) are the console's stroke colour (#ff2d2d).
let windowShots = 0;
async function shopWindow([left, top, width, height]) {
  const name = `window-${(windowShots += 1)}`;
  app.stdin.write(`screenshot ${name}\n`);
  const path = await until(`the shop's window ${name}`, () => output.match(new RegExp(`^screenshot (.*${name}\\.png)$`, 'm'))?.[1]);
  const png = readFileSync(path).toString('base64');
  const viewer = await browser.newPage();
  try {
    const mask = await viewer.evaluate(async ({ png, box, shopWidth }) => {
      const bytes = Uint8Array.from(atob(png), (c) => c.charCodeAt(0));
      const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/png' }));
      const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
      const context = canvas.getContext('2d');
      context.drawImage(bitmap, 0, 0);
      // In shop points, whatever the window's pixel density.
      const scale = bitmap.width / shopWidth;
      const rows = [];
      for (let y = box[1]; y < box[1] + box[3]; y += 1) {
        const { data: px } = context.getImageData(box[0] * scale, y * scale, box[2] * scale, 1);
        const row = [];
        for (let x = 0; x < box[2]; x += 1) {
          const i = Math.floor(x * scale) * 4;
          row.push(px[i] > 200 && px[i + 1] < 110 && px[i + 2] < 110);
        }
        rows.push(row);
      }
      return rows;
    }, { png, box: [left, top, width, height], shopWidth: SHOP.width });
    return { left, top, mask };
  } finally {
    await viewer.close();
  }
}

// The bounds (shop points) of stroke pixels in `after` that were not in `before`, and their count.
function newStroke(after, before) {
  const found = { count: 0, left: Infinity, right: -Infinity, top: Infinity, bottom: -Infinity };
  after.mask.forEach((row, y) => row.forEach((on, x) => {
    if (!on || before.mask[y][x]) return;
    found.count += 1;
    found.left = Math.min(found.left, after.left + x);
    found.right = Math.max(found.right, after.left + x);
    found.top = Math.min(found.top, after.top + y);
    found.bottom = Math.max(found.bottom, after.top + y);
  }));
  return found;
}

await buildConsole();
browser = await launchChromium();
page = await browser.newPage({ viewport: { width: 1280, height: 860 } });
const pageErrors = [];
page.on('pageerror', (err) => pageErrors.push(err.message));

// 1. Agent-started.
launchShop(['--screenshots', join(data, 'window')]);
const deviceId = await until('the shop to register', () => output.match(/^device (\S+)$/m)?.[1]);

await page.goto(`${serviceUrl}/console`);
await fillSignIn(page, { name: account.name, password: `${account.password}-wrong` });
await until('the wrong password to be refused', async () =>
  (await page.locator('#sign-in-error').textContent()) === 'Wrong name or password.');
await shot('wrong-password');

await fillSignIn(page, account);
await startSessionOn(page, deviceId, until, { beforeStart: () => shot('devices') });
await expectShopOnCanvas('agent-started');
// The delay needs a probe's round trip through the device and a frame drawn.
await until('the delay figure', async () => /^≈ \d+ ms$/.test(await page.locator('#stat-delay').textContent()));
await shot('live');

// Touch: the wheel over the product list scrolls it (other tiles reach the picture) and back up
// again (the same tiles); tap the search field, type into it, select it all with Ctrl+A and type
// over it, then open the one product left.
await page.getByRole('radio', { name: 'Touch' }).check();
const tilesNow = async () => (await canvasSummary()).tiles;
// Changed regions drawn over the picture shift colours at their edges a little, as JPEG does.
const sameTiles = (a, b) => Object.keys(a).every((colour) => Math.abs(a[colour] - b[colour]) <= 0.02 * Math.max(a[colour], b[colour], 100));
const top = await tilesNow();
await page.mouse.move(...(await screenPoint([195, 500])));
await page.mouse.wheel(0, 500);
await until('the wheel to scroll the list', async () => !sameTiles(await tilesNow(), top));
await page.mouse.wheel(0, -2000);
await until('the wheel to scroll the list back to its top', async () => sameTiles(await tilesNow(), top));
await page.mouse.click(...(await screenPoint([195, 90])));
await page.keyboard.type('mug');
await until('the shop to be searched', () => output.includes('app: search mug'));
await page.keyboard.press('Control+a');
await page.keyboard.type('tea');
await until('the search to be typed over', () => output.includes('app: search tea'));
await page.mouse.click(...(await screenPoint([195, 156])));
await until('the product to open', () => output.includes('app: open Tea tin'));
await shot('operated');

// Draw: a wave from (60, 580) to (330, 580), 10 points high, on the product page's plain lower
// half; the shop must show it there, where the agent drew it.
const band = [0, 520, SHOP.width, 120]; // x, y, width, height in shop points
const before = await shopWindow(band);
await page.getByRole('radio', { name: 'Draw' }).check();
await page.mouse.move(...(await screenPoint([60, 580])));
await page.mouse.down();
for (let x = 60; x <= 330; x += 10) await page.mouse.move(...(await screenPoint([x, 580 + 10 * Math.sin(x / 20)])));
await page.mouse.up();
const drawn = await until('the drawing in the shop\'s window', async () => {
  const stroke = newStroke(await shopWindow(band), before);
  return stroke.count > 400 ? stroke : undefined;
});
const near = (value, expected) => Math.abs(value - expected) <= 8;
if (!near(drawn.left, 60) || !near(drawn.right, 330) || !near(drawn.top, 570) || !near(drawn.bottom, 590)) {
  await fail(`the shop shows the stroke at x ${drawn.left}..${drawn.right}, y ${drawn.top}..${drawn.bottom}`);
}
await shot('drawing');
await page.getByRole('button', { name: 'Clear drawing' }).click();
await until('the drawing to be cleared', async () => newStroke(await shopWindow(band), before).count < 20);

// Only web addresses are sent.
const urlField = page.getByLabel('Open URL on device');
await urlField.fill('javascript:alert(1)');
await page.getByRole('button', { name: 'Open', exact: true }).click();
await until('the address to be refused', async () => /^Enter an http or https address/.test(await page.locator('#url-result').textContent()));
await urlField.fill('https://example.com/help');
await page.getByRole('button', { name: 'Open', exact: true }).click();
await until('the shop to open the address', () => `${output}${errors}`.includes('asked to open https://example.com/help'));

await page.getByRole('button', { name: 'End session' }).click();
await until('the session to end', async () => (await stateText()) === 'Ended');
await until('the shop to hear of the end', () => /^session \d+ ended$/m.test(output));
await shot('ended');
stopShop();
console.log(`agent-started: signed in, found the shop, operated it, drew on it (seen at x ${drawn.left}..${drawn.right}, y ${drawn.top}..${drawn.bottom}), ended`);

// 2. User-started, joined by the code the played user reads out. The user would end the session
// after a minute: the agent ends it first.
launchShop(['--play-user', '60', '--screenshots', join(data, 'user')]);
const [, first, second] = await until('the code read out', () => output.match(/^user: reads the code (\d{3})-(\d{3}) /m));
// A link to the session (from anyone: a chat, a ticket) asks before it joins, and joins nothing
// by being opened.
const agentApi = (path) => page.evaluate(async (target) => (await fetch(target)).json(), path);
const linked = (await agentApi('/api/1/agent/sessions')).sessions.find((s) => s.code === `${first}${second}`);
await page.goto(`${serviceUrl}/console/#session/${linked.id}`);
await until('the question before joining', async () => page.getByRole('heading', { name: 'Open this session?' }).isVisible());
await shot('link-asks');
if ((await agentApi(`/api/1/agent/sessions/${linked.id}`)).agent) await fail('opening the link joined the session');
await page.getByRole('button', { name: 'Back to devices' }).click();
// Every state the session view shows, to see that it waited for the user's approval.
await page.evaluate(() => {
  const badge = document.getElementById('session-state');
  window.seenStates = [];
  new MutationObserver(() => window.seenStates.push(badge.textContent))
    .observe(badge, { childList: true, characterData: true, subtree: true });
});
await page.getByLabel('Session code').fill(`${first}-${second}`);
await page.getByRole('button', { name: 'Join' }).click();
await until('the session view', async () => (await page.locator('#session-heading').textContent()) === `Session ${first}-${second}`);
await until('the user to approve', async () => (await stateText()) === 'Active' && output.includes('user: approves the agent'));
const seenStates = await page.evaluate(() => window.seenStates);
if (!seenStates.includes('Waiting for the user’s approval')) await fail(`the view showed ${JSON.stringify(seenStates)}`);
await expectShopOnCanvas('user-started');
await shot('user-started-live');
await page.getByRole('button', { name: 'End session' }).click();
await until('the session to end', async () => (await stateText()) === 'Ended');
await until('the shop to hear of the end', () => output.includes(`session ${first}${second} ended`));
await shot('user-started-ended');
if (pageErrors.length > 0) await fail(`the page threw: ${pageErrors.join('; ')}`);
console.log(`user-started: joined by code ${first}-${second}, approved, ended; screenshots in ${screens}`);
await cleanup();
process.exit(0);
