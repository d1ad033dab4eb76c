import assert from 'node:assert/strict';
import { readdirSync, statSync } from 'node:fs';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import Database from 'better-sqlite3';
import { createService } from '../src/app.js';
import { parseCliOptions } from '../src/cli-options.js';
import { Store } from '../src/store.js';
import { DATABASE_FILE } from '../src/state/sqlite-state.js';
import { openSocket } from '../test-support/socket-client.js';

const PUBLIC_URL = 'http://svc.test';

async function tempDir(t) {
  const dir = await mkdtemp(join(tmpdir(), 'halvora-state-'));
  t.after(() => rm(dir, { recursive: true, force: true }));
  return dir;
}

// A service on `dir`; its records name a fixed public URL, so they compare equal across restarts.
async function open(dir, options = {}) {
  const service = createService({ dataDir: dir, publicUrl: PUBLIC_URL, ...options });
  await service.listen(0);
  return { service, store: service.store, address: `http://127.0.0.1:${service.server.address().port}` };
}

test('a restart keeps devices, sessions in every state, their tokens and their codes', async (t) => {
  const dir = await tempDir(t);
  const first = await open(dir);
  const { store } = first;
  store.registerDevice('D1', { pushToken: 'p', pushProvider: 'none', device: { model: 'M' }, customData: { a: 1 } });
  store.registerDevice('D2', { pushToken: '', pushProvider: 'none', device: {} });
  store.removeDevice('D2', { trusted: true });
  const active = store.startSessionForDevice('D1');
  store.joinSession(active.id, { id: 'agent-7', name: 'Dana' });
  store.changeSessionState(active.id, { state: 'active', device: { name: 'phone' }, customData: { b: 2 } });
  const rotated = store.rotateSessionTokens(active.id);
  const ended = store.createSession();
  store.endSession(ended.id);
  const pending = store.createSession();
  // Its tokens are its owner's alone.
  assert.equal(statSync(dir).mode & 0o777, 0o700);
  for (const file of readdirSync(dir)) assert.equal(statSync(join(dir, file)).mode & 0o777, 0o600, file);
  const oldStreamToken = active.stream_token;
  const before = { sessions: store.listSessions(), devices: store.listDevices() };
  await first.service.close();

  // The live codes stay taken: a generator that offers them first must be refused them.
  const offered = [pending.code, rotated.code, '123456'];
  const second = await open(dir, { generateCode: () => offered.shift() ?? '654321' });
  t.after(() => second.service.close());
  assert.deepEqual({ sessions: second.store.listSessions(), devices: second.store.listDevices() }, before);
  for (const [ref, id] of [[pending.code, pending.id], [rotated.code, active.id], [ended.code, ended.id]]) {
    assert.equal(second.store.getSession(ref).id, id, `code ${ref}`);
  }
  assert.equal(second.store.createSession().code, '123456');
  assert.deepEqual(second.store.resolveToken(rotated.stream_token), { channel: 'stream', sessionId: active.id });
  assert.equal(second.store.resolveToken(oldStreamToken), undefined);
  assert.deepEqual(second.store.resolveToken(before.devices[0].notification_token), { channel: 'notification', deviceId: 'D1' });

  // The device's stream reconnects with the token it already has.
  const socket = await openSocket(second.address, { header: rotated.stream_token });
  socket.close();
});

test('a data file that is not ours, or from a newer service, is refused with a clear error', async (t) => {
  const cases = [
    ['not a database', async (dir) => writeFile(join(dir, DATABASE_FILE), 'x'.repeat(4096)), /not a Halvora data file|Cannot open/],
    ['a newer schema', async (dir) => {
      const db = new Database(join(dir, DATABASE_FILE));
      db.pragma('user_version = 99');
      db.close();
    }, /written by a newer service \(schema 99/],
  ];
  for (const [name, prepare, message] of cases) {
    const dir = await tempDir(t);
    await prepare(dir);
    assert.throws(() => createService({ dataDir: dir }), message, name);
  }
});

test('a data file of the first schema is brought up to date and keeps its records', async (t) => {
  const dir = await tempDir(t);
  const db = new Database(join(dir, DATABASE_FILE));
  db.exec(`CREATE TABLE devices (seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, data TEXT NOT NULL);
           CREATE TABLE sessions (seq INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL UNIQUE, data TEXT NOT NULL)`);
  db.prepare('INSERT INTO devices (id, data) VALUES (?, ?)').run('D1', JSON.stringify({ id: 'D1', notificationToken: 'n', device: {} }));
  db.pragma('user_version = 1');
  db.close();
  const { service, store } = await open(dir);
  t.after(() => service.close());
  assert.deepEqual(store.listDevices().map((device) => device.id), ['D1']);
  assert.equal(store.agents.add('Dana', 'hash').name, 'Dana');
  // A device from before credentials gets one at its next registration, and needs it from then on.
  const registration = { pushToken: '', pushProvider: 'none', device: {} };
  const { credential } = store.registerDevice('D1', registration);
  assert.match(credential, /^[0-9a-f]{64}$/);
  assert.throws(() => store.registerDevice('D1', registration), /Device credential refused/);
  assert.equal(store.registerDevice('D1', registration, credential).credential, undefined);
});

test('the command line keeps state in ./halvora-data unless given a directory or told to keep it in memory', () => {
  const cases = [
    [[], 'halvora-data'],
    [['--data', '/var/lib/halvora'], '/var/lib/halvora'],
    [['--memory'], undefined],
  ];
  for (const [args, dataDir] of cases) assert.equal(parseCliOptions(args).dataDir, dataDir, args.join(' '));
  assert.throws(() => parseCliOptions(['--memory', '--data', 'x']), /exclude each other/);
  assert.throws(() => parseCliOptions(['--data', '']), /needs a directory/);
});

test('a change the state cannot write changes nothing in memory either', () => {
  let failing = false;
  const written = [];
  const state = {
    load: () => ({ sessions: [], devices: [], agents: [], logins: [] }),
    save: (table, record) => {
      if (failing) throw new Error('disk full');
      written.push([table, record.id]);
    },
    remove: () => {
      throw new Error('disk full');
    },
  };
  const codes = ['123456', '222222', '222222'];
  const store = new Store({ state, generateCode: () => codes.shift() });
  const { credential } = store.registerDevice('D', { pushToken: '', pushProvider: 'none', device: {} });
  const session = store.createSession({ ownerDeviceId: 'D' });
  failing = true;
  assert.throws(() => store.registerDevice('E', { pushToken: '', pushProvider: 'none', device: {} }), /disk full/);
  assert.throws(() => store.joinSession(session.id, { id: 'A', name: 'Dana' }), /disk full/);
  assert.throws(() => store.createSession(), /disk full/);
  assert.throws(() => store.removeDevice('D', { credential }), /disk full/);
  assert.deepEqual([store.hasDevice('E'), store.hasDevice('D')], [false, true]);
  assert.equal(store.getSession(session.id).agent, undefined);
  assert.deepEqual(store.listSessions().map(({ id }) => id), [session.id]);
  assert.ok(store.deviceFor(credential));
  failing = false;
  assert.equal(store.createSession().code, '222222', 'the failed creation took no code');
});
