import { serviceUnavailable } from './errors.js';
import { newSessionCode } from './tokens.js';

const CODE_SPACE = 1_000_000;
const RANDOM_ATTEMPTS = 64;

// Hands out six-digit codes that no live (not ended) session is using, and remembers the
// newest session for every code so a code still finds its session after it has ended.
export class SessionCodes {
  #live = new Set();
  #newest = new Map(); // code -> session id
  #generate;

  constructor({ generate = newSessionCode } = {}) {
    this.#generate = generate;
  }

  allocate(sessionId) {
    const code = this.#pickFree();
    this.#live.add(code);
    this.#newest.set(code, sessionId);
    return code;
  }

  // A code handed out before a restart, read back oldest session first.
  restore(code, sessionId, live) {
    this.#newest.set(code, sessionId);
    if (live) this.#live.add(code);
  }

  release(code) {
    this.#live.delete(code);
  }

  sessionIdFor(code) {
    return this.#newest.get(code);
  }

  #pickFree() {
    if (this.#live.size >= CODE_SPACE) {
      throw serviceUnavailable('No session codes are free; end some sessions first');
    }
    for (let attempt = 0; attempt < RANDOM_ATTEMPTS; attempt++) {
      const code = this.#generate();
      if (!this.#live.has(code)) return code;
    }
    // Nearly full (or an unlucky generator): walk the code space from a random start.
    const start = Number(newSessionCode());
    for (let offset = 0; offset < CODE_SPACE; offset++) {
      const code = String((start + offset) % CODE_SPACE).padStart(6, '0');
      if (!this.#live.has(code)) return code;
    }
    throw serviceUnavailable('No session codes are free; end some sessions first');
  }
}
