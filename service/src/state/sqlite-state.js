import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import Database from 'better-sqlite3';

// The schema this code writes; a file stamped with a newer one is refused rather than misread.
const SCHEMA_VERSION = 1;
export const DATABASE_FILE = 'halvora.db';

// Devices and sessions kept in an SQLite file in `dir`, one JSON document per record, in the order
// they were first saved. The store keeps working copies in memory and writes each change through
// before announcing it, so what the service has told anyone survives a restart. Tokens and code
// assignments are not kept apart: they are fields of the records and are rebuilt from them.
export class SqliteState {
  #db;
  #statements;

  constructor(dir) {
    mkdirSync(dir, { recursive: true });
    const file = join(dir, DATABASE_FILE);
    try {
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
    const upsert = (table) =>
      this.#db.prepare(`INSERT INTO ${table} (id, data) VALUES (?, ?) ON CONFLICT(id) DO UPDATE SET data = excluded.data`);
    this.#statements = {
      saveSession: upsert('sessions'),
      saveDevice: upsert('devices'),
      deleteDevice: this.#db.prepare('DELETE FROM devices WHERE id = ?'),
      sessions: this.#db.prepare('SELECT data FROM sessions ORDER BY seq'),
      devices: this.#db.prepare('SELECT data FROM devices ORDER BY seq'),
    };
  }

  // Everything saved, oldest first: { sessions: [...], devices: [...] }.
  load() {
    const read = (statement) => statement.all().map((row) => JSON.parse(row.data));
    return { sessions: read(this.#statements.sessions), devices: read(this.#statements.devices) };
  }

  saveSession(session) {
    this.#statements.saveSession.run(session.id, JSON.stringify(session));
  }

  saveDevice(device) {
    this.#statements.saveDevice.run(device.id, JSON.stringify(device));
  }

  deleteDevice(id) {
    this.#statements.deleteDevice.run(id);
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
    // Write-ahead logging: readers never wait for the writer, and a crash loses no committed change.
    this.#db.pragma('journal_mode = WAL');
    if (version === 0) {
      this.#db.exec(`
        CREATE TABLE IF NOT EXISTS sessions (seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, data TEXT NOT NULL);
        CREATE TABLE IF NOT EXISTS devices (seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, data TEXT NOT NULL);
      `);
      this.#db.pragma(`user_version = ${SCHEMA_VERSION}`);
    }
  }
}
