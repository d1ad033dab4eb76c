import { serviceUnavailable } from './errors.js';
import { newSessionCode } from './tokens.js';

const CODE_SPACE = 1_000_000;
// At most half the codes are live at once, so that a random pick is free at least every other
// try: a few picks always find one, and nothing ever walks the whole space.
export const MAX_LIVE_CODES = CODE_SPACE / 2;
const RANDOM_ATTEMPTS = 64;
const NO_CODE = 'No session codes are free; try again later';

// Hands out six-digit codes that no live (not ended) session is using, and remembers the
// newest session for every code so a code still finds its session after it has ended.
export class SessionCodes {
  #live = new Set();
  #newest = new Map(); // code -> session id
  #generate;

  constructor({ generate = newSessionCode } = {}) {
    this.#generate = generate;
  }

  // A code no live session uses; it is taken once a session with it is restored.
  pick() {
    if (this.#live.size >= MAX_LIVE_CODES) throw serviceUnavailable(NO_CODE);
    for (let attempt = 0; attempt < RANDOM_ATTEMPTS; attempt++) {
      const code = this.#generate();
      if (!this.#live.has(code)) return code;
    }
    throw serviceUnavailable(NO_CODE);
  }

  // A session holding `code`, as made, changed or read back (oldest first). A live session always
  // has its code; an ended one names it only if no later session took it.
  restore(code, sessionId, live) {
    const holder = this.#newest.get(code);
    if (live || holder === undefined || holder === sessionId || !this.#live.has(code)) this.#newest.set(code, sessionId);
    if (live) this.#live.add(code);
    else if (this.#newest.get(code) === sessionId) this.#live.delete(code);
  }

  // The session is gone: its code names nothing any more.
  forget(code, sessionId) {
    if (this.#newest.get(code) !== sessionId) return;
    this.#newest.delete(code);
    this.#live.delete(code);
  }

  sessionIdFor(code) {
    return this.#newest.get(code);
  }
}
