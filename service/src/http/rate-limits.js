import { HttpError } from '../errors.js';
import { ExpiringCounts } from '../expiring-counts.js';

// Fixed-window limits: `limit` requests per `windowMs` for each key (a client address, a device),
// for the limits whose key is known only inside a handler (@fastify/rate-limit keys a route by
// its request). In this instance's memory: with several instances each counts its own.
export class RateLimiter {
  #counts;
  #limit;
  #windowMs;
  #now;

  constructor({ limit, windowMs = 60_000, now = () => Date.now() }) {
    this.#counts = new ExpiringCounts({ now });
    this.#limit = limit;
    this.#windowMs = windowMs;
    this.#now = now;
  }

  // Counts one request for `key`; throws 429 with Retry-After past the limit.
  take(key) {
    if (this.#counts.add(key, this.#windowMs) <= this.#limit) return;
    const seconds = Math.max(1, Math.ceil((this.#counts.expiresAt(key) - this.#now()) / 1000));
    throw new HttpError(429, `Too many requests; try again in ${seconds} seconds`, { 'Retry-After': String(seconds) });
  }
}
