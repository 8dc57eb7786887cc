// The official JavaScript client, measured: node client.mjs URL roundtrip|connect|pushes|idle, with
// the options and the output of client.cpp.
import { readFileSync } from 'node:fs';
import { setTimeout as pause } from 'node:timers/promises';
import { parseArgs } from 'node:util';
import { Manager } from 'socket.io-client';

const option = { type: 'string' };
const { positionals, values } = parseArgs({
  allowPositionals: true,
  options: { requests: option, window: option, times: option, count: option, seconds: option },
});
const [url, mode] = positionals;

function fail(what) {
  console.error(what);
  process.exit(1);
}

setTimeout(() => fail('not done within two minutes'), 120_000).unref();

function number(name) {
  const value = Number(values[name]);
  return value > 0 ? value : fail(`missing: --${name} NUMBER`);
}

const residentKib = () => process.memoryUsage.rss() / 1024;

/** What has passed since it was made: time, and CPU time of the process. */
function stopwatch() {
  const begin = performance.now();
  const cpu = process.cpuUsage();
  return {
    microseconds: () => (performance.now() - begin) * 1000,
    cpuMicroseconds() {
      const { user, system } = process.cpuUsage(cpu);
      return user + system;
    },
  };
}

/** Times things that happen again and again, after a warm-up of a tenth as many. */
class Meter {
  #times = [];
  #count;
  #warmUpLeft;
  #stopwatch;

  constructor(count) {
    this.#count = count;
    this.#warmUpLeft = Math.floor(count / 10) + 1;
  }

  /** Notes that one has ended; true when all have. */
  add(begin) {
    if (this.#warmUpLeft > 0) {
      if (--this.#warmUpLeft === 0) this.#stopwatch = stopwatch();
      return false;
    }
    this.#times.push(performance.now() - begin);
    if (this.#times.length < this.#count) return false;
    const microseconds = this.#stopwatch.microseconds();
    this.cpu_us = this.#stopwatch.cpuMicroseconds() / this.#count;
    this.rate = (this.#count / microseconds) * 1e6;
    this.#times.sort((a, b) => a - b);
    this.median_us = this.#percentileUs(0.5);
    this.p99_us = this.#percentileUs(0.99);
    return true;
  }

  #percentileUs(part) {
    return this.#times[Math.floor(part * (this.#count - 1))] * 1000;
  }
}

function connect(deviceid = 'bench') {
  const manager = new Manager(url, {
    transports: ['websocket'],
    reconnection: false,
    forceNew: true,
    query: { session: 'token-1001', deviceid },
  });
  manager.on('error', (error) => fail(`cannot connect: ${error.message}`));
  const client = manager.socket('/data');
  client.on('connect_error', (error) => fail(`cannot connect: ${error.message}`));
  client.on('disconnect', (reason) => {
    if (reason !== 'io client disconnect') fail(`connection lost: ${reason}`);
  });
  return client;
}

const sayConnected = () => console.log('connected');
const once = (client, event) => new Promise((resolve) => client.once(event, resolve));

const modes = {
  async roundtrip() {
    const meter = new Meter(number('requests'));
    const window = number('window');
    const payload = JSON.parse(readFileSync(new URL('data/request.json', import.meta.url)));
    const client = connect();
    await once(client, 'connect');
    sayConnected();
    await new Promise((resolve) => {
      const send = () => {
        const begin = performance.now();
        client.emit('create_message', payload, (answer) => {
          if (answer.result !== 0) fail('no answer');
          meter.add(begin) ? resolve() : send();
        });
      };
      for (let i = 0; i < window; ++i) send();
    });
    const { median_us, p99_us, rate, cpu_us } = meter;
    return { median_us, p99_us, rate, cpu_us, rss_kib: residentKib() };
  },

  async connect() {
    const meter = new Meter(number('times'));
    for (let done = false, first = true; !done; first = false) {
      const begin = performance.now();
      const client = connect();
      await once(client, 'connect');
      if (first) sayConnected();
      done = meter.add(begin);
      client.disconnect();
    }
    const { median_us, p99_us, cpu_us } = meter;
    return { median_us, p99_us, cpu_us };
  },

  async pushes() {
    const count = number('count');
    const client = connect(`flood-${count}`);
    let received = 0;
    const all = new Promise((resolve) =>
      client.on('message', () => {
        if (++received === count) resolve();
      }),
    );
    await once(client, 'connect');
    const watch = stopwatch();
    sayConnected();
    await all;
    return {
      rate: (count / watch.microseconds()) * 1e6,
      cpu_us: watch.cpuMicroseconds() / count,
      rss_kib: residentKib(),
    };
  },

  async idle() {
    await once(connect(), 'connect');
    sayConnected();
    await pause(1000);
    const watch = stopwatch();
    await pause(number('seconds') * 1000);
    return { cpu_us: watch.cpuMicroseconds(), rss_kib: residentKib() };
  },
};

const measure = modes[mode] ?? fail(`there is no mode ${mode}`);
console.log(JSON.stringify(await measure()));
process.exit();
