// The console's keys, clicks and wheel in a real browser (Debian's Chromium, playwright-core),
// seen from the device's side: the service runs in this process and a scripted device's stream
// socket collects what the console sends. Needs no build of the device side.
//   node tests/console/input_e2e.mjs
import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { buildConsole } from '../../service/console/build.mjs';
import { openSocket, received } from '../../service/test-support/socket-client.js';
import { startService } from '../../service/test-support/start-service.js';
import { launchChromium, poller } from './console_support.mjs';

const built = await buildConsole(mkdtempSync(join(tmpdir(), 'halvora-input-')));
const ctx = await startService({ consoleDir: built });
const browser = await launchChromium();
let stream;
async function finish(code) {
  stream?.close();
  await browser.close().catch(() => {});
  await ctx.close();
  rmSync(built, { recursive: true, force: true });
  process.exit(code);
}
async function fail(message) {
  console.error(`FAIL: ${message}`);
  await finish(1);
}
const until = poller(fail);

async function run() {
  // The device starts a session; the agent opens it by its link; the user lets the agent in.
  const session = (await ctx.api('POST', '/api/1/sessions')).body;
  stream = await openSocket(ctx.baseUrl, { header: session.stream_token });
  const context = await browser.newContext({ viewport: { width: 1280, height: 860 } });
  const [, cookieName, cookieValue] = /^([^=]+)=(.*)$/.exec(ctx.signedIn('Dana'));
  await context.addCookies([{ name: cookieName, value: cookieValue, url: ctx.baseUrl }]);
  const page = await context.newPage();
  await page.goto(`${ctx.baseUrl}/console/#session/${session.id}`);
  await page.getByRole('button', { name: 'Open the session' }).click();
  const shows = async (id, words) => (await page.locator(id).textContent()) === words;
  await until('the console to join', () => shows('#session-state', 'Waiting for the user’s approval'));
  await ctx.api('PUT', `/api/1/sessions/${session.id}`, { state: 'active' });
  await until('the session to turn active', async () => (await shows('#session-state', 'Active')) && shows('#connection-status', 'Connected'));
  // What the page itself did with each event after the console had it.
  await page.evaluate(() => {
    window.browserKept = [];
    for (const type of ['keydown', 'wheel', 'contextmenu']) {
      window.addEventListener(type, (event) => !event.defaultPrevented && window.browserKept.push(event.key ?? type));
    }
  });

  await page.getByRole('radio', { name: 'Touch' }).check();
  const box = await page.locator('#frame-canvas').boundingBox();
  const [x, y] = [box.x + box.width / 2, box.y + box.height / 4];
  const records = (event) => received(stream, event).map(({ id, x: atX, y: atY, ...rest }) => {
    assert.ok(Math.abs(atX - 0.5) < 0.01 && Math.abs(atY - 0.25) < 0.01, `${rest.type} at ${atX}, ${atY}`);
    return rest;
  });

  // Pointer: a double click, a Shift+click, the right and middle buttons, the wheel.
  await page.mouse.dblclick(x, y);
  await new Promise((resolve) => setTimeout(resolve, 600)); // not a third click
  await page.keyboard.down('Shift');
  await page.mouse.click(x, y);
  await page.keyboard.up('Shift');
  await page.mouse.click(x, y, { button: 'right' });
  await page.mouse.click(x, y, { button: 'middle' });
  await page.mouse.wheel(0, 250);
  await new Promise((resolve) => setTimeout(resolve, 200));
  await page.mouse.wheel(-9000, 0);
  const none = { ctrlKey: false, shiftKey: false, altKey: false, metaKey: false };
  const touch = (state, extra = {}) => ({ type: 'Touch', state, pointerType: 'mouse', ...none, ...extra });
  const expectedTouch = [
    touch('touchstart', { clicks: 1 }), touch('touchend'), touch('touchstart', { clicks: 2 }), touch('touchend'),
    touch('touchstart', { shiftKey: true, clicks: 1 }), touch('touchend', { shiftKey: true }),
    { type: 'Click', button: 'secondary', count: 1, ...none },
    { type: 'Click', button: 'middle', count: 1, ...none },
    { type: 'Wheel', deltaX: 0, deltaY: 2.5, ...none },
    { type: 'Wheel', deltaX: -20, deltaY: 0, ...none },
  ];
  await until('the pointer\'s records', () => received(stream, 'touch').length >= expectedTouch.length);
  assert.deepEqual(records('touch'), expectedTouch);

  // Keys, shortcuts and Tab go to the device; Escape then Tab leaves, forwards and backwards.
  const key = (name, code, extra = {}) => ({ type: 'KeyPress', key: name, code, state: 'keydown', ...none, repeat: false, ...extra });
  for (const press of ['a', 'Control+a', 'Shift+Tab', 'F5', 'Escape', 'Enter', 'Tab']) await page.keyboard.press(press);
  await page.keyboard.down('ArrowDown');
  await page.keyboard.down('ArrowDown');
  await page.keyboard.up('ArrowDown');
  await page.keyboard.press('Escape');
  await page.keyboard.press('Tab');
  const forward = await page.evaluate(() => document.activeElement.id || document.activeElement.value);
  await page.locator('#screen').focus();
  await page.keyboard.press('Escape');
  await page.keyboard.press('Shift+Tab');
  const backward = await page.evaluate(() => document.activeElement.id);
  const expectedKeys = [
    key('a', 'KeyA'), key('a', 'KeyA', { ctrlKey: true }), key('Tab', 'Tab', { shiftKey: true }), key('F5', 'F5'),
    key('Escape', 'Escape'), key('Enter', 'Enter'), key('Tab', 'Tab'),
    key('ArrowDown', 'ArrowDown'), key('ArrowDown', 'ArrowDown', { repeat: true }),
    key('Escape', 'Escape'), key('Escape', 'Escape'),
  ];
  await until('the keys\' records', () => received(stream, 'keypress').length >= expectedKeys.length);
  await new Promise((resolve) => setTimeout(resolve, 300)); // for any record that should not come
  assert.deepEqual(received(stream, 'keypress'), expectedKeys);
  assert.equal(forward, 'size-toggle', 'Escape, Tab moves on to the picture\'s size and the tools');
  assert.equal(backward, 'session-back', 'Escape, Shift+Tab moves back to the way out');
  // Only the two Tabs that left were the browser's.
  assert.deepEqual(await page.evaluate(() => window.browserKept), ['Tab', 'Tab']);
}

try {
  await run();
} catch (err) {
  await fail(err.stack ?? err);
}
console.log('input: clicks, wheel and keys reached the device as records; Escape then Tab left the screen');
await finish(0);
