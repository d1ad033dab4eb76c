// What a desktop window costs on the wire: the desk demo (1280x800) watched by an agent on
// loopback, through the reference service, once with changed regions announced and once with
// whole frames, doing the same work each time:
//   caret    the caret blinking in an empty-handed form (bytes per change, bound 3 KB)
//   typing   a sentence typed into the notes, 8 keys a second
//   scroll   the orders table scrolled with the wheel, 3 notches 5 times a second
//   dialog   the "New order" dialog opened
//   still    nothing changing while the dialog stays open: frames sent, and the desk's CPU share
//            (bound 1 % of a core)
// Each phase prints bytes per second with regions beside the same with whole frames.
//   node bench/bytes.mjs HALVORA_DESKTOP_DEMO
import { spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { agentHarness } from '../tests/support/agent_harness.mjs';
import { startServiceProcess } from '../tests/support/service_process.mjs';

const [desk] = process.argv.slice(2);
if (!desk) {
  console.error('usage: node bench/bytes.mjs HALVORA_DESKTOP_DEMO');
  process.exit(2);
}
const WIDTH = 1280;
const HEIGHT = 800;
const CARET_BOUND = 3 * 1024;
const STILL_CPU_BOUND = 1; // % of one core
const SENTENCE = 'Please leave the parcel with the neighbour at number 12, thank you.';
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

const serviceDir = fileURLToPath(new URL('../service/', import.meta.url));
const require = createRequire(join(serviceDir, 'package.json'));
const { io } = require('socket.io-client');
const jpeg = require('jpeg-js');

// Bytes of a frame record as the agent receives it: its pictures and the rest of the record.
function recordBytes(record) {
  const pictures = record.image ? [record.image] : (record.regions ?? []).map((region) => region.image);
  const rest = JSON.stringify(record, (key, value) => (key === 'image' ? undefined : value)).length;
  return pictures.reduce((sum, picture) => sum + (Buffer.isBuffer(picture) ? picture.length : 0), rest);
}

// The desk's CPU time so far, in seconds (user + system, from /proc).
function cpuSeconds(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return (Number(fields[11]) + Number(fields[12])) / 100; // utime, stime in clock ticks of 1/100 s
}

async function run(regions) {
  const data = mkdtempSync(join(tmpdir(), 'halvora-bytes-'));
  let output = '';
  let app;
  let agent;
  const started = await startServiceProcess(data);
  const cleanup = () => {
    app?.removeAllListeners('exit');
    app?.kill('SIGKILL');
    agent?.close();
    started.process.kill('SIGKILL');
    rmSync(data, { recursive: true, force: true });
  };
  const { fail, api, until, deviceReady } = agentHarness({
    serviceUrl: started.url,
    agentFile: started.agentFile,
    limitMs: 30_000,
    context: () => `--- desk stdout (end)\n${output.slice(-2000)}`,
    cleanup,
  });
  app = spawn(desk, ['--api', started.url, '--data', data], {
    stdio: ['ignore', 'pipe', 'ignore'],
    env: { ...process.env, QT_QPA_PLATFORM: 'offscreen', QT_QUICK_BACKEND: 'software' },
  });
  app.stdout.setEncoding('utf8').on('data', (chunk) => { output += chunk; });
  app.on('exit', (code, signal) => fail(`the desk exited (${code ?? signal})`));

  const deviceId = await deviceReady(() => output);
  const place = (name) => {
    const found = output.match(new RegExp(`^app: place ${name} (\\d+) (\\d+)$`, 'm'));
    if (!found) fail(`the desk did not say where ${name} is`);
    return { x: Number(found[1]) / WIDTH, y: Number(found[2]) / HEIGHT };
  };
  const session = await api('POST', `/api/1/agent/devices/${deviceId}/sessions`);
  const joined = await api('POST', `/api/1/agent/sessions/${session.id}/join`);
  agent = io(started.url, { path: '/sockets/1/events', auth: { token: joined.agent_token }, transports: ['websocket'] });

  const frames = []; // { at, bytes, whole }
  agent.on('frame', (record) => {
    frames.push({ at: Date.now(), bytes: recordBytes(record), whole: Buffer.isBuffer(record.image), record });
  });
  agent.on('connect', () => agent.emit('sync', regions ? { type: 'Sync', regions: true } : { type: 'Sync' }));
  await until('the first frame', () => frames.length > 0);
  await pause(1500); // the first whole frame and the caret's first changes settle

  const results = {};
  const phase = async (name, work, settleMs = 600) => {
    const from = Date.now();
    const cpuFrom = cpuSeconds(app.pid);
    await work();
    await pause(settleMs);
    const to = Date.now();
    const shown = frames.filter((frame) => frame.at >= from && frame.at < to);
    results[name] = {
      seconds: (to - from) / 1000,
      frames: shown.length,
      whole: shown.filter((frame) => frame.whole).length,
      bytes: shown.reduce((sum, frame) => sum + frame.bytes, 0),
      cpu: (cpuSeconds(app.pid) - cpuFrom) / ((to - from) / 1000),
    };
  };
  const click = (point) => agent.emit('touch', { type: 'Click', ...point, button: 'primary', count: 1 });

  await phase('caret', () => pause(6000), 0);
  const notes = place('notes');
  await phase('typing', async () => {
    click(notes);
    await pause(300);
    for (const key of SENTENCE) {
      agent.emit('keypress', { type: 'KeyPress', key, code: key === ' ' ? 'Space' : `Key${key.toUpperCase()}`, state: 'keydown' });
      await pause(125);
    }
    await until('the typed sentence', () => output.includes(`app: notes ${SENTENCE.length} characters`));
  });
  const table = place('table');
  await phase('scroll', async () => {
    for (let turn = 0; turn < 15; turn += 1) {
      agent.emit('touch', { type: 'Wheel', ...table, deltaX: 0, deltaY: 3 });
      await pause(200);
    }
    await until('the table to scroll', () => /^app: table top row [1-9]\d*$/m.test(output));
  });
  await phase('dialog', async () => {
    click(place('newOrder'));
    await until('the dialog', () => output.includes('app: dialog opened'));
  }, 1000);
  await phase('still', () => pause(10_000), 0);
  const first = frames.find((frame) => frame.whole);
  const size = first ? jpeg.decode(first.record.image, { useTArray: true }) : undefined;
  cleanup();
  return { results, size };
}

const kb = (bytes) => `${(bytes / 1024).toFixed(1)} KB`;
const withRegions = await run(true);
const whole = await run(false);
console.log(`desk window: ${withRegions.size ? `${withRegions.size.width}x${withRegions.size.height}` : '?'} px frames`);
for (const name of ['caret', 'typing', 'scroll', 'dialog']) {
  const ours = withRegions.results[name];
  const theirs = whole.results[name];
  const perSecond = (r) => r.bytes / r.seconds;
  let line = `${name.padEnd(7)} regions ${kb(perSecond(ours))}/s (${ours.frames} frames, ${ours.whole} whole)` +
    `  whole frames ${kb(perSecond(theirs))}/s (${theirs.frames} frames)  ratio ${(perSecond(ours) / perSecond(theirs)).toFixed(2)}`;
  if (name === 'caret') {
    const perChange = ours.frames ? ours.bytes / ours.frames : 0;
    line += `\n        caret: ${(perChange / 1024).toFixed(2)} KB per change, bound ${kb(CARET_BOUND)}, ratio ${(perChange / CARET_BOUND).toFixed(2)}` +
      ` (whole frames: ${kb(theirs.frames ? theirs.bytes / theirs.frames : 0)} per change)`;
  }
  console.log(line);
}
const still = withRegions.results.still;
// /proc counts CPU time in ticks of 10 ms: over 10 s that is 0.1 % of a core.
console.log(`still   ${still.frames} frames in ${still.seconds.toFixed(1)} s; the desk used ${(100 * still.cpu).toFixed(2)} % of a core` +
  ` (measured in steps of ${(1 / still.seconds).toFixed(2)} %), bound ${STILL_CPU_BOUND} %, ratio ${((100 * still.cpu) / STILL_CPU_BOUND).toFixed(2)}`);
