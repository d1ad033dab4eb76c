import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { buildConsole } from '../console/build.mjs';
import { startService } from '../test-support/start-service.js';

const built = await buildConsole(mkdtempSync(join(tmpdir(), 'halvora-console-built-')));
const unbuilt = mkdtempSync(join(tmpdir(), 'halvora-console-unbuilt-'));
const withConsole = await startService({ consoleDir: built });
const withoutConsole = await startService({ consoleDir: unbuilt });
after(async () => {
  await withConsole.close();
  await withoutConsole.close();
  rmSync(built, { recursive: true, force: true });
  rmSync(unbuilt, { recursive: true, force: true });
});

test('the console page loads under the service\'s content security policy, with every file it names', async () => {
  const bare = await fetch(`${withConsole.baseUrl}/console`, { redirect: 'manual' });
  assert.equal(bare.status, 301);
  assert.equal(bare.headers.get('location'), '/console/');

  const page = await fetch(`${withConsole.baseUrl}/console/`);
  assert.equal(page.status, 200);
  assert.match(page.headers.get('content-type'), /^text\/html/);
  assert.ok(page.headers.get('content-security-policy').split(';').includes("script-src 'self'"));
  const html = await page.text();
  // The policy refuses inline script, inline handlers and style attributes: the page has none.
  assert.doesNotMatch(html, /<script(?![^>]*\bsrc=)[^>]*>/i, 'inline script');
  assert.doesNotMatch(html, /\son[a-z]+\s*=/i, 'inline event handler');
  assert.doesNotMatch(html, /\sstyle\s*=/i, 'style attribute');

  const assets = [...html.matchAll(/<(?:script|link)\b[^>]*\b(?:src|href)="([^"]+)"/g)].map((match) => match[1]);
  assert.deepEqual(assets.sort(), ['console.css', 'console.js', 'favicon.svg']);
  const types = { 'console.css': /^text\/css/, 'console.js': /^(text|application)\/javascript/, 'favicon.svg': /^image\/svg\+xml/ };
  for (const asset of assets) {
    const response = await fetch(new URL(asset, page.url));
    assert.equal(response.status, 200, asset);
    assert.match(response.headers.get('content-type'), types[asset], asset);
    assert.ok((await response.text()).length > 100, asset);
  }
});

test('without a built console, /console says how to build it', async () => {
  for (const path of ['/console', '/console/', '/console/console.js']) {
    const response = await fetch(`${withoutConsole.baseUrl}${path}`, { redirect: 'manual' });
    assert.equal(response.status, 503, path);
    assert.deepEqual(await response.json(), { message: 'The console is not built: run npm run build in service/' });
  }
});
