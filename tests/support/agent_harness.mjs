// What the end-to-end scripts share as the agent: the service's REST API, waiting for a condition,
// and failing with the device's output for context.
//   const { fail, api, until, deviceReady } = agentHarness({ serviceUrl, limitMs, context, cleanup });
export function agentHarness({ serviceUrl, limitMs, context, cleanup }) {
  function fail(message) {
    console.error(`FAIL: ${message}\n${context()}`);
    cleanup();
    process.exit(1);
  }

  async function api(method, path) {
    const response = await fetch(`${serviceUrl}${path}`, { method });
    const text = await response.text();
    if (!response.ok) fail(`${method} ${path} answered ${response.status}: ${text}`);
    return text ? JSON.parse(text) : undefined;
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
    await until('the notification socket', async () => {
      const response = await fetch(`${serviceUrl}/api/1/agent/devices/${id}/sockets`);
      return response.ok && (await response.json()).notification > 0;
    });
    return id;
  }

  return { fail, api, until, deviceReady };
}
