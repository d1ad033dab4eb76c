import { isIP } from 'node:net';
import { parseArgs } from 'node:util';

export const USAGE = `Usage: node src/server.js [options]
  --host HOST                 address to listen on (default 127.0.0.1; other than loopback
                              only when given here)
  --port PORT                 port to listen on; 0 picks a free one (default 0)
  --port-file FILE            write the base URL to FILE once listening
  --public-url URL            base URL to hand out in records instead of the listening address
  --next-registration SECONDS how long devices wait before registering again (default 600)
  --data DIR                  keep devices, sessions and tokens in DIR/halvora.db, so that a
                              restart keeps every session (default ./halvora-data)
  --memory                    keep everything in memory only: a restart forgets it all
  --redis URL                 keep everything in Redis (redis://HOST:PORT), shared with every
                              other instance given the same URL: sessions, sign-ins and the
                              sockets' fan-out work across them all
  --demo-agent FILE           add (or reset) the agent "demo" with a new random password and
                              write its sign-in to FILE; for demos and tests
  --agent-rate-limit N        requests a minute one address may make to the agent API
                              (default 600; 0 turns the limit off)
  --device-rate-limit N       requests a minute one address may make to the device API; one
                              device may make a fifth of it from anywhere (default 600; 0 off)
  --pending-expiry SECONDS    a session nobody started within this time ends (default 600)
  --ended-retention SECONDS   ended sessions are forgotten this long after (default 86400)
  --device-retention SECONDS  devices that stopped registering are forgotten this long after
                              their last registration (default 2592000, 30 days)
  --trust-proxy ADDRESSES     comma-separated addresses or CIDR ranges of proxies whose
                              X-Forwarded-For/-Proto headers are believed (default: none)
  --quiet                     no per-request log lines
  --help                      show this help`;

// Parses the command line into createService / listen settings; throws Error with a
// message meant for the user on anything malformed.
export function parseCliOptions(argv) {
  const { values } = parseArgs({
    args: argv,
    options: {
      host: { type: 'string' },
      port: { type: 'string', default: '0' },
      'port-file': { type: 'string' },
      'public-url': { type: 'string' },
      'next-registration': { type: 'string' },
      data: { type: 'string' },
      memory: { type: 'boolean', default: false },
      redis: { type: 'string' },
      'demo-agent': { type: 'string' },
      'agent-rate-limit': { type: 'string' },
      'device-rate-limit': { type: 'string' },
      'pending-expiry': { type: 'string' },
      'ended-retention': { type: 'string' },
      'device-retention': { type: 'string' },
      'trust-proxy': { type: 'string' },
      quiet: { type: 'boolean', default: false },
      help: { type: 'boolean', default: false },
    },
    strict: true,
    allowPositionals: false,
  });
  return {
    help: values.help,
    host: values.host ?? '127.0.0.1',
    hostGiven: values.host !== undefined,
    port: integerOption('--port', values.port, 0, 65535),
    portFile: values['port-file'],
    publicUrl: values['public-url'] === undefined ? undefined : urlOption(values['public-url']),
    nextRegistration:
      values['next-registration'] === undefined
        ? undefined
        : integerOption('--next-registration', values['next-registration'], 1, 31_536_000),
    dataDir: values.redis === undefined ? dataOption(values) : undefined,
    redisUrl: redisOption(values),
    demoAgentFile: values['demo-agent'],
    agentRateLimit:
      values['agent-rate-limit'] === undefined
        ? undefined
        : integerOption('--agent-rate-limit', values['agent-rate-limit'], 0, 1_000_000),
    deviceRateLimit: optionalInteger('--device-rate-limit', values['device-rate-limit'], 0, 1_000_000),
    pendingExpiryMs: optionalSeconds('--pending-expiry', values['pending-expiry']),
    endedRetentionMs: optionalSeconds('--ended-retention', values['ended-retention']),
    deviceRetentionMs: optionalSeconds('--device-retention', values['device-retention']),
    trustProxy: values['trust-proxy'] === undefined ? undefined : proxyOption(values['trust-proxy']),
    quiet: values.quiet,
  };
}

export const DEFAULT_DATA_DIR = 'halvora-data';

function dataOption(values) {
  if (values.memory && values.data !== undefined) throw new Error('--data and --memory exclude each other');
  if (values.memory) return undefined;
  if (values.data === '') throw new Error('--data needs a directory');
  return values.data ?? DEFAULT_DATA_DIR;
}

// Addresses and ranges only: a hop count or "true" would believe whatever any client claims.
function proxyOption(text) {
  const entries = text.split(',').map((entry) => entry.trim());
  for (const entry of entries) {
    const [address, bits, extra] = entry.split('/');
    const isAddress = isIP(address) !== 0;
    const maxBits = isIP(address) === 6 ? 128 : 32;
    const validBits = bits === undefined || (/^[0-9]{1,3}$/.test(bits) && Number(bits) <= maxBits);
    if (!isAddress || !validBits || extra !== undefined) {
      throw new Error(`--trust-proxy takes IP addresses or CIDR ranges, got "${entry}"`);
    }
  }
  return entries;
}

function redisOption(values) {
  if (values.redis === undefined) return undefined;
  if (values.memory || values.data !== undefined) throw new Error('--redis excludes --data and --memory');
  let url;
  try {
    url = new URL(values.redis);
  } catch {
    throw new Error(`--redis must be a URL such as redis://127.0.0.1:6379, got "${values.redis}"`);
  }
  if (url.protocol !== 'redis:' && url.protocol !== 'rediss:') throw new Error('--redis must be a redis:// or rediss:// URL');
  return values.redis;
}

function optionalInteger(name, text, min, max) {
  return text === undefined ? undefined : integerOption(name, text, min, max);
}

// At least a second, at most ten years; in milliseconds.
function optionalSeconds(name, text) {
  return text === undefined ? undefined : integerOption(name, text, 1, 315_360_000) * 1000;
}

function integerOption(name, text, min, max) {
  if (!/^[0-9]+$/.test(text)) throw new Error(`${name} must be a whole number, got "${text}"`);
  const value = Number(text);
  if (value < min || value > max) throw new Error(`${name} must be between ${min} and ${max}`);
  return value;
}

function urlOption(text) {
  let url;
  try {
    url = new URL(text);
  } catch {
    throw new Error(`--public-url must be an absolute URL, got "${text}"`);
  }
  if (url.protocol !== 'http:' && url.protocol !== 'https:') {
    throw new Error('--public-url must be an http or https URL');
  }
  // Clients append paths to it, so hand it out without a trailing slash.
  return url.href.replace(/\/+$/, '');
}
