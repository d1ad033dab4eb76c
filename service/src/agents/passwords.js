import { randomBytes, scrypt, timingSafeEqual } from 'node:crypto';

// scrypt with a random salt per password, stored as "scrypt:N:r:p:salt:hash" (base64 parts), so
// the cost can be raised later without invalidating stored hashes.
const COST = { N: 16384, r: 8, p: 1 };
const KEY_BYTES = 64;
export const PASSWORD_MIN_LENGTH = 8;
export const PASSWORD_MAX_LENGTH = 1024;

function derive(password, salt, { N, r, p }) {
  return new Promise((resolve, reject) => {
    scrypt(password, salt, KEY_BYTES, { N, r, p, maxmem: 64 * 1024 * 1024 }, (err, key) => (err ? reject(err) : resolve(key)));
  });
}

export async function hashPassword(password) {
  const salt = randomBytes(16);
  const key = await derive(password, salt, COST);
  return ['scrypt', COST.N, COST.r, COST.p, salt.toString('base64'), key.toString('base64')].join(':');
}

// True when `password` matches `stored`; a malformed stored value matches nothing.
export async function verifyPassword(password, stored) {
  const [kind, N, r, p, salt, hash] = String(stored).split(':');
  if (kind !== 'scrypt' || !salt || !hash) return false;
  const expected = Buffer.from(hash, 'base64');
  const key = await derive(password, Buffer.from(salt, 'base64'), { N: Number(N), r: Number(r), p: Number(p) });
  return key.length === expected.length && timingSafeEqual(key, expected);
}

// A stored value for no one: unknown names are checked against it, so that a wrong name takes
// as long to refuse as a wrong password.
export const UNUSABLE_HASH = await hashPassword(randomBytes(16).toString('hex'));
