#!/usr/bin/env node
// The service's own commands, run beside it on the same data directory.
import { createInterface } from 'node:readline';
import { parseArgs } from 'node:util';
import { hashPassword, PASSWORD_MAX_LENGTH, PASSWORD_MIN_LENGTH } from './agents/passwords.js';
import { DEFAULT_DATA_DIR } from './cli-options.js';
import { RedisState } from './state/redis-state.js';
import { SqliteState } from './state/sqlite-state.js';
import { Store } from './store.js';

export const USAGE = `Usage: node src/manage.js COMMAND [--data DIR | --redis URL]
  add-agent     add an agent account: its name, then its password, are read from standard input,
                one per line (never from the command line, where other users could see them)
  list-agents   print the agent accounts' names
  --data DIR    the service's data directory (default ./${DEFAULT_DATA_DIR})
  --redis URL   the Redis server the service instances share instead`;

const NAME_PATTERN = /^[\p{L}\p{N}][\p{L}\p{N} ._@-]{0,63}$/u;

async function readLines(count) {
  const lines = [];
  const reader = createInterface({ input: process.stdin, terminal: false });
  const prompts = ['Name: ', 'Password: '];
  if (process.stdin.isTTY) process.stderr.write(prompts[0]);
  for await (const line of reader) {
    lines.push(line);
    if (lines.length === count) break;
    if (process.stdin.isTTY) process.stderr.write(prompts[lines.length]);
  }
  reader.close();
  return lines;
}

async function main() {
  let parsed;
  try {
    parsed = parseArgs({ args: process.argv.slice(2), options: { data: { type: 'string' }, redis: { type: 'string' } }, allowPositionals: true });
  } catch (err) {
    return fail(err.message);
  }
  const [command, ...rest] = parsed.positionals;
  if (rest.length > 0) return fail(`unexpected argument "${rest[0]}" (the password is read from standard input)`);
  if (command !== 'add-agent' && command !== 'list-agents') return fail(command ? `unknown command "${command}"` : 'no command');
  const { data, redis } = parsed.values;
  if (data !== undefined && redis !== undefined) return fail('--data and --redis exclude each other');
  const state = redis === undefined ? new SqliteState(data ?? DEFAULT_DATA_DIR) : new RedisState(redis);
  try {
    const store = new Store({ state });
    await store.open();
    if (command === 'list-agents') {
      for (const agent of store.agents.list()) process.stdout.write(`${agent.name}\n`);
      return 0;
    }
    const [name = '', password = ''] = await readLines(2);
    if (!NAME_PATTERN.test(name)) return fail('the name must be 1 to 64 letters, digits, spaces or ._@- and start with a letter or digit');
    if (password.length < PASSWORD_MIN_LENGTH || password.length > PASSWORD_MAX_LENGTH) {
      return fail(`the password must be ${PASSWORD_MIN_LENGTH} to ${PASSWORD_MAX_LENGTH} characters`);
    }
    store.agents.add(name, await hashPassword(password));
    await state.flush?.();
    process.stdout.write(`added agent "${name}"\n`);
    return 0;
  } catch (err) {
    return fail(err.message);
  } finally {
    state.close();
  }
}

function fail(message) {
  process.stderr.write(`${message}\n${USAGE}\n`);
  return 1;
}

main().then(
  (code) => {
    process.exitCode = code;
  },
  (err) => {
    process.stderr.write(`${err.stack ?? err}\n`);
    process.exitCode = 1;
  },
);
