// Records from the service and, through it, from devices, read defensively: anything can arrive
// on the socket, and a malformed record is ignored (undefined) rather than shown half-read.

const ID = /^[A-Za-z0-9._-]{1,128}$/;
const CODE = /^\d{6}$/;
const STATES = new Set(['pending', 'active', 'ended']);
const TEXT_MAX = 200;
const CUSTOM_DATA_MAX = 20;
// A whole frame is tens of KB; the service relays up to 8 MiB.
const IMAGE_MAX = 8 * 1024 * 1024;
const IMAGE_TYPES = new Set(['image/jpeg', 'image/png']);
// Devices send whole frames past a few dozen regions; a picture's side fits a canvas.
const REGIONS_MAX = 256;
const SIDE_MAX = 16384;

export const isObject = (value) => value !== null && typeof value === 'object' && !Array.isArray(value);

// A short, printable string, or undefined.
export function text(value, max = TEXT_MAX) {
  if (typeof value === 'number' && Number.isFinite(value)) value = String(value);
  if (typeof value !== 'string') return undefined;
  // Control characters would only garble the page's layout.
  const clean = value.replace(/[\u0000-\u001f\u007f]/g, ' ').trim();
  if (clean === '') return undefined;
  return clean.length > max ? `${clean.slice(0, max - 1)}…` : clean;
}

function date(value) {
  if (typeof value !== 'string' || value.length > 64) return undefined;
  const at = new Date(value);
  return Number.isNaN(at.getTime()) ? undefined : at;
}

export function sessionFrom(value) {
  if (!isObject(value) || typeof value.id !== 'string' || !ID.test(value.id) || !STATES.has(value.state)) return undefined;
  const code = typeof value.code === 'string' && CODE.test(value.code) ? value.code : undefined;
  const token = typeof value.agent_token === 'string' && /^[\x21-\x7e]{1,512}$/.test(value.agent_token)
    ? value.agent_token : undefined;
  return { id: value.id, code, state: value.state, agentToken: token };
}

// What the device list shows of a device record.
export function deviceFrom(value) {
  if (!isObject(value) || typeof value.id !== 'string' || !ID.test(value.id)) return undefined;
  const about = isObject(value.device) ? value.device : {};
  // The system by its name where the device gives it ("Debian GNU/Linux 12"), else by platform.
  const system = [text(about.os_name) ?? text(about.platform), text(about.os_version)].filter(Boolean).join(' ');
  const customData = [];
  if (isObject(value.custom_data)) {
    for (const [key, item] of Object.entries(value.custom_data).slice(0, CUSTOM_DATA_MAX)) {
      const shown = typeof item === 'boolean' ? String(item) : text(item);
      if (text(key) && shown) customData.push([text(key, 60), shown]);
    }
  }
  return {
    id: value.id,
    app: text(about.app_name) ?? text(about.app_id) ?? 'Unknown application',
    version: text(about.app_version),
    build: text(about.app_build),
    model: text(about.device),
    system: system === '' ? undefined : system,
    customData,
    registeredAt: date(value.registered_at),
    lastSeen: date(value.last_seen) ?? date(value.registered_at),
    reachable: typeof value.reachable === 'boolean' ? value.reachable : undefined,
  };
}

// A whole picture { whole: true, id, image, type, bytes }, or the changed regions of the picture
// numbered `base` { whole: false, id, base, width, height, regions: [{ x, y, width, height, image }],
// type, bytes }; undefined when anything in it cannot be trusted to place.
export function frameFrom(value) {
  if (!isObject(value)) return undefined;
  const type = IMAGE_TYPES.has(value.mime_type) ? value.mime_type : 'image/jpeg';
  const id = Number.isSafeInteger(value.id) && value.id >= 0 ? value.id : undefined;
  if (value.regions === undefined) {
    const image = imageBytes(value.image);
    return image && { whole: true, id, image, type, bytes: image.byteLength };
  }
  const { width, height } = value;
  if (id === undefined || !Number.isSafeInteger(value.base) || !side(width) || !side(height)) return undefined;
  if (!Array.isArray(value.regions) || value.regions.length === 0 || value.regions.length > REGIONS_MAX) return undefined;
  const regions = [];
  let bytes = 0;
  for (const region of value.regions) {
    if (!isObject(region)) return undefined;
    const { x, y } = region;
    const image = imageBytes(region.image);
    if (!image || !Number.isSafeInteger(x) || !Number.isSafeInteger(y) || x < 0 || y < 0) return undefined;
    if (!side(region.width) || !side(region.height) || x + region.width > width || y + region.height > height) return undefined;
    bytes += image.byteLength;
    regions.push({ x, y, width: region.width, height: region.height, image });
  }
  if (bytes > IMAGE_MAX) return undefined;
  return { whole: false, id, base: value.base, width, height, regions, type, bytes };
}

function imageBytes(image) {
  if (!(image instanceof ArrayBuffer) && !ArrayBuffer.isView(image)) return undefined;
  return image.byteLength > 0 && image.byteLength <= IMAGE_MAX ? image : undefined;
}

const side = (value) => Number.isSafeInteger(value) && value > 0 && value <= SIDE_MAX;

export function screenFrom(value) {
  if (!isObject(value)) return undefined;
  const className = text(value.class);
  const title = text(value.title);
  if (className === undefined && title === undefined) return undefined;
  return { className, title };
}

// The round trip of one of this page's own probes, in milliseconds; another console's probes on
// the same session are echoed here too, and their clocks are not ours.
export function roundTripFrom(value, tag, now) {
  if (!isObject(value) || value.from !== tag || typeof value.sent !== 'number') return undefined;
  const trip = now - value.sent;
  return Number.isFinite(trip) && trip >= 0 && trip < 120_000 ? trip : undefined;
}

// "123-456", "123 456" or "123456" as the six digits, or undefined.
export function codeFrom(input) {
  const digits = String(input).replace(/[\s-]/g, '');
  return CODE.test(digits) ? digits : undefined;
}

// An http or https address with a host, as the device will open it, or undefined.
export function webUrlFrom(input) {
  let url;
  try {
    url = new URL(String(input).trim());
  } catch {
    return undefined;
  }
  return (url.protocol === 'http:' || url.protocol === 'https:') && url.hostname !== '' ? url.href : undefined;
}

export const formatCode = (code) => (code ? `${code.slice(0, 3)}-${code.slice(3)}` : '');
