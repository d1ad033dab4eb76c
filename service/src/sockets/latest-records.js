// The newest "screen" and "frame" each session's device sent, so an agent that connects
// later sees the screen at once instead of waiting for the next change.
export class LatestRecords {
  #bySession = new Map(); // session id -> { screen, frame }

  remember(sessionId, event, record) {
    if (event !== 'screen' && event !== 'frame') return;
    const entry = this.#bySession.get(sessionId) ?? {};
    entry[event] = record;
    this.#bySession.set(sessionId, entry);
  }

  // [event, record] pairs in the order an agent should receive them.
  replay(sessionId) {
    const entry = this.#bySession.get(sessionId);
    if (!entry) return [];
    return ['screen', 'frame'].filter((event) => entry[event] !== undefined).map((event) => [event, entry[event]]);
  }

  forget(sessionId) {
    this.#bySession.delete(sessionId);
  }
}
