import { api } from './api.js';
import { codeFrom, deviceFrom, formatCode, sessionFrom } from './records.js';
import { $, ago, el, pause, serviceNotice, showView } from './ui.js';

const REFRESH_MS = 5000;
// A code in a message stays on one line: its hyphen becomes a non-breaking one.
const unbroken = (code) => code.replace('-', '\u2011');

// The registered devices (refreshed every few seconds while shown, so "last seen" and "reachable
// now" stay current), a search over them, and joining a session by its code.
//   openSession(id)  shows the live view of that session
//   onSignedOut(message)  the service no longer knows this agent
export function devicesView({ openSession, onSignedOut }) {
  const rows = new Map(); // device id -> row
  const tbody = $('device-rows');
  const search = $('device-search');
  const status = $('devices-status');
  const startError = $('start-error');
  let devices = [];
  let loaded = false;
  let staleSince; // the list's time when the service stopped answering
  let generation = 0;

  function sayStatus(message) {
    if (status.textContent !== message) status.textContent = message;
  }

  function failed(err, errorBox) {
    if (err.status === 401) onSignedOut('Your sign-in has ended. Sign in again.');
    else if (err.unreachable) errorBox.textContent = 'The service cannot be reached. Try again in a moment.';
    else errorBox.textContent = err.message;
  }

  async function startSession(device, button) {
    startError.textContent = '';
    button.disabled = true;
    try {
      const session = sessionFrom(await api.startSession(device.id));
      if (!session) throw new Error('The service sent a session record that cannot be read');
      openSession(session.id);
    } catch (err) {
      if (err.status === 404) startError.textContent = `${device.app} on ${device.model ?? 'this device'} is no longer registered.`;
      else failed(err, startError);
    } finally {
      button.disabled = false;
    }
  }

  function makeRow(device) {
    const cells = {
      app: el('strong'),
      version: el('span', { class: 'muted' }),
      id: el('div', { class: 'device-id' }),
      model: el('td'),
      system: el('td'),
      custom: el('td'),
      lastSeen: el('td'),
      reachable: el('span', { class: 'reachable' }),
      start: el('button', { type: 'button', class: 'button primary small', text: 'Start session' }),
    };
    // Labels for narrow screens, where each row is a card rather than a line.
    const labelled = [[cells.model, 'Model'], [cells.system, 'System'], [cells.custom, 'Custom data'], [cells.lastSeen, 'Last seen']];
    for (const [cell, label] of labelled) cell.dataset.label = label;
    const tr = el('tr', {}, [
      el('td', { class: 'app' }, [cells.app, ' ', cells.version, cells.id]),
      cells.model, cells.system, cells.custom, cells.lastSeen,
      el('td', { 'data-label': 'Reachable now' }, [cells.reachable]),
      el('td', { class: 'actions' }, [cells.start]),
    ]);
    const row = { tr, cells, device, searchText: '' };
    cells.start.addEventListener('click', () => startSession(row.device, cells.start));
    return row;
  }

  // Cells are updated in place, so a refresh neither moves the agent's focus nor scrolls.
  function updateRow(row, device, now) {
    const { cells } = row;
    row.device = device;
    const setText = (node, value) => {
      if (node.textContent !== value) node.textContent = value;
    };
    setText(cells.app, device.app);
    setText(cells.version, [device.version, device.build && `(${device.build})`].filter(Boolean).join(' '));
    setText(cells.id, device.id);
    setText(cells.model, device.model ?? '–');
    setText(cells.system, device.system ?? '–');
    const custom = device.customData.map(([key, value]) => `${key}: ${value}`).join('\n');
    if (cells.custom.dataset.shown !== custom) {
      cells.custom.dataset.shown = custom;
      cells.custom.replaceChildren(device.customData.length === 0
        ? '–'
        : el('ul', { class: 'custom-data' }, device.customData.map(([key, value]) =>
          el('li', {}, [el('span', { class: 'muted', text: `${key}: ` }), value]))));
    }
    setText(cells.lastSeen, ago(device.lastSeen, now));
    cells.lastSeen.title = device.lastSeen ? device.lastSeen.toLocaleString() : '';
    const [label, state] = device.reachable === undefined ? ['Unknown', 'unknown']
      : device.reachable ? ['Yes', 'yes'] : ['No', 'no'];
    setText(cells.reachable, label);
    cells.reachable.dataset.state = state;
    cells.start.setAttribute('aria-label', `Start session with ${device.app} on ${device.model ?? 'device'} ${device.id}`);
    cells.start.title = device.reachable === false
      ? 'The device is not connected now: it hears of the session when it next connects.' : '';
    row.searchText = [device.app, device.version, device.build, device.model, device.system, device.id,
      ...device.customData.flat()].filter(Boolean).join(' ').toLowerCase();
  }

  function render() {
    const now = Date.now();
    const seen = new Set();
    for (const device of devices) {
      seen.add(device.id);
      let row = rows.get(device.id);
      if (!row) rows.set(device.id, (row = makeRow(device)));
      updateRow(row, device, now);
    }
    for (const [id, row] of rows) {
      if (!seen.has(id)) {
        row.tr.remove();
        rows.delete(id);
      }
    }
    // Reachable devices first, then the most recently seen.
    const order = devices.map((device) => rows.get(device.id)).sort((a, b) =>
      Number(b.device.reachable === true) - Number(a.device.reachable === true)
      || (b.device.lastSeen?.getTime() ?? 0) - (a.device.lastSeen?.getTime() ?? 0));
    if (order.some((row, index) => tbody.children[index] !== row.tr)) tbody.append(...order.map((row) => row.tr));
    applySearch(order);
  }

  function applySearch(order = [...rows.values()]) {
    const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
    let shown = 0;
    for (const row of order) {
      const match = words.every((word) => row.searchText.includes(word));
      row.tr.hidden = !match;
      if (match) shown += 1;
    }
    let summary;
    if (!loaded) summary = 'Loading devices…';
    else if (rows.size === 0) summary = 'No devices have registered yet.';
    else if (words.length === 0) summary = `${rows.size} device${rows.size === 1 ? '' : 's'}.`;
    else if (shown === 0) summary = `No device matches “${search.value.trim()}”.`;
    else summary = `${shown} of ${rows.size} devices match “${search.value.trim()}”.`;
    if (loaded && staleSince) summary += ` As of ${staleSince.toLocaleTimeString()}: the service is not answering.`;
    sayStatus(summary);
  }

  async function poll(current) {
    while (current === generation) {
      try {
        const answer = await api.devices();
        if (current !== generation) return;
        serviceNotice('devices', '');
        devices = (Array.isArray(answer.devices) ? answer.devices : []).map(deviceFrom).filter(Boolean);
        loaded = true;
        staleSince = undefined;
        render();
      } catch (err) {
        if (current !== generation) return;
        if (err.status === 401) return onSignedOut('Your sign-in has ended. Sign in again.');
        if (err.unreachable) {
          serviceNotice('devices', 'The service cannot be reached. Trying again…');
          staleSince ??= new Date();
          applySearch();
        } else {
          sayStatus(`The device list could not be loaded: ${err.message}`);
        }
      }
      await pause(REFRESH_MS);
    }
  }

  search.addEventListener('input', () => applySearch());

  const joinForm = $('join-form');
  const joinCode = $('join-code');
  const joinError = $('join-error');
  joinForm.addEventListener('submit', async (event) => {
    event.preventDefault();
    joinError.textContent = '';
    const code = codeFrom(joinCode.value);
    joinCode.setAttribute('aria-invalid', String(code === undefined));
    if (code === undefined) {
      joinError.textContent = 'Enter the six-digit code the user reads out, such as 123-456.';
      joinCode.focus();
      return;
    }
    const button = joinForm.querySelector('button');
    button.disabled = true;
    try {
      const answer = await api.session(code);
      const session = sessionFrom(answer);
      if (!session) throw new Error('The service sent a session record that cannot be read');
      if (session.state === 'ended') {
        joinError.textContent = `The session ${unbroken(formatCode(code))} has ended.`;
      } else {
        joinCode.value = '';
        openSession(session.id);
      }
    } catch (err) {
      if (err.status === 404) joinError.textContent = `No session has the code ${unbroken(formatCode(code))}. Check it with the user.`;
      else failed(err, joinError);
    } finally {
      button.disabled = false;
    }
  });

  return {
    show() {
      showView('devices-view');
      startError.textContent = '';
      generation += 1;
      poll(generation);
    },
    hide() {
      generation += 1;
      serviceNotice('devices', '');
    },
  };
}
