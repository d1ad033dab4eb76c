import { HttpError } from '../errors.js';

// At most MAX_KEYS clients are remembered at once; past that the oldest windows go first, so that
// a flood of addresses cannot grow the table without bound.
const MAX_KEYS = 100_000;

// Fixed one-window counters: `limit` requests per `windowMs` for each key (a client address, a
// device). In this instance's memory: with several instances each counts its own.
export class RateLimiter {
  #windows = new Map(); // key -> { count, resetAt }, oldest window first
  #limit;
  #windowMs;
  #now;

  constructor({ limit, windowMs = 60_000, now = () => Date.now() }) {
    this.#limit = limit;
    this.#windowMs = windowMs;
    this.#now = now;
  }

  // Counts one request for `key`; throws 429 with Retry-After past the limit.
  take(key) {
    const now = this.#now();
    let window = this.#windows.get(key);
    if (!window || window.resetAt <= now) {
      this.#windows.delete(key);
      window = { count: 0, resetAt: now + this.#windowMs };
      this.#windows.set(key, window);
      this.#prune(now);
    }
    window.count += 1;
    if (window.count > this.#limit) {
      const seconds = Math.max(1, Math.ceil((window.resetAt - now) / 1000));
      throw new HttpError(429, `Too many requests; try again in ${seconds} seconds`, { 'Retry-After': String(seconds) });
    }
  }

  #prune(now) {
    for (const [key, window] of this.#windows) {
      if (window.resetAt > now && this.#windows.size <= MAX_KEYS) break;
      this.#windows.delete(key);
    }
  }
}
