import { badRequest } from './errors.js';

export const SESSION_STATES = Object.freeze(['pending', 'active', 'ended']);

// A session only moves forward: pending -> active -> ended, or straight to ended.
const ALLOWED_TRANSITIONS = Object.freeze({
  pending: ['active', 'ended'],
  active: ['ended'],
  ended: [],
});

export function checkTransition(from, to) {
  if (!SESSION_STATES.includes(to)) {
    throw badRequest(`Unknown session state "${to}"; expected one of ${SESSION_STATES.join(', ')}`);
  }
  if (!ALLOWED_TRANSITIONS[from].includes(to)) {
    throw badRequest(`Cannot change session state from ${from} to ${to}`);
  }
}
