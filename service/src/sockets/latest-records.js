// The newest "screen" and "frame" each session's device sent, so an agent that connects
// later sees the screen at once instead of waiting for the next change.
// It also keeps the numbers of the frames relayed, so tests and operators can see whether a
// device's numbering has gaps.
const MAX_FRAME_IDS = 10_000;

export class LatestRecords {
  #bySession = new Map(); // session id -> { screen, frame, frameIds }

  remember(sessionId, event, record) {
    if (event !== 'screen' && event !== 'frame') return;
    const entry = this.#bySession.get(sessionId) ?? { frameIds: [] };
    entry[event] = record;
    if (event === 'frame') {
      entry.frameIds.push(record?.id ?? null);
      if (entry.frameIds.length > MAX_FRAME_IDS) entry.frameIds.shift();
    }
    this.#bySession.set(sessionId, entry);
  }

  // The "id" of every frame relayed for a live session, oldest first (the newest 10,000).
  frameIds(sessionId) {
    return [...(this.#bySession.get(sessionId)?.frameIds ?? [])];
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
