import { objectField, optionalObjectBody, pushTokenField, requireObjectBody, stringField } from '../validate.js';

// What the device SDK calls: sessions it starts itself and its own registration.
export function deviceRoutes(store) {
  return [
    {
      path: '/api/1/sessions',
      methods: {
        POST: async ({ readBody }) => {
          // The SDK posts without a body; one that is sent anyway must still be well formed.
          optionalObjectBody(await readBody());
          return { status: 201, body: store.createSession() };
        },
      },
    },
    {
      path: '/api/1/sessions/:session',
      methods: {
        GET: async ({ params }) => ({ status: 200, body: store.getSession(params.session) }),
        PUT: async ({ params, readBody }) => {
          const body = requireObjectBody(await readBody());
          const state = stringField(body, 'state', { required: true });
          const device = objectField(body, 'device');
          const customData = objectField(body, 'custom_data', { nullable: true });
          return { status: 200, body: store.changeSessionState(params.session, { state, device, customData }) };
        },
      },
    },
    {
      path: '/api/1/devices/:device',
      methods: {
        PUT: async ({ params, readBody }) => {
          const body = requireObjectBody(await readBody());
          const registration = {
            pushToken: pushTokenField(body),
            pushProvider: stringField(body, 'push_provider', { required: true, allowEmpty: true }),
            device: objectField(body, 'device', { required: true }),
            customData: objectField(body, 'custom_data', { nullable: true }),
          };
          return { status: 200, body: store.registerDevice(params.device, registration) };
        },
        DELETE: async ({ params }) => ({ status: 200, body: store.removeDevice(params.device) }),
      },
    },
  ];
}
