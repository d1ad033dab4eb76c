import { io } from 'socket.io-client';
import { api } from './api.js';
import { attachKeyboard } from './keyboard.js';
import { pointerTools } from './pointer-tools.js';
import { formatCode, frameFrom, roundTripFrom, screenFrom, sessionFrom, webUrlFrom } from './records.js';
import { StreamStats } from './stream-stats.js';
import { $, retrying, serviceNotice, showView } from './ui.js';

const SOCKET_PATH = '/sockets/1/events';
// Asks the device for a whole picture, and says that this console draws changed regions.
const SYNC = { type: 'Sync', regions: true };
// Frames waiting to be drawn, at most, before they are dropped for a fresh whole picture.
const WAITING_MAX = 30;
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

  const sizeToggle = $('size-toggle');
  let actualSize = false;
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
      view.socket?.emit('sync', SYNC);
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

  // Fitted: the screen as large as the stage allows, in the frame's proportions. Actual size: one
  // pixel of the picture to one pixel of the page, the stage scrolling when it is larger. Either
  // way the overlay follows at the display's real pixel density so strokes stay sharp, and a
  // picture each of whose pixels covers whole display pixels is drawn without blurring them.
  function layout() {
    const size = view?.size ?? DEFAULT_SIZE;
    const room = stage.getBoundingClientRect();
    const scale = actualSize ? 1 : Math.min(room.width / size.width, room.height / size.height);
    if (!(scale > 0)) return;
    const width = Math.floor(size.width * scale);
    const height = Math.floor(size.height * scale);
    screen.style.width = `${width}px`;
    screen.style.height = `${height}px`;
    stage.classList.toggle('actual', actualSize);
    const displayPixels = (width * devicePixelRatio) / size.width;
    const whole = displayPixels >= 1 && Math.abs(displayPixels - Math.round(displayPixels)) < 0.01;
    frame.style.imageRendering = whole ? 'pixelated' : 'auto';
    const pixels = [Math.round(width * devicePixelRatio), Math.round(height * devicePixelRatio)];
    if (overlay.width !== pixels[0] || overlay.height !== pixels[1]) {
      [overlay.width, overlay.height] = pixels;
      tools.repaint();
    }
  }
  sizeToggle.addEventListener('click', () => {
    actualSize = !actualSize;
    sizeToggle.setAttribute('aria-pressed', String(actualSize));
    layout();
  });
  new ResizeObserver(() => layout()).observe(stage);

  // Frames are drawn in order: changed regions only mean something over the picture they were
  // cut from. A whole frame makes every frame still waiting before it moot.
  function onFrame(record) {
    const picture = frameFrom(record);
    if (!picture || view.state === 'ended') return;
    picture.arrivedAt = performance.now();
    view.stats.frameArrived(picture.bytes, picture.arrivedAt);
    if (picture.whole) view.waiting = [];
    view.waiting.push(picture);
    if (view.waiting.length > WAITING_MAX) {
      // Far behind: what waits is dropped, and a whole picture asked for.
      view.waiting = [];
      askForWholePicture(view);
    }
    if (!view.drawing) drawWaiting(view);
  }

  async function drawWaiting(current) {
    current.drawing = true;
    try {
      while (current === view && current.waiting.length > 0) {
        const picture = current.waiting.shift();
        const drawn = picture.whole ? await drawWhole(current, picture) : await drawRegions(current, picture);
        if (drawn && current === view) {
          if (!current.framed) {
            current.framed = true;
            placeholder.hidden = true;
          }
          requestAnimationFrame(() => current.stats.frameDrawn(picture.arrivedAt, performance.now()));
        }
      }
    } finally {
      current.drawing = false;
    }
  }

  async function drawWhole(current, picture) {
    let bitmap;
    try {
      bitmap = await createImageBitmap(new Blob([picture.image], { type: picture.type }));
    } catch {
      return false; // not a picture the browser can read: skipped, the next one may be
    }
    if (current !== view) {
      bitmap.close();
      return false;
    }
    if (frame.width !== bitmap.width || frame.height !== bitmap.height) {
      frame.width = bitmap.width;
      frame.height = bitmap.height;
      current.size = { width: bitmap.width, height: bitmap.height };
      layout();
    }
    frame.getContext('2d').drawImage(bitmap, 0, 0);
    bitmap.close();
    current.shownId = picture.id;
    return true;
  }

  // Drawn only over the very picture they were cut from, and only all of them: otherwise the
  // picture shown would mix two moments, and a whole one is asked for instead.
  async function drawRegions(current, picture) {
    if (current.shownId === undefined || picture.base !== current.shownId ||
        frame.width !== picture.width || frame.height !== picture.height) {
      current.shownId = undefined;
      askForWholePicture(current);
      return false;
    }
    let bitmaps;
    try {
      bitmaps = await Promise.all(picture.regions.map((region) => createImageBitmap(new Blob([region.image], { type: picture.type }))));
    } catch {
      current.shownId = undefined;
      askForWholePicture(current);
      return false;
    }
    const fits = bitmaps.every((bitmap, i) => bitmap.width === picture.regions[i].width && bitmap.height === picture.regions[i].height);
    if (current === view && fits) {
      const context = frame.getContext('2d');
      picture.regions.forEach((region, i) => context.drawImage(bitmaps[i], region.x, region.y));
      current.shownId = picture.id;
    } else if (current === view) {
      current.shownId = undefined;
      askForWholePicture(current);
    }
    for (const bitmap of bitmaps) bitmap.close();
    return current === view && fits;
  }

  // A "sync", at most once a second while the answer is on its way.
  function askForWholePicture(current) {
    const now = performance.now();
    if (now - (current.askedForWholeAt ?? -Infinity) < 1000) return;
    current.askedForWholeAt = now;
    current.socket?.emit('sync', SYNC);
  }

  function dataRate(bytesPerSecond) {
    if (bytesPerSecond < 1000) return `${Math.round(bytesPerSecond)} B/s`;
    if (bytesPerSecond < 1e6) return `${(bytesPerSecond / 1000).toFixed(bytesPerSecond < 1e4 ? 1 : 0)} kB/s`;
    return `${(bytesPerSecond / 1e6).toFixed(1)} MB/s`;
  }

  function showStats() {
    if (!view) return;
    const { fps, bytesPerSecond, delayMs, roundTripMs, drawMs } = view.stats.read();
    const live = view.state === 'active' && view.socket?.connected === true;
    $('stat-fps').textContent = live ? fps.toFixed(1) : '–';
    $('stat-data').textContent = live ? dataRate(bytesPerSecond) : '–';
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
      socket.emit('sync', SYNC);
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
      const current = { id, state: undefined, stats: new StreamStats(), rejoins: 0, timers: {}, waiting: [] };
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
