import { EventEmitter } from 'node:events';
import { AgentAccounts } from './agents/agent-accounts.js';
import { conflict, forbidden, notFound } from './errors.js';
import { deviceRecord, sessionRecord } from './records.js';
import { SessionCodes } from './session-codes.js';
import { checkTransition } from './session-states.js';
import { newId, newToken } from './tokens.js';
import { isSessionCode } from './validate.js';

export const DEFAULT_NEXT_REGISTRATION = 600;
const SESSION_CHANNELS = ['control', 'stream', 'agent'];

// Devices and sessions, worked on in memory. With `state` (an SqliteState) they are read back from
// it at construction and every change is written through to it before it is announced. Every
// change ends in #publish, which emits one 'change' event ({ kind: 'session' | 'device', action:
// 'created' | 'updated' | 'deleted', record }) so the socket layer can push fresh records to
// whoever is listening.
export class Store extends EventEmitter {
  #sessions = new Map(); // id -> session, in creation order
  #devices = new Map(); // id -> device, in first-registration order
  #tokens = new Map(); // bearer token -> { channel, id }
  #codes;
  #baseUrl;
  #nextRegistration;
  #now;
  #onListenerError;
  #state;
  #shared;

  constructor({
    baseUrl = () => '',
    nextRegistration = DEFAULT_NEXT_REGISTRATION,
    now = () => new Date(),
    generateCode,
    onListenerError = () => {},
    state,
  } = {}) {
    super();
    this.#baseUrl = baseUrl;
    this.#nextRegistration = nextRegistration;
    this.#now = now;
    this.#codes = new SessionCodes({ generate: generateCode });
    this.#onListenerError = onListenerError;
    this.#state = state;
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
  }

  // When several service instances share the state (Redis): what the routes do around each
  // handler (see registerRoutes); undefined otherwise.
  get shared() {
    if (typeof this.#state?.catchUp !== 'function') return undefined;
    this.#shared ??= {
      refresh: (params) => this.#refresh(params),
      catchUp: () => this.catchUp(),
      written: () => this.#state.flush(),
    };
    return this.#shared;
  }

  // Reads the session and device a request names from the shared state, as the other instances
  // last wrote them: their messages may still be on their way, and a change made on a stale copy
  // would undo theirs.
  async #refresh({ session: ref, device: deviceId }) {
    const sessionId = ref !== undefined && isSessionCode(ref) ? this.#codes.sessionIdFor(ref) : ref;
    const [session, device] = await Promise.all([
      sessionId === undefined ? undefined : this.#state.read('sessions', sessionId),
      deviceId === undefined ? undefined : this.#state.read('devices', deviceId),
    ]);
    if (session) this.#adoptSession(session);
    if (device) this.#adoptDevice(device);
  }

  // After a lookup missed: reads a shared state again in case another instance has just made
  // what was looked for, and takes in the records it has never heard of. (Messages from the other
  // instances may also bring it while this waits: look again either way.) Records it knows are
  // kept current by those messages; a read may predate a change of its own still on its way,
  // so it never replaces them.
  async catchUp() {
    const snapshot = await this.#state?.catchUp?.();
    for (const [table, records] of Object.entries(snapshot ?? {})) {
      for (const record of records) {
        if (!this.#knows(table, record.id)) this.#applyRemote(table, 'save', record, { quiet: true });
      }
    }
  }

  // ---- sessions ----

  createSession({ deviceId, agent } = {}) {
    const id = newId();
    const session = {
      id,
      code: this.#codes.allocate(id),
      state: 'pending',
      controlToken: this.#issueToken('control', id),
      streamToken: this.#issueToken('stream', id),
      agentToken: this.#issueToken('agent', id),
      createdAt: this.#timestamp(),
      deviceId,
      agent: agent && { id: agent.id, name: agent.name },
    };
    this.#sessions.set(id, session);
    return this.#commitSession(session, 'created');
  }

  // An agent-started session belongs to its agent from the start.
  startSessionForDevice(deviceId, agent) {
    this.#findDevice(deviceId);
    return this.createSession({ deviceId, agent });
  }

  getSession(ref) {
    return this.#sessionRecord(this.#findSession(ref));
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

  // The device's own state change: only forward moves are allowed, anything else is a bad request.
  changeSessionState(ref, { state, device, customData }) {
    const session = this.#findSession(ref);
    checkTransition(session.state, state);
    if (state === 'active') {
      if (device !== undefined) session.device = device;
      if (customData !== undefined) session.customData = customData;
    }
    this.#applyState(session, state);
    return this.#commitSession(session, 'updated');
  }

  // Returns the agent's token along with the record: it is the agent's key to the session channel.
  // The first agent to join a user-started session has it; nobody else gets its token.
  joinSession(ref, agent) {
    const session = this.#sessionFor(ref, agent);
    if (session.state === 'ended') throw conflict('Session has ended');
    session.agent = { id: agent.id, name: agent.name };
    return { record: this.#commitSession(session, 'updated'), agentToken: session.agentToken };
  }

  endSession(ref) {
    const session = this.#findSession(ref);
    if (session.state === 'ended') throw conflict('Session has already ended');
    this.#applyState(session, 'ended');
    return this.#commitSession(session, 'updated');
  }

  // New control and stream tokens for a session; the old ones stop opening anything. The
  // agent's token is left alone: the agent asked for this and keeps its own connection.
  rotateSessionTokens(ref) {
    const session = this.#findSession(ref);
    if (session.state === 'ended') throw conflict('Session has ended');
    this.#tokens.delete(session.controlToken);
    this.#tokens.delete(session.streamToken);
    session.controlToken = this.#issueToken('control', session.id);
    session.streamToken = this.#issueToken('stream', session.id);
    return this.#commitSession(session, 'updated');
  }

  // The state of a session by id, or undefined when there is none; cheap enough to ask on
  // every relayed socket event.
  sessionState(id) {
    return this.#sessions.get(id)?.state;
  }

  // ---- devices ----

  // Creates or refreshes a device. custom_data left out keeps what an earlier registration gave.
  registerDevice(id, { pushToken, pushProvider, device, customData }) {
    let entry = this.#devices.get(id);
    const action = entry ? 'updated' : 'created';
    if (!entry) {
      entry = { id, notificationToken: this.#issueToken('notification', id) };
      this.#devices.set(id, entry);
    }
    entry.pushToken = pushToken;
    entry.pushProvider = pushProvider;
    entry.device = device;
    if (customData !== undefined) entry.customData = customData;
    entry.registeredAt = this.#timestamp();
    return this.#commitDevice(entry, action);
  }

  // The device's notification socket just closed: the last moment it was known to be there.
  deviceLastSeen(id) {
    const device = this.#devices.get(id);
    if (!device) return;
    device.lastSeenAt = this.#timestamp();
    device.revision = (device.revision ?? 0) + 1;
    this.#state?.save('devices', device);
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
      const lastSeen = reachable ? now : [device.lastSeenAt, device.registeredAt].filter(Boolean).sort().at(-1);
      return { ...this.#deviceRecord(device), last_seen: lastSeen, reachable };
    });
  }

  removeDevice(id) {
    const device = this.#findDevice(id);
    this.#devices.delete(id);
    this.#tokens.delete(device.notificationToken);
    return this.#commitDevice(device, 'deleted');
  }

  // Replaces a device's notification token; the old one stops identifying anything.
  rotateNotificationToken(id) {
    const device = this.#findDevice(id);
    this.#tokens.delete(device.notificationToken);
    device.notificationToken = this.#issueToken('notification', id);
    return this.#commitDevice(device, 'updated');
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

  // ---- internals ----

  #restore({ sessions, devices, agents, logins }) {
    this.agents.restore(agents, logins);
    for (const session of sessions) this.#adoptSession(session);
    for (const device of devices) this.#adoptDevice(device);
  }

  // Takes in a session as another instance (or the state file) has it, replacing any copy of it
  // here together with the tokens and code that copy held.
  #adoptSession(session) {
    const old = this.#sessions.get(session.id);
    if (isOlder(session, old)) return;
    if (old) {
      for (const channel of SESSION_CHANNELS) this.#tokens.delete(old[`${channel}Token`]);
      if (old.code !== session.code) this.#codes.release(old.code);
    }
    this.#sessions.set(session.id, session);
    this.#codes.restore(session.code, session.id, session.state !== 'ended');
    if (session.state === 'ended') this.#codes.release(session.code);
    for (const channel of SESSION_CHANNELS) this.#tokens.set(session[`${channel}Token`], { channel, id: session.id });
  }

  #adoptDevice(device) {
    const old = this.#devices.get(device.id);
    if (isOlder(device, old)) return;
    if (old) this.#tokens.delete(old.notificationToken);
    this.#devices.set(device.id, device);
    this.#tokens.set(device.notificationToken, { channel: 'notification', id: device.id });
  }

  #knows(table, id) {
    if (table === 'sessions') return this.#sessions.has(id);
    if (table === 'devices') return this.#devices.has(id);
    return this.agents.knows(table, id);
  }

  // A change another instance made. Its sockets were told already (the socket.io adapter reaches
  // every instance's sockets), so it is announced here only as 'remote-change', for
  // bookkeeping, and not at all while catching up.
  #applyRemote(table, action, value, { quiet = false } = {}) {
    if (table === 'agents' || table === 'logins') {
      this.agents.applyRemote(table, action, value);
      return;
    }
    if (table === 'sessions' && action === 'save') {
      this.#adoptSession(value);
      if (!quiet) this.emit('remote-change', { kind: 'session', record: this.#sessionRecord(value) });
    } else if (table === 'devices' && action === 'save') {
      this.#adoptDevice(value);
    } else if (table === 'devices' && action === 'remove') {
      const device = this.#devices.get(value);
      if (!device) return;
      this.#devices.delete(value);
      this.#tokens.delete(device.notificationToken);
    }
  }

  #findSession(ref) {
    const id = isSessionCode(ref) ? this.#codes.sessionIdFor(ref) : ref;
    const session = id === undefined ? undefined : this.#sessions.get(id);
    if (!session) throw notFound('Session not found');
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

  #applyState(session, state) {
    session.state = state;
    if (state === 'ended') {
      session.endedAt = this.#timestamp();
      this.#codes.release(session.code);
    }
  }

  #issueToken(channel, id) {
    const token = newToken();
    this.#tokens.set(token, { channel, id });
    return token;
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

  #commitSession(session, action) {
    session.revision = (session.revision ?? 0) + 1;
    this.#state?.save('sessions', session);
    return this.#publish('session', action, this.#sessionRecord(session));
  }

  #commitDevice(device, action) {
    device.revision = (device.revision ?? 0) + 1;
    if (action === 'deleted') this.#state?.remove('devices', device.id);
    else this.#state?.save('devices', device);
    return this.#publish('device', action, this.#deviceRecord(device));
  }

  #publish(kind, action, record) {
    try {
      this.emit('change', { kind, action, record });
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
