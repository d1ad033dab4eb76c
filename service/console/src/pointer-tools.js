// What the agent's pointer does on the device's screen (its keys: keyboard.js). Positions go to
// the device as fractions (0..1) of its screen, which the frame shows whole, so the console's own
// size and zoom do not matter.
//
//   screen        the focusable element holding both canvases
//   frame         the canvas showing the device's picture
//   overlay       a transparent canvas on top of it, for the agent's strokes
//   tool()        'laser', 'draw' or 'touch'
//   send(event, record)  emits to the device; false when it could not (not connected, not active)

import { modifiers } from './keyboard.js';

const MOVE_INTERVAL_MS = 1000 / 60;
const STROKE_COLOUR = '#ff2d2d';
const STROKE_WIDTH = 4; // CSS pixels
// The device draws the picture over its whole bounds, so its resolution only needs to be fair.
const DRAWING_MAX_SIDE = 1200;
// A press this soon and this near (CSS pixels) the previous one's start is its next click, as a
// desktop counts a double click. The browser's own count (`detail`) is not there on pointerdown.
const CLICK_INTERVAL_MS = 500;
const CLICK_SLOP = 5;
const WHEEL_MAX_NOTCHES = 20;

// A wheel event's deltas in notches of a mouse wheel. Browsers scroll about 100 pixels or 3 lines
// a notch; a page is taken as 3 notches, as no browser says what a page is.
export function wheelNotches({ deltaX, deltaY, deltaMode }) {
  const perUnit = deltaMode === 1 ? 1 / 3 : deltaMode === 2 ? 3 : 1 / 100;
  return { deltaX: deltaX * perUnit, deltaY: deltaY * perUnit };
}

export const clampNotches = (notches) => Math.min(WHEEL_MAX_NOTCHES, Math.max(-WHEEL_MAX_NOTCHES, notches));

// press(x, y, at) gives the click count of a primary press at (x, y), at time `at` in ms.
export function clickCounter(intervalMs = CLICK_INTERVAL_MS, slop = CLICK_SLOP) {
  let last; // { x, y, at, count }
  return {
    press(x, y, at) {
      const again = last !== undefined && at - last.at <= intervalMs && Math.hypot(x - last.x, y - last.y) <= slop;
      last = { x, y, at, count: again ? last.count + 1 : 1 };
      return last.count;
    },
    forget() {
      last = undefined;
    },
  };
}

const pointerKind = (event) => (event.pointerType === 'touch' || event.pointerType === 'pen' ? event.pointerType : 'mouse');

export function pointerTools({ screen, frame, overlay, tool, send }) {
  let nextId = 1;
  const newId = (kind) => `${kind}-${nextId++}`;

  const fraction = (event) => {
    const box = frame.getBoundingClientRect();
    const clamp = (value) => Math.min(1, Math.max(0, value));
    return {
      x: clamp((event.clientX - box.left) / (box.width || 1)),
      y: clamp((event.clientY - box.top) / (box.height || 1)),
    };
  };

  // At most one move every MOVE_INTERVAL_MS; the newest waits for its turn and is never lost.
  function throttle(emit) {
    let last = 0;
    let pending;
    let timer;
    const fire = () => {
      timer = undefined;
      last = performance.now();
      const record = pending;
      pending = undefined;
      if (record) emit(record);
    };
    return {
      push(record) {
        pending = record;
        const wait = MOVE_INTERVAL_MS - (performance.now() - last);
        if (wait <= 0) fire();
        else timer ??= setTimeout(fire, wait);
      },
      flush() {
        clearTimeout(timer);
        if (pending) fire();
      },
    };
  }

  // Laser: the device shows a dot where the pointer is over the screen.
  let laserId;
  let laserAt;
  const laserMoves = throttle((record) => send('laser', record));
  function laserMove(event) {
    laserId ??= newId('laser');
    laserAt = fraction(event);
    laserMoves.push({ type: 'Laser', id: laserId, state: 'touchmove', ...laserAt });
  }
  function laserEnd() {
    if (laserId === undefined) return;
    laserMoves.flush();
    send('laser', { type: 'Laser', id: laserId, state: 'touchend', ...laserAt });
    laserId = undefined;
  }

  // Touch: one id per press, as the device's own fingers would be. Records carry the pointer's kind
  // and the modifiers held, and a press its click count, so a double click or a Shift+click made
  // with the mouse is one on the device too.
  let touch; // { id, pointerId, pointerType, at, modifiers }
  const presses = clickCounter();
  const touchMoves = throttle((record) => send('touch', record));
  const touchRecord = (state, extra) =>
    ({ type: 'Touch', id: touch.id, state, ...touch.at, pointerType: touch.pointerType, ...touch.modifiers, ...extra });
  function touchStart(event) {
    touch = {
      id: newId('touch'), pointerId: event.pointerId, pointerType: pointerKind(event), at: fraction(event), modifiers: modifiers(event),
    };
    send('touch', touchRecord('touchstart', { clicks: presses.press(event.clientX, event.clientY, event.timeStamp) }));
  }
  function touchMove(event) {
    if (touch?.pointerId !== event.pointerId) return;
    touch.at = fraction(event);
    touch.modifiers = modifiers(event);
    touchMoves.push(touchRecord('touchmove'));
  }
  function touchEnd(event) {
    if (touch?.pointerId !== event.pointerId) return;
    touchMoves.flush();
    touch.at = fraction(event);
    touch.modifiers = modifiers(event);
    send('touch', touchRecord('touchend'));
    touch = undefined;
  }

  // The other buttons and the wheel: whole clicks and turns, which a finger has no way to make.
  const sendClick = (event, button) =>
    send('touch', { type: 'Click', id: newId('click'), ...fraction(event), button, count: 1, ...modifiers(event) });

  // A touchpad fires a wheel event per frame or more: one record per animation frame is plenty.
  let wheel; // this frame's turn so far: { deltaX, deltaY, at, modifiers }
  function wheelTurn(event) {
    if (!wheel) {
      wheel = { deltaX: 0, deltaY: 0 };
      requestAnimationFrame(sendWheel);
    }
    const notches = wheelNotches(event);
    wheel.deltaX += notches.deltaX;
    wheel.deltaY += notches.deltaY;
    wheel.at = fraction(event);
    wheel.modifiers = modifiers(event);
  }
  function sendWheel() {
    const { deltaX, deltaY, at, modifiers: held } = wheel;
    wheel = undefined;
    if (deltaX === 0 && deltaY === 0) return;
    send('touch', { type: 'Wheel', id: newId('wheel'), ...at, deltaX: clampNotches(deltaX), deltaY: clampNotches(deltaY), ...held });
  }

  // Draw: strokes in fractions, so they survive the console being resized. The device keeps one
  // drawing at a time, so every stroke sends everything drawn since the last clear.
  let strokes = [];
  let stroke; // { pointerId, points }
  let drawingId = newId('drawing');
  const context = overlay.getContext('2d');

  function paint(points) {
    if (points.length === 0) return;
    context.strokeStyle = STROKE_COLOUR;
    context.fillStyle = STROKE_COLOUR;
    context.lineWidth = STROKE_WIDTH * devicePixelRatio;
    context.lineCap = 'round';
    context.lineJoin = 'round';
    context.beginPath();
    context.moveTo(points[0].x * overlay.width, points[0].y * overlay.height);
    for (const point of points.slice(1)) context.lineTo(point.x * overlay.width, point.y * overlay.height);
    if (points.length === 1) context.lineTo(points[0].x * overlay.width + 0.1, points[0].y * overlay.height);
    context.stroke();
  }

  function repaint() {
    context.clearRect(0, 0, overlay.width, overlay.height);
    for (const points of strokes) paint(points);
    if (stroke) paint(stroke.points);
  }

  function drawStart(event) {
    stroke = { pointerId: event.pointerId, points: [fraction(event)] };
    paint(stroke.points);
  }
  function drawMove(event) {
    if (stroke?.pointerId !== event.pointerId) return;
    const points = stroke.points;
    points.push(fraction(event));
    paint(points.slice(-2));
  }
  function drawEnd(event) {
    if (stroke?.pointerId !== event.pointerId) return;
    strokes.push(stroke.points);
    stroke = undefined;
    sendDrawing();
  }

  // One PNG of the bounding box of all strokes, placed by its fractions of the screen.
  function sendDrawing() {
    const pad = (STROKE_WIDTH * devicePixelRatio) / 2 + 1;
    const xs = strokes.flat().map((point) => point.x * overlay.width);
    const ys = strokes.flat().map((point) => point.y * overlay.height);
    const left = Math.max(0, Math.floor(Math.min(...xs) - pad));
    const top = Math.max(0, Math.floor(Math.min(...ys) - pad));
    const right = Math.min(overlay.width, Math.ceil(Math.max(...xs) + pad));
    const bottom = Math.min(overlay.height, Math.ceil(Math.max(...ys) + pad));
    const width = right - left;
    const height = bottom - top;
    if (width <= 0 || height <= 0) return;
    const scale = Math.min(1, DRAWING_MAX_SIDE / Math.max(width, height));
    const crop = document.createElement('canvas');
    crop.width = Math.max(1, Math.round(width * scale));
    crop.height = Math.max(1, Math.round(height * scale));
    crop.getContext('2d').drawImage(overlay, left, top, width, height, 0, 0, crop.width, crop.height);
    const id = drawingId;
    const place = { x: left / overlay.width, y: top / overlay.height, width: width / overlay.width, height: height / overlay.height };
    crop.toBlob(async (blob) => {
      if (!blob || id !== drawingId) return; // cleared meanwhile
      const image = await blob.arrayBuffer();
      send('drawing', { type: 'Drawing', id, image, mime_type: 'image/png', ...place });
    }, 'image/png');
  }

  function clearDrawing() {
    send('drawing', { type: 'Drawing', id: drawingId });
    strokes = [];
    stroke = undefined;
    drawingId = newId('drawing');
    repaint();
  }

  screen.addEventListener('pointerdown', (event) => {
    screen.focus({ preventScroll: true });
    if (event.button !== 0) return;
    const current = tool();
    if (current === 'laser' && event.pointerType === 'mouse') return;
    screen.setPointerCapture(event.pointerId);
    event.preventDefault();
    if (current === 'touch') touchStart(event);
    else if (current === 'draw') drawStart(event);
    else laserMove(event);
  });
  screen.addEventListener('pointermove', (event) => {
    const current = tool();
    if (current === 'touch') touchMove(event);
    else if (current === 'draw') drawMove(event);
    else if (event.pointerType === 'mouse' || event.buttons !== 0) laserMove(event);
  });
  const release = (event) => {
    touchEnd(event);
    drawEnd(event);
    // A pen or finger lifts off; a mouse only ends the laser by leaving.
    if (event.pointerType !== 'mouse') laserEnd();
  };
  screen.addEventListener('pointerup', release);
  screen.addEventListener('pointercancel', release);
  screen.addEventListener('pointerleave', (event) => {
    if (event.pointerType === 'mouse') laserEnd();
  });

  screen.addEventListener('contextmenu', (event) => {
    if (tool() !== 'touch') return;
    event.preventDefault(); // the device's menu, not the browser's
    // A finger's long press and the menu key ask for a menu too; only the right button clicks.
    if (event.button === 2 && !touch) sendClick(event, 'secondary');
  });
  screen.addEventListener('mousedown', (event) => {
    if (event.button === 1 && tool() === 'touch') event.preventDefault(); // no autoscroll
  });
  screen.addEventListener('auxclick', (event) => {
    if (event.button !== 1 || tool() !== 'touch') return;
    event.preventDefault();
    sendClick(event, 'middle');
  });
  screen.addEventListener('wheel', (event) => {
    if (tool() !== 'touch') return;
    event.preventDefault(); // the device scrolls, not the page
    wheelTurn(event);
  }, { passive: false });

  return {
    // After the overlay's size changed: its pixels are gone, the strokes are not.
    repaint,
    clearDrawing,
    // A tool change or a new session: nothing half-done carries over.
    reset({ forgetDrawing = false } = {}) {
      laserEnd();
      if (touch) {
        touchMoves.flush();
        send('touch', touchRecord('touchend'));
        touch = undefined;
      }
      presses.forget();
      stroke = undefined;
      if (forgetDrawing) {
        strokes = [];
        drawingId = newId('drawing');
      }
      repaint();
    },
  };
}
