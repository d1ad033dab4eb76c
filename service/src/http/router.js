import { badRequest, methodNotAllowed } from '../errors.js';
import { isValidId } from '../validate.js';

// Path templates like '/api/1/sessions/:session'. Every parameter is an id-like value, and
// a malformed one is answered with the message given for that parameter name.
export function createRouter(routes, paramErrors) {
  const compiled = routes.map(({ path, methods }) => ({
    segments: path.split('/').filter(Boolean),
    methods,
  }));

  // { handler, params } for a matching route, null when no route has this path. A known path
  // asked with another method throws 405; a malformed id in it throws 400.
  return function route(method, pathname) {
    const segments = splitPath(pathname);
    if (!segments) return null;
    for (const route of compiled) {
      const params = matchSegments(route.segments, segments);
      if (!params) continue;
      const handler = route.methods[method];
      if (!handler) throw methodNotAllowed(Object.keys(route.methods));
      for (const [name, value] of Object.entries(params)) {
        if (!isValidId(value)) throw badRequest(paramErrors[name] ?? `Invalid ${name}`);
      }
      return { handler, params };
    }
    return null;
  };
}

// One trailing slash is forgiven; empty segments elsewhere match nothing.
function splitPath(pathname) {
  const trimmed = pathname.length > 1 && pathname.endsWith('/') ? pathname.slice(0, -1) : pathname;
  if (!trimmed.startsWith('/')) return null;
  const segments = trimmed.slice(1).split('/');
  return segments.includes('') ? null : segments;
}

function matchSegments(template, segments) {
  if (template.length !== segments.length) return null;
  const params = {};
  for (let i = 0; i < template.length; i++) {
    if (template[i].startsWith(':')) params[template[i].slice(1)] = segments[i];
    else if (template[i] !== segments[i]) return null;
  }
  return params;
}
