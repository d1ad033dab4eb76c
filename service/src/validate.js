import { badRequest } from './errors.js';

const ID_PATTERN = /^[A-Za-z0-9._-]{1,128}$/;
const CODE_PATTERN = /^[0-9]{6}$/;
const LOWER_HEX_PATTERN = /^[0-9a-f]*$/;

export const PUSH_TOKEN_MAX_LENGTH = 1024;
const SHORT_TEXT_MAX_LENGTH = 256;

// Ids of devices, sessions and agents. "." and ".." are refused so an id can never be
// mistaken for a path step.
export function isValidId(value) {
  return typeof value === 'string' && ID_PATTERN.test(value) && value !== '.' && value !== '..';
}

// A six-digit all-digit reference names a session by its code rather than its id.
export function isSessionCode(value) {
  return CODE_PATTERN.test(value);
}

export function isPlainObject(value) {
  return value !== null && typeof value === 'object' && !Array.isArray(value);
}

// For endpoints whose body is required and must be an object.
export function requireObjectBody(body) {
  if (body === undefined) throw badRequest('Request body is required (a JSON object)');
  if (!isPlainObject(body)) throw badRequest('Request body must be a JSON object');
  return body;
}

// For endpoints where the body may be left out entirely.
export function optionalObjectBody(body) {
  if (body === undefined) return {};
  if (!isPlainObject(body)) throw badRequest('Request body must be a JSON object');
  return body;
}

function has(body, name) {
  return Object.prototype.hasOwnProperty.call(body, name);
}

// Reads a string field. Returns undefined when the field is absent and not required.
export function stringField(body, name, { required = false, maxLength = SHORT_TEXT_MAX_LENGTH, allowEmpty = false } = {}) {
  if (!has(body, name) || body[name] === undefined) {
    if (required) throw badRequest(`"${name}" is required`);
    return undefined;
  }
  const value = body[name];
  if (typeof value !== 'string') throw badRequest(`"${name}" must be a string`);
  if (!allowEmpty && value.length === 0) throw badRequest(`"${name}" must not be empty`);
  if (value.length > maxLength) throw badRequest(`"${name}" must be at most ${maxLength} characters`);
  return value;
}

// Reads an object field. Returns undefined when absent; null only when nullable.
export function objectField(body, name, { required = false, nullable = false } = {}) {
  if (!has(body, name) || body[name] === undefined) {
    if (required) throw badRequest(`"${name}" is required`);
    return undefined;
  }
  const value = body[name];
  if (value === null && nullable) return null;
  if (!isPlainObject(value)) {
    throw badRequest(`"${name}" must be an object${nullable ? ' or null' : ''}`);
  }
  return value;
}

export function pushTokenField(body) {
  const value = stringField(body, 'push_token', { required: true, allowEmpty: true, maxLength: PUSH_TOKEN_MAX_LENGTH });
  if (!LOWER_HEX_PATTERN.test(value)) throw badRequest('"push_token" must be lowercase hexadecimal or empty');
  return value;
}

export function idField(body, name) {
  const value = stringField(body, name, { maxLength: 128 });
  if (value !== undefined && !isValidId(value)) {
    throw badRequest(`"${name}" must be 1 to 128 characters of A-Z, a-z, 0-9, ".", "_" or "-"`);
  }
  return value;
}
