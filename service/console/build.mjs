// Builds the agent's console into console/dist/: the page, its stylesheet and icon, and one script bundling
// the console's modules with socket.io-client. `npm run build` runs it; it takes well under a
// second, so install-deps.sh and the console's end-to-end test simply run it every time.
//   node console/build.mjs [OUT_DIR]
import { copyFile, mkdir } from 'node:fs/promises';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import * as esbuild from 'esbuild';

const here = fileURLToPath(new URL('.', import.meta.url));
export const DIST = join(here, 'dist');

export async function buildConsole(outDir = DIST) {
  await mkdir(outDir, { recursive: true });
  await esbuild.build({
    entryPoints: [join(here, 'src/main.js')],
    outfile: join(outDir, 'console.js'),
    bundle: true,
    format: 'esm',
    // Both browsers' releases of the last two years; nothing newer than they support.
    target: ['chrome110', 'firefox115', 'safari16'],
    minify: true,
    sourcemap: 'linked',
    logLevel: 'warning',
  });
  await Promise.all(['index.html', 'console.css', 'favicon.svg'].map((name) => copyFile(join(here, name), join(outDir, name))));
  return outDir;
}

if (process.argv[1] && fileURLToPath(import.meta.url) === process.argv[1]) {
  const outDir = await buildConsole(process.argv[2] ?? DIST);
  console.log(`console built in ${outDir}`);
}
