import { randomUUID } from 'node:crypto';
import { createClient } from 'redis';
import { TABLES } from './sqlite-state.js';

const PREFIX = 'halvora:';
const CHANGES = `${PREFIX}changes`;
// A lookup that misses re-reads everything at most this often, so a flood of unknown tokens
// cannot turn into a flood of reads.
const CATCH_UP_INTERVAL_MS = 100;

// Devices, sessions, agent accounts and sign-ins kept in Redis and shared by every service
// instance that names the same server: one hash per table (id -> JSON record). Each instance
// works on its own copy in memory, as with SQLite; every change it makes is written through and
// published on a channel, and the other instances apply it to their copies. A lookup that misses
// (a record another instance made a moment ago, not yet heard of) can catch up by reading
// everything again.
//
// Writes leave in order on one connection but are not awaited by the store: an instance that
// loses Redis keeps serving from memory and reports itself unhealthy until Redis is back.
export class RedisState {
  #url;
  #client;
  #subscriber;
  #opened; // what open() read, until load() hands it over
  #instance = randomUUID();
  #onRemoteChange = () => {};
  #onError;
  #nextRead; // a catch-up read not started yet
  #reading; // the one in progress
  #lastRead = 0;
  #lastWrite;
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

  // What open() read, in the shape SqliteState.load() gives, once: the store keeps its own copy,
  // and later changes reach it as messages, so nothing is held here after that.
  load(...tables) {
    const wanted = tables.length > 0 ? tables : TABLES;
    const loaded = Object.fromEntries(wanted.map((table) => [table, this.#opened?.[table] ?? []]));
    this.#opened = undefined;
    return loaded;
  }

  save(table, record) {
    const data = JSON.stringify(record);
    this.#write(this.#client.multi().hSet(PREFIX + table, record.id, data)
      .publish(CHANGES, JSON.stringify({ from: this.#instance, table, action: 'save', data })));
  }

  remove(table, id) {
    this.#write(this.#client.multi().hDel(PREFIX + table, id)
      .publish(CHANGES, JSON.stringify({ from: this.#instance, table, action: 'remove', id })));
  }

  // One record as Redis has it now, or undefined. Asked on the connection the writes go on, so it
  // comes back after this instance's own writes.
  async read(table, id) {
    const data = await this.#client.hGet(PREFIX + table, id);
    return data ? JSON.parse(data) : undefined;
  }

  // Throws while Redis cannot be reached.
  ping() {
    if (!this.#client?.isReady) throw new Error(`Redis at ${this.#url} is not reachable`);
  }

  // Reads everything again and resolves to the fresh snapshot (undefined when the read failed).
  // The read a caller gets always starts after it asked, so it sees whatever was written before;
  // callers waiting for the same read share it, and reads start at most every 100 ms.
  catchUp() {
    this.#nextRead ??= this.#readLater();
    return this.#nextRead;
  }

  async #readLater() {
    await this.#reading; // one under way may have started before the caller asked
    await new Promise((resolve) => setTimeout(resolve, Math.max(0, this.#lastRead + CATCH_UP_INTERVAL_MS - Date.now())));
    this.#nextRead = undefined; // whoever asks from now on needs a later read
    this.#lastRead = Date.now();
    const reading = this.#readAll();
    this.#reading = reading.catch(() => {});
    try {
      return await reading;
    } catch (err) {
      this.#onError(err);
      return undefined;
    }
  }

  close() {
    for (const client of [...this.#adapterClients, this.#subscriber, this.#client]) {
      if (client?.isOpen) client.destroy();
    }
  }

  async #readAll() {
    const tables = await Promise.all(TABLES.map((table) => this.#client.hGetAll(PREFIX + table)));
    const snapshot = {};
    TABLES.forEach((table, i) => {
      snapshot[table] = Object.values(tables[i]).map((data) => JSON.parse(data)).sort(byAge);
    });
    return snapshot;
  }

  #write(transaction) {
    this.#lastWrite = transaction.exec().catch((err) => this.#onError(err));
  }

  // Resolves once every write so far has been answered (for commands that exit right after).
  async flush() {
    await this.#lastWrite;
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

// Hashes have no order; records are put back in the order they were made.
function byAge(a, b) {
  const [x, y] = [a.createdAt ?? a.registeredAt ?? '', b.createdAt ?? b.registeredAt ?? ''];
  return x < y ? -1 : x > y ? 1 : 0;
}
