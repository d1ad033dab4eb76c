import { Counter, Gauge, Histogram, Registry, collectDefaultMetrics } from 'prom-client';

// What the service reports at /metrics, in Prometheus' text format: sessions by state, devices
// registered and reachable now, frames and their bytes relayed to agents, the time the service
// takes to hand a frame on, and Node's own figures (event-loop lag, memory, CPU).
// `sockets` is read at scrape time; the relay reports each frame through `frameRelayed`.
export function createMetrics(store) {
  const registry = new Registry();
  collectDefaultMetrics({ register: registry });
  let reachableDevices = () => 0;

  new Gauge({
    name: 'halvora_sessions',
    help: 'Sessions the service knows, by state.',
    labelNames: ['state'],
    registers: [registry],
    collect() {
      const counts = { pending: 0, active: 0, ended: 0 };
      for (const session of store.listSessions()) counts[session.state] += 1;
      for (const [state, count] of Object.entries(counts)) this.set({ state }, count);
    },
  });
  new Gauge({
    name: 'halvora_devices_registered',
    help: 'Devices registered with the service.',
    registers: [registry],
    collect() {
      this.set(store.listDevices().length);
    },
  });
  new Gauge({
    name: 'halvora_devices_online',
    help: 'Devices with their notification connection open now.',
    registers: [registry],
    collect() {
      this.set(reachableDevices());
    },
  });
  const frames = new Counter({ name: 'halvora_frames_relayed_total', help: 'Frames relayed to agents.', registers: [registry] });
  const bytes = new Counter({
    name: 'halvora_frame_bytes_relayed_total',
    help: 'Image bytes of the frames relayed to agents.',
    registers: [registry],
  });
  const relay = new Histogram({
    name: 'halvora_frame_relay_seconds',
    help: "From a frame's arrival at the service to its hand-over to the agents' connections.",
    buckets: [0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25],
    registers: [registry],
  });

  return {
    contentType: registry.contentType,
    text: () => registry.metrics(),
    // The socket server tells how many devices are reachable; it is made after the metrics.
    countReachableDevices(count) {
      reachableDevices = count;
    },
    frameRelayed(imageBytes, seconds) {
      frames.inc();
      bytes.inc(imageBytes);
      relay.observe(seconds);
    },
  };
}
