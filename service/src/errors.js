// An error that carries the HTTP answer it should become. Anything thrown that is not an
// HttpError is unexpected and turns into a 500.
export class HttpError extends Error {
  constructor(status, message, headers = {}) {
    super(message);
    this.name = 'HttpError';
    this.status = status;
    this.headers = headers;
  }
}

export const badRequest = (message) => new HttpError(400, message);
export const unauthorized = (message = 'Sign in first') => new HttpError(401, message);
export const forbidden = (message) => new HttpError(403, message);
export const notFound = (message = 'Not found') => new HttpError(404, message);
export const conflict = (message) => new HttpError(409, message);
export const payloadTooLarge = (message) => new HttpError(413, message);
export const serviceUnavailable = (message) => new HttpError(503, message);

export function methodNotAllowed(allowed) {
  return new HttpError(405, 'Method not allowed', { Allow: allowed.join(', ') });
}
