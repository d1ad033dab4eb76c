import { Server } from 'socket.io';
import {
  deviceSocketCounts,
  reachableDeviceCount,
  reachableDeviceIds,
  roomFor,
  rooms,
  sessionSocketCounts,
  socketsIn,
} from './connection-registry.js';
import { agentSessionRecord } from '../records.js';
import { authenticate, clientDescription, printable } from './handshake.js';
import { LatestRecords } from './latest-records.js';
import { AGENT_TO_DEVICE_EVENTS, DEVICE_TO_AGENT_EVENTS, agentPayload, devicePayload, frameBytes, needsActiveSession } from './relay.js';

export const SOCKET_PATH = '/sockets/1/events';
// Frames are ~30 KB; the limit only has to stop a runaway client.
export const MAX_MESSAGE_BYTES = 10 * 1024 * 1024;

// The realtime side of the service, on the same http.Server as the REST API. One namespace
// ("/"); the bearer token decides the channel (control, stream, agent or notification) and so
// the room a socket joins.
// `metrics` (optional) hears of every frame relayed; `allowRequest(req)` (optional) answers
// undefined for a handshake the service takes, or why it refuses it (a foreign Host or Origin);
// `shared` (optional) is the store's, to find a token another instance issued a moment ago.
// With useAdapter() several instances share one fan-out: emits to a room reach its sockets on
// every instance, and the counts below count them all.
export function createSocketServer({ server, store, log, metrics, shared, allowRequest = () => undefined }) {
  const io = new Server(server, {
    allowRequest: (req, callback) => {
      const refusal = allowRequest(req);
      if (refusal) log(`socket refused from ${printable(req.socket?.remoteAddress)}: ${refusal}`);
      callback(refusal ?? null, refusal === undefined);
    },
    path: SOCKET_PATH,
    // Without the trailing-slash requirement both ".../events/?EIO=4" and ".../events?EIO=4" work.
    addTrailingSlash: false,
    serveClient: false,
    maxHttpBufferSize: MAX_MESSAGE_BYTES,
  });
  const namespace = io.of('/');
  const latest = new LatestRecords();

  let clustered = false;
  let closed = false;
  namespace.use(authenticate(store, log, shared));
  // Another instance asks for its rooms' transports to be closed here too.
  namespace.on('close-transports', (room) => closeLocalTransports(room));
  namespace.on('connection', (socket) => {
    try {
      onConnection(socket);
    } catch (err) {
      log(`socket setup failed: ${err.message}`);
      socket.disconnect(true);
    }
  });

  function onConnection(socket) {
    const { access } = socket.data;
    socket.join(roomFor(access));
    const who = describe(socket);
    const client = clientDescription(socket.handshake);
    log(`socket connected: ${who} transport=${socket.conn.transport.name}${client ? ` ${client}` : ''}`);
    socket.on('disconnect', (reason) => {
      log(`socket disconnected: ${who} (${reason})`);
      // The console shows when a device that cannot be reached now was last there.
      if (access.channel === 'notification') store.deviceLastSeen(access.deviceId);
      // The consoles left may all draw regions now that this one is gone.
      if (access.channel === 'agent' && !socket.data.drawsRegions) syncDevice(access.sessionId);
    });
    socket.onAny((event, ...args) => {
      try {
        onEvent(socket, event, args);
      } catch (err) {
        log(`socket event ${printable(event)} from ${who} failed: ${err.message}`);
      }
    });

    // A device or console that just connected may have missed changes since it last fetched
    // the session over REST, so it starts from the current record.
    if (access.channel === 'control') socket.emit('session', store.getSession(access.sessionId));
    if (access.channel === 'agent') {
      socket.emit('session', agentSessionRecord(store.getSession(access.sessionId)));
      const replayed = latest.replay(access.sessionId);
      for (const [event, record] of replayed) socket.emit(event, record);
      // Nothing to show yet: ask the device for its picture rather than wait for a change.
      if (!replayed.some(([event]) => event === 'frame')) syncDevice(access.sessionId);
    }
    // Frames a device captured before its stream connected were dropped on the device, which
    // then treats its screen as sent; a fresh stream is asked for the current picture.
    if (access.channel === 'stream') syncDevice(access.sessionId, socket);
  }

  // Asks the session's device (or only its `stream` socket) for a whole picture, announcing changed regions only when every
  // console watching the session said it draws them: a console that does not would be sent
  // pieces it cannot place. When the consoles cannot be counted, whole frames are always safe.
  async function syncDevice(sessionId, stream = namespace.to(rooms.stream(sessionId))) {
    if (closed) return;
    let regions = false;
    try {
      const agents = await namespace.in(rooms.agent(sessionId)).fetchSockets();
      regions = agents.length > 0 && agents.every((agent) => agent.data.drawsRegions === true);
    } catch (err) {
      log(`socket sync of session=${sessionId}: consoles not counted (${err.message}); asking for whole frames`);
    }
    if (!closed) stream.emit('sync', regions ? { regions: true } : {});
  }

  function onEvent(socket, event, args) {
    const { channel, sessionId } = socket.data.access;
    const toDevice = channel === 'agent' && AGENT_TO_DEVICE_EVENTS.has(event);
    const toAgent = channel === 'stream' && DEVICE_TO_AGENT_EVENTS.has(event);
    if (!toDevice && !toAgent) {
      log(`socket event ignored: ${printable(event)} on ${describe(socket)}`);
      return;
    }
    const state = store.sessionState(sessionId);
    if (state === undefined || state === 'ended') {
      log(`socket event dropped: ${event} on ${describe(socket)}: session has ended`);
      return;
    }
    // The agent's input, and the device's pictures, cross only once the user let the session start.
    if (state !== 'active' && needsActiveSession(event)) {
      log(`socket event dropped: ${event} on ${describe(socket)}: session is not active`);
      return;
    }
    const { payload, error } = toDevice ? agentPayload(event, args[0]) : devicePayload(args[0]);
    if (error) {
      log(`socket event dropped: ${event} on ${describe(socket)}: ${error}`);
      return;
    }
    if (event === 'sync') {
      // Whether this console draws regions is its own to say; the device hears what all say.
      socket.data.drawsRegions = payload.regions === true;
      syncDevice(sessionId);
      return;
    }
    const arrived = process.hrtime.bigint();
    if (toAgent) latest.remember(sessionId, event, payload);
    namespace.to(toDevice ? rooms.stream(sessionId) : rooms.agent(sessionId)).emit(event, payload);
    if (event === 'frame' && metrics) metrics.frameRelayed(frameBytes(payload), Number(process.hrtime.bigint() - arrived) / 1e9);
  }

  function onStoreChange({ kind, action, record, rotated }) {
    if (kind === 'session') {
      // New tokens are not sent where the old ones are in use: the device fetches them over REST
      // with its credential once its connections are closed, and whoever else held the old ones
      // hears nothing.
      if (!rotated) namespace.to(rooms.control(record.id)).emit('session', record);
      namespace.to(rooms.agent(record.id)).emit('session', agentSessionRecord(record));
      // Nobody can connect to or relay into an ended session, so its images are of no further use.
      // Its sockets stay: the device closes its own, and the console shows the ended state.
      if (record.state === 'ended') latest.forget(record.id);
    } else if (kind === 'device' && action === 'deleted') {
      namespace.in(rooms.notification(record.id)).disconnectSockets();
    }
  }
  store.on('change', onStoreChange);
  // Another instance's change already reached the sockets; what is left is this one's own
  // bookkeeping.
  const onRemoteChange = ({ kind, record }) => {
    if (kind === 'session' && record.state === 'ended') latest.forget(record.id);
  };
  store.on('remote-change', onRemoteChange);

  // Closing only the transport (not the namespace) makes a socket.io client reconnect on its
  // own; with its old token refused, the device then fetches the new ones.
  function closeLocalTransports(room) {
    for (const socket of socketsIn(namespace, room)) socket.conn.close();
  }
  function closeTransports(room) {
    closeLocalTransports(room);
    if (clustered) namespace.serverSideEmit('close-transports', room);
  }

  return {
    notifyDevice(deviceId, payload) {
      namespace.to(rooms.notification(deviceId)).emit('notification', payload);
    },
    closeSessionTransports(sessionId) {
      closeTransports(rooms.control(sessionId));
      closeTransports(rooms.stream(sessionId));
    },
    closeDeviceTransports(deviceId) {
      closeTransports(rooms.notification(deviceId));
    },
    useAdapter(adapter) {
      io.adapter(adapter);
      clustered = true;
    },
    sessionSocketCounts: (sessionId) => sessionSocketCounts(namespace, sessionId),
    sessionFrameStats: (sessionId) => latest.frameStats(sessionId),
    deviceSocketCounts: (deviceId) => deviceSocketCounts(namespace, deviceId),
    reachableDeviceIds: () => reachableDeviceIds(namespace),
    // This instance's own, for its metrics.
    reachableDeviceCount: () => reachableDeviceCount(namespace),
    // Drops every connection, including ones that never joined the namespace, as a transport
    // close (clients may come back once a service listens again). The http.Server itself is
    // left to its owner.
    close() {
      closed = true;
      store.off('change', onStoreChange);
      store.off('remote-change', onRemoteChange);
      io.engine.close();
    },
  };
}

function describe(socket) {
  const { channel, sessionId, deviceId } = socket.data.access;
  const owner = channel === 'notification' ? `device=${deviceId}` : `session=${sessionId}`;
  return `${channel} ${owner} id=${socket.id}`;
}
