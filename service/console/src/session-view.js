import { io } from 'socket.io-client';
import { api } from './api.js';
import { attachKeyboard } from './keyboard.js';
import { pointerTools } from './pointer-tools.js';
import { formatCode, frameFrom, roundTripFrom, screenFrom, sessionFrom, webUrlFrom } from './records.js';
import { StreamStats } from './stream-stats.js';
import { $, retrying, serviceNotice, showView } from './ui.js';

const SOCKET_PATH = '/sockets/1/events';
const PROBE_MS = 2000;
const STATS_MS = 500;
// Before the first frame, the placeholder has the shape of a phone.
const DEFAULT_SIZE = { width: 390, height: 844 };
const STATE_WORDS = {
  pending: 'Waiting for the user’s approval',
  active: 'Active',
  ended: 'Ended',
};
const STATE_ORDER = ['pending', 'active', 'ended'];
// The service refuses a socket with these messages (CONNECT_ERROR); socket.io does not retry then.
const SESSION_ENDED = 'Session has ended';
const UNAUTHORIZED = 'Unauthorized';

// The live view of one session: the device's screen, its state, the stream's figures, the tools.
//   onSignedOut(message)  the service no longer knows this agent
export function sessionView({ onSignedOut }) {
  const screen = $('screen');
  const frame = $('frame-canvas');
  const overlay = $('overlay-canvas');
  const stage = $('stage');
  const placeholder = $('screen-placeholder');
  const stateBadge = $('session-state');
  const connectionBadge = $('connection-status');
  const errorBox = $('session-error');
  const endButton = $('end-session');
  const clearButton = $('clear-drawing');
  const urlForm = $('url-form');
  const urlInput = $('url-input');
  const urlResult = $('url-result');
  const toolGroup = $('tool-group');
  const delayBox = $('stat-delay-box');
  const delayExplained = delayBox.title;
  // Tells this page's probes from another console's on the same session.
  const probeTag = Math.random().toString(36).slice(2);

  let view; // everything about the session on show; replaced for each session

  const currentTool = () => toolGroup.querySelector('input[name="tool"]:checked')?.value ?? 'laser';

  function send(event, record) {
    if (!view?.socket?.connected || view.state !== 'active') return false;
    view.socket.emit(event, record);
    return true;
  }

  const tools = pointerTools({ screen, frame, overlay, tool: currentTool, send });
  attachKeyboard({ screen, send });

  function setConnection(words, kind) {
    if (connectionBadge.textContent !== words) connectionBadge.textContent = words;
    connectionBadge.dataset.state = kind;
    connectionBadge.hidden = words === '';
  }

  function enableControls(enabled) {
    for (const control of [endButton, clearButton, toolGroup, ...urlForm.elements]) control.disabled = !enabled;
  }

  function setState(state) {
    if (!view || STATE_ORDER.indexOf(state) < STATE_ORDER.indexOf(view.state)) return; // states only move on
    const was = view.state;
    view.state = state;
    // Unchanged words are left alone: a live region would read them out again.
    if (stateBadge.textContent !== STATE_WORDS[state]) stateBadge.textContent = STATE_WORDS[state];
    stateBadge.dataset.state = state;
    screen.dataset.state = state;
    const ended = state === 'ended';
    enableControls(!ended);
    if (state === 'active' && was !== 'active') {
      // The device's stream has just come up: a picture and a round trip now, not at the next tick.
      view.socket?.emit('sync', {});
      probe();
    }
    if (ended && was !== 'ended') {
      tools.reset({ forgetDrawing: true });
      close();
      setConnection('', 'closed');
      placeholder.textContent = 'The session has ended.';
      placeholder.hidden = false;
    }
    showStats();
  }

  // The screen as large as the stage allows, in the frame's proportions; the overlay follows it
  // at the display's real pixel density so strokes stay sharp.
  function layout() {
    const size = view?.size ?? DEFAULT_SIZE;
    const room = stage.getBoundingClientRect();
    const scale = Math.min(room.width / size.width, room.height / size.height);
    if (!(scale > 0)) return;
    const width = Math.floor(size.width * scale);
    const height = Math.floor(size.height * scale);
    screen.style.width = `${width}px`;
    screen.style.height = `${height}px`;
    const pixels = [Math.round(width * devicePixelRatio), Math.round(height * devicePixelRatio)];
    if (overlay.width !== pixels[0] || overlay.height !== pixels[1]) {
      [overlay.width, overlay.height] = pixels;
      tools.repaint();
    }
  }
  new ResizeObserver(() => layout()).observe(stage);

  // Only the newest frame waiting is kept: a slow decode skips pictures rather than falling behind.
  function onFrame(record) {
    const picture = frameFrom(record);
    if (!picture || view.state === 'ended') return;
    picture.arrivedAt = performance.now();
    if (view.decoding) {
      view.waiting = picture;
      return;
    }
    decode(view, picture);
  }

  async function decode(current, picture) {
    current.decoding = true;
    try {
      const bitmap = await createImageBitmap(new Blob([picture.image], { type: picture.type }));
      if (current !== view) {
        bitmap.close();
        return;
      }
      if (frame.width !== bitmap.width || frame.height !== bitmap.height) {
        frame.width = bitmap.width;
        frame.height = bitmap.height;
        current.size = { width: bitmap.width, height: bitmap.height };
        layout();
      }
      frame.getContext('2d').drawImage(bitmap, 0, 0);
      bitmap.close();
      if (!current.framed) {
        current.framed = true;
        placeholder.hidden = true;
      }
      requestAnimationFrame(() => current.stats.frameDrawn(picture.arrivedAt, performance.now()));
    } catch {
      // Not a picture the browser can read: skipped, the next one may be.
    } finally {
      current.decoding = false;
      const next = current.waiting;
      current.waiting = undefined;
      if (next && current === view) decode(current, next);
    }
  }

  function showStats() {
    if (!view) return;
    const { fps, delayMs, roundTripMs, drawMs } = view.stats.read();
    const live = view.state === 'active' && view.socket?.connected === true;
    $('stat-fps').textContent = live ? fps.toFixed(1) : '–';
    const delay = $('stat-delay');
    delay.textContent = delayMs === undefined || !live ? '–' : `≈ ${Math.round(delayMs)} ms`;
    delayBox.title = delayMs === undefined || !live ? delayExplained
      : `${delayExplained}\nNow: a round trip of ${Math.round(roundTripMs)} ms, ${Math.round(drawMs)} ms to draw.`;
  }

  function connect(current, token) {
    const socket = io(location.origin, {
      path: SOCKET_PATH,
      auth: { token },
      reconnectionDelay: 500,
      reconnectionDelayMax: 4000,
    });
    current.socket = socket;
    setConnection('Connecting…', 'connecting');
    socket.on('connect', () => {
      setConnection('Connected', 'connected');
      errorBox.textContent = '';
      // A fresh picture now rather than at the device's next change; then the round trip.
      socket.emit('sync', {});
      probe();
      showStats();
    });
    socket.on('disconnect', (reason) => {
      if (reason === 'io client disconnect') return;
      setConnection(socket.active ? 'Reconnecting…' : 'Disconnected', socket.active ? 'reconnecting' : 'disconnected');
    });
    socket.io.on('reconnect_attempt', () => setConnection('Reconnecting…', 'reconnecting'));
    socket.on('connect_error', (err) => {
      if (socket.active) {
        setConnection('Reconnecting…', 'reconnecting');
        return;
      }
      if (err?.message === SESSION_ENDED) {
        setState('ended');
      } else if (err?.message === UNAUTHORIZED) {
        // The service may have been restored without this session's tokens: join again.
        setConnection('Reconnecting…', 'reconnecting');
        setTimeout(() => current === view && rejoin(current), 1000);
      } else {
        setConnection('Disconnected', 'disconnected');
      }
    });
    socket.on('session', (record) => {
      const session = sessionFrom(record);
      if (session && session.id === current.id && current === view) setState(session.state);
    });
    socket.on('frame', (record) => current === view && onFrame(record));
    socket.on('screen', (record) => {
      const shown = screenFrom(record);
      if (!shown || current !== view) return;
      $('stat-screen').textContent = shown.title && shown.className
        ? `${shown.title} (${shown.className})` : (shown.title ?? shown.className);
    });
    socket.on('alive', (record) => {
      const trip = roundTripFrom(record, probeTag, performance.now());
      if (trip !== undefined && current === view) current.stats.roundTrip(trip);
    });
  }

  function probe() {
    if (view?.socket?.connected && view.state !== 'ended') {
      view.socket.emit('probe', { type: 'Probe', from: probeTag, sent: performance.now() });
    }
  }

  async function rejoin(current) {
    if (current.rejoins >= 3) {
      setConnection('Disconnected', 'disconnected');
      errorBox.textContent = 'The service no longer accepts this console’s connection. Go back to the devices and open the session again.';
      return;
    }
    current.rejoins += 1;
    const session = await join(current);
    if (!session || current !== view || view.state === 'ended') return;
    current.socket.auth.token = session.agentToken;
    current.socket.connect();
  }

  // The session record with the agent's token, or undefined when it cannot be had (said why).
  async function join(current) {
    try {
      const answer = await retrying('session', () => api.join(current.id), () => current === view);
      if (answer === undefined || current !== view) return undefined;
      const session = sessionFrom(answer);
      if (!session || !session.agentToken) throw new Error('The service sent a session record that cannot be read');
      return session;
    } catch (err) {
      if (current !== view) return undefined;
      if (err.status === 401) onSignedOut('Your sign-in has ended. Sign in again.');
      else if (err.status === 409) {
        setState('ended');
        // Only its code is still worth showing.
        api.session(current.id).then((record) => current === view && name(sessionFrom(record)), () => {});
      }
      else if (err.status === 404) errorBox.textContent = 'There is no such session.';
      else errorBox.textContent = `The session could not be opened: ${err.message}`;
      return undefined;
    }
  }

  function name(session) {
    const title = session?.code ? `Session ${formatCode(session.code)}` : 'Session';
    $('session-heading').textContent = title;
    document.title = `${title} – Halvora console`;
  }

  // Leaves the session on show (it goes on without this console).
  function teardown() {
    if (view) {
      tools.reset();
      close();
      clearInterval(view.timers.stats);
    }
    view = undefined;
    serviceNotice('session', '');
  }

  function close() {
    if (!view) return;
    clearInterval(view.timers?.probe);
    view.socket?.close();
    view.socket = undefined;
  }

  endButton.addEventListener('click', async () => {
    const current = view;
    if (!current || current.state === 'ended') return;
    endButton.disabled = true;
    errorBox.textContent = '';
    try {
      const session = sessionFrom(await api.end(current.id));
      if (current === view) setState(session?.state ?? 'ended');
    } catch (err) {
      if (current !== view) return;
      if (err.status === 409) setState('ended');
      else if (err.status === 401) onSignedOut('Your sign-in has ended. Sign in again.');
      else {
        errorBox.textContent = err.unreachable
          ? 'The service cannot be reached: the session is still running. Try again in a moment.'
          : `The session could not be ended: ${err.message}`;
        endButton.disabled = false;
      }
    }
  });

  clearButton.addEventListener('click', () => tools.clearDrawing());
  toolGroup.addEventListener('change', () => {
    tools.reset();
    screen.dataset.tool = currentTool();
  });

  urlForm.addEventListener('submit', (event) => {
    event.preventDefault();
    const url = webUrlFrom(urlInput.value);
    urlInput.setAttribute('aria-invalid', String(url === undefined));
    if (url === undefined) {
      urlResult.textContent = 'Enter an http or https address, such as https://example.com/help.';
      return;
    }
    view.urls = (view.urls ?? 0) + 1;
    urlResult.textContent = send('url', { type: 'URL', id: `url-${view.urls}`, url })
      ? 'Sent: the device opens it.' : 'Not sent: the session is not active and connected.';
  });

  return {
    async show(id) {
      teardown();
      const current = { id, state: undefined, stats: new StreamStats(), rejoins: 0, timers: {} };
      view = current;
      showView('session-view');
      document.title = 'Session – Halvora console';
      $('session-heading').textContent = 'Session';
      stateBadge.textContent = 'Opening…';
      stateBadge.dataset.state = 'opening';
      errorBox.textContent = '';
      urlResult.textContent = '';
      urlInput.value = '';
      urlInput.removeAttribute('aria-invalid');
      $('stat-screen').textContent = '–';
      placeholder.textContent = 'Waiting for the first picture…';
      placeholder.hidden = false;
      frame.getContext('2d').clearRect(0, 0, frame.width, frame.height);
      [frame.width, frame.height] = [DEFAULT_SIZE.width, DEFAULT_SIZE.height];
      tools.reset({ forgetDrawing: true });
      screen.dataset.tool = currentTool();
      delete screen.dataset.state;
      enableControls(false);
      layout();
      current.timers.stats = setInterval(showStats, STATS_MS);
      showStats();

      const session = await join(current);
      if (!session || current !== view) return;
      name(session);
      setState(session.state);
      if (session.state === 'ended') return;
      connect(current, session.agentToken);
      current.timers.probe = setInterval(probe, PROBE_MS);
    },
    hide: teardown,
  };
}
