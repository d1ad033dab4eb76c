// Failed sign-ins, per client address and per account name: after SLOW_AFTER failures within the
// window each further attempt is answered only after a delay; after LOCK_AFTER, attempts are
// refused until the window has passed since the last failure. A success clears the name's count,
// not the address's, so guessing across accounts from one place stays slowed.
export const SLOW_AFTER = 5;
export const LOCK_AFTER = 10;
export const WINDOW_MS = 15 * 60 * 1000;
export const SLOW_DELAY_MS = 1000;
// Addresses and names tracked at most; past it, failures older than the window are forgotten
// first, then the oldest, so that many sources cannot grow the table without bound.
const MAX_ENTRIES = 100_000;

export class SignInThrottle {
  #failures = new Map(); // key -> { count, last }
  #now;

  constructor({ now = () => Date.now() } = {}) {
    this.#now = now;
  }

  // { wait: ms to delay the answer } or { retryAfterMs } when attempts are refused for now.
  check(address, name) {
    const worst = Math.max(this.#count(`ip:${address}`), this.#count(`name:${name}`));
    if (worst >= LOCK_AFTER) {
      const last = Math.max(this.#last(`ip:${address}`), this.#last(`name:${name}`));
      return { retryAfterMs: Math.max(1000, last + WINDOW_MS - this.#now()) };
    }
    return { wait: worst >= SLOW_AFTER ? SLOW_DELAY_MS : 0 };
  }

  failed(address, name) {
    for (const key of [`ip:${address}`, `name:${name}`]) {
      const count = this.#count(key) + 1;
      this.#failures.delete(key); // re-inserted last: the map stays in order of last failure
      this.#failures.set(key, { count, last: this.#now() });
    }
    if (this.#failures.size > MAX_ENTRIES) this.#prune();
  }

  #prune() {
    for (const [key, entry] of this.#failures) {
      if (this.#now() - entry.last <= WINDOW_MS && this.#failures.size <= MAX_ENTRIES) break;
      this.#failures.delete(key);
    }
  }

  succeeded(name) {
    this.#failures.delete(`name:${name}`);
  }

  #count(key) {
    const entry = this.#failures.get(key);
    if (!entry) return 0;
    if (this.#now() - entry.last > WINDOW_MS) {
      this.#failures.delete(key);
      return 0;
    }
    return entry.count;
  }

  #last(key) {
    return this.#failures.get(key)?.last ?? 0;
  }
}
