import { randomBytes } from 'node:crypto';
import { rm, writeFile } from 'node:fs/promises';
import { hashPassword } from './passwords.js';

export const DEMO_AGENT_NAME = 'demo';

// For the demo and the tests: an agent named "demo" with a fresh random password on every start,
// written to `file` (readable by its owner only) as { "name", "password" }. Nothing else ever
// sees the password, and the previous one stops working.
export async function provideDemoAgent(accounts, file) {
  const password = randomBytes(12).toString('base64url');
  const hash = await hashPassword(password);
  const existing = accounts.findByName(DEMO_AGENT_NAME);
  if (existing) accounts.setPassword(existing.id, hash);
  else accounts.add(DEMO_AGENT_NAME, hash);
  await rm(file, { force: true }); // so the mode below applies
  await writeFile(file, `${JSON.stringify({ name: DEMO_AGENT_NAME, password })}\n`, { mode: 0o600 });
  return { name: DEMO_AGENT_NAME, password };
}
