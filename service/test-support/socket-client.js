import assert from 'node:assert/strict';
import { after } from 'node:test';
import { io } from 'socket.io-client';
import { eventually } from './start-service.js';

const inboxes = new WeakMap();

// Connects the way the device SDK does (bearer header, websocket only) when `header` is given,
// or the way the console does (handshake auth) with `auth`; a device's notification connection
// also presents its `credential`. Resolves once connected; rejects with the server's refusal.
// Reconnection is off so a dropped transport stays visible.
export function openSocket(baseUrl, { header, auth, credential, headers: given = {} } = {}) {
  const headers = credential === undefined ? given : { 'X-HalvoraDeviceCredential': credential, ...given };
  const socket = io(baseUrl, {
    path: '/sockets/1/events',
    transports: ['websocket'],
    forceNew: true,
    reconnection: false,
    timeout: 10_000,
    extraHeaders: header === undefined ? headers : { Authorization: `Bearer ${header}`, ...headers },
    auth: auth === undefined ? undefined : { token: auth },
  });
  // Kept from the start: the current session and replayed images arrive before 'connect' resolves.
  const inbox = new Map();
  inboxes.set(socket, inbox);
  const keep = (event, payload) => inbox.set(event, [...received(socket, event), payload]);
  socket.onAny(keep);
  socket.on('disconnect', (reason) => keep('disconnect', reason));
  return new Promise((resolve, reject) => {
    socket.once('connect', () => resolve(socket));
    socket.once('connect_error', (err) => {
      socket.close();
      reject(err);
    });
  });
}

// The payloads of `event` (for 'disconnect': the reasons) a socket has received so far.
export function received(socket, event) {
  return inboxes.get(socket).get(event) ?? [];
}

// The n-th payload (1-based) of `event`, once it has arrived.
export function nth(socket, event, n) {
  return eventually(() => {
    assert.ok(received(socket, event).length >= n, `no ${event} #${n}`);
    return received(socket, event)[n - 1];
  });
}

// A connect function for one test file: sockets to `ctx`'s service, all closed (and the service
// with them) after the file's tests.
export function socketsFor(ctx) {
  const opened = [];
  after(async () => {
    for (const socket of opened) socket.close();
    await ctx.close();
  });
  return async (options) => {
    const socket = await openSocket(ctx.baseUrl, options);
    opened.push(socket);
    return socket;
  };
}
