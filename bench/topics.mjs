// What is reported: topics, their tables and their targets. A row of a table is a case and a
// candidate with its values; `metrics` maps the key of a value to the heading of its column. The
// first metric is the one that is drawn, and that is set beside the bases.
const run = 'KorivaSDK run()';
const attached = 'KorivaSDK attached';
const javascript = 'JavaScript client';
const officialCpp = 'official C++ client';
const beast = 'Beast floor';
export const clients = { run, attached, javascript, officialCpp, beast };

/** For all clients alike; what is measured of the JavaScript client has long been compiled. */
export const counts = {
  'one at a time': { warmUp: 8_000, measured: 40_000 },
  '64 in flight': { warmUp: 32_000, measured: 160_000 },
  connect: { warmUp: 3_000, measured: 3_000 },
  many: { warmUp: 2_000, measured: 20_000 },
  pushes: { warmUp: 80_000, measured: 400_000 },
};

function counted(table) {
  const { warmUp, measured } = counts[table];
  return `${measured.toLocaleString('en')} (after ${warmUp.toLocaleString('en')} to warm up)`;
}

const nlohmann = 'nlohmann-json, DOM by key';
const domFloor = 'DOM floor';
const copy = 'copy of the records';

const decoding = { ns: 'ns each', mb_s: 'MB/s', allocations: 'allocations each' };
const pages = (count) => `page of ${count} messages`;
const decode = (candidate, page, metric = 'ns') => ['decode', page, candidate, metric];
const alone = (candidate, metric = 'cpu_us') => ['one at a time', 'C++ server', candidate, metric];
const many = (candidate, metric = 'cpu_us') => ['64 in flight', 'C++ server', candidate, metric];
const cpu = { cpu_us: 'CPU per request, µs' };
const others = { p99_us: 'p99, µs', rss_mib: 'resident, MiB' };

// A target holds for `of`, for `of` divided by `per`, or for what `of` is `beyond` another; a case
// `*` makes a target of each case.
export const topics = {
  decode: {
    title: 'Decoding',
    text:
      'The acknowledgement of "list_message" with messages of about 700 bytes each, a list of ' +
      'conversations with their last messages, and a single push: from bytes to the same ' +
      'records. The other libraries parse into a document (DOM), of which the members are asked ' +
      'for by key; they have other ways too, without a document, which are not measured. The copy ' +
      'of the records copies those that were decoded: nothing that yields them can be faster than ' +
      "making them. The DOM floor is a parse by simdjson's DOM and a copy of every string, which " +
      'makes no records; it bounds only what goes by such a document.',
    tables: [
      {
        id: 'decode',
        title: 'Time per message or conversation',
        metrics: decoding,
        bases: [nlohmann, domFloor, copy],
        chart: 'bars',
      },
      {
        id: 'decode variants',
        title: 'Time per message, page of 1,000 written in other ways',
        metrics: decoding,
        bases: [nlohmann, domFloor, copy],
      },
    ],
    targets: [
      ...[
        { name: pages('1,000'), nlohmann: 10, floor: 1.1 },
        { name: pages('50'), nlohmann: 8.5, floor: 1.4 },
        { name: 'single push', nlohmann: 13, floor: 0.85 },
      ].flatMap(({ name, nlohmann: least, floor: most }) => {
        const own = decode('KorivaSDK', name);
        return [
          {
            what: `nlohmann-json ÷ KorivaSDK, ${name}`,
            least,
            of: decode(nlohmann, name),
            per: own,
          },
          { what: `KorivaSDK ÷ DOM floor, ${name}`, most, of: own, per: decode(domFloor, name) },
        ];
      }),
      {
        what: 'MB/s, page of 1,000 in ASCII ÷ in Cyrillic',
        most: 1.3,
        of: decode('KorivaSDK', pages('1,000'), 'mb_s'),
        per: ['decode variants', 'Cyrillic', 'KorivaSDK', 'mb_s'],
      },
      {
        what: 'allocations per message, page of 1,000',
        most: 12,
        of: decode('KorivaSDK', pages('1,000'), 'allocations'),
      },
      {
        what: 'linear growth: time per message, page of 20,000 ÷ page of 1,000',
        most: 1.3,
        of: decode('KorivaSDK', pages('20,000')),
        per: decode('KorivaSDK', pages('1,000')),
      },
    ],
  },
  encode: {
    title: 'Encoding',
    text:
      'From the call of `sendMessage` to the bytes of its frame, beside the same frame made with ' +
      'nlohmann-json and by hand, with appends to a text.',
    tables: [
      {
        id: 'encode',
        title: 'Time per frame',
        metrics: { ns: 'ns per frame', mb_s: 'MB/s', allocations: 'allocations per frame' },
        bases: ['by hand'],
        chart: 'bars',
      },
    ],
    targets: [
      {
        what: 'KorivaSDK ÷ by hand',
        most: 1.3,
        of: ['encode', '*', 'KorivaSDK', 'ns'],
        per: ['encode', '*', 'by hand', 'ns'],
      },
    ],
  },
  'round-trip': {
    title: 'Round trip',
    text:
      'A request of about 300 bytes and its acknowledgement over loopback, through a minimal C++ ' +
      'server and the official Node server. Each client is a process of its own on one core, the ' +
      'server on another. `KorivaSDK run()` works on the calling thread, `KorivaSDK attached` has ' +
      'a network thread; the floor is a bare Beast WebSocket that exchanges the same frames with ' +
      `neither Socket.IO nor JSON. Each process sends ${counted('one at a time')} one at a time, ` +
      `and ${counted('64 in flight')} with 64 in flight. What they are compared by is the ` +
      'processor time of the client, as times over loopback depend on which of the two processes ' +
      'goes to sleep.',
    tables: [
      {
        id: 'one at a time',
        title: 'One request at a time',
        metrics: { ...cpu, median_us: 'median, µs', ...others },
        bases: [beast],
        chart: 'bars',
      },
      {
        id: '64 in flight',
        title: '64 requests in flight',
        metrics: { ...cpu, rate: 'requests/s', ...others },
        bases: [beast],
        chart: 'bars',
      },
    ],
    targets: [
      { what: 'CPU, one at a time, run() ÷ floor', most: 1.1, of: alone(run), per: alone(beast) },
      {
        what: 'CPU, one at a time, attached ÷ run()',
        most: 1.5,
        of: alone(attached),
        per: alone(run),
      },
      { what: 'CPU, 64 in flight, run() ÷ floor', most: 1, of: many(run), per: many(beast) },
      ...[run, attached].map((candidate) => ({
        what: `requests/s, 64 in flight, ${candidate.split(' ')[1]} ÷ floor`,
        least: 1,
        of: many(candidate, 'rate'),
        per: many(beast, 'rate'),
      })),
      {
        what: 'CPU, one at a time, run() ÷ JavaScript',
        most: 0.25,
        of: alone(run),
        per: alone(javascript),
      },
      {
        what: 'CPU, 64 in flight, run() ÷ JavaScript',
        most: 0.25,
        of: many(run),
        per: many(javascript),
      },
      {
        what: 'resident memory, run() ÷ JavaScript',
        most: 0.125,
        of: alone(run, 'rss_mib'),
        per: alone(javascript, 'rss_mib'),
      },
    ],
  },
  receive: {
    title: 'Receive path',
    text:
      'From the text of a frame to the call of the delegate, beside decoding the record from the ' +
      'same bytes. What lies between them is the same for every push; 188 ns are a quarter of what ' +
      'decoding a text message took when that became the limit.',
    tables: [
      {
        id: 'receive',
        title: 'Time per push',
        metrics: { ns: 'ns per push', mb_s: 'MB/s' },
        bases: [],
        beyond: 'bare decode',
        chart: 'bars',
      },
    ],
    targets: [
      ...['text message', 'image message', 'typing'].map((push) => ({
        what: `delegate call beyond bare decode, ns, ${push}`,
        most: push === 'typing' ? 130 : 188,
        of: ['receive', push, 'delegate call', 'ns'],
        beyond: ['receive', push, 'bare decode', 'ns'],
      })),
    ],
  },
  connect: {
    title: 'Connecting and waiting',
    text:
      'Connecting to the C++ server over loopback, again and again in one process (`login` to ' +
      `\`didConnect\`), ${counted('connect')}, and from the start of the process, which is where a ` +
      'client that is not compiled yet shows; then what a connection costs while ' +
      'nothing happens, in memory also beyond what an empty C++ program takes, and many clients ' +
      'in one process. The last two are measured once, all that wait at the same time.',
    tables: [
      {
        id: 'connect',
        title: 'In a running process',
        metrics: { median_us: 'median, µs', p99_us: 'p99, µs', cpu_us: 'CPU each, µs' },
        bases: [beast, javascript],
        chart: 'bars',
      },
      {
        id: 'cold start',
        title: 'From the start of the process to connected',
        metrics: { ms: 'median, ms' },
        bases: [beast, javascript],
        chart: 'bars',
      },
      {
        id: 'idle',
        title: 'One connected client that waits',
        metrics: {
          beyond_mib: 'resident beyond empty, MiB',
          rss_mib: 'resident, MiB',
          cpu_ms: 'CPU per minute, ms',
        },
        bases: [javascript],
        chart: 'bars',
      },
      {
        id: 'many',
        title: 'Many clients in one process',
        metrics: {
          rss_kib: 'resident per client, KiB',
          connect_us: 'connecting, µs per client',
          rate: 'requests/s of all',
          cpu_us: 'CPU per request, µs',
        },
        bases: [],
      },
    ],
    targets: [
      {
        what: 'connecting, run() ÷ JavaScript',
        most: 0.2,
        of: ['connect', 'C++ server', run, 'median_us'],
        per: ['connect', 'C++ server', javascript, 'median_us'],
      },
      {
        what: 'resident memory of an idle client beyond an empty program, MiB',
        most: 6,
        of: ['idle', 'C++ server', run, 'beyond_mib'],
      },
      {
        what: 'CPU of an idle client, ms a minute',
        most: 10,
        of: ['idle', 'C++ server', run, 'cpu_ms'],
      },
    ],
  },
  growth: {
    title: 'Growth',
    text:
      'What a request costs with as many in flight, and a push with as many delegates that hear ' +
      'of it; and pushes of about 700 bytes, as fast as the C++ server can send them, ' +
      `${counted('pushes')}.`,
    tables: [
      {
        id: 'growth',
        title: 'Time per request or push, by the number of requests or delegates',
        metrics: { ns: 'ns' },
        bases: [],
        chart: 'lines',
      },
      {
        id: 'pushes',
        title: 'Pushes taken in',
        metrics: { rate: 'pushes/s', cpu_us: 'CPU per push, µs', rss_mib: 'resident, MiB' },
        bases: [beast],
        chart: 'bars',
        better: 'more',
      },
    ],
    targets: [
      {
        what: 'pushes/s, run() ÷ floor',
        least: 0.75,
        of: ['pushes', 'C++ server', run, 'rate'],
        per: ['pushes', 'C++ server', beast, 'rate'],
      },
    ],
  },
};
