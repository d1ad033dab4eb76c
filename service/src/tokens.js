import { createHash, randomBytes, randomInt } from 'node:crypto';

// Bearer tokens and device credentials: 32 random bytes, hex encoded.
export function newToken() {
  return randomBytes(32).toString('hex');
}

// Record ids only need to be unguessable enough not to collide; 12 bytes gives 24 hex chars.
export function newId() {
  return randomBytes(12).toString('hex');
}

// A six-digit code a person can read out over the phone; zero padded.
export function newSessionCode() {
  return String(randomInt(0, 1_000_000)).padStart(6, '0');
}

// What is kept of a secret (sign-in cookies, device credentials): the data alone opens nothing.
export function digest(secret) {
  return createHash('sha256').update(secret).digest('hex');
}

const BEARER = /^Bearer[ \t]+([^\s]+)[ \t]*$/i;

// The token of an "Authorization: Bearer <token>" header, or undefined.
export function bearerValue(header) {
  return typeof header === 'string' ? BEARER.exec(header)?.[1] : undefined;
}
