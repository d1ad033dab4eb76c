#!/usr/bin/env node
import { provideDemoAgent } from './agents/demo-agent.js';
import { createService } from './app.js';
import { parseCliOptions, USAGE } from './cli-options.js';
import { writePortFile } from './port-file.js';

const SHUTDOWN_DEADLINE_MS = 5000;

function logLine(line) {
  process.stderr.write(`${new Date().toISOString()} ${line}\n`);
}

async function main() {
  let options;
  try {
    options = parseCliOptions(process.argv.slice(2));
  } catch (err) {
    process.stderr.write(`${err.message}\n${USAGE}\n`);
    return 2;
  }
  if (options.help) {
    process.stdout.write(`${USAGE}\n`);
    return 0;
  }

  let service;
  try {
    service = createService({
      dataDir: options.dataDir,
      redisUrl: options.redisUrl,
      nextRegistration: options.nextRegistration,
      publicUrl: options.publicUrl,
      allowRemote: options.hostGiven,
      agentRateLimit: options.agentRateLimit,
      deviceRateLimit: options.deviceRateLimit,
      pendingExpiryMs: options.pendingExpiryMs,
      endedRetentionMs: options.endedRetentionMs,
      deviceRetentionMs: options.deviceRetentionMs,
      trustProxy: options.trustProxy,
      log: logLine,
      logRequests: !options.quiet,
    });
  } catch (err) {
    process.stderr.write(`${err.message}\n`);
    return 1;
  }

  let baseUrl;
  try {
    baseUrl = await service.listen(options.port, options.host);
  } catch (err) {
    process.stderr.write(`Cannot listen on ${options.host}:${options.port}: ${err.message}\n`);
    await service.close().catch(() => {});
    return 1;
  }

  let stopping = false;
  const stop = (signal) => {
    if (stopping) return;
    stopping = true;
    if (!options.quiet) logLine(`${signal} received, shutting down`);
    setTimeout(() => process.exit(1), SHUTDOWN_DEADLINE_MS).unref();
    service.close().then(
      () => process.exit(0),
      (err) => {
        logLine(`shutdown failed: ${err.message}`);
        process.exit(1);
      },
    );
  };
  process.on('SIGTERM', () => stop('SIGTERM'));
  process.on('SIGINT', () => stop('SIGINT'));

  if (options.demoAgentFile) {
    try {
      await provideDemoAgent(service.store.agents, options.demoAgentFile);
    } catch (err) {
      process.stderr.write(`Cannot provide the demo agent in ${options.demoAgentFile}: ${err.message}\n`);
      await service.close();
      return 1;
    }
  }

  if (options.portFile) {
    try {
      await writePortFile(options.portFile, baseUrl);
    } catch (err) {
      process.stderr.write(`Cannot write port file ${options.portFile}: ${err.message}\n`);
      await service.close();
      return 1;
    }
  }
  process.stdout.write(`Halvora reference service listening on ${baseUrl}\n`);
  return undefined;
}

main().then(
  (code) => {
    if (code !== undefined) process.exitCode = code;
  },
  (err) => {
    process.stderr.write(`${err.stack ?? err}\n`);
    process.exitCode = 1;
  },
);
