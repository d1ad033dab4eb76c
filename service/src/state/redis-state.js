import { randomUUID } from 'node:crypto';
import { createClient } from 'redis';
import { serviceUnavailable } from '../errors.js';
import { digest } from '../tokens.js';
import { TABLES } from './sqlite-state.js';

const PREFIX = 'halvora:';
const CHANGES = `${PREFIX}changes`;
// Indexes beside the records, so that a lookup of something this instance has not heard of yet
// reads one key: token digest -> "table:id", code -> session id, credential digest -> device id.
const TOKENS = `${PREFIX}tokens`;
const CODES = `${PREFIX}codes`;
const CREDENTIALS = `${PREFIX}credentials`;
const COUNTERS = `${PREFIX}attempts:`;
const TOKEN_FIELDS = { sessions: ['controlToken', 'streamToken', 'agentToken'], devices: ['notificationToken'] };

// Devices, sessions, agent accounts and sign-ins kept in Redis and shared by every service
// instance that names the same server: one hash per table (id -> JSON record). Each instance
// works on its own copy in memory, as with SQLite; every change it makes is written through and
// published on a channel, and the other instances apply it to their copies. A lookup that misses
// (a record another instance made a moment ago, not yet heard of) reads just that record.
//
// Writes leave in order on one connection; the routes wait for them before answering, and a
// write that failed is answered 503 and the record is read again from Redis the next time it is
// named. An instance that loses Redis reports itself unhealthy until Redis is back.
export class RedisState {
  #url;
  #client;
  #subscriber;
  #opened; // what open() read, until load() hands it over
  #instance = randomUUID();
  #onRemoteChange = () => {};
  #onWriteFailed = () => {};
  #onError;
  #lastWrite;
  #failure; // the first write that failed since the last flush
  #adapterClients = [];

  // `onError(err)` hears of writes and messages that failed.
  constructor(url, { onError = () => {} } = {}) {
    this.#url = url;
    this.#onError = onError;
  }

  // Connects, reads everything and starts listening to the other instances.
  async open() {
    this.#client = createClient({ url: this.#url });
    this.#client.on('error', (err) => this.#onError(err));
    try {
      await this.#client.connect();
    } catch (err) {
      throw new Error(`Cannot reach Redis at ${this.#url}: ${err.message}`);
    }
    this.#subscriber = this.#client.duplicate();
    this.#subscriber.on('error', (err) => this.#onError(err));
    await this.#subscriber.connect();
    await this.#subscriber.subscribe(CHANGES, (message) => this.#received(message));
    this.#opened = await this.#readAll();
  }

  // The client the socket.io adapter publishes on and a duplicate it subscribes with.
  adapterClients() {
    const clients = [this.#client.duplicate(), this.#client.duplicate()];
    for (const client of clients) client.on('error', (err) => this.#onError(err));
    this.#adapterClients.push(...clients);
    return clients;
  }

  // `listener(table, action, recordOrId)` for every change another instance made.
  onRemoteChange(listener) {
    this.#onRemoteChange = listener;
  }

  // `listener(table, id)` for a change of this instance's that did not reach Redis.
  onWriteFailed(listener) {
    this.#onWriteFailed = listener;
  }

  // What open() read, in the shape SqliteState.load() gives, once: the store keeps its own copy,
  // and later changes reach it as messages, so nothing is held here after that.
  load(...tables) {
    const wanted = tables.length > 0 ? tables : TABLES;
    const loaded = Object.fromEntries(wanted.map((table) => [table, this.#opened?.[table] ?? []]));
    this.#opened = undefined;
    return loaded;
  }

  save(table, record, previous) {
    const data = JSON.stringify(record);
    const transaction = this.#client.multi().hSet(PREFIX + table, record.id, data);
    const kept = new Set();
    for (const [hash, field, value] of indexEntries(table, record)) {
      transaction.hSet(hash, field, value);
      kept.add(`${hash} ${field}`);
    }
    for (const [hash, field] of indexEntries(table, previous)) {
      if (hash !== CODES && !kept.has(`${hash} ${field}`)) transaction.hDel(hash, field);
    }
    this.#write(transaction.publish(CHANGES, JSON.stringify({ from: this.#instance, table, action: 'save', data })), table, record.id);
  }

  remove(table, id, previous) {
    const transaction = this.#client.multi().hDel(PREFIX + table, id);
    // A code may already name a later session; it is left to that one (lookups check the record).
    for (const [hash, field] of indexEntries(table, previous)) if (hash !== CODES) transaction.hDel(hash, field);
    this.#write(transaction.publish(CHANGES, JSON.stringify({ from: this.#instance, table, action: 'remove', id })), table, id);
  }

  // The records one key names, as Redis has them now: { sessions: [...], devices: [...],
  // logins: [...], agents: [...] }. `kind` is 'session' or 'device' (by id), 'code', 'token' (a bearer token),
  // 'credential' (a device's) or 'login' (a sign-in cookie). Asked on the connection the writes
  // go on, so it comes back after this instance's own writes.
  async lookUp(kind, key) {
    if (kind === 'session' || kind === 'device') return { [`${kind}s`]: await this.#records(`${kind}s`, key) };
    if (kind === 'login') {
      // The account too: it may be as new as the sign-in.
      const logins = await this.#records('logins', digest(key));
      return { logins, agents: logins.length > 0 ? await this.#records('agents', logins[0].agentId) : [] };
    }
    if (kind === 'code') {
      const sessions = await this.#records('sessions', await this.#client.hGet(CODES, key));
      return { sessions: sessions.filter((session) => session.code === key) };
    }
    if (kind === 'credential') {
      const hash = digest(key);
      const devices = await this.#records('devices', await this.#client.hGet(CREDENTIALS, hash));
      return { devices: devices.filter((device) => device.credentialHash === hash) };
    }
    const [table, id] = String(await this.#client.hGet(TOKENS, digest(key))).split(':');
    if (!TOKEN_FIELDS[table]) return {};
    const records = await this.#records(table, id);
    return { [table]: records.filter((record) => TOKEN_FIELDS[table].some((field) => record[field] === key)) };
  }

  // Counts that expire a window after their last increment (sign-in attempts), shared by all.
  counters() {
    return {
      add: async (key, windowMs) => {
        const [count] = await this.#client.multi().incr(COUNTERS + key).pExpire(COUNTERS + key, windowMs).exec();
        return Number(count);
      },
      undo: async (key) => {
        if (Number(await this.#client.decr(COUNTERS + key)) < 0) await this.#client.del(COUNTERS + key);
      },
      clear: async (key) => {
        await this.#client.del(COUNTERS + key);
      },
    };
  }

  // Throws while Redis cannot be reached.
  ping() {
    if (!this.#client?.isReady) throw new Error(`Redis at ${this.#url} is not reachable`);
  }

  close() {
    for (const client of [...this.#adapterClients, this.#subscriber, this.#client]) {
      if (client?.isOpen) client.destroy();
    }
  }

  // Resolves once every write so far has been answered; rejects (503) when one of them failed.
  async flush() {
    await this.#lastWrite;
    const failure = this.#failure;
    this.#failure = undefined;
    if (failure) throw serviceUnavailable(`The shared state could not be written: ${failure.message}`);
  }

  async #records(table, id) {
    if (typeof id !== 'string' || id === '') return [];
    const data = await this.#client.hGet(PREFIX + table, id);
    return data ? [JSON.parse(data)] : [];
  }

  async #readAll() {
    const tables = await Promise.all(TABLES.map((table) => this.#client.hGetAll(PREFIX + table)));
    const snapshot = {};
    TABLES.forEach((table, i) => {
      snapshot[table] = Object.values(tables[i]).map((data) => JSON.parse(data)).sort(byAge);
    });
    return snapshot;
  }

  #write(transaction, table, id) {
    this.#lastWrite = transaction.exec().then(() => {}, (err) => {
      this.#failure ??= err;
      this.#onError(err);
      this.#onWriteFailed(table, id);
    });
  }

  #received(message) {
    let change;
    try {
      change = JSON.parse(message);
      if (change.from === this.#instance || !TABLES.includes(change.table)) return;
      const value = change.action === 'save' ? JSON.parse(change.data) : change.id;
      this.#onRemoteChange(change.table, change.action, value);
    } catch (err) {
      this.#onError(err);
    }
  }
}

// [hash, field, value] of the indexes that point at a record.
function indexEntries(table, record) {
  if (!record || !TOKEN_FIELDS[table]) return [];
  const entries = TOKEN_FIELDS[table].filter((field) => record[field]).map((field) => [TOKENS, digest(record[field]), `${table}:${record.id}`]);
  if (table === 'sessions') entries.push([CODES, record.code, record.id]);
  if (table === 'devices' && record.credentialHash) entries.push([CREDENTIALS, record.credentialHash, record.id]);
  return entries;
}

// Hashes have no order; records are put back in the order they were made.
function byAge(a, b) {
  const [x, y] = [a.createdAt ?? a.registeredAt ?? '', b.createdAt ?? b.registeredAt ?? ''];
  return x < y ? -1 : x > y ? 1 : 0;
}
