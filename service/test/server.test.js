import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, readFile, rm, stat } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { createService } from '../src/app.js';
import { eventually } from '../test-support/start-service.js';

const SERVER = fileURLToPath(new URL('../src/server.js', import.meta.url));

test('the command line service announces itself, writes the port file and the demo agent, logs requests without tokens and stops on SIGTERM', async (t) => {
  const dir = await mkdtemp(join(tmpdir(), 'halvora-service-'));
  t.after(() => rm(dir, { recursive: true, force: true }));
  const portFile = join(dir, 'service.url');
  const args = [SERVER, '--port', '0', '--port-file', portFile, '--next-registration', '45', '--data', join(dir, 'state'),
    '--demo-agent', join(dir, 'agent.json')];
  const child = spawn(process.execPath, args, { stdio: ['ignore', 'pipe', 'pipe'] });
  t.after(() => child.kill('SIGKILL'));
  const exited = once(child, 'exit');
  const output = { stdout: '', stderr: '' };
  child.stdout.setEncoding('utf8').on('data', (text) => (output.stdout += text));
  child.stderr.setEncoding('utf8').on('data', (text) => (output.stderr += text));

  await eventually(() => assert.ok(output.stdout.includes('\n') || child.exitCode !== null), 30_000);
  const match = /^Halvora reference service listening on (http:\/\/127\.0\.0\.1:(\d+))\n$/.exec(output.stdout);
  assert.ok(match, `unexpected stdout: ${JSON.stringify(output.stdout)} stderr: ${output.stderr}`);
  const baseUrl = match[1];
  assert.notEqual(match[2], '0');
  assert.equal((await readFile(portFile, 'utf8')).trim(), baseUrl);

  const response = await fetch(`${baseUrl}/api/1/devices/CLI-DEVICE`, {
    method: 'PUT',
    headers: { 'Content-Type': 'application/json; charset=utf-8' },
    body: JSON.stringify({ push_token: '', push_provider: 'none', device: {} }),
  });
  const device = await response.json();
  assert.equal(device.next_registration, 45);
  assert.equal(device.notification_url, baseUrl);
  // The demo agent's sign-in is for its owner's eyes only, and it works.
  assert.equal((await stat(join(dir, 'agent.json'))).mode & 0o777, 0o600);
  const signedIn = await fetch(`${baseUrl}/api/1/agent/sign-in`, { method: 'POST', body: await readFile(join(dir, 'agent.json')) });
  assert.equal(signedIn.status, 200);
  // A token in the query must not reach the log either.
  await fetch(`${baseUrl}/api/1/agent/devices?token=${device.notification_token}`,
    { headers: { Cookie: signedIn.headers.get('set-cookie').split(';')[0] } });
  await eventually(() => assert.match(output.stderr, /Z GET \/api\/1\/agent\/devices 200 \d+ms\n/));
  assert.match(output.stderr, /Z PUT \/api\/1\/devices\/CLI-DEVICE 200 \d+ms\n/);
  assert.ok(!output.stderr.includes(device.notification_token));

  child.kill('SIGTERM');
  const [code] = await exited;
  assert.equal(code, 0);
  assert.equal(output.stdout.split('\n').length, 2, 'exactly one line on stdout');
});

test('in-process, only loopback hosts are accepted unless remote access is allowed', async () => {
  const service = createService();
  await assert.rejects(service.listen(0, '0.0.0.0'), /not a loopback address/);
  assert.equal(service.server.listening, false);
  const baseUrl = await service.listen(0, 'localhost');
  assert.match(baseUrl, /^http:\/\/(127\.0\.0\.1|\[::1\]):\d+$/);
  await service.close();
});
