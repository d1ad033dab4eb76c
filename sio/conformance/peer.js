// A Socket.IO server for the sio conformance tests and the benchmark: the official server on
// loopback, with behaviours the tests trigger by emitting events.
//   node peer.js --port-file FILE [--port N] [--path /custom/io] [--tls] [--quiet]
//                [--ping-interval MS] [--ping-timeout MS]
// Writes {"port":N,"tlsPort":M,"caFile":"..."} to FILE once listening (tlsPort/caFile with --tls).
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, renameSync, rmSync, writeFileSync } from "node:fs";
import http from "node:http";
import https from "node:https";
import { tmpdir } from "node:os";
import path from "node:path";
import { parseArgs } from "node:util";
import { Server } from "socket.io";

const { values: options } = parseArgs({
  options: {
    "port-file": { type: "string" },
    port: { type: "string", default: "0" },
    "tls-port": { type: "string", default: "0" },
    // Short by default, so that the dead-peer tests finish quickly; the timeout leaves room for
    // clients slowed down by sanitizers while they move megabytes.
    "ping-interval": { type: "string", default: "500" },
    "ping-timeout": { type: "string", default: "1000" },
    path: { type: "string", default: "/socket.io" },
    tls: { type: "boolean", default: false },
    quiet: { type: "boolean", default: false },
  },
});
if (!options["port-file"]) {
  console.error("usage: node peer.js --port-file FILE [--port N] [--path P] [--tls] [--quiet]");
  process.exit(64);
}
const log = options.quiet ? () => {} : (...args) => console.error(new Date().toISOString(), ...args);

const serverOptions = {
  path: options.path,
  pingInterval: Number(options["ping-interval"]),
  pingTimeout: Number(options["ping-timeout"]),
  // The tests send 2 MB attachments; 10 MB is the limit a client must respect.
  maxHttpBufferSize: 10 * 1024 * 1024,
  transports: ["websocket"],
};

// Stops the heartbeat and every outgoing packet of one connection while keeping it open: to
// the client the server is alive at the TCP level but silent.
function mute(conn) {
  clearTimeout(conn.pingIntervalTimer);
  clearTimeout(conn.pingTimeoutTimer);
  conn.pingIntervalTimer = null;
  conn.pingTimeoutTimer = null;
  conn.schedulePing = () => {};
  conn.resetPingTimeout = () => {};
  conn.sendPacket = () => {};
}

function splitAck(args) {
  return typeof args.at(-1) === "function" ? [args.slice(0, -1), args.at(-1)] : [args, null];
}

function setUp(io, label) {
  io.use((socket, next) => {
    if (socket.handshake.headers.authorization === "Bearer refuse") {
      log(label, "refusing", socket.id);
      return next(new Error("refused"));
    }
    next();
  });
  io.on("connection", (socket) => {
    log(label, "connection", socket.id);
    socket.on("echo", (...args) => {
      const [items, ack] = splitAck(args);
      if (ack) ack(...items);
      else socket.emit("echo", ...items);
    });
    socket.on("headers", (ack) => {
      if (typeof ack === "function") ack(socket.handshake.headers);
    });
    socket.on("ask", (...args) => {
      const [items] = splitAck(args);
      socket.emit("question", ...items, (...answer) => socket.emit("answer", ...answer));
    });
    // The benchmark's message: acknowledged at once, so the client measures the round trip.
    socket.on("frame", (...args) => {
      const [, ack] = splitAck(args);
      if (ack) ack();
    });
    socket.on("kick", () => socket.disconnect());
    socket.on("drop", () => socket.conn.close());
    socket.on("mute", () => mute(socket.conn));
    socket.on("disconnect", (reason) => log(label, "disconnect", socket.id, reason));
  });
}

function listen(server, port) {
  return new Promise((resolve, reject) => {
    server.once("error", reject);
    server.listen(Number(port), "127.0.0.1", () => resolve(server.address().port));
  });
}

function selfSignedCertificate() {
  const dir = mkdtempSync(path.join(tmpdir(), "sio-peer-"));
  const key = path.join(dir, "key.pem");
  const cert = path.join(dir, "cert.pem");
  // Valid for "localhost" only: connecting by IP address must fail host name verification.
  execFileSync("openssl", [
    "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
    "-keyout", key, "-out", cert, "-days", "2", "-subj", "/CN=localhost",
    "-addext", "subjectAltName=DNS:localhost",
  ], { stdio: "ignore" });
  process.on("exit", () => rmSync(dir, { recursive: true, force: true }));
  return { key: readFileSync(key), cert: readFileSync(cert), certFile: cert };
}

const plain = http.createServer();
setUp(new Server(plain, serverOptions), "ws");
const ports = { port: await listen(plain, options.port) };

if (options.tls) {
  const certificate = selfSignedCertificate();
  const secure = https.createServer({ key: certificate.key, cert: certificate.cert });
  setUp(new Server(secure, serverOptions), "wss");
  ports.tlsPort = await listen(secure, options["tls-port"]);
  ports.caFile = certificate.certFile;
}

// Written whole, then renamed: a reader never sees half a file.
const portFile = options["port-file"];
writeFileSync(`${portFile}.tmp`, JSON.stringify(ports));
renameSync(`${portFile}.tmp`, portFile);
log("listening", JSON.stringify(ports));

for (const signal of ["SIGTERM", "SIGINT"]) process.on(signal, () => process.exit(0));
