// A TCP proxy between the device and the service that the fault tests steer: it forwards bytes
// both ways and, on command, cuts or resets the connections, stalls or delays one direction,
// accepts connections and never answers them, or answers them with garbage.
//   const proxy = await faultProxy(servicePort);
//   proxy.url, proxy.connections, proxy.cut('up' | 'down' | 'both'), proxy.reset(),
//   proxy.stall('up' | 'down', on), proxy.delay('up' | 'down', ms), proxy.setMode(mode), proxy.close()
// 'up' is from the device to the service.
import net from 'node:net';

export async function faultProxy(targetPort, targetHost = '127.0.0.1') {
  const pairs = new Set();
  const held = new Set(); // connections accepted in 'silent' mode
  const stalled = { up: false, down: false };
  const delays = { up: 0, down: 0 };
  let mode = 'forward'; // 'forward' | 'silent' | 'garbage'
  let connections = 0;

  function forward(from, to, direction) {
    from.on('data', (chunk) => {
      const write = () => to.writable && to.write(chunk);
      if (delays[direction] > 0) setTimeout(write, delays[direction]);
      else write();
    });
    if (stalled[direction]) from.pause();
  }

  const server = net.createServer((device) => {
    connections += 1;
    device.on('error', () => {});
    if (mode === 'silent') {
      held.add(device);
      device.on('close', () => held.delete(device));
      return;
    }
    if (mode === 'garbage') {
      device.end('\u0000\u00ffHTTP/9.9 ???\r\nContent-Length: -4\r\n\r\n{"type":');
      return;
    }
    const service = net.connect(targetPort, targetHost);
    service.on('error', () => {});
    const pair = { device, service };
    pairs.add(pair);
    forward(device, service, 'up');
    forward(service, device, 'down');
    const close = () => {
      pairs.delete(pair);
      device.destroy();
      service.destroy();
    };
    device.on('close', close);
    service.on('close', close);
    device.on('end', () => service.end());
    service.on('end', () => device.end());
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));

  const each = (fn) => [...pairs].forEach(fn);
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    get connections() {
      return connections;
    },
    // Ends the connections in one direction (the other side reads end of stream) or both.
    cut(direction = 'both') {
      each(({ device, service }) => {
        if (direction !== 'down') service.end();
        if (direction !== 'up') device.end();
        if (direction === 'both') {
          device.destroy();
          service.destroy();
        }
      });
    },
    reset() {
      each(({ device, service }) => {
        device.resetAndDestroy();
        service.resetAndDestroy();
      });
    },
    stall(direction, on) {
      stalled[direction] = on;
      each(({ device, service }) => {
        const from = direction === 'up' ? device : service;
        if (on) from.pause();
        else from.resume();
      });
    },
    delay(direction, ms) {
      delays[direction] = ms;
    },
    setMode(next) {
      mode = next;
      if (next !== 'silent') {
        for (const socket of held) socket.destroy();
        held.clear();
      }
    },
    close() {
      this.setMode('forward');
      this.cut('both');
      server.close();
    },
  };
}
