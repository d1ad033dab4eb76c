import { unauthorized } from '../errors.js';
import { bearerValue } from '../tokens.js';
import { objectField, optionalObjectBody, pushTokenField, requireObjectBody, stringField } from '../validate.js';

// What the device SDK calls: sessions it starts itself and its own registration. A device proves
// who it is with the credential its first registration gave it ("Authorization: Bearer ..."); it
// reaches only its own record and its own sessions. `limits` (RateLimiters, each optional) bound
// what one device may ask (`perDevice`) and how many sessions it may create (`sessions`),
// wherever it asks from, and how many new devices one address may register (`newDevices`);
// `shared` finds a device another instance registered a moment ago.
export function deviceRoutes(store, { limits = {}, shared } = {}) {
  const deviceOf = async (request) => {
    const credential = credentialOf(request);
    let device = store.deviceFor(credential);
    if (!device && credential && shared) {
      await shared.lookUpCredential(credential);
      device = store.deviceFor(credential);
    }
    if (!device) throw unauthorized('Device credential required');
    limits.perDevice?.take(device.id);
    return device;
  };
  return [
    {
      path: '/api/1/sessions',
      methods: {
        POST: async ({ readBody, request }) => {
          const device = await deviceOf(request);
          limits.sessions?.take(device.id);
          // The SDK posts without a body; one that is sent anyway must still be well formed.
          optionalObjectBody(await readBody());
          return { status: 201, body: store.createSessionForDevice(device) };
        },
      },
    },
    {
      path: '/api/1/sessions/:session',
      methods: {
        GET: async ({ params, request }) => ({ status: 200, body: store.getSession(params.session, { device: await deviceOf(request) }) }),
        PUT: async ({ params, readBody, request }) => {
          const device = await deviceOf(request);
          const body = requireObjectBody(await readBody());
          const change = {
            state: stringField(body, 'state', { required: true }),
            device: objectField(body, 'device'),
            customData: objectField(body, 'custom_data', { nullable: true }),
          };
          return { status: 200, body: store.changeSessionState(params.session, change, { device }) };
        },
      },
    },
    {
      path: '/api/1/devices/:device',
      methods: {
        PUT: async ({ params, readBody, request }) => {
          const body = requireObjectBody(await readBody());
          const registration = {
            pushToken: pushTokenField(body),
            pushProvider: stringField(body, 'push_provider', { required: true, allowEmpty: true }),
            device: objectField(body, 'device', { required: true }),
            customData: objectField(body, 'custom_data', { nullable: true }),
          };
          limits.perDevice?.take(params.device);
          if (!store.hasDevice(params.device)) limits.newDevices?.take(request.ip);
          return { status: 200, body: store.registerDevice(params.device, registration, credentialOf(request)) };
        },
        DELETE: async ({ params, request }) => {
          limits.perDevice?.take(params.device);
          return { status: 200, body: store.removeDevice(params.device, { credential: credentialOf(request) }) };
        },
      },
    },
  ];
}

const credentialOf = (request) => bearerValue(request.headers.authorization);
