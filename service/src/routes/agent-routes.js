import { agentDeviceRecord, agentSessionRecord } from '../records.js';
import { optionalObjectBody } from '../validate.js';

// The support person's side. Every route here runs for a signed-in agent (`request.agent`, set
// by the service's sign-in check); a session joined by another agent is refused. Sessions are
// answered without the device's channel tokens, devices without their notification token.
// `sockets` is the socket server: it reaches connected devices and counts connections.
export function agentRoutes(store, sockets) {
  const sessionFor = (params, request) => agentSessionRecord(store.getSessionFor(params.session, request.agent));
  return [
    {
      path: '/api/1/agent/devices',
      methods: {
        GET: async () => {
          const reachable = await sockets.reachableDeviceIds();
          return { status: 200, body: { devices: store.listDevicesForAgents((id) => reachable.has(id)).map(agentDeviceRecord) } };
        },
      },
    },
    {
      path: '/api/1/agent/devices/:device/sessions',
      methods: {
        POST: async ({ params, request }) => {
          const record = store.startSessionForDevice(params.device, request.agent);
          // Stands in for a push notification: the device's notification socket hears about it.
          sockets.notifyDevice(params.device, { 'halvora-notification': true, 'halvora-code': record.code });
          return { status: 201, body: agentSessionRecord(record) };
        },
      },
    },
    {
      path: '/api/1/agent/devices/:device/rotate-token',
      methods: {
        POST: async ({ params }) => {
          const record = store.rotateNotificationToken(params.device);
          sockets.closeDeviceTransports(params.device);
          return { status: 200, body: agentDeviceRecord(record) };
        },
      },
    },
    {
      path: '/api/1/agent/devices/:device/sockets',
      methods: {
        GET: async ({ params }) => {
          store.getDevice(params.device);
          return { status: 200, body: await sockets.deviceSocketCounts(params.device) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions',
      methods: {
        GET: async ({ request }) => ({ status: 200, body: { sessions: store.listSessionsFor(request.agent).map(agentSessionRecord) } }),
      },
    },
    {
      path: '/api/1/agent/sessions/:session',
      methods: {
        GET: async ({ params, request }) => ({ status: 200, body: sessionFor(params, request) }),
      },
    },
    {
      path: '/api/1/agent/sessions/:session/join',
      methods: {
        POST: async ({ params, readBody, request }) => {
          // Nothing to say in a body any more (the agent is the signed-in one), but one that is
          // sent must still be well formed.
          optionalObjectBody(await readBody());
          const { record, agentToken } = store.joinSession(params.session, request.agent);
          return { status: 200, body: { ...agentSessionRecord(record), agent_token: agentToken } };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/rotate-tokens',
      methods: {
        POST: async ({ params, request }) => {
          sessionFor(params, request);
          // The device's connections drop; it fetches the new tokens with its credential.
          const record = store.rotateSessionTokens(params.session);
          sockets.closeSessionTransports(record.id);
          return { status: 200, body: agentSessionRecord(record) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/sockets',
      methods: {
        GET: async ({ params, request }) => {
          const { id } = sessionFor(params, request);
          return { status: 200, body: await sockets.sessionSocketCounts(id) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/frames',
      methods: {
        GET: async ({ params, request }) => {
          const { id } = sessionFor(params, request);
          return { status: 200, body: sockets.sessionFrameStats(id) };
        },
      },
    },
    {
      path: '/api/1/agent/sessions/:session/end',
      methods: {
        POST: async ({ params, request }) => {
          sessionFor(params, request);
          return { status: 200, body: agentSessionRecord(store.endSession(params.session)) };
        },
      },
    },
  ];
}
