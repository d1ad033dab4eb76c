import { io } from 'socket.io-client';

export const SOCKET_PATH = '/sockets/1/events';
const WAIT_MS = 10_000;

// Connects the way the device SDK does (bearer header, websocket only) when `header` is given,
// or the way the console does (handshake auth) with `auth`. Resolves once connected; rejects
// with the server's refusal. Reconnection is off so a dropped transport stays visible.
export function openSocket(baseUrl, { header, auth, headers = {} } = {}) {
  const socket = io(baseUrl, {
    path: SOCKET_PATH,
    transports: ['websocket'],
    forceNew: true,
    reconnection: false,
    extraHeaders: header === undefined ? headers : { Authorization: `Bearer ${header}`, ...headers },
    auth: auth === undefined ? undefined : { token: auth },
  });
  record(socket);
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => fail(new Error('socket did not connect in time')), WAIT_MS);
    const fail = (err) => {
      clearTimeout(timer);
      socket.close();
      reject(err);
    };
    socket.once('connect_error', fail);
    socket.once('connect', () => {
      clearTimeout(timer);
      socket.off('connect_error', fail);
      resolve(socket);
    });
  });
}

// What a socket has received, by event name, from the moment it was opened: events sent right
// after the connection (the current session, replayed images) arrive before 'connect' resolves.
const inboxes = new WeakMap();

function record(socket) {
  const inbox = new Map();
  inboxes.set(socket, inbox);
  socket.onAny((event, payload) => {
    const entry = entryFor(inbox, event);
    entry.seen.push(payload);
    for (const waiter of entry.waiters.filter((w) => w.count <= entry.seen.length)) {
      entry.waiters.splice(entry.waiters.indexOf(waiter), 1);
      waiter.resolve();
    }
  });
}

function entryFor(inbox, event) {
  if (!inbox.has(event)) inbox.set(event, { seen: [], waiters: [] });
  return inbox.get(event);
}

// The payloads of `event` a socket opened by openSocket has received, and a way to wait for more.
export function recorder(socket, event) {
  const entry = entryFor(inboxes.get(socket), event);
  return {
    seen: entry.seen,
    // Resolves with the n-th payload (1-based) once it is there.
    nth(count) {
      if (entry.seen.length >= count) return Promise.resolve(entry.seen[count - 1]);
      const arrived = new Promise((resolve) => entry.waiters.push({ count, resolve }));
      return withTimeout(arrived, `${event} #${count}`).then(() => entry.seen[count - 1]);
    },
  };
}

export function nextEvent(socket, event) {
  return withTimeout(new Promise((resolve) => socket.once(event, resolve)), event);
}

// Retries an assertion until it holds, for state that settles a moment after an event.
export async function eventually(check) {
  const deadline = Date.now() + WAIT_MS;
  for (;;) {
    try {
      return await check();
    } catch (err) {
      if (Date.now() > deadline) throw err;
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
  }
}

function withTimeout(promise, what) {
  let timer;
  const timeout = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`no ${what} within ${WAIT_MS} ms`)), WAIT_MS);
  });
  return Promise.race([promise, timeout]).finally(() => clearTimeout(timer));
}
