// The agent's keyboard on the device's screen. While the screen has focus every key goes to the
// device, Tab and shortcuts included, and the browser does not act on it; Escape then Tab within a
// second is the way out, so the keyboard never traps the agent. The device takes each key-down as
// a whole stroke and ignores key-ups, so only key-downs are sent.

export const EXIT_WINDOW_MS = 1000;
// Pressed alone these only change what the next key means; the device hears them as its flags.
const MODIFIER_KEYS = new Set(['Shift', 'Control', 'Alt', 'Meta', 'AltGraph', 'CapsLock']);
// Keys of an unfinished composition: its result comes whole at compositionend.
const COMPOSING_KEYS = new Set(['Process', 'Dead']);

export function modifiers(event) {
  // AltGr arrives as Ctrl+Alt on Windows: the character it made is the point, not a shortcut.
  const altGraph = event.getModifierState?.('AltGraph') === true;
  return {
    ctrlKey: event.ctrlKey === true && !altGraph,
    shiftKey: event.shiftKey === true,
    altKey: event.altKey === true && !altGraph,
    metaKey: event.metaKey === true,
  };
}

// The record for one key-down, or undefined for a key the device should not get on its own.
export function keyRecord(event) {
  if (event.isComposing || COMPOSING_KEYS.has(event.key) || MODIFIER_KEYS.has(event.key)) return undefined;
  if (typeof event.key !== 'string' || event.key === '' || event.key === 'Unidentified') return undefined;
  return { type: 'KeyPress', key: event.key, code: event.code ?? '', state: 'keydown', ...modifiers(event), repeat: event.repeat === true };
}

// A finished composition's text as key-downs, one per character as the reader sees it (an emoji
// or an accented letter may be several UTF-16 units, even several code points).
export function composedRecords(text) {
  if (typeof text !== 'string' || text === '') return [];
  const characters = typeof Intl.Segmenter === 'function'
    ? [...new Intl.Segmenter(undefined, { granularity: 'grapheme' }).segment(text)].map((part) => part.segment)
    : [...text];
  const none = { ctrlKey: false, shiftKey: false, altKey: false, metaKey: false };
  return characters.map((key) => ({ type: 'KeyPress', key, code: '', state: 'keydown', ...none, repeat: false }));
}

// Escape arms the exit for EXIT_WINDOW_MS; a Tab (or Shift+Tab) then leaves. Any other key, bar a
// modifier on its own, disarms it. Gives 'forward' or 'backward' for the Tab that leaves.
export function exitWatch(windowMs = EXIT_WINDOW_MS) {
  let armedAt;
  return (event, now) => {
    if (MODIFIER_KEYS.has(event.key)) return undefined;
    const armed = armedAt !== undefined && now - armedAt <= windowMs;
    armedAt = event.key === 'Escape' ? now : undefined;
    if (!armed || event.key !== 'Tab' || event.ctrlKey || event.altKey || event.metaKey) return undefined;
    return event.shiftKey ? 'backward' : 'forward';
  };
}

// Wires the keyboard of `screen` to the device. send(event, record) as for the pointer tools.
export function attachKeyboard({ screen, send }) {
  const exit = exitWatch();
  let composing = false;

  screen.addEventListener('keydown', (event) => {
    if (exit(event, event.timeStamp)) return; // the browser's own Tab moves focus out of the view
    // The input method's keys are its own: stopping them would stop the composition.
    if (composing || event.isComposing || COMPOSING_KEYS.has(event.key)) return;
    // Nothing else the browser would do with a key is wanted here: no scrolling, no shortcuts.
    event.preventDefault();
    const record = keyRecord(event);
    if (record) send('keypress', record);
  });
  // The screen is no text field, so most browsers start no input method on it; where one composes
  // anyway (an accent after a dead key, say), its text goes as it ends.
  screen.addEventListener('compositionstart', () => {
    composing = true;
  });
  screen.addEventListener('compositionend', (event) => {
    composing = false;
    for (const record of composedRecords(event.data)) send('keypress', record);
  });
  screen.addEventListener('blur', () => {
    composing = false;
  });
}
