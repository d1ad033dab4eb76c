// What the scripts that play the support agent share: signing in with the account the service's
// `--demo-agent FILE` wrote, and calling the agent API as that agent.
import { readFileSync } from 'node:fs';

export function readCredentials(file) {
  const credentials = JSON.parse(readFileSync(file, 'utf8'));
  if (typeof credentials?.name !== 'string' || typeof credentials?.password !== 'string') {
    throw new Error(`${file} does not hold an agent's name and password`);
  }
  return credentials;
}

// Resolves to a function (method, path, body?) => { status, body } that calls the service as the
// signed-in agent; rejects when signing in fails.
export async function signIn(serviceUrl, { name, password }) {
  const response = await fetch(`${serviceUrl}/api/1/agent/sign-in`, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ name, password }),
  });
  if (!response.ok) throw new Error(`signing in as ${name} answered ${response.status}: ${await response.text()}`);
  const cookie = response.headers.get('set-cookie').split(';')[0];
  return async (method, path, body) => {
    const headers = { Cookie: cookie };
    if (body !== undefined) headers['Content-Type'] = 'application/json';
    const answer = await fetch(`${serviceUrl}${path}`, { method, headers, body: body && JSON.stringify(body) });
    const text = await answer.text();
    return { status: answer.status, body: text ? JSON.parse(text) : undefined };
  };
}
