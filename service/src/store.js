import { EventEmitter } from 'node:events';
import { AgentAccounts } from './agents/agent-accounts.js';
import { conflict, forbidden, notFound, unauthorized } from './errors.js';
import { deviceRecord, sessionRecord } from './records.js';
import { SessionCodes } from './session-codes.js';
import { checkTransition } from './session-states.js';
import { digest, newId, newToken } from './tokens.js';
import { isSessionCode } from './validate.js';

export const DEFAULT_NEXT_REGISTRATION = 600;
// How long a session may wait for its agent and its user, how long an ended one is kept (the
// console shows it, a code still names it), and how long a device that stopped registering is.
export const DEFAULT_PENDING_EXPIRY_MS = 10 * 60 * 1000;
export const DEFAULT_ENDED_RETENTION_MS = 24 * 60 * 60 * 1000;
export const DEFAULT_DEVICE_RETENTION_MS = 30 * 24 * 60 * 60 * 1000;
// A device asking again and again for help keeps only its newest few waiting sessions.
export const MAX_PENDING_PER_DEVICE = 5;
const SESSION_CHANNELS = ['control', 'stream', 'agent'];
const DEVICE_REFUSED = 'Device credential refused';

// Devices, sessions and agent accounts, worked on in memory. With `state` (SqliteState or
// RedisState) every change is written first and taken into memory only once the write went
// through, so a failed write changes nothing. Every change ends in #publish, which emits one
// 'change' event ({ kind: 'session' | 'device', action: 'created' | 'updated' | 'deleted', record,
// rotated? }) so the socket layer can push fresh records to whoever is listening.
//
// Who may do what is decided here: a device is known by the credential issued at its first
// registration (only its hash is kept); a device reaches only the sessions it created or that an
// agent started for it; a session only becomes active once it has an agent.
export class Store extends EventEmitter {
  #sessions = new Map(); // id -> session, in creation order
  #devices = new Map(); // id -> device, in first-registration order
  #tokens = new Map(); // bearer token -> { channel, id }
  #credentials = new Map(); // credential hash -> device id
  #waiting = new Map(); // device id -> ids of the pending sessions it asked for, oldest first
  #codes;
  #baseUrl;
  #nextRegistration;
  #now;
  #onListenerError;
  #state;
  #shared;
  #limits;

  constructor({
    baseUrl = () => '',
    nextRegistration = DEFAULT_NEXT_REGISTRATION,
    now = () => new Date(),
    generateCode,
    onListenerError = () => {},
    state,
    pendingExpiryMs = DEFAULT_PENDING_EXPIRY_MS,
    endedRetentionMs = DEFAULT_ENDED_RETENTION_MS,
    deviceRetentionMs = DEFAULT_DEVICE_RETENTION_MS,
  } = {}) {
    super();
    this.#baseUrl = baseUrl;
    this.#nextRegistration = nextRegistration;
    this.#now = now;
    this.#codes = new SessionCodes({ generate: generateCode });
    this.#onListenerError = onListenerError;
    this.#state = state;
    this.#limits = { pendingExpiryMs, endedRetentionMs, deviceRetentionMs };
    this.agents = new AgentAccounts({ state, now });
    // A state that must connect first (Redis) is read in open().
    if (state && typeof state.open !== 'function') this.#restore(state.load());
  }

  // Connects a shared state, reads it, and from then on applies what other service instances
  // change. Nothing to do for memory or SQLite.
  async open() {
    if (typeof this.#state?.open !== 'function') return;
    await this.#state.open();
    this.#restore(this.#state.load());
    this.#state.onRemoteChange((table, action, value) => this.#applyRemote(table, action, value));
    // A change that never reached the shared state is dropped here too; the record is read again
    // the next time it is named.
    this.#state.onWriteFailed?.((table, id) => {
      if (table === 'sessions' || table === 'devices') this.#applyRemote(table, 'remove', id);
    });
  }

  // When several service instances share the state (Redis): what the routes and sockets do to
  // find records another instance made a moment ago; undefined otherwise. Each reads only the
  // keys it needs.
  get shared() {
    if (typeof this.#state?.lookUp !== 'function') return undefined;
    this.#shared ??= {
      refresh: (params) => this.#refresh(params),
      lookUpToken: (token) => this.#lookUp('token', token),
      lookUpCredential: (credential) => this.#lookUp('credential', credential),
      lookUpLogin: (token) => this.#lookUp('login', token),
      written: () => this.#state.flush(),
    };
    return this.#shared;
  }

  // Reads the session and device a request names from the shared state, as the other instances
  // last wrote them: their messages may still be on their way, and a change made on a stale copy
  // would undo theirs.
  async #refresh({ session: ref, device: deviceId }) {
    const found = await Promise.all([
      ref === undefined ? {} : this.#state.lookUp(isSessionCode(ref) ? 'code' : 'session', ref),
      deviceId === undefined ? {} : this.#state.lookUp('device', deviceId),
    ]);
    for (const records of found) this.#adoptFound(records);
  }

  async #lookUp(kind, key) {
    if (typeof key !== 'string' || key === '') return;
    this.#adoptFound(await this.#state.lookUp(kind, key));
  }

  #adoptFound(found) {
    for (const [table, records] of Object.entries(found ?? {})) {
      for (const record of records ?? []) this.#applyRemote(table, 'save', record, { quiet: true });
    }
  }

  // ---- sessions ----

  // A session the device known by `device` asks for (the user wants help).
  createSessionForDevice(device) {
    // The oldest of its waiting sessions make way, so one device cannot pile them up.
    const waiting = [...(this.#waiting.get(device.id) ?? [])];
    for (const id of waiting.slice(0, Math.max(0, waiting.length - MAX_PENDING_PER_DEVICE + 1))) {
      this.#commitSession({ ...this.#sessions.get(id), ...this.#ended() }, 'updated');
    }
    return this.createSession({ ownerDeviceId: device.id });
  }

  // `ownerDeviceId`: the device that asked for it; `deviceId`: the device an agent started it for.
  createSession({ ownerDeviceId, deviceId, agent } = {}) {
    const id = newId();
    return this.#commitSession({
      id,
      code: this.#codes.pick(),
      state: 'pending',
      controlToken: newToken(),
      streamToken: newToken(),
      agentToken: newToken(),
      createdAt: this.#timestamp(),
      ownerDeviceId,
      deviceId,
      agent: agent && { id: agent.id, name: agent.name },
    }, 'created');
  }

  // An agent-started session belongs to its agent from the start.
  startSessionForDevice(deviceId, agent) {
    this.#findDevice(deviceId);
    return this.createSession({ deviceId, agent });
  }

  // For a device: its own session, or 404 whatever the reference names, so that a code or id
  // tells nothing about sessions of others. Without `device` the caller is the service itself.
  getSession(ref, { device } = {}) {
    return this.#sessionRecord(this.#findSession(ref, device));
  }

  // For an agent: the session, unless another agent has it.
  getSessionFor(ref, agent) {
    return this.#sessionRecord(this.#sessionFor(ref, agent));
  }

  listSessions() {
    return [...this.#sessions.values()].map((session) => this.#sessionRecord(session));
  }

  // The sessions an agent may see: its own and those no agent has joined yet.
  listSessionsFor(agent) {
    return [...this.#sessions.values()]
      .filter((session) => session.agent === undefined || session.agent.id === agent.id)
      .map((session) => this.#sessionRecord(session));
  }

  // The device's own state change: only forward moves, and active only once an agent has it
  // (joined, or started it for this device). Anything else is refused and changes nothing.
  changeSessionState(ref, { state, device, customData }, { device: caller } = {}) {
    const session = this.#findSession(ref, caller);
    checkTransition(session.state, state);
    const next = { ...session };
    if (state === 'active') {
      if (session.agent === undefined) throw conflict('No agent has joined this session yet');
      if (device !== undefined) next.device = device;
      if (customData !== undefined) next.customData = customData;
      next.state = 'active';
    } else {
      Object.assign(next, this.#ended());
    }
    return this.#commitSession(next, 'updated');
  }

  // Returns the agent's token along with the record: it is the agent's key to the session channel.
  // The first agent to join a user-started session has it; nobody else gets its token.
  joinSession(ref, agent) {
    const session = this.#sessionFor(ref, agent);
    if (session.state === 'ended') throw conflict('Session has ended');
    const record = this.#commitSession({ ...session, agent: { id: agent.id, name: agent.name } }, 'updated');
    return { record, agentToken: session.agentToken };
  }

  endSession(ref) {
    const session = this.#findSession(ref);
    if (session.state === 'ended') throw conflict('Session has already ended');
    return this.#commitSession({ ...session, ...this.#ended() }, 'updated');
  }

  // New control and stream tokens for a session; the old ones stop opening anything. The
  // agent's token is left alone: the agent asked for this and keeps its own connection. The
  // change is announced as `rotated`: whoever holds the old tokens must not hear the new ones.
  rotateSessionTokens(ref) {
    const session = this.#findSession(ref);
    if (session.state === 'ended') throw conflict('Session has ended');
    return this.#commitSession({ ...session, controlToken: newToken(), streamToken: newToken() }, 'updated', { rotated: true });
  }

  // The state of a session by id, or undefined when there is none; cheap enough to ask on
  // every relayed socket event.
  sessionState(id) {
    return this.#sessions.get(id)?.state;
  }

  // ---- devices ----

  // Creates or refreshes a device. The first registration of an id (or the first of a device
  // that has none yet) issues its credential, returned once as `credential` beside the record;
  // any later one must present it, or is refused with nothing changed and nothing told.
  // custom_data left out keeps what an earlier registration gave.
  registerDevice(id, { pushToken, pushProvider, device, customData }, credential) {
    const existing = this.#devices.get(id);
    if (existing?.credentialHash !== undefined && !this.#holds(existing, credential)) throw unauthorized(DEVICE_REFUSED);
    const issued = existing?.credentialHash === undefined ? newToken() : undefined;
    const next = {
      ...(existing ?? { id, notificationToken: newToken() }),
      pushToken,
      pushProvider,
      device,
      registeredAt: this.#timestamp(),
    };
    if (customData !== undefined) next.customData = customData;
    if (issued) next.credentialHash = digest(issued);
    const record = this.#commitDevice(next, existing ? 'updated' : 'created');
    return issued ? { ...record, credential: issued } : record;
  }

  // The device a credential belongs to ({ id }), or undefined.
  deviceFor(credential) {
    if (typeof credential !== 'string' || credential === '') return undefined;
    const id = this.#credentials.get(digest(credential));
    return id === undefined ? undefined : { id };
  }

  // The device's notification socket just closed: the last moment it was known to be there.
  deviceLastSeen(id) {
    const device = this.#devices.get(id);
    if (!device) return;
    this.#commitDevice({ ...device, lastSeenAt: this.#timestamp() }, 'updated', { quiet: true });
  }

  // Whether a notification connection may open for the device: it must present the device's
  // credential, when the device has one.
  deviceCredentialMatches(id, credential) {
    const device = this.#devices.get(id);
    return device !== undefined && (device.credentialHash === undefined || this.#holds(device, credential));
  }

  hasDevice(id) {
    return this.#devices.has(id);
  }

  getDevice(id) {
    return this.#deviceRecord(this.#findDevice(id));
  }

  listDevices() {
    return [...this.#devices.values()].map((device) => this.#deviceRecord(device));
  }

  // What the console lists: each device's record, whether it can be reached now (`isReachable(id)`)
  // and when it was last seen (now, when it can).
  listDevicesForAgents(isReachable) {
    const now = this.#timestamp();
    return [...this.#devices.values()].map((device) => {
      const reachable = isReachable(device.id);
      const lastSeen = reachable ? now : lastSeenOf(device);
      return { ...this.#deviceRecord(device), last_seen: lastSeen, reachable };
    });
  }

  // Only the device itself (its credential) removes it, or the service itself (`trusted`).
  removeDevice(id, { credential, trusted = false } = {}) {
    const device = this.#findDevice(id);
    if (!trusted && device.credentialHash !== undefined && !this.#holds(device, credential)) {
      throw unauthorized(DEVICE_REFUSED);
    }
    this.#state?.remove('devices', id, device);
    this.#forgetDevice(device);
    return this.#publish('device', 'deleted', this.#deviceRecord(device));
  }

  // Replaces a device's notification token; the old one stops identifying anything.
  rotateNotificationToken(id) {
    const device = this.#findDevice(id);
    return this.#commitDevice({ ...device, notificationToken: newToken() }, 'updated');
  }

  // ---- tokens ----

  // What a bearer token opens: { channel: 'control' | 'stream' | 'agent', sessionId }
  // or { channel: 'notification', deviceId }; undefined for anything unknown.
  resolveToken(token) {
    const entry = typeof token === 'string' ? this.#tokens.get(token) : undefined;
    if (!entry) return undefined;
    return entry.channel === 'notification'
      ? { channel: entry.channel, deviceId: entry.id }
      : { channel: entry.channel, sessionId: entry.id };
  }

  // ---- keeping it bounded ----

  // Ends sessions that waited too long (their codes are free again), forgets sessions ended long
  // ago (or that ended before an agent had them) and devices that stopped registering. Run now
  // and then; returns what it did.
  sweep() {
    const now = this.#now().getTime();
    const { pendingExpiryMs, endedRetentionMs, deviceRetentionMs } = this.#limits;
    const expired = [];
    const removed = [];
    for (const session of this.#sessions.values()) {
      if (session.state === 'pending' && now - Date.parse(session.createdAt) > pendingExpiryMs) {
        expired.push({ ...session, ...this.#ended(), revision: (session.revision ?? 0) + 1 });
      } else if (session.state === 'ended' && (session.agent === undefined || now - Date.parse(session.endedAt ?? session.createdAt) > endedRetentionMs)) {
        // One that ended before any agent had it (expired, displaced) is of use to nobody.
        removed.push(session);
      }
    }
    const silent = [...this.#devices.values()].filter((device) => now - Date.parse(lastSeenOf(device)) > deviceRetentionMs);
    // All written in one go (one transaction), and taken in only once written.
    const write = () => {
      for (const session of expired) this.#state?.save('sessions', session, this.#sessions.get(session.id));
      for (const session of removed) this.#state?.remove('sessions', session.id, session);
      for (const device of silent) this.#state?.remove('devices', device.id, device);
    };
    if (this.#state?.batch) this.#state.batch(write);
    else write();
    for (const session of expired) {
      this.#adoptSession(session);
      this.#publish('session', 'updated', this.#sessionRecord(session));
    }
    for (const session of removed) this.#forgetSession(session);
    for (const device of silent) {
      this.#forgetDevice(device);
      this.#publish('device', 'deleted', this.#deviceRecord(device));
    }
    return { expired: expired.length, removedSessions: removed.length, removedDevices: silent.length };
  }

  // ---- internals ----

  #restore({ sessions, devices, agents, logins }) {
    this.agents.restore(agents, logins);
    for (const session of sessions) this.#adoptSession(session);
    for (const device of devices) this.#adoptDevice(device);
  }

  // Takes in a session as written (here, by another instance or in the state file), replacing any
  // copy of it here together with the tokens and code that copy held.
  #adoptSession(session) {
    const old = this.#sessions.get(session.id);
    if (isOlder(session, old)) return;
    if (old) this.#unindexSession(old);
    this.#sessions.set(session.id, session); // a known id keeps its place in creation order
    this.#codes.restore(session.code, session.id, session.state !== 'ended');
    for (const channel of SESSION_CHANNELS) this.#tokens.set(session[`${channel}Token`], { channel, id: session.id });
    if (session.state === 'pending' && session.ownerDeviceId !== undefined) {
      const waiting = this.#waiting.get(session.ownerDeviceId) ?? new Set();
      this.#waiting.set(session.ownerDeviceId, waiting.add(session.id));
    }
  }

  #forgetSession(session) {
    this.#sessions.delete(session.id);
    this.#unindexSession(session);
  }

  #unindexSession(session) {
    for (const channel of SESSION_CHANNELS) this.#tokens.delete(session[`${channel}Token`]);
    this.#codes.forget(session.code, session.id);
    const waiting = this.#waiting.get(session.ownerDeviceId);
    if (waiting?.delete(session.id) && waiting.size === 0) this.#waiting.delete(session.ownerDeviceId);
  }

  #adoptDevice(device) {
    const old = this.#devices.get(device.id);
    if (isOlder(device, old)) return;
    if (old) this.#unindexDevice(old);
    this.#devices.set(device.id, device); // a known id keeps its place in registration order
    this.#tokens.set(device.notificationToken, { channel: 'notification', id: device.id });
    if (device.credentialHash !== undefined) this.#credentials.set(device.credentialHash, device.id);
  }

  #forgetDevice(device) {
    this.#devices.delete(device.id);
    this.#unindexDevice(device);
  }

  #unindexDevice(device) {
    this.#tokens.delete(device.notificationToken);
    if (device.credentialHash !== undefined) this.#credentials.delete(device.credentialHash);
  }

  // A change another instance made. Its sockets were told already (the socket.io adapter reaches
  // every instance's sockets), so it is announced here only as 'remote-change', for
  // bookkeeping, and not at all for records read on demand.
  #applyRemote(table, action, value, { quiet = false } = {}) {
    if (table === 'agents' || table === 'logins') {
      this.agents.applyRemote(table, action, value);
      return;
    }
    const records = table === 'sessions' ? this.#sessions : this.#devices;
    if (action === 'remove') {
      const known = records.get(value);
      if (known && table === 'sessions') this.#forgetSession(known);
      else if (known) this.#forgetDevice(known);
      return;
    }
    if (table === 'sessions') {
      this.#adoptSession(value);
      if (!quiet) this.emit('remote-change', { kind: 'session', record: this.#sessionRecord(value) });
    } else if (table === 'devices') {
      this.#adoptDevice(value);
    }
  }

  #findSession(ref, device) {
    const id = isSessionCode(ref) ? this.#codes.sessionIdFor(ref) : ref;
    const session = id === undefined ? undefined : this.#sessions.get(id);
    if (!session) throw notFound('Session not found');
    if (device !== undefined && (session.ownerDeviceId ?? session.deviceId) !== device.id) throw notFound('Session not found');
    return session;
  }

  #sessionFor(ref, agent) {
    const session = this.#findSession(ref);
    if (session.agent !== undefined && session.agent.id !== agent.id) {
      throw forbidden('This session belongs to another agent');
    }
    return session;
  }

  #findDevice(id) {
    const device = this.#devices.get(id);
    if (!device) throw notFound('Device not found');
    return device;
  }

  #holds(device, credential) {
    return typeof credential === 'string' && credential !== '' && digest(credential) === device.credentialHash;
  }

  #ended() {
    return { state: 'ended', endedAt: this.#timestamp() };
  }

  #timestamp() {
    return this.#now().toISOString();
  }

  #sessionRecord(session) {
    return sessionRecord(session, this.#baseUrl());
  }

  #deviceRecord(device) {
    return deviceRecord(device, this.#baseUrl(), this.#nextRegistration);
  }

  // Written first: a write that fails throws before anything here has changed.
  #commitSession(next, action, { rotated = false } = {}) {
    const previous = this.#sessions.get(next.id);
    const session = { ...next, revision: (previous?.revision ?? 0) + 1 };
    this.#state?.save('sessions', session, previous);
    this.#adoptSession(session);
    return this.#publish('session', action, this.#sessionRecord(session), rotated ? { rotated } : {});
  }

  #commitDevice(next, action, { quiet = false } = {}) {
    const previous = this.#devices.get(next.id);
    const device = { ...next, revision: (previous?.revision ?? 0) + 1 };
    this.#state?.save('devices', device, previous);
    this.#adoptDevice(device);
    const record = this.#deviceRecord(device);
    return quiet ? record : this.#publish('device', action, record);
  }

  #publish(kind, action, record, extra = {}) {
    try {
      this.emit('change', { kind, action, record, ...extra });
    } catch (err) {
      // The change already happened; a failing listener must not turn it into an error answer.
      this.#onListenerError(err);
    }
    return record;
  }
}

// Copies of a record from other instances can arrive out of order; every change counts up its
// revision, and an older copy than the one at hand is not taken.
function isOlder(incoming, current) {
  return current !== undefined && (incoming.revision ?? 0) < (current.revision ?? 0);
}

function lastSeenOf(device) {
  return [device.lastSeenAt, device.registeredAt].filter(Boolean).sort().at(-1);
}
