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

export function socketsIn(namespace, room) {
  const ids = namespace.adapter.rooms.get(room) ?? [];
  return [...ids].map((id) => namespace.sockets.get(id)).filter(Boolean);
}

// The counts take in every instance's sockets when an adapter shares the rooms.
export async function sessionSocketCounts(namespace, sessionId) {
  const [control, stream, agent] = await Promise.all(
    [rooms.control, rooms.stream, rooms.agent].map((room) => countEverywhere(namespace, room(sessionId))),
  );
  return { control, stream, agent };
}

export async function deviceSocketCounts(namespace, deviceId) {
  return { notification: await countEverywhere(namespace, rooms.notification(deviceId)) };
}

async function countEverywhere(namespace, room) {
  return (await namespace.in(room).fetchSockets()).length;
}

// The ids of devices with a notification connection open on any instance.
export async function reachableDeviceIds(namespace) {
  const sockets = await namespace.fetchSockets();
  return new Set(sockets.filter((socket) => socket.data.access?.channel === 'notification').map((socket) => socket.data.access.deviceId));
}

// Devices with at least one notification connection open on this instance.
export function reachableDeviceCount(namespace) {
  let count = 0;
  for (const [room, members] of namespace.adapter.rooms) {
    if (room.startsWith(rooms.notification('')) && members.size > 0) count += 1;
  }
  return count;
}
