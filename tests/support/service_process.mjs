// Starts the reference service as its own process, on a free loopback port, for scripts that need
// one of their own (benchmarks, soak). Resolves to { url, process, agentFile } (the demo agent's
// sign-in, for agentHarness); rejects when it does not start. Neither API is rate-limited: these
// scripts are one client making many calls.
import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

const serviceDir = fileURLToPath(new URL('../../service/', import.meta.url));

export async function startServiceProcess(dir, args = ['--memory']) {
  const portFile = join(dir, `service-${process.pid}-${Date.now()}.url`);
  const agentFile = `${portFile}.agent`;
  const child = spawn('node', [join(serviceDir, 'src/server.js'), '--port', '0', '--port-file', portFile, '--quiet',
    '--demo-agent', agentFile, '--agent-rate-limit', '0', '--device-rate-limit', '0', ...args],
    { stdio: 'ignore' });
  for (let i = 0; i < 100; i += 1) {
    try {
      const url = readFileSync(portFile, 'utf8').trim();
      if (url) return { url, process: child, agentFile };
    } catch {
      // not written yet
    }
    if (child.exitCode !== null) break;
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
  child.kill('SIGKILL');
  throw new Error('the reference service did not start');
}
