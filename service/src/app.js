import fastifyCookie from '@fastify/cookie';
import fastifyHelmet from '@fastify/helmet';
import fastifyRateLimit from '@fastify/rate-limit';
import { createAdapter } from '@socket.io/redis-adapter';
import Fastify from 'fastify';
import { SignInThrottle } from './agents/sign-in-throttle.js';
import { serveConsole } from './console/serve-console.js';
import { HttpError, payloadTooLarge, unauthorized } from './errors.js';
import { baseUrlFor, isLoopbackHost, isOwnHost } from './http/address.js';
import { MAX_BODY_BYTES } from './http/body.js';
import { RateLimiter } from './http/rate-limits.js';
import { registerRoutes, sendJson } from './http/routes.js';
import { createMetrics } from './metrics.js';
import { agentRoutes } from './routes/agent-routes.js';
import { deviceRoutes } from './routes/device-routes.js';
import { SIGN_IN_COOKIE, signInRoutes } from './routes/sign-in-routes.js';
import { createSocketServer } from './sockets/socket-server.js';
import { RedisState } from './state/redis-state.js';
import { SqliteState } from './state/sqlite-state.js';
import { DEFAULT_NEXT_REGISTRATION, Store } from './store.js';

const PARAM_ERRORS = {
  session: 'Invalid session id or code',
  device: 'Invalid device id',
};
const LOGGED_PATH_MAX = 200;
const CLOSE_GRACE_MS = 2000;
export const DEFAULT_AGENT_RATE_LIMIT = 600;
export const DEFAULT_DEVICE_RATE_LIMIT = 600;
// One device may make this share of what one address may; it creates at most a few sessions a
// minute (a user asking for help), and one address registers at most a few new devices an hour
// (the installs behind one office's address).
const PER_DEVICE_SHARE = 5;
const SESSIONS_PER_DEVICE_MINUTE = 10;
const NEW_DEVICES_PER_ADDRESS_HOUR = 60;
const SWEEP_INTERVAL_MAX_MS = 60_000;

// Builds the service without listening, so tests can run it in-process: a Fastify application
// for the REST API, with the official socket.io server attached to the same http.Server, where it
// takes over its own path.
//
// options:
//   nextRegistration  seconds until a device should register again (default 600)
//   publicUrl         base URL to hand out instead of the listening address
//   allowRemote       permit listening on a host other than loopback
//   log               function(line) for log lines (default: none)
//   logRequests       log one line per request (default: true when log is given)
//   generateCode      session code generator, for tests that need collisions
//   dataDir           keep the state in an SQLite file in this directory (default: memory only)
//   redisUrl          keep the state in Redis and share it, and the sockets' fan-out, with every
//                     instance that names the same Redis (instead of dataDir)
//   signInThrottle    a SignInThrottle, for tests that need their own clock
//   agentRateLimit    requests a minute one address may make to the agent API (default 600;
//                     0: no limit)
//   deviceRateLimit   requests a minute one address may make to the device API (default 600; one
//                     device a fifth of it, wherever it asks from; 0: no limit)
//   pendingExpiryMs, endedRetentionMs, deviceRetentionMs
//                     how long a session may wait to start, an ended session is kept, and a
//                     device that stopped registering is kept (see Store)
//   trustProxy        addresses or CIDR ranges of proxies whose forwarded headers are believed
//   consoleDir        where the console's bundle is (default: service/console/dist)
export function createService(options = {}) {
  const log = options.log ?? (() => {});
  const logRequests = options.logRequests ?? options.log !== undefined;
  let baseUrl = options.publicUrl ?? '';

  const state = options.redisUrl !== undefined
    ? new RedisState(options.redisUrl, { onError: (err) => log(`redis: ${describe(err)}`) })
    : options.dataDir === undefined ? undefined : new SqliteState(options.dataDir);
  const store = new Store({
    state,
    baseUrl: () => baseUrl,
    nextRegistration: options.nextRegistration ?? DEFAULT_NEXT_REGISTRATION,
    generateCode: options.generateCode,
    pendingExpiryMs: options.pendingExpiryMs,
    endedRetentionMs: options.endedRetentionMs,
    deviceRetentionMs: options.deviceRetentionMs,
    onListenerError: (err) => log(`change listener failed: ${describe(err)}`),
  });

  const app = Fastify({
    bodyLimit: MAX_BODY_BYTES,
    // The API's own answers say what is wrong; HEAD and OPTIONS are not offered.
    exposeHeadRoutes: false,
    // One trailing slash is forgiven; ids longer than the router's default reach the routes, which
    // refuse them with their own message.
    routerOptions: { ignoreTrailingSlash: true, maxParamLength: 1000 },
    // Behind a TLS-terminating proxy the client's address and protocol come from its headers,
    // but only from the proxies named here: anyone else could claim any address.
    trustProxy: options.trustProxy ?? false,
  });
  // Bodies are read raw, whatever their declared type, and parsed as JSON by the routes that
  // take one: the device SDK's content type is not something to be strict about.
  app.removeAllContentTypeParsers();
  app.addContentTypeParser('*', { parseAs: 'buffer' }, (request, body, done) => done(null, body));

  if (logRequests) {
    app.addHook('onRequest', async (request, reply) => {
      const started = process.hrtime.bigint();
      reply.raw.on('close', () => {
        const ms = Number((process.hrtime.bigint() - started) / 1_000_000n);
        const status = reply.raw.writableFinished ? reply.raw.statusCode : 'aborted';
        log(`${request.method} ${truncate(pathOf(request.url))} ${status} ${ms}ms`);
      });
    });
  }
  // Only names of this service are answered: a page of another site that a DNS record points at
  // this address (DNS rebinding) must not reach a service that listens on loopback only.
  let listenHost = '127.0.0.1';
  const hostRefusal = (host) => (isOwnHost(host, { listenHost, publicUrl: baseUrl }) ? undefined : 'Unknown host');
  app.addHook('onRequest', async (request) => {
    const refusal = hostRefusal(request.headers.host);
    if (refusal) throw new HttpError(421, refusal);
  });
  app.setNotFoundHandler(async (request, reply) => sendJson(reply, 404, { message: 'Not found' }));
  app.setErrorHandler(async (err, request, reply) => {
    if (err.code === 'FST_ERR_CTP_BODY_TOO_LARGE') {
      // The rest of an oversized body is never read: answer, then drop the connection.
      reply.raw.on('finish', () => {
        request.raw.socket.end();
        setTimeout(() => request.raw.socket.destroy(), CLOSE_GRACE_MS).unref();
      });
      const tooLarge = payloadTooLarge(`Request body is larger than ${MAX_BODY_BYTES} bytes`);
      return sendJson(reply, tooLarge.status, { message: tooLarge.message }, { Connection: 'close' });
    }
    if (err instanceof HttpError) return sendJson(reply, err.status, { message: err.message }, err.headers);
    if (Number.isInteger(err.statusCode) && err.statusCode >= 400 && err.statusCode < 500) {
      return sendJson(reply, err.statusCode, { message: err.message });
    }
    log(`${request.method} ${truncate(pathOf(request.url))} failed: ${describe(err)}`);
    return sendJson(reply, 500, { message: 'Internal error' });
  });

  app.register(fastifyCookie);
  // Security headers on every answer. The console's pages load only their own scripts and styles
  // (no inline script) and talk only to this service, over HTTP and its socket.
  app.register(fastifyHelmet, {
    contentSecurityPolicy: {
      // Not helmet's defaults: they would upgrade the console's requests to https on plain http.
      useDefaults: false,
      directives: {
        defaultSrc: ["'self'"],
        fontSrc: ["'self'"],
        scriptSrc: ["'self'"],
        styleSrc: ["'self'"],
        imgSrc: ["'self'", 'data:', 'blob:'],
        connectSrc: ["'self'"],
        frameAncestors: ["'none'"],
        formAction: ["'self'"],
        objectSrc: ["'none'"],
        baseUri: ["'none'"],
      },
    },
    // Only over TLS does the browser honour it; the proxy's answers carry it there.
    strictTransportSecurity: false,
  });
  // A browser page of another site must not change anything here with an agent's cookie: requests
  // that change state and say where they come from must come from the service's own pages.
  // Clients that are not browsers send no Origin and are judged by their credentials alone.
  app.addHook('onRequest', async (request) => {
    const origin = request.headers.origin;
    if (origin === undefined || request.method === 'GET' || request.method === 'HEAD') return;
    if (!isOwnOrigin(origin, request.headers.host)) throw new HttpError(403, 'Cross-origin request refused');
  });
  // The address the client asked for (a proxy passes the Host on) or the public URL.
  const isOwnOrigin = (origin, host) => {
    let given;
    try {
      given = new URL(origin);
    } catch {
      return false;
    }
    return given.host === host || (baseUrl !== '' && given.origin === new URL(baseUrl).origin);
  };
  const isSecure = (request) => request.protocol === 'https' || baseUrl.startsWith('https:');

  // With a shared state, what another instance made a moment ago may not have been heard of yet.
  const { shared } = store;
  const server = app.server;
  const metrics = createMetrics(store);
  const sockets = createSocketServer({
    server,
    store,
    log,
    metrics,
    shared,
    allowRequest: (req) => hostRefusal(req.headers.host)
      ?? (req.headers.origin === undefined || isOwnOrigin(req.headers.origin, req.headers.host) ? undefined : 'Cross-origin request refused'),
  });
  metrics.countReachableDevices(sockets.reachableDeviceCount);
  const throttle = options.signInThrottle ?? new SignInThrottle({ counters: state?.counters?.() });
  registerRoutes(app, signInRoutes(store, throttle, { isSecure }), PARAM_ERRORS, { shared });
  // Routes of which every client address may make at most `perMinute` requests a minute in all
  // (0: any number).
  const registerLimited = (routes, perMinute, extra) => app.register(async (api) => {
    if (perMinute > 0) {
      await api.register(fastifyRateLimit, {
        max: perMinute,
        timeWindow: '1 minute',
        errorResponseBuilder: (request, context) =>
          new HttpError(429, `Too many requests; try again in ${Math.ceil(context.ttl / 1000)} seconds`),
      });
    }
    registerRoutes(api, routes, PARAM_ERRORS, { shared, ...extra });
  });
  // The device API is open to anyone who can reach the service; what one address, and one
  // device from anywhere, may ask is bounded.
  const deviceRate = options.deviceRateLimit ?? DEFAULT_DEVICE_RATE_LIMIT;
  const limits = deviceRate > 0 ? {
    perDevice: new RateLimiter({ limit: Math.max(1, Math.floor(deviceRate / PER_DEVICE_SHARE)) }),
    sessions: new RateLimiter({ limit: SESSIONS_PER_DEVICE_MINUTE }),
    newDevices: new RateLimiter({ limit: NEW_DEVICES_PER_ADDRESS_HOUR, windowMs: 60 * 60 * 1000 }),
  } : {};
  registerLimited(deviceRoutes(store, { limits, shared }), deviceRate);
  // Everything else an agent does needs a signed-in agent, and a runaway script or a stolen
  // cookie cannot hammer it.
  const requireAgent = async (request) => {
    const token = request.cookies[SIGN_IN_COOKIE];
    request.agent = store.agents.agentFor(token);
    if (!request.agent && token && shared) {
      await shared.lookUpLogin(token);
      request.agent = store.agents.agentFor(token);
    }
    if (!request.agent) throw unauthorized();
  };
  registerLimited(agentRoutes(store, sockets), options.agentRateLimit ?? DEFAULT_AGENT_RATE_LIMIT, { onRequest: requireAgent });
  serveConsole(app, { dir: options.consoleDir });
  // For load balancers and monitoring; both say nothing about any one device or session.
  app.get('/healthz', async (request, reply) => {
    try {
      state?.ping();
    } catch (err) {
      log(`health check failed: ${describe(err)}`);
      const what = state instanceof RedisState ? 'Redis cannot be reached' : 'The data file cannot be read';
      return sendJson(reply, 503, { status: 'unavailable', message: what });
    }
    return sendJson(reply, 200, { status: 'ok' });
  });
  app.get('/metrics', async (request, reply) =>
    reply.code(200).headers({ 'Content-Type': metrics.contentType, 'Cache-Control': 'no-store' }).send(await metrics.text()));

  async function listen(port = 0, host = '127.0.0.1') {
    if (!options.allowRemote && !isLoopbackHost(host)) {
      throw new Error(`Refusing to listen on ${host}: not a loopback address`);
    }
    await store.open();
    if (state instanceof RedisState) {
      const [publisher, subscriber] = state.adapterClients();
      await Promise.all([publisher.connect(), subscriber.connect()]);
      sockets.useAdapter(createAdapter(publisher, subscriber));
    }
    listenHost = host;
    await app.listen({ port, host });
    baseUrl = options.publicUrl ?? baseUrlFor(server.address());
    startSweeping();
    return baseUrl;
  }

  // Waiting sessions expire and old records go, now and then; a failure is logged and tried again.
  let sweeper;
  function startSweeping() {
    const every = Math.min(SWEEP_INTERVAL_MAX_MS, Math.max(1000, (options.pendingExpiryMs ?? SWEEP_INTERVAL_MAX_MS * 10) / 10));
    sweeper = setInterval(() => {
      try {
        store.sweep();
      } catch (err) {
        log(`sweep failed: ${describe(err)}`);
      }
    }, every);
    sweeper.unref();
  }

  async function close() {
    clearInterval(sweeper);
    // Socket connections never go idle on their own; they are dropped first.
    sockets.close();
    // Requests still running get a moment to finish before their connections are cut.
    const cutOff = setTimeout(() => server.closeAllConnections?.(), CLOSE_GRACE_MS);
    cutOff.unref();
    try {
      await app.close();
    } finally {
      clearTimeout(cutOff);
      state?.close();
    }
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
