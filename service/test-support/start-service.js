import assert from 'node:assert/strict';
import { randomUUID } from 'node:crypto';
import { request } from 'node:http';
import { UNUSABLE_HASH } from '../src/agents/passwords.js';
import { createService } from '../src/app.js';
import { SIGN_IN_COOKIE } from '../src/routes/sign-in-routes.js';

// Starts a service on a free loopback port for one test file; `api` speaks JSON to it, as the
// signed-in agent "Dana" unless told `{ cookie }` (null for none), and on the device API as the
// registered device `ctx.device` unless told `{ device }` (a device from `registerDevice`, or null
// for none). `signedIn(name)` signs in another agent and gives its cookie. The device API is not
// rate-limited unless `deviceRateLimit` says so: every test client shares one address.
export async function startService(options = {}) {
  const logLines = [];
  const service = createService({ log: (line) => logLines.push(line), logRequests: false, deviceRateLimit: 0, ...options });
  const baseUrl = await service.listen(0);
  const signedIn = (name) => {
    const accounts = service.store.agents;
    const { id } = accounts.findByName(name) ?? accounts.add(name, UNUSABLE_HASH);
    return `${SIGN_IN_COOKIE}=${accounts.signIn(id)}`;
  };
  const agentCookie = signedIn('Dana');

  let defaultDevice;
  async function api(method, path, body, { raw, cookie = agentCookie, headers = {}, device = defaultDevice } = {}) {
    const init = { method, headers: { ...headers }, body: raw ?? (body === undefined ? undefined : JSON.stringify(body)) };
    if (cookie) init.headers.Cookie = cookie;
    if (device && isDevicePath(path)) init.headers.Authorization ??= `Bearer ${device.credential}`;
    if (init.body !== undefined || method === 'POST') init.headers['Content-Type'] = 'application/json; charset=utf-8';
    const response = await fetch(`${baseUrl}${path}`, init);
    const text = await response.text();
    return { status: response.status, headers: response.headers, body: text ? JSON.parse(text) : undefined };
  }

  // A new device (or `id`): { id, credential, record }.
  async function registerDevice(id = `TEST-${randomUUID()}`, registration = {}) {
    const { status, body } = await api('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device: {}, ...registration }, { device: null });
    assert.equal(status, 200, JSON.stringify(body));
    const { credential, ...record } = body;
    return { id, credential, record };
  }
  defaultDevice = await registerDevice();

  return { service, baseUrl, api, signedIn, registerDevice, device: defaultDevice, logLines, close: () => service.close() };
}

const isDevicePath = (path) => path.startsWith('/api/1/sessions') || path.startsWith('/api/1/devices');

// Checks an error answer: its status, and a message equal to a string or matching a pattern.
export async function expectError(answer, status, message) {
  const { status: got, body } = await answer;
  assert.equal(got, status, JSON.stringify(body));
  if (message instanceof RegExp) assert.match(body.message, message);
  else assert.deepEqual(body, { message });
}

// Retries a check until it holds, for state that settles a moment after something happened.
export async function eventually(check, waitMs = 10_000) {
  const deadline = Date.now() + waitMs;
  for (;;) {
    try {
      return await check();
    } catch (err) {
      if (Date.now() > deadline) throw err;
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
  }
}

// A request from a loopback address of our choosing, with any Host header.
export function rawRequest(baseUrl, { method = 'GET', path, headers = {}, body, from = '127.0.0.1' }) {
  const { port } = new URL(baseUrl);
  return new Promise((resolve, reject) => {
    const req = request({ host: '127.0.0.1', port, method, path, localAddress: from, headers }, (res) => {
      let text = '';
      res.on('data', (chunk) => (text += chunk));
      res.on('end', () => resolve({ status: res.statusCode, body: parsed(text) }));
    });
    req.on('error', reject);
    req.end(body === undefined ? undefined : JSON.stringify(body));
  });
}

function parsed(text) {
  try {
    return text ? JSON.parse(text) : undefined;
  } catch {
    return text;
  }
}
