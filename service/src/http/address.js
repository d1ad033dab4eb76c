import { isIP } from 'node:net';

// Hosts that only this machine can reach.
export function isLoopbackHost(host) {
  if (host === 'localhost') return true;
  if (isIP(host) === 4) return host.startsWith('127.');
  if (isIP(host) === 6) {
    const lower = host.toLowerCase();
    return lower === '::1' || /^::ffff:127\./.test(lower);
  }
  return false;
}

// The base URL clients use to reach a listening server. A wildcard bind is reached locally
// through loopback; anything farther away needs an explicit public URL.
export function baseUrlFor({ address, family, port }) {
  const isV6 = family === 'IPv6' || family === 6;
  let host = address;
  if (address === '0.0.0.0') host = '127.0.0.1';
  else if (address === '::') host = '::1';
  return isV6 && host.includes(':') ? `http://[${host}]:${port}` : `http://${host}:${port}`;
}

// Whether a Host header names this service: a loopback name, the address it listens on (any
// address literal when it listens on all of them), or its public URL's host. No Host (HTTP/1.0)
// is taken: browsers always send one.
export function isOwnHost(hostHeader, { listenHost, publicUrl }) {
  if (hostHeader === undefined) return true;
  const name = hostnameOf(hostHeader);
  if (name === undefined) return false;
  if (isLoopbackHost(name) || name === listenHost.toLowerCase()) return true;
  if ((listenHost === '0.0.0.0' || listenHost === '::') && isIP(name) !== 0) return true;
  if (!publicUrl) return false;
  try {
    return hostnameOf(new URL(publicUrl).host) === name;
  } catch {
    return false;
  }
}

// "Example.com:80" -> "example.com", "[::1]:4000" -> "::1"; undefined when malformed.
function hostnameOf(host) {
  const match = /^(?:\[([0-9a-fA-F:.]+)\]|([^:\[\]]+))(?::[0-9]{1,5})?$/.exec(String(host));
  return match ? (match[1] ?? match[2]).toLowerCase() : undefined;
}
