// The service's REST API, from the page's own origin: the sign-in cookie goes along by itself.

// status 0: the service did not answer at all.
export class ApiError extends Error {
  constructor(status, message, retryAfterSeconds) {
    super(message);
    this.status = status;
    this.retryAfterSeconds = retryAfterSeconds;
  }

  // Worth trying again later: nothing answered, or a proxy answered for a service that is down.
  get unreachable() {
    return this.status === 0 || this.status === 502 || this.status === 503 || this.status === 504;
  }
}

const MESSAGE_MAX = 300;

export async function request(method, path, body) {
  let response;
  try {
    response = await fetch(path, {
      method,
      credentials: 'same-origin',
      cache: 'no-store',
      headers: body === undefined ? {} : { 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
  } catch {
    throw new ApiError(0, 'The service cannot be reached');
  }
  let data;
  try {
    const text = await response.text();
    data = text === '' ? {} : JSON.parse(text);
  } catch {
    data = undefined;
  }
  if (!response.ok) {
    const retryAfter = Number.parseInt(response.headers.get('Retry-After') ?? '', 10);
    throw new ApiError(response.status, messageOf(data) ?? `The service answered ${response.status}`,
      Number.isFinite(retryAfter) && retryAfter >= 0 ? retryAfter : undefined);
  }
  if (data === null || typeof data !== 'object') throw new ApiError(response.status, 'The service sent an answer that is not JSON');
  return data;
}

function messageOf(data) {
  const message = data?.message;
  return typeof message === 'string' && message !== '' ? message.slice(0, MESSAGE_MAX) : undefined;
}

const enc = encodeURIComponent;

export const api = {
  me: () => request('GET', '/api/1/agent/me'),
  signIn: (name, password) => request('POST', '/api/1/agent/sign-in', { name, password }),
  signOut: () => request('POST', '/api/1/agent/sign-out'),
  devices: () => request('GET', '/api/1/agent/devices'),
  startSession: (deviceId) => request('POST', `/api/1/agent/devices/${enc(deviceId)}/sessions`),
  session: (ref) => request('GET', `/api/1/agent/sessions/${enc(ref)}`),
  join: (ref) => request('POST', `/api/1/agent/sessions/${enc(ref)}/join`),
  end: (ref) => request('POST', `/api/1/agent/sessions/${enc(ref)}/end`),
};
