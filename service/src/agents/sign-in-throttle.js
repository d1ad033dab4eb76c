import { ExpiringCounts } from '../expiring-counts.js';

// Sign-in attempts, per client address and per account name. Every attempt is counted before its
// password is checked, so attempts sent all at once are judged one by one as they arrive:
// - from one address, after SLOW_AFTER attempts within the window each further one is answered
//   only after a delay; after LOCK_AFTER that address is refused until the window has passed
//   since its last attempt;
// - for one account, from anywhere, after SLOW_AFTER attempts each further one waits too, but an
//   account is never refused: a stranger elsewhere can slow an agent's sign-in by a second, never
//   lock the agent out.
// A success takes back its own count from its address and clears the account's. The counts live
// in `counters` (the data file's or Redis's, so they survive a restart and are shared by every
// instance; memory only by default).
export const SLOW_AFTER = 5;
export const LOCK_AFTER = 10;
export const WINDOW_MS = 15 * 60 * 1000;
export const SLOW_DELAY_MS = 1000;

export class SignInThrottle {
  #counters;

  constructor({ counters, now = () => Date.now() } = {}) {
    this.#counters = counters ?? new ExpiringCounts({ renew: true, now });
  }

  // Counts an attempt: { retryAfterMs } when it is refused, else { wait } (ms to delay the answer).
  async attempt(address, name) {
    const [byAddress, byName] = await Promise.all([
      this.#counters.add(`ip:${address}`, WINDOW_MS),
      this.#counters.add(`name:${name}`, WINDOW_MS),
    ]);
    if (byAddress > LOCK_AFTER) return { retryAfterMs: WINDOW_MS };
    return { wait: byAddress > SLOW_AFTER || byName > SLOW_AFTER ? SLOW_DELAY_MS : 0 };
  }

  async succeeded(address, name) {
    await Promise.all([this.#counters.undo(`ip:${address}`), this.#counters.clear(`name:${name}`)]);
  }
}
