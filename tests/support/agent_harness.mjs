// What the end-to-end scripts share as the agent: the agent API as the signed-in demo agent,
// waiting for a condition, and failing with the device's output for context.
//   const { fail, api, until, deviceReady } = agentHarness({ serviceUrl, agentFile, limitMs, context, cleanup });
// `agentFile` is where the service's `--demo-agent` wrote the sign-in (scripts/service-fixture.sh
// writes it beside the URL file, as URL_FILE.agent). A service restarted in memory only forgets
// sign-ins and writes a new password, so a refused call signs in again once.
import { readFileSync } from 'node:fs';
import { readCredentials, signIn } from '../../service/tools/agent-client.js';

// The base URL in a fixture's URL file, and the demo agent's sign-in file beside it.
export function fixtureService(urlFile) {
  return { serviceUrl: readFileSync(urlFile, 'utf8').trim(), agentFile: `${urlFile}.agent` };
}

export function agentHarness({ serviceUrl, agentFile, limitMs, context, cleanup }) {
  function fail(message) {
    console.error(`FAIL: ${message}\n${context()}`);
    cleanup();
    process.exit(1);
  }

  let call;
  async function api(method, path, body) {
    for (let attempt = 0; ; attempt += 1) {
      try {
        call ??= await signIn(serviceUrl, readCredentials(agentFile));
      } catch (err) {
        fail(err.message);
      }
      const answer = await call(method, path, body);
      if (answer.status === 401 && attempt === 0) {
        call = undefined;
        continue;
      }
      if (answer.status >= 400) fail(`${method} ${path} answered ${answer.status}: ${JSON.stringify(answer.body)}`);
      return answer.body;
    }
  }

  async function until(what, check) {
    const deadline = Date.now() + limitMs;
    for (;;) {
      const value = await check();
      if (value) return value;
      if (Date.now() > deadline) fail(`timed out waiting for ${what}`);
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
  }

  // The device's identifier once it prints "device ID", after its notification socket is up: an
  // agent-started session is announced over it, so starting one earlier would go unheard.
  async function deviceReady(output) {
    const id = await until('the device to register', () => output().match(/^device (\S+)$/m)?.[1]);
    await until('the notification socket', async () => (await api('GET', `/api/1/agent/devices/${id}/sockets`)).notification > 0);
    return id;
  }

  return { fail, api, until, deviceReady };
}
