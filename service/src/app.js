import http from 'node:http';
import { HttpError, notFound } from './errors.js';
import { baseUrlFor, isLoopbackHost } from './http/address.js';
import { parseJsonBody, readRawBody } from './http/body.js';
import { sendJson } from './http/respond.js';
import { createRouter } from './http/router.js';
import { agentRoutes } from './routes/agent-routes.js';
import { deviceRoutes } from './routes/device-routes.js';
import { createSocketServer } from './sockets/socket-server.js';
import { SqliteState } from './state/sqlite-state.js';
import { DEFAULT_NEXT_REGISTRATION, Store } from './store.js';

const PARAM_ERRORS = {
  session: 'Invalid session id or code',
  device: 'Invalid device id',
};
const LOGGED_PATH_MAX = 200;
const CLOSE_GRACE_MS = 2000;

// Builds the service without listening, so tests can run it in-process. The request handler
// is the server's plain 'request' listener; the socket.io server attached to the same
// http.Server takes over its own path and hands every other request to it.
//
// options:
//   nextRegistration  seconds until a device should register again (default 600)
//   publicUrl         base URL to hand out instead of the listening address
//   allowRemote       permit listening on a host other than loopback
//   log               function(line) for log lines (default: none)
//   logRequests       log one line per request (default: true when log is given)
//   generateCode      session code generator, for tests that need collisions
//   dataDir           keep the state in an SQLite file in this directory (default: memory only)
export function createService(options = {}) {
  const log = options.log ?? (() => {});
  const logRequests = options.logRequests ?? options.log !== undefined;
  let baseUrl = options.publicUrl ?? '';

  const state = options.dataDir === undefined ? undefined : new SqliteState(options.dataDir);
  const store = new Store({
    state,
    baseUrl: () => baseUrl,
    nextRegistration: options.nextRegistration ?? DEFAULT_NEXT_REGISTRATION,
    generateCode: options.generateCode,
    onListenerError: (err) => log(`change listener failed: ${describe(err)}`),
  });
  const server = http.createServer((req, res) => {
    handleRequest(req, res).catch((err) => {
      // Only reachable if writing the error answer itself failed.
      log(`request handling failed: ${describe(err)}`);
      res.destroy();
    });
  });
  const sockets = createSocketServer({ server, store, log });
  const route = createRouter([...deviceRoutes(store), ...agentRoutes(store, sockets)], PARAM_ERRORS);

  async function handleRequest(req, res) {
    const started = process.hrtime.bigint();
    const pathname = pathOf(req.url);
    if (logRequests) {
      res.on('close', () => {
        const ms = Number((process.hrtime.bigint() - started) / 1_000_000n);
        const status = res.writableFinished ? res.statusCode : 'aborted';
        log(`${req.method} ${truncate(pathname)} ${status} ${ms}ms`);
      });
    }
    try {
      const match = route(req.method, pathname);
      if (!match) throw notFound();
      let body;
      const readBody = () => (body ??= readRawBody(req).then(parseJsonBody));
      const answer = await match.handler({ params: match.params, readBody });
      sendJson(res, answer.status, answer.body);
    } catch (err) {
      sendError(req, res, pathname, err);
    }
  }

  function sendError(req, res, pathname, err) {
    if (res.destroyed) return; // the client is gone; there is no one to answer
    if (res.headersSent) {
      log(`${req.method} ${truncate(pathname)} failed after answering: ${describe(err)}`);
      res.destroy();
      return;
    }
    if (!(err instanceof HttpError)) {
      log(`${req.method} ${truncate(pathname)} failed: ${describe(err)}`);
      sendJson(res, 500, { message: 'Internal error' });
      return;
    }
    if (err.stopReading) {
      // The rest of an oversized body is never read: answer, then drop the connection.
      res.on('finish', () => {
        req.socket.end();
        setTimeout(() => req.socket.destroy(), CLOSE_GRACE_MS).unref();
      });
      sendJson(res, err.status, { message: err.message }, { ...err.headers, Connection: 'close' });
      return;
    }
    sendJson(res, err.status, { message: err.message }, err.headers);
  }

  function listen(port = 0, host = '127.0.0.1') {
    if (!options.allowRemote && !isLoopbackHost(host)) {
      return Promise.reject(new Error(`Refusing to listen on ${host}: not a loopback address`));
    }
    return new Promise((resolve, reject) => {
      const onError = (err) => reject(err);
      server.once('error', onError);
      server.listen({ port, host }, () => {
        server.off('error', onError);
        baseUrl = options.publicUrl ?? baseUrlFor(server.address());
        resolve(baseUrl);
      });
    });
  }

  function close() {
    // Socket connections never go idle on their own; they are dropped first.
    sockets.close();
    return new Promise((resolve, reject) => {
      if (!server.listening) {
        state?.close();
        resolve();
        return;
      }
      // Requests still running get a moment to finish before their connections are cut.
      const cutOff = setTimeout(() => server.closeAllConnections?.(), CLOSE_GRACE_MS);
      cutOff.unref();
      server.close((err) => {
        clearTimeout(cutOff);
        state?.close();
        if (err) reject(err);
        else resolve();
      });
      server.closeIdleConnections?.();
    });
  }

  return {
    server,
    store,
    listen,
    close,
    get baseUrl() {
      return baseUrl;
    },
  };
}

// The path without its query; the request target can also be in absolute form.
function pathOf(url = '/') {
  if (url.startsWith('/')) return url.split('?')[0];
  try {
    return new URL(url).pathname;
  } catch {
    return url;
  }
}

function truncate(text) {
  return text.length > LOGGED_PATH_MAX ? `${text.slice(0, LOGGED_PATH_MAX)}...` : text;
}

function describe(err) {
  return err instanceof Error ? (err.stack ?? err.message) : String(err);
}
