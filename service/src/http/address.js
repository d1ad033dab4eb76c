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
