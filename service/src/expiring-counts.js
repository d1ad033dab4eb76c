// Counts per key (a client address, a device, an account name) that lapse a window after they
// began (rate limits) or, with `renew`, a window after their last increment (sign-in attempts, so
// that trying on keeps a lock in place). Kept in this process only. At most MAX_KEYS are tracked;
// past that, the ones that lapse first go first, so that many sources cannot grow the table
// without bound.
const MAX_KEYS = 100_000;

export class ExpiringCounts {
  #counts = new Map(); // key -> { count, expiresAt }, soonest to lapse first
  #renew;
  #now;

  constructor({ renew = false, now = () => Date.now() } = {}) {
    this.#renew = renew;
    this.#now = now;
  }

  // Counts one more for `key`; returns the count within its window.
  add(key, windowMs) {
    const now = this.#now();
    const entry = this.#counts.get(key);
    const live = entry !== undefined && entry.expiresAt > now;
    const next = {
      count: live ? entry.count + 1 : 1,
      expiresAt: live && !this.#renew ? entry.expiresAt : now + windowMs,
    };
    if (!live || this.#renew) this.#counts.delete(key); // re-inserted last: it now lapses last
    this.#counts.set(key, next);
    for (const [oldest, { expiresAt }] of this.#counts) {
      if (expiresAt > now && this.#counts.size <= MAX_KEYS) break;
      this.#counts.delete(oldest);
    }
    return next.count;
  }

  // When `key`'s count lapses (ms since the epoch), or undefined.
  expiresAt(key) {
    return this.#counts.get(key)?.expiresAt;
  }

  undo(key) {
    const entry = this.#counts.get(key);
    if (entry && entry.count > 0) entry.count -= 1;
  }

  clear(key) {
    this.#counts.delete(key);
  }
}
