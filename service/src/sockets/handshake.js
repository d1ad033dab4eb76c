// Authentication of socket connections. Devices send "Authorization: Bearer <token>" on the
// upgrade request; browsers cannot set websocket headers, so the agent's console puts the
// token in socket.io's handshake auth ({ token }). The header wins when both are there.

const BEARER = /^Bearer[ \t]+([^\s]+)[ \t]*$/i;
const LOGGED_VALUE_MAX = 64;

export function bearerToken(handshake) {
  const header = handshake.headers?.authorization;
  if (typeof header === 'string') {
    const match = BEARER.exec(header);
    if (match) return match[1];
  }
  const token = handshake.auth?.token;
  return typeof token === 'string' && token !== '' ? token : undefined;
}

// Namespace middleware: resolves the token to its channel and stores it in socket.data.access,
// or refuses the connection (the client gets CONNECT_ERROR with the error's message).
// `catchUp()` (optional) looks again for a token another instance has just issued.
export function authenticate(store, log, catchUp) {
  return async (socket, next) => {
    const token = bearerToken(socket.handshake);
    let access = token === undefined ? undefined : store.resolveToken(token);
    if (!access && token !== undefined && catchUp) {
      await catchUp();
      access = store.resolveToken(token);
    }
    const from = printable(socket.handshake.address);
    if (!access) {
      log(`socket refused from ${from}: ${token === undefined ? 'no token' : 'unknown token'}`);
      next(new Error('Unauthorized'));
      return;
    }
    if (access.sessionId !== undefined && store.sessionState(access.sessionId) === 'ended') {
      log(`socket refused from ${from}: ${access.channel} session=${access.sessionId} has ended`);
      next(new Error('Session has ended'));
      return;
    }
    socket.data.access = access;
    next();
  };
}

// The SDK describes itself in two optional headers; they only go into the log.
export function clientDescription(handshake) {
  const parts = [];
  const sdk = handshake.headers?.['x-halvorasdkversion'];
  const platform = handshake.headers?.['x-halvoraplatform'];
  if (typeof sdk === 'string') parts.push(`sdk=${printable(sdk)}`);
  if (typeof platform === 'string') parts.push(`platform=${printable(platform)}`);
  return parts.join(' ');
}

// Outside text made safe for one log line.
export function printable(value, max = LOGGED_VALUE_MAX) {
  const text = String(value ?? '').replace(/[^\x20-\x7e]/g, '?');
  return text.length > max ? `${text.slice(0, max)}...` : text;
}
