import { existsSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import fastifyStatic from '@fastify/static';

// Where `npm run build` (console/build.mjs) puts the agent's console.
export const CONSOLE_DIST = fileURLToPath(new URL('../../console/dist/', import.meta.url));
const NOT_BUILT = 'The console is not built: run npm run build in service/';

// Serves the agent's console at /console/ from its built bundle. The bundle is looked for on every
// request, so building it beside a running service is enough. Files are revalidated on every load
// (ETag and Last-Modified stay on): a rebuilt console shows up on the next reload.
//   dir  the built console (default: console/dist)
export function serveConsole(app, { dir = CONSOLE_DIST } = {}) {
  app.register(async (scope) => {
    scope.addHook('onRequest', async (request, reply) => {
      if (!existsSync(`${dir}/index.html`)) {
        return reply.code(503).header('Cache-Control', 'no-store').send({ message: NOT_BUILT });
      }
    });
    await scope.register(fastifyStatic, {
      root: dir,
      prefix: '/console/',
      suppressWarning: true,
      cacheControl: false,
      setHeaders: (reply) => reply.header('Cache-Control', 'no-cache'),
    });
    // The service forgives a trailing slash, so this route answers both /console and /console/.
    // The page's own files are relative to it: only the address with the slash serves it.
    scope.get('/console', (request, reply) => {
      const path = request.url.split('?')[0];
      if (!path.endsWith('/')) return reply.redirect('/console/', 301);
      return reply.sendFile('index.html');
    });
  });
}
