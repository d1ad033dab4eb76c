// What the console's browser tests share: the shop's size, a free port, Chromium, waiting, and
// the console's own way in (sign in, find a device, start a session on it).
import { createRequire } from 'node:module';
import { createServer } from 'node:net';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = fileURLToPath(new URL('../../', import.meta.url));
export const serviceRequire = createRequire(join(root, 'service/package.json'));
// The demo shop's window in points; the console sends fractions of it.
export const SHOP = { width: 390, height: 844 };

export function freePort() {
  return new Promise((resolve) => {
    const probe = createServer().listen(0, '127.0.0.1', () => {
      const { port } = probe.address();
      probe.close(() => resolve(port));
    });
  });
}

// Debian's Chromium, headless.
export function launchChromium() {
  return serviceRequire('playwright-core').chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking'],
  });
}

// until(what, check): polls `check` every 100 ms until it gives something truthy, which it
// returns; after `limitMs` it calls fail(message), which does not return.
export function poller(fail, limitMs = 30_000) {
  return async (what, check, limit = limitMs) => {
    const deadline = Date.now() + limit;
    for (;;) {
      const value = await check();
      if (value) return value;
      if (Date.now() > deadline) await fail(`timed out waiting for ${what}`);
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
  };
}

export async function fillSignIn(page, { name, password }) {
  await page.getByLabel('Name').fill(name);
  await page.getByLabel('Password').fill(password);
  await page.getByRole('button', { name: 'Sign in' }).click();
}

// From the device list: the device found by its id and reachable, then an agent-started session
// on it, until the user's side has made it active.
export async function startSessionOn(page, deviceId, until, { beforeStart = async () => {} } = {}) {
  await page.getByLabel('Search devices').fill(deviceId);
  // The list refreshes itself; the session is announced over the notification socket, so wait for it.
  const row = page.locator('#device-rows tr:not([hidden])');
  await until('the device listed as reachable', async () =>
    (await row.count()) === 1 && (await row.locator('.reachable').textContent()) === 'Yes');
  await beforeStart();
  await row.getByRole('button', { name: /Start session/ }).click();
  await until('the session to turn active', async () => (await page.locator('#session-state').textContent()) === 'Active');
}

// Where a point of the shop's window is on the page, on the console's picture of it.
export async function pagePoint(page, [x, y]) {
  const box = await page.locator('#frame-canvas').boundingBox();
  return [box.x + (x / SHOP.width) * box.width, box.y + (y / SHOP.height) * box.height];
}
