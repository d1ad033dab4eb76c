// The official JavaScript client doing what bench/sio_frame_bench does, for comparison.
//   node bench-client.js URL [--path P] [--messages N] [--size BYTES] [--round-trips N]
import { parseArgs } from "node:util";
import { io } from "socket.io-client";

const { values: options, positionals } = parseArgs({
  allowPositionals: true,
  options: {
    path: { type: "string", default: "/socket.io" },
    messages: { type: "string", default: "2000" },
    size: { type: "string", default: String(30 * 1024) },
    "round-trips": { type: "string", default: "200" },
  },
});
const [url] = positionals;
const messages = Number(options.messages);
const roundTrips = Number(options["round-trips"]);
if (!url || !(messages > 0) || !(roundTrips > 0)) {
  console.error("usage: node bench-client.js URL [--path P] [--messages N] [--size BYTES] [--round-trips N]");
  process.exit(64);
}

const frame = Buffer.alloc(Number(options.size));
for (let i = 0; i < frame.length; i++) frame[i] = i & 0xff;

const socket = io(url, { path: options.path, transports: ["websocket"], reconnection: false });
const failure = setTimeout(() => {
  console.error("benchmark did not finish within 60 s");
  process.exit(1);
}, 60_000);
await new Promise((resolve, reject) => {
  socket.once("connect", resolve);
  socket.once("connect_error", reject);
});

// A copy per event, as the C++ benchmark makes.
const send = () => new Promise((resolve) => socket.emit("frame", Buffer.from(frame), resolve));

const start = process.hrtime.bigint();
await Promise.all(Array.from({ length: messages }, send));
const seconds = Number(process.hrtime.bigint() - start) / 1e9;

const times = [];
for (let i = 0; i < roundTrips; i++) {
  const sent = process.hrtime.bigint();
  await send();
  times.push(Number(process.hrtime.bigint() - sent) / 1e6);
}
times.sort((a, b) => a - b);

console.log(JSON.stringify({
  client: "socket.io-client",
  messages,
  bytes: frame.length,
  seconds,
  messagesPerSecond: messages / seconds,
  medianRoundTripMs: times[Math.floor(times.length / 2)],
}));
clearTimeout(failure);
socket.close();
