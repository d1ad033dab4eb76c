import { idField, optionalObjectBody, stringField } from '../validate.js';

// The support person's side. No authentication yet: the service only listens on loopback
// unless told otherwise, and the console that will sit in front of this comes later.
// `sockets` is the socket server: it reaches connected devices and counts connections.
export function agentRoutes(store, sockets) {
  return [
    {
      path: '/api/1/agent/devices',
      methods: {
        GET: async () => ({ status: 200, body: { devices: store.listDevices() } }),
      },
    },
    {
      path: '/api/1/agent/devices/:device/sessions',
      methods: {
        POST: async ({ params }) => {
          const record = store.startSessionForDevice(params.device);
          // Stands in for a push notification: the device's notification socket hears about it.
          sockets.notifyDevice(params.device, { 'halvora-notification': true, 'halvora-code': record.code });
          return { status: 201, body: record };
        },
      },
    },
    {
      path: '/api/1/agent/devices/:device/rotate-token',
      methods: {
        POST: async ({ params }) => {
          const record = store.rotateNotificationToken(params.device);
          sockets.closeDeviceTransports(params.device);
          return { status: 200, body: record };
        },
      },
    },
    {
      path: '/api/1/agent/devices/:device/sockets',
      methods: {
        GET: async ({ params }) => {
          store.getDevice(params.device);
          return { status: 200, body: sockets.deviceSocketCounts(params.device) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions',
      methods: {
        GET: async () => ({ status: 200, body: { sessions: store.listSessions() } }),
      },
    },
    {
      path: '/api/1/agent/sessions/:session',
      methods: {
        GET: async ({ params }) => ({ status: 200, body: store.getSession(params.session) }),
      },
    },
    {
      path: '/api/1/agent/sessions/:session/join',
      methods: {
        POST: async ({ params, readBody }) => {
          const body = optionalObjectBody(await readBody());
          const agent = {};
          const id = idField(body, 'id');
          const name = stringField(body, 'name');
          if (id !== undefined) agent.id = id;
          if (name !== undefined) agent.name = name;
          const { record, agentToken } = store.joinSession(params.session, agent);
          return { status: 200, body: { ...record, agent_token: agentToken } };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/rotate-tokens',
      methods: {
        POST: async ({ params }) => {
          // The change goes out first, so a connected device hears the new tokens before its
          // connection drops.
          const record = store.rotateSessionTokens(params.session);
          sockets.closeSessionTransports(record.id);
          return { status: 200, body: record };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/sockets',
      methods: {
        GET: async ({ params }) => {
          const { id } = store.getSession(params.session);
          return { status: 200, body: sockets.sessionSocketCounts(id) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/frames',
      methods: {
        GET: async ({ params }) => {
          const { id } = store.getSession(params.session);
          return { status: 200, body: { ids: sockets.sessionFrameIds(id) } };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/end',
      methods: {
        POST: async ({ params }) => ({ status: 200, body: store.endSession(params.session) }),
      },
    },
  ];
}
