import { chmodSync, closeSync, existsSync, mkdirSync, openSync } from 'node:fs';
import { join } from 'node:path';
import Database from 'better-sqlite3';

// The schema this code writes; a file stamped with a newer one is refused rather than misread.
const SCHEMA_VERSION = 3;
export const DATABASE_FILE = 'halvora.db';
// One table per kind of record, each (seq, id, data).
export const TABLES = ['sessions', 'devices', 'agents', 'logins'];

// Devices, sessions, agent accounts and agents' sign-ins kept in an SQLite file in `dir`, one JSON
// document per record, in the order they were first saved, and the sign-in attempt counts. The
// store keeps working copies in memory and writes each change through, to the disk, before taking
// it in and announcing it, so what the service has told anyone survives a restart or a crash.
// Tokens and code assignments are not kept apart: they are fields of the records and are rebuilt
// from them. The directory is its owner's only (0700), and so are the files (0600): they hold
// tokens.
export class SqliteState {
  #db;
  #statements;

  constructor(dir) {
    mkdirSync(dir, { recursive: true, mode: 0o700 });
    chmodSync(dir, 0o700);
    const file = join(dir, DATABASE_FILE);
    try {
      // SQLite gives its journal files the database file's mode.
      if (!existsSync(file)) closeSync(openSync(file, 'a', 0o600));
      chmodSync(file, 0o600);
      this.#db = new Database(file);
    } catch (err) {
      throw new Error(`Cannot open the data file ${file}: ${err.message}`);
    }
    try {
      this.#migrate(file);
    } catch (err) {
      this.#db.close();
      throw err;
    }
    this.#statements = Object.fromEntries(TABLES.map((table) => [table, {
      save: this.#db.prepare(`INSERT INTO ${table} (id, data) VALUES (?, ?) ON CONFLICT(id) DO UPDATE SET data = excluded.data`),
      remove: this.#db.prepare(`DELETE FROM ${table} WHERE id = ?`),
      all: this.#db.prepare(`SELECT data FROM ${table} ORDER BY seq`),
    }]));
    for (const suffix of ['-wal', '-shm']) if (existsSync(file + suffix)) chmodSync(file + suffix, 0o600);
  }

  // Counts that expire a window after their last increment (sign-in attempts), in the file.
  counters() {
    const add = this.#db.prepare(`INSERT INTO attempts (key, count, expires) VALUES (?, 1, ?)
      ON CONFLICT(key) DO UPDATE SET count = CASE WHEN expires <= ? THEN 1 ELSE count + 1 END, expires = excluded.expires
      RETURNING count`);
    const undo = this.#db.prepare('UPDATE attempts SET count = count - 1 WHERE key = ? AND count > 0');
    const clear = this.#db.prepare('DELETE FROM attempts WHERE key = ?');
    const prune = this.#db.prepare('DELETE FROM attempts WHERE expires <= ?');
    let added = 0;
    return {
      add: (key, windowMs) => {
        const now = Date.now();
        if (++added % 1000 === 0) prune.run(now);
        return add.get(key, now + windowMs, now).count;
      },
      undo: (key) => undo.run(key),
      clear: (key) => clear.run(key),
    };
  }

  // Everything saved (or the named tables only), oldest first: { sessions: [...], devices: [...],
  // agents: [...], logins: [...] }.
  load(...tables) {
    const wanted = tables.length > 0 ? tables : TABLES;
    return Object.fromEntries(wanted.map((table) => [table, this.#statements[table].all.all().map((row) => JSON.parse(row.data))]));
  }

  save(table, record) {
    this.#statements[table].save.run(record.id, JSON.stringify(record));
  }

  remove(table, id) {
    this.#statements[table].remove.run(id);
  }

  // Runs `work` (saves and removes) as one transaction: all of it is written, or none.
  batch(work) {
    this.#db.transaction(work)();
  }

  // Throws when the file can no longer be read.
  ping() {
    this.#db.prepare('SELECT 1').get();
  }

  close() {
    if (this.#db.open) this.#db.close();
  }

  #migrate(file) {
    let version;
    try {
      version = this.#db.pragma('user_version', { simple: true });
    } catch (err) {
      throw new Error(`${file} is not a Halvora data file: ${err.message}`);
    }
    if (version > SCHEMA_VERSION) {
      throw new Error(`${file} was written by a newer service (schema ${version}; this one reads up to ${SCHEMA_VERSION})`);
    }
    // Write-ahead logging: readers never wait for the writer. Synced at checkpoints rather than at
    // every commit: a crash of the service loses nothing answered and the file stays whole; a
    // power cut may lose the last moments. Syncing every commit on the event loop let a flood of
    // session requests hold every other answer behind the disk.
    this.#db.pragma('journal_mode = WAL');
    this.#db.pragma('synchronous = NORMAL');
    // Version 1 had sessions and devices; 2 added agents and their sign-ins; 3 the sign-in
    // attempts. Each step only creates what is missing.
    if (version < SCHEMA_VERSION) {
      this.#db.transaction(() => {
        for (const table of TABLES) {
          this.#db.exec(`CREATE TABLE IF NOT EXISTS ${table} (seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, data TEXT NOT NULL)`);
        }
        this.#db.exec('CREATE TABLE IF NOT EXISTS attempts (key TEXT PRIMARY KEY, count INTEGER NOT NULL, expires INTEGER NOT NULL)');
        this.#db.pragma(`user_version = ${SCHEMA_VERSION}`);
      })();
    }
  }
}
