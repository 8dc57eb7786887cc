// The official JavaScript client, measured: node client.mjs URL roundtrip|connect|pushes|idle, with
// the options and the output of client.cpp.
import { readFileSync } from 'node:fs';
import { setTimeout as pause } from 'node:timers/promises';
import { parseArgs } from 'node:util';
import { Manager } from 'socket.io-client';

const option = { type: 'string' };
const { positionals, values } = parseArgs({
  allowPositionals: true,
  options: { count: option, 'warm-up': option, window: option, seconds: option },
});
const [url, mode] = positionals;

function fail(what) {
  console.error(what);
  process.exit(1);
}

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

/** Counts what happens again and again: those of the warm-up, then those that are measured. */
class Counter {
  count = number('count');
  warmUp = number('warm-up');
  total = this.warmUp + this.count;
  ended = 0;

  /** Notes that one has ended; true when all have. */
  add() {
    if (this.ended === this.total) return true;
    if (++this.ended === this.warmUp) this.stopwatch = stopwatch();
    if (this.ended < this.total) return false;
    this.rate = (this.count / this.stopwatch.microseconds()) * 1e6;
    this.cpu_us = this.stopwatch.cpuMicroseconds() / this.count;
    return true;
  }

  figures() {
    return { rate: this.rate, cpu_us: this.cpu_us, rss_kib: residentKib() };
  }
}

/** Also takes the time of each. */
class Meter extends Counter {
  #times = new Float64Array(this.count);

  add(begin) {
    const index = this.ended - this.warmUp;
    if (index >= 0) this.#times[index] = performance.now() - begin;
    return super.add();
  }

  figures() {
    this.#times.sort();
    const percentileUs = (part) => this.#times[Math.floor(part * (this.count - 1))] * 1000;
    return { median_us: percentileUs(0.5), p99_us: percentileUs(0.99), ...super.figures() };
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
    const meter = new Meter();
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
    return meter.figures();
  },

  async connect() {
    const meter = new Meter();
    for (let done = false, first = true; !done; first = false) {
      const begin = performance.now();
      const client = connect();
      await once(client, 'connect');
      if (first) sayConnected();
      done = meter.add(begin);
      client.disconnect();
    }
    return meter.figures();
  },

  async pushes() {
    const counter = new Counter();
    const client = connect(`flood-${counter.total}`);
    const all = new Promise((resolve) =>
      client.on('message', () => {
        if (counter.add()) resolve();
      }),
    );
    await once(client, 'connect');
    sayConnected();
    await all;
    return counter.figures();
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
