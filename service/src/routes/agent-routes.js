import { idField, optionalObjectBody, stringField } from '../validate.js';

// The support person's side. No authentication yet: the service only listens on loopback
// unless told otherwise, and the console that will sit in front of this comes later.
export function agentRoutes(store) {
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
        POST: async ({ params }) => ({ status: 201, body: store.startSessionForDevice(params.device) }),
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
      path: '/api/1/agent/sessions/:session/end',
      methods: {
        POST: async ({ params }) => ({ status: 200, body: store.endSession(params.session) }),
      },
    },
  ];
}
