import { randomBytes, randomInt } from 'node:crypto';

// Bearer tokens for the socket channels: 32 random bytes, hex encoded.
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
