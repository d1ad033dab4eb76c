// Small helpers shared by the console's screens.

export const $ = (id) => document.getElementById(id);

// An element with properties (`class`, `text`, other attributes) and children. Text is only
// ever set as text: nothing from a device or the service becomes markup.
export function el(tag, props = {}, children = []) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(props)) {
    if (value === undefined || value === null || value === false) continue;
    if (key === 'class') node.className = value;
    else if (key === 'text') node.textContent = value;
    else node.setAttribute(key, value === true ? '' : String(value));
  }
  for (const child of children) if (child !== undefined && child !== null) node.append(child);
  return node;
}

const VIEWS = ['loading-view', 'sign-in-view', 'link-view', 'devices-view', 'session-view'];

export function showView(id) {
  for (const view of VIEWS) $(view).hidden = view !== id;
}

// One line under the top bar while the service cannot be reached; the screens keep retrying.
const notice = {
  reasons: new Map(),
  set(source, message) {
    if (message) this.reasons.set(source, message);
    else this.reasons.delete(source);
    const box = $('service-notice');
    const shown = [...this.reasons.values()].at(-1) ?? '';
    if (box.textContent !== shown) box.textContent = shown;
    box.classList.toggle('visible', shown !== '');
  },
};
export const serviceNotice = (source, message) => notice.set(source, message);

export const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Calls `call` until it succeeds or fails for a reason other than the service being unreachable,
// waiting longer each time (1 s up to 8 s) and saying so in the notice. Gives up quietly, with
// undefined, once `wanted()` turns false (the agent left the screen that asked).
export async function retrying(source, call, wanted = () => true) {
  for (let wait = 1000; ; wait = Math.min(wait * 2, 8000)) {
    try {
      const result = await call();
      serviceNotice(source, '');
      return result;
    } catch (err) {
      if (!err.unreachable) {
        serviceNotice(source, '');
        throw err;
      }
      if (!wanted()) return undefined;
      serviceNotice(source, `The service cannot be reached. Trying again in ${Math.round(wait / 1000)} s…`);
      await pause(wait);
      if (!wanted()) return undefined;
    }
  }
}

// "5 s ago", "3 min ago", "2 h ago", else the date.
export function ago(at, now = Date.now()) {
  if (!(at instanceof Date)) return '–';
  const seconds = Math.max(0, Math.round((now - at.getTime()) / 1000));
  if (seconds < 60) return seconds < 5 ? 'just now' : `${seconds} s ago`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ago`;
  if (seconds < 86400) return `${Math.floor(seconds / 3600)} h ago`;
  return at.toLocaleDateString();
}
