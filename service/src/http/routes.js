import { badRequest, methodNotAllowed } from '../errors.js';
import { isValidId } from '../validate.js';
import { parseJsonBody } from './body.js';

const METHODS = ['GET', 'HEAD', 'POST', 'PUT', 'DELETE', 'PATCH', 'OPTIONS'];

// Registers route tables ({ path: '/api/1/sessions/:session', methods: { GET: handler } }) on a
// Fastify instance. Every path parameter is an id-like value; a malformed one is answered with
// the message given for that parameter name. A known path asked with another method is a 405
// with Allow. Handlers get { params, readBody, request, reply } and return { status, body };
// readBody parses the raw body as JSON (an empty body is none); request and reply are Fastify's,
// for the few routes that read the client's address or set a cookie. `extra` goes into every
// route's options as it stands (hooks such as onRequest, config such as rateLimit), except
// `shared`, given when several service instances share the state (store.shared): each handler
// first reads the records its path names from the shared state, and the answer waits until the
// handler's changes are written, so that whoever hears it can go to another instance and find
// them there.
export function registerRoutes(app, routes, paramErrors, { shared, ...extra } = {}) {
  for (const { path, methods } of routes) {
    const allowed = Object.keys(methods);
    for (const [method, handler] of Object.entries(methods)) {
      app.route({
        ...extra,
        method,
        url: path,
        handler: async (request, reply) => {
          checkParams(request.params, paramErrors);
          let body;
          const readBody = async () => (body ??= parseJsonBody(request.body ?? Buffer.alloc(0)));
          const run = () => handler({ params: request.params, readBody, request, reply });
          let answer;
          if (!shared) {
            answer = await run();
          } else {
            await shared.refresh(request.params);
            try {
              answer = await run();
            } finally {
              await shared.written();
            }
          }
          sendJson(reply, answer.status, answer.body);
        },
      });
    }
    app.route({
      ...extra,
      method: METHODS.filter((method) => !allowed.includes(method)),
      url: path,
      handler: async () => {
        throw methodNotAllowed(allowed);
      },
    });
  }
}

function checkParams(params, paramErrors) {
  for (const [name, value] of Object.entries(params)) {
    if (!isValidId(value)) throw badRequest(paramErrors[name] ?? `Invalid ${name}`);
  }
}

// Every answer is JSON; records carry bearer tokens, so nothing may be cached.
export function sendJson(reply, status, body, headers = {}) {
  return reply
    .code(status)
    .headers({ 'Content-Type': 'application/json; charset=utf-8', 'Cache-Control': 'no-store', ...headers })
    .send(JSON.stringify(body));
}
