import { bearerValue } from '../tokens.js';

// Authentication of socket connections. Devices send "Authorization: Bearer <token>" on the
// upgrade request; browsers cannot set websocket headers, so the agent's console puts the
// token in socket.io's handshake auth ({ token }). The header wins when both are there.

const LOGGED_VALUE_MAX = 64;

export function bearerToken(handshake) {
  const header = bearerValue(handshake.headers?.authorization);
  if (header !== undefined) return header;
  const token = handshake.auth?.token;
  return typeof token === 'string' && token !== '' ? token : undefined;
}

// Namespace middleware: resolves the token to its channel and stores it in socket.data.access,
// or refuses the connection (the client gets CONNECT_ERROR with the error's message). A device's
// notification connection also presents the device's credential, when the device has one.
// `shared` (optional) finds a token or credential another instance has just issued.
export function authenticate(store, log, shared) {
  return async (socket, next) => {
    const token = bearerToken(socket.handshake);
    let access = token === undefined ? undefined : store.resolveToken(token);
    if (!access && token !== undefined && shared) {
      await shared.lookUpToken(token);
      access = store.resolveToken(token);
    }
    const from = printable(socket.handshake.address);
    if (!access) {
      log(`socket refused from ${from}: ${token === undefined ? 'no token' : 'unknown token'}`);
      next(new Error('Unauthorized'));
      return;
    }
    if (access.channel === 'notification' && !store.deviceCredentialMatches(access.deviceId, deviceCredential(socket.handshake))) {
      log(`socket refused from ${from}: notification device=${access.deviceId} without its credential`);
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

const DEVICE_CREDENTIAL_HEADER = 'X-HalvoraDeviceCredential';

function deviceCredential(handshake) {
  const value = handshake.headers?.[DEVICE_CREDENTIAL_HEADER.toLowerCase()];
  return typeof value === 'string' ? value.trim() : undefined;
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
