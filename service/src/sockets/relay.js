// Which events cross between the agent's console and the device's stream channel, and what a
// relayed payload may look like. Only the first argument of an event is relayed.

export const AGENT_TO_DEVICE_EVENTS = new Set(['drawing', 'laser', 'url', 'touch', 'keypress', 'sync', 'probe']);
export const DEVICE_TO_AGENT_EVENTS = new Set(['frame', 'screen', 'alive']);
// The agent's input and the device's pictures: relayed only while the session is active. Probes,
// their answers and requests for a fresh picture carry nothing of either side.
const WHILE_ACTIVE_EVENTS = new Set(['drawing', 'laser', 'url', 'touch', 'keypress', 'frame', 'screen']);

export function needsActiveSession(event) {
  return WHILE_ACTIVE_EVENTS.has(event);
}

// Agent events are small gestures; device records carry screen images (frames are ~30 KB).
export const MAX_AGENT_PAYLOAD_BYTES = 1024 * 1024;
export const MAX_DEVICE_PAYLOAD_BYTES = 8 * 1024 * 1024;
// The socket.io encoder recurses through what it sends, so relayed payloads stay shallow.
export const MAX_PAYLOAD_DEPTH = 64;

// { payload } to pass on, or { error } saying why the event is dropped.
export function agentPayload(event, first) {
  const error = payloadError(first, MAX_AGENT_PAYLOAD_BYTES);
  // "sync" is only a nudge to send everything again; its argument does not matter.
  if (event === 'sync') return { payload: error ? {} : first };
  return error ? { error } : { payload: first };
}

// The image bytes a frame record carries: its picture, or its changed regions' pictures.
export function frameBytes(record) {
  const size = (image) => (isBinary(image) ? image.byteLength : 0);
  if (Array.isArray(record.regions)) return record.regions.reduce((sum, region) => sum + size(region?.image), 0);
  return size(record.image);
}

// Whether a frame record is a whole picture, which a console can show without the one before.
export function isWholeFrame(record) {
  return isBinary(record.image);
}

export function devicePayload(first) {
  const error = payloadError(first, MAX_DEVICE_PAYLOAD_BYTES);
  return error ? { error } : { payload: first };
}

// Undefined when `value` is a JSON object within the limits, else the reason it is not.
// Iterative, so a deeply nested payload cannot exhaust the stack here. Sizes are estimates:
// strings count their length, binary its bytes, other scalars 8.
export function payloadError(value, maxBytes, maxDepth = MAX_PAYLOAD_DEPTH) {
  if (!isJsonObject(value)) return 'first argument must be a JSON object';
  let size = 0;
  const pending = [[value, 1]];
  while (pending.length > 0) {
    const [node, depth] = pending.pop();
    if (depth > maxDepth) return `payload is nested more than ${maxDepth} levels deep`;
    for (const [key, child] of Object.entries(node)) {
      size += key.length;
      if (isBinary(child)) size += child.byteLength;
      else if (typeof child === 'string') size += child.length;
      else if (child !== null && typeof child === 'object') pending.push([child, depth + 1]);
      else size += 8;
      if (size > maxBytes) return `payload is larger than ${maxBytes} bytes`;
    }
  }
  return undefined;
}

function isJsonObject(value) {
  if (value === null || typeof value !== 'object') return false;
  const proto = Object.getPrototypeOf(value);
  return proto === Object.prototype || proto === null;
}

export function isBinary(value) {
  return value instanceof ArrayBuffer || ArrayBuffer.isView(value);
}
