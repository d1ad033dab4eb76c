// What the agent's pointer and keyboard do on the device's screen. Positions go to the device as
// fractions (0..1) of its screen, which the frame shows whole, so the console's own size and
// zoom do not matter.
//
//   screen        the focusable element holding both canvases
//   frame         the canvas showing the device's picture
//   overlay       a transparent canvas on top of it, for the agent's strokes
//   tool()        'laser', 'draw' or 'touch'
//   send(event, record)  emits to the device; false when it could not (not connected, not active)

const MOVE_INTERVAL_MS = 1000 / 60;
const STROKE_COLOUR = '#ff2d2d';
const STROKE_WIDTH = 4; // CSS pixels
// The device draws the picture over its whole bounds, so its resolution only needs to be fair.
const DRAWING_MAX_SIDE = 1200;
// Keys that edit text or move the caret; other named keys (Tab, Escape, F-keys) stay the browser's.
const EDIT_KEYS = new Set(['Backspace', 'Delete', 'Enter', 'ArrowLeft', 'ArrowRight', 'ArrowUp', 'ArrowDown']);

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

  // Touch: one id per press, as the device's own fingers would be.
  let touch; // { id, pointerId, at }
  const touchMoves = throttle((record) => send('touch', record));
  function touchStart(event) {
    touch = { id: newId('touch'), pointerId: event.pointerId, at: fraction(event) };
    send('touch', { type: 'Touch', id: touch.id, state: 'touchstart', ...touch.at });
  }
  function touchMove(event) {
    if (touch?.pointerId !== event.pointerId) return;
    touch.at = fraction(event);
    touchMoves.push({ type: 'Touch', id: touch.id, state: 'touchmove', ...touch.at });
  }
  function touchEnd(event) {
    if (touch?.pointerId !== event.pointerId) return;
    touchMoves.flush();
    send('touch', { type: 'Touch', id: touch.id, state: 'touchend', ...fraction(event) });
    touch = undefined;
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
    if (event.button !== 0) return;
    screen.focus({ preventScroll: true });
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

  screen.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    const printable = [...event.key].length === 1;
    if (!printable && !EDIT_KEYS.has(event.key)) return;
    // Space and the arrows would scroll the page.
    event.preventDefault();
    send('keypress', { type: 'KeyPress', key: event.key, code: event.code, state: 'keydown' });
  });

  return {
    // After the overlay's size changed: its pixels are gone, the strokes are not.
    repaint,
    clearDrawing,
    // A tool change or a new session: nothing half-done carries over.
    reset({ forgetDrawing = false } = {}) {
      laserEnd();
      if (touch) {
        touchMoves.flush();
        send('touch', { type: 'Touch', id: touch.id, state: 'touchend', ...touch.at });
        touch = undefined;
      }
      stroke = undefined;
      if (forgetDrawing) {
        strokes = [];
        drawingId = newId('drawing');
      }
      repaint();
    },
  };
}
