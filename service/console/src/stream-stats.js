// Frames per second, bytes per second and the delay of the device's pictures, as the agent
// experiences them.
//
// The device stamps its frames only to the whole second, and its clock is not this computer's, so
// the delay is estimated from what the console can time itself: half the round trip of a probe
// (the device echoes it as "alive") for the way from the device, plus the time from a frame's
// arrival to its being drawn (waiting behind the previous one, decoding, painting).

const WINDOW_MS = 2000;
const SMOOTHING = 0.3;

export class StreamStats {
  #drawnAt = [];
  #arrived = []; // [at, bytes]
  #roundTrip;
  // A still screen sends no frames: the delay stays what the last frame took.
  #lastDrawMs;
  #startedAt = performance.now();

  frameArrived(bytes, at) {
    this.#arrived.push([at, bytes]);
  }

  frameDrawn(arrivedAt, drawnAt) {
    this.#drawnAt.push(drawnAt);
    this.#lastDrawMs = drawnAt - arrivedAt;
  }

  roundTrip(ms) {
    this.#roundTrip = this.#roundTrip === undefined ? ms : this.#roundTrip + SMOOTHING * (ms - this.#roundTrip);
  }

  // { fps, bytesPerSecond, delayMs, roundTripMs, drawMs }; delayMs is undefined until a probe
  // came back and a frame was drawn.
  read(now = performance.now()) {
    while (this.#drawnAt.length > 0 && this.#drawnAt[0] <= now - WINDOW_MS) this.#drawnAt.shift();
    while (this.#arrived.length > 0 && this.#arrived[0][0] <= now - WINDOW_MS) this.#arrived.shift();
    // Right after opening, the window is only what has passed so far.
    const span = Math.max(500, Math.min(WINDOW_MS, now - this.#startedAt));
    const fps = (this.#drawnAt.length * 1000) / span;
    const bytesPerSecond = (this.#arrived.reduce((sum, [, bytes]) => sum + bytes, 0) * 1000) / span;
    const delayMs = this.#roundTrip === undefined || this.#lastDrawMs === undefined
      ? undefined : this.#roundTrip / 2 + this.#lastDrawMs;
    return { fps, bytesPerSecond, delayMs, roundTripMs: this.#roundTrip, drawMs: this.#lastDrawMs };
  }
}
