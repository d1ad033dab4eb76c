import { badRequest } from '../errors.js';

export const MAX_BODY_BYTES = 1024 * 1024;
// Stored values are sent back out with JSON.stringify, which recurses; keep them shallow
// enough that it never runs out of stack.
export const MAX_JSON_DEPTH = 64;

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
