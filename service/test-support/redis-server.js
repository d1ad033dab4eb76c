import { spawn } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

// Starts Debian's redis-server on a free loopback port, in a temporary directory, saving nothing
// to disk. Resolves to { url, stop() } once it accepts connections.
export async function startRedis() {
  const dir = await mkdtemp(join(tmpdir(), 'halvora-redis-'));
  const port = await freePort();
  const child = spawn('redis-server', ['--port', String(port), '--bind', '127.0.0.1', '--dir', dir, '--save', '',
    '--appendonly', 'no'], { stdio: ['ignore', 'pipe', 'pipe'] });
  let output = '';
  child.stdout.on('data', (chunk) => (output += chunk));
  child.stderr.on('data', (chunk) => (output += chunk));
  const stop = async () => {
    child.kill('SIGKILL');
    await rm(dir, { recursive: true, force: true });
  };
  await new Promise((resolve, reject) => {
    child.on('error', (err) => reject(new Error(`redis-server did not start (${err.message}); scripts/install-deps.sh installs it`)));
    const started = Date.now();
    const check = () => {
      if (output.includes('Ready to accept connections')) return resolve();
      if (child.exitCode !== null || Date.now() - started > 10_000) return reject(new Error(`redis-server did not start:\n${output}`));
      setTimeout(check, 20);
    };
    check();
  }).catch(async (err) => {
    await stop();
    throw err;
  });
  return { url: `redis://127.0.0.1:${port}`, stop };
}

function freePort() {
  return new Promise((resolve, reject) => {
    const probe = createServer().listen(0, '127.0.0.1', () => {
      const { port } = probe.address();
      probe.close(() => resolve(port));
    });
    probe.on('error', reject);
  });
}
