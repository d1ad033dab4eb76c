import { createService } from '../src/app.js';

// Starts a service on a free loopback port for one test file; `api` speaks JSON to it.
export async function startService(options = {}) {
  const logLines = [];
  const service = createService({ log: (line) => logLines.push(line), logRequests: false, ...options });
  const baseUrl = await service.listen(0);

  async function api(method, path, body, { raw, headers = {} } = {}) {
    const init = { method, headers: { ...headers } };
    if (raw !== undefined) init.body = raw;
    else if (body !== undefined) init.body = JSON.stringify(body);
    if (init.body !== undefined || method === 'POST') {
      init.headers['Content-Type'] ??= 'application/json; charset=utf-8';
    }
    const response = await fetch(`${baseUrl}${path}`, init);
    const text = await response.text();
    return { status: response.status, headers: response.headers, body: text ? JSON.parse(text) : undefined };
  }

  return { service, baseUrl, api, logLines, close: () => service.close() };
}
