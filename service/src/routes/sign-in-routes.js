import { verifyPassword, UNUSABLE_HASH } from '../agents/passwords.js';
import { LOGIN_TTL_MS } from '../agents/agent-accounts.js';
import { HttpError } from '../errors.js';
import { requireObjectBody, stringField } from '../validate.js';

export const SIGN_IN_COOKIE = 'halvora_agent';
const WRONG = 'Wrong name or password';

// Agents sign in with their account's name and password and get a cookie: HttpOnly (no script
// reads it), SameSite=Strict (no other site's page sends it), Secure when the service is reached
// over TLS. `throttle` (a SignInThrottle) counts every attempt first, then slows and stops
// repeated ones.
export function signInRoutes(store, throttle, { isSecure }) {
  const accounts = store.agents;
  return [
    {
      path: '/api/1/agent/sign-in',
      methods: {
        POST: async ({ readBody, request, reply }) => {
          const body = requireObjectBody(await readBody());
          const name = stringField(body, 'name', { required: true });
          const password = stringField(body, 'password', { required: true, maxLength: 1024 });
          const who = name.toLowerCase();
          const verdict = await throttle.attempt(request.ip, who);
          if (verdict.retryAfterMs !== undefined) {
            const seconds = Math.ceil(verdict.retryAfterMs / 1000);
            throw new HttpError(429, `Too many failed sign-ins; try again in ${Math.ceil(seconds / 60)} minutes`, {
              'Retry-After': String(seconds),
            });
          }
          if (verdict.wait > 0) await new Promise((resolve) => setTimeout(resolve, verdict.wait));
          const account = accounts.findByName(name);
          const matches = await verifyPassword(password, account?.passwordHash ?? UNUSABLE_HASH);
          if (!account || !matches) throw new HttpError(401, WRONG);
          await throttle.succeeded(request.ip, who);
          reply.setCookie(SIGN_IN_COOKIE, accounts.signIn(account.id), {
            path: '/',
            httpOnly: true,
            sameSite: 'strict',
            secure: isSecure(request),
            maxAge: LOGIN_TTL_MS / 1000,
          });
          return { status: 200, body: { id: account.id, name: account.name } };
        },
      },
    },
    {
      path: '/api/1/agent/sign-out',
      methods: {
        POST: async ({ request, reply }) => {
          accounts.signOut(request.cookies[SIGN_IN_COOKIE]);
          reply.clearCookie(SIGN_IN_COOKIE, { path: '/' });
          return { status: 200, body: {} };
        },
      },
    },
    {
      path: '/api/1/agent/me',
      methods: {
        GET: async ({ request }) => {
          const agent = accounts.agentFor(request.cookies[SIGN_IN_COOKIE]);
          if (!agent) throw new HttpError(401, 'Not signed in');
          return { status: 200, body: agent };
        },
      },
    },
  ];
}
