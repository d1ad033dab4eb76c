import { isWholeFrame } from './relay.js';

// The newest "screen" and "frame" each session's device sent, so an agent that connects later
// sees the screen at once instead of waiting for the next change. Nothing else is kept per
// session: counts of the frames relayed and of the gaps in their numbering, so that tests and
// operators can see whether frames went missing, in constant memory whatever a device sends.
export class LatestRecords {
  #bySession = new Map(); // session id -> { screen, frame, stats }

  remember(sessionId, event, record) {
    if (event !== 'screen' && event !== 'frame') return;
    const entry = this.#bySession.get(sessionId) ?? { stats: { count: 0, first_id: null, last_id: null, gaps: 0 } };
    // Changed regions mean nothing without the picture they were drawn on: only whole frames are
    // replayed, and the console then asks for a fresh one.
    if (event === 'screen' || isWholeFrame(record)) entry[event] = record;
    if (event === 'frame') count(entry.stats, record.id);
    this.#bySession.set(sessionId, entry);
  }

  // { count, first_id, last_id, gaps } of the frames relayed for a live session; ids that are
  // not whole numbers count as null.
  frameStats(sessionId) {
    return { ...(this.#bySession.get(sessionId)?.stats ?? { count: 0, first_id: null, last_id: null, gaps: 0 }) };
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

function count(stats, id) {
  const number = Number.isSafeInteger(id) ? id : null;
  if (stats.count === 0) stats.first_id = number;
  else if (number === null || stats.last_id === null || number !== stats.last_id + 1) stats.gaps += 1;
  stats.count += 1;
  stats.last_id = number;
}
