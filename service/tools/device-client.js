// What the scripts that play a device share: registering (which gives the device its credential)
// and calling the device API as that device.
import { randomUUID } from 'node:crypto';

// Resolves to { id, credential, record, call(method, path, body?) => { status, body } }; rejects
// when the registration is refused.
export async function registerDevice(serviceUrl, { id = randomUUID().toUpperCase(), device = {} } = {}) {
  const send = async (method, path, body, credential) => {
    const headers = { 'Content-Type': 'application/json' };
    if (credential) headers.Authorization = `Bearer ${credential}`;
    const answer = await fetch(`${serviceUrl}${path}`, { method, headers, body: body && JSON.stringify(body) });
    const text = await answer.text();
    return { status: answer.status, body: text ? JSON.parse(text) : undefined };
  };
  const registered = await send('PUT', `/api/1/devices/${id}`, { push_token: '', push_provider: 'none', device });
  if (registered.status !== 200) throw new Error(`registering ${id} answered ${registered.status}: ${JSON.stringify(registered.body)}`);
  const { credential, ...record } = registered.body;
  return { id, credential, record, call: (method, path, body) => send(method, path, body, credential) };
}
