import assert from 'node:assert/strict';
import { createService } from '../src/app.js';

// Starts a service on a free loopback port for one test file; `api` speaks JSON to it.
export async function startService() {
  const logLines = [];
  const service = createService({ log: (line) => logLines.push(line), logRequests: false });
  const baseUrl = await service.listen(0);

  async function api(method, path, body, { raw } = {}) {
    const init = { method, headers: {}, body: raw ?? (body === undefined ? undefined : JSON.stringify(body)) };
    if (init.body !== undefined || method === 'POST') init.headers['Content-Type'] = 'application/json; charset=utf-8';
    const response = await fetch(`${baseUrl}${path}`, init);
    const text = await response.text();
    return { status: response.status, headers: response.headers, body: text ? JSON.parse(text) : undefined };
  }

  return { service, baseUrl, api, logLines, close: () => service.close() };
}

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
