// Who is connected, kept as socket.io rooms: every socket joins exactly one room for its
// channel, so a room's size is that channel's connection count.

export const rooms = {
  control: (sessionId) => `session:${sessionId}:control`,
  stream: (sessionId) => `session:${sessionId}:stream`,
  agent: (sessionId) => `session:${sessionId}:agent`,
  notification: (deviceId) => `device:${deviceId}`,
};

// The room an authenticated connection belongs in.
export function roomFor({ channel, sessionId, deviceId }) {
  return channel === 'notification' ? rooms.notification(deviceId) : rooms[channel](sessionId);
}

export function countIn(namespace, room) {
  return namespace.adapter.rooms.get(room)?.size ?? 0;
}

export function socketsIn(namespace, room) {
  const ids = namespace.adapter.rooms.get(room) ?? [];
  return [...ids].map((id) => namespace.sockets.get(id)).filter(Boolean);
}

export function sessionSocketCounts(namespace, sessionId) {
  return {
    control: countIn(namespace, rooms.control(sessionId)),
    stream: countIn(namespace, rooms.stream(sessionId)),
    agent: countIn(namespace, rooms.agent(sessionId)),
  };
}

export function deviceSocketCounts(namespace, deviceId) {
  return { notification: countIn(namespace, rooms.notification(deviceId)) };
}

// Devices with at least one notification connection open.
export function reachableDeviceCount(namespace) {
  let count = 0;
  for (const [room, members] of namespace.adapter.rooms) {
    if (room.startsWith(rooms.notification('')) && members.size > 0) count += 1;
  }
  return count;
}
