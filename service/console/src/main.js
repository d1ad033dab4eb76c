// The agent's console: sign in, pick a device or join by code, then see and operate the device's
// screen. Which screen shows follows the address's fragment (#devices, #session/ID), so reloading
// the page or going back works as expected.
import { api } from './api.js';
import { devicesView } from './devices.js';
import { sessionView } from './session-view.js';
import { signInView } from './sign-in.js';
import { isObject, text } from './records.js';
import { $, retrying, showView } from './ui.js';

const SESSION_ROUTE = /^#session\/([A-Za-z0-9._-]{1,128})$/;

let agent;
let shown;
// The session this console itself opened (from its lists or a code); any other a link named, and
// joining it is asked first: joining takes the session, and a link can come from anyone.
let chosen;

const signIn = signInView({ onSignedIn: (who) => signedIn(who) });
const devices = devicesView({
  openSession: (id) => {
    chosen = id;
    location.hash = `#session/${id}`;
  },
  onSignedOut: (message) => signedOut(message),
});
const session = sessionView({ onSignedOut: (message) => signedOut(message) });

function signedIn(who) {
  agent = who;
  $('agent-name').textContent = text(isObject(who) ? who.name : undefined) ?? 'agent';
  $('account').hidden = false;
  route();
}

function signedOut(message = '') {
  agent = undefined;
  $('account').hidden = true;
  leave();
  signIn.show(message);
}

function leave() {
  shown?.hide?.();
  shown = undefined;
}

function route() {
  if (!agent) return;
  leave();
  const match = SESSION_ROUTE.exec(location.hash);
  if (match && match[1] !== chosen) {
    document.title = 'Open this session? – Halvora console';
    $('link-session').textContent = match[1];
    showView('link-view');
  } else if (match) {
    shown = session;
    session.show(match[1]);
  } else {
    document.title = 'Devices – Halvora console';
    shown = devices;
    devices.show();
  }
  // Moves the screen reader's and keyboard's place to the new screen's start.
  $('main').focus({ preventScroll: true });
}

window.addEventListener('hashchange', route);
$('link-open').addEventListener('click', () => {
  chosen = SESSION_ROUTE.exec(location.hash)?.[1];
  route();
});
$('link-back').addEventListener('click', () => {
  location.hash = '#devices';
});

$('sign-out').addEventListener('click', async () => {
  try {
    await api.signOut();
  } catch {
    // The cookie is the service's to forget; the console forgets the agent either way.
  }
  signedOut();
});

async function start() {
  showView('loading-view');
  try {
    const who = await retrying('start', () => api.me());
    signedIn(who);
  } catch (err) {
    signedOut(err.status === 401 ? '' : `The service answered: ${err.message}`);
  }
}

start();
