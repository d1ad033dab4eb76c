import { badRequest, payloadTooLarge } from '../errors.js';

export const MAX_BODY_BYTES = 1024 * 1024;
// Stored values are sent back out with JSON.stringify, which recurses; keep them shallow
// enough that it never runs out of stack.
export const MAX_JSON_DEPTH = 64;

// Reads the whole request body, refusing (and no longer reading) anything past `limit` bytes.
export function readRawBody(req, limit = MAX_BODY_BYTES) {
  return new Promise((resolve, reject) => {
    const declared = Number(req.headers['content-length']);
    if (Number.isFinite(declared) && declared > limit) {
      reject(tooLarge(limit));
      return;
    }
    const chunks = [];
    let size = 0;
    const onData = (chunk) => {
      size += chunk.length;
      if (size > limit) {
        cleanup();
        req.pause();
        reject(tooLarge(limit));
        return;
      }
      chunks.push(chunk);
    };
    const onEnd = () => {
      cleanup();
      resolve(Buffer.concat(chunks, size));
    };
    // The client went away mid-body: nothing to answer, but not a fault of ours either.
    const onCutOff = () => {
      cleanup();
      reject(badRequest('Request body was cut off'));
    };
    const cleanup = () => {
      req.off('data', onData);
      req.off('end', onEnd);
      req.off('error', onCutOff);
      req.off('close', onCutOff);
    };
    req.on('data', onData);
    req.on('end', onEnd);
    req.on('error', onCutOff);
    req.on('close', onCutOff);
  });
}

function tooLarge(limit) {
  const err = payloadTooLarge(`Request body is larger than ${limit} bytes`);
  err.stopReading = true;
  return err;
}

// Turns raw bytes into a JSON value; an empty (or blank) body is no body and gives undefined.
export function parseJsonBody(buffer) {
  let text;
  try {
    text = new TextDecoder('utf-8', { fatal: true, ignoreBOM: false }).decode(buffer);
  } catch {
    throw badRequest('Request body is not valid JSON');
  }
  if (text.trim() === '') return undefined;
  let value;
  try {
    value = JSON.parse(text);
  } catch {
    throw badRequest('Request body is not valid JSON');
  }
  if (depthExceeds(value, MAX_JSON_DEPTH)) {
    throw badRequest(`Request body is nested more than ${MAX_JSON_DEPTH} levels deep`);
  }
  return value;
}

// Iterative so that a hostile body cannot blow the stack here either.
function depthExceeds(root, maxDepth) {
  const pending = [[root, 0]];
  while (pending.length > 0) {
    const [value, depth] = pending.pop();
    if (value === null || typeof value !== 'object') continue;
    if (depth >= maxDepth) return true;
    for (const child of Object.values(value)) {
      if (child !== null && typeof child === 'object') pending.push([child, depth + 1]);
    }
  }
  return false;
}
