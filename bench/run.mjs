// Runs the benchmark programs and hands what they say to the report: script/bench.
import { execFileSync, spawn } from 'node:child_process';
import { mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import os from 'node:os';
import { join, resolve } from 'node:path';
import { performance } from 'node:perf_hooks';
import { createInterface } from 'node:readline';
import { setTimeout as pause } from 'node:timers/promises';
import { parseArgs } from 'node:util';
import { printReport, quietLoad, writeReport } from './report.mjs';
import { clients, counts, topics } from './topics.mjs';

const results = 'build/bench/results';
const wholeRun = join(results, 'whole-run.json');
const idleSeconds = 30;
const clientLimit = 600; // seconds, on slow machines too
const running = new Set();
let options;
let serverCore = null;

// Processes

/** The limit is in seconds; 0 is none. */
function launch(command, limit) {
  const [file, ...args] = command;
  const child = spawn(file, args, { stdio: ['ignore', 'pipe', 'pipe'], timeout: limit * 1000 });
  const begun = performance.now();
  const program = { child, lines: [], errors: '', connectedMs: null };
  running.add(child);
  child.stderr.on('data', (data) => (program.errors += data));
  createInterface({ input: child.stdout }).on('line', (line) => {
    if (line === 'connected') program.connectedMs ??= performance.now() - begun;
    program.lines.push(line);
    child.emit('line', line);
  });
  program.ended = new Promise((resolve, reject) => {
    const refuse = (why) => reject(new Error(`${command.join(' ')}: ${why}\n${program.errors}`));
    child.on('error', (error) => refuse(error.message));
    child.on('close', (code, signal) => {
      running.delete(child);
      if (code === 0) resolve(program);
      else if (signal === 'SIGTERM') refuse(`not done within ${limit} s`);
      else refuse(signal ? `ended by ${signal}` : `exit status ${code}`);
    });
  });
  program.ended.catch(() => {}); // whoever waits for it hears of it
  return program;
}

function parsed(text, command) {
  try {
    return JSON.parse(text);
  } catch {
    throw new Error(`${command.join(' ')}: this is no JSON: ${text.slice(0, 200)}`);
  }
}

const native = (name) => join(options.programs, name);

const commands = {
  [clients.run]: () => [native('client')],
  [clients.attached]: () => [native('client'), '--attached'],
  [clients.javascript]: () => [process.execPath, 'bench/client.mjs'],
  [clients.officialCpp]: () => ['build/bench/official_cpp/official_client'],
  [clients.beast]: () => [native('floor')],
};

const serverCommands = {
  'C++ server': () => [native('echo_server')],
  'Node server': () => [process.execPath, 'bench/echo_server.mjs'],
};

async function withServer(name, args, action) {
  const pinned = serverCore === null ? [] : ['taskset', '--cpu-list', serverCore];
  const command = [...pinned, ...serverCommands[name](), ...args];
  const server = launch(command, 0);
  const listening = new Promise((resolve) => {
    server.child.on('line', (line) => resolve(/^listening on (http:\S+)$/.exec(line)?.[1]));
  });
  try {
    const url = await Promise.race([listening, server.ended, pause(15000, null, { ref: false })]);
    if (typeof url !== 'string') throw new Error(`${command.join(' ')}: not listening`);
    await action(url);
  } finally {
    server.child.kill();
    await server.ended.catch(() => {});
  }
}

// Measurements: each gives samples, of which the report shows the medians

const sample = (table, name, candidate, values) => ({ table, case: name, candidate, values });

const nanoseconds = { ns: 1, us: 1e3, ms: 1e6, s: 1e9 };

function benchmarkSample(result, command) {
  if (result.error_occurred) throw new Error(`${result.run_name}: ${result.error_message}`);
  const [table, name, candidate] = result.run_name.split('/');
  const time = result.cpu_time * nanoseconds[result.time_unit];
  const values = { ns: time / result.items };
  if (result.bytes > 0) values.mb_s = (result.bytes / time) * 1000;
  if ('allocations' in result) values.allocations = result.allocations;
  checkFigures(values, Object.keys(values), command);
  return sample(table, name, candidate, values);
}

async function inProcess(program, topic) {
  progress(`${topic}: ${program}`);
  const file = join(results, `${program}.json`); // as the library writes to standard output
  rmSync(file, { force: true });
  const command = [
    native(program),
    `--benchmark_filter=^${topic}`,
    '--benchmark_enable_random_interleaving=true',
    `--benchmark_repetitions=${options.rounds}`,
    '--benchmark_min_time=0.2',
    `--benchmark_out=${file}`,
  ];
  await launch(command, 300 * options.rounds).ended;
  const text = readFileSync(file, 'utf8').replace(/: (NaN|-?Infinity)\b/g, ': null');
  const { benchmarks = [] } = parsed(text, command);
  const runs = benchmarks
    .filter((result) => result.run_type === 'iteration')
    .sort((a, b) => a.family_index - b.family_index); // they come in the order they were run in
  if (runs.length === 0) throw new Error(`${command.join(' ')} has measured nothing`);
  return runs.map((result) => benchmarkSample(result, command));
}

function checkFigures(values, keys, command) {
  const wrong = keys.filter((key) => !(Number.isFinite(values[key]) && values[key] >= 0));
  if (wrong.length === 0) return values;
  const said = JSON.stringify(values);
  throw new Error(`${command.join(' ')}: no figure for ${wrong.join(', ')}: ${said}`);
}

const figures = {
  roundtrip: ['median_us', 'p99_us', 'rate', 'cpu_us', 'rss_kib'],
  connect: ['median_us', 'p99_us', 'rate', 'cpu_us', 'rss_kib'],
  pushes: ['rate', 'cpu_us', 'rss_kib'],
  idle: ['cpu_us', 'rss_kib'],
  many: ['rss_kib', 'connect_us', 'rate', 'cpu_us'],
};

async function client(candidate, url, mode, ...args) {
  const command = [...commands[candidate](), url, mode, ...args.map(String)];
  const { lines, connectedMs } = await launch(command, clientLimit).ended;
  const values = { ...parsed(lines.at(-1) ?? '', command), ms: connectedMs };
  checkFigures(values, [...figures[mode], 'ms'], command);
  return 'rss_kib' in values ? { ...values, rss_mib: values.rss_kib / 1024 } : values;
}

const measuredClients = () =>
  Object.values(clients).filter((each) => each !== clients.officialCpp || options['official-cpp']);

const counted = (table) => ['--warm-up', counts[table].warmUp, '--count', counts[table].measured];

/** Every candidate once in each round, every other round in reverse order. */
async function alternate(table, name, url, mode, ...args) {
  progress(`${table}: ${name}`);
  const samples = [];
  const candidates = measuredClients();
  for (let round = 0; round < options.rounds; ++round) {
    const order = round % 2 === 0 ? candidates : [...candidates].reverse();
    for (const candidate of order) {
      const values = await client(candidate, url, mode, ...counted(table), ...args);
      samples.push(sample(table, name, candidate, values));
    }
  }
  return samples;
}

async function roundTrips() {
  const samples = [];
  for (const server of Object.keys(serverCommands)) {
    for (const compression of [false, true]) {
      const name = compression ? `${server}, compression` : server;
      await withServer(server, compression ? ['--compression'] : [], async (url) => {
        const exchange = (table, window) =>
          alternate(table, name, url, 'roundtrip', '--window', window);
        samples.push(...(await exchange('one at a time', 1)));
        samples.push(...(await exchange('64 in flight', 64)));
      });
    }
  }
  return samples;
}

/** The resident memory of a program that does nothing, in KiB. */
async function emptyProgram() {
  const command = [native('empty')];
  const { lines } = await launch(command, 10).ended;
  return checkFigures(parsed(lines.at(-1) ?? '', command), ['rss_kib'], command).rss_kib;
}

async function idle(url) {
  progress(`idle: ${idleSeconds} s`);
  const empty = await emptyProgram();
  const waiting = measuredClients().map(async (candidate) => {
    const values = await client(candidate, url, 'idle', '--seconds', idleSeconds);
    const beyond_mib = (values.rss_kib - empty) / 1024;
    const cpu_ms = ((values.cpu_us / 1000) * 60) / idleSeconds;
    return sample('idle', 'C++ server', candidate, { ...values, beyond_mib, cpu_ms });
  });
  return Promise.all(waiting);
}

async function connections() {
  const samples = [];
  await withServer('C++ server', [], async (url) => {
    const connected = await alternate('connect', 'C++ server', url, 'connect');
    samples.push(...connected, ...connected.map((other) => ({ ...other, table: 'cold start' })));
    samples.push(...(await idle(url)));
    progress('many clients in one process');
    const values = await client(clients.run, url, 'many', ...counted('many'), '--clients', 1000);
    samples.push(sample('many', '1,000 clients', clients.run, values));
  });
  return samples;
}

async function growth() {
  const samples = await inProcess('receive_bench', 'growth');
  await withServer('C++ server', [], async (url) => {
    samples.push(...(await alternate('pushes', 'C++ server', url, 'pushes')));
  });
  return samples;
}

const measurements = {
  decode: () => inProcess('decode_bench', 'decode'),
  encode: () => inProcess('encode_bench', 'encode'),
  'round-trip': roundTrips,
  receive: () => inProcess('receive_bench', 'receive'),
  connect: connections,
  growth,
};

// From samples to rows

function median(numbers) {
  const sorted = [...numbers].sort((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

/** The medians of what was measured more than once, and the least and the greatest beside them. */
function toRows(samples) {
  const rows = new Map();
  for (const each of samples) {
    const key = JSON.stringify([each.table, each.case, each.candidate]);
    if (!rows.has(key)) rows.set(key, { ...each, values: {}, spread: {} });
    const { values } = rows.get(key);
    for (const [metric, value] of Object.entries(each.values)) (values[metric] ??= []).push(value);
  }
  for (const { values, spread } of rows.values()) {
    for (const [metric, all] of Object.entries(values)) {
      values[metric] = median(all);
      if (all.length > 1) spread[metric] = [Math.min(...all), Math.max(...all)];
    }
  }
  return [...rows.values()];
}

// The machine

function allowedCores() {
  const [, list] = /^Cpus_allowed_list:\s*(\S+)/m.exec(readFileSync('/proc/self/status', 'utf8'));
  return list.split(',').flatMap((range) => {
    const [first, last = first] = range.split('-').map(Number);
    return Array.from({ length: last - first + 1 }, (_, i) => String(first + i));
  });
}

/** This process and what it starts are kept on one core, servers on another. */
function pinToCores() {
  const cores = allowedCores();
  if (cores.length < 2) return cores.length;
  execFileSync('taskset', ['--cpu-list', '--pid', cores[0], String(process.pid)]);
  serverCore = cores[1];
  return cores.length;
}

const load = () => os.loadavg()[0];

/** Until what this machine did before, such as building the benchmarks, has left its load. */
async function waitForQuiet() {
  if (load() > quietLoad) progress(`waiting for the load of ${load().toFixed(2)} to fall`);
  for (let i = 0; i < 24 && load() > quietLoad; ++i) await pause(5000);
}

const machine = (cores) => ({
  cpu: os.cpus()[0].model,
  cores,
  compiler: `g++ ${execFileSync('g++', ['-dumpfullversion'], { encoding: 'utf8' }).trim()}`,
  node: process.version.slice(1),
});

const begun = performance.now();
const progress = (text) => {
  console.log(`${((performance.now() - begun) / 1000).toFixed(0).padStart(5)} s  ${text}`);
};

function readOptions() {
  const { values, positionals } = parseArgs({
    allowPositionals: true,
    options: {
      rounds: { type: 'string', default: '3' },
      programs: { type: 'string', default: 'build/bench/bench' },
      'official-cpp': { type: 'string' },
      report: { type: 'boolean', default: false },
    },
  });
  const unknown = positionals.filter((name) => !(name in topics));
  if (unknown.length > 0) {
    throw new Error(`no topic '${unknown[0]}'; there are ${Object.keys(topics).join(', ')}`);
  }
  if (!/^[1-9]\d*$/.test(values.rounds)) throw new Error('--rounds takes a number');
  return { ...values, rounds: Number(values.rounds), topics: positionals };
}

/** From a checkout that the caller has. */
function buildOfficialCpp(checkout) {
  progress(`building the official C++ client at ${checkout}`);
  const folder = 'build/bench/official_cpp';
  const cmake = (...args) => execFileSync('cmake', args, { stdio: 'inherit' });
  const quiet = ['--fresh', '--log-level=NOTICE'];
  const kind = ['-G', 'Ninja', '-D', 'CMAKE_CXX_COMPILER=g++', '-D', 'CMAKE_BUILD_TYPE=Release'];
  const source = ['-S', 'bench/official_cpp', '-D', `OFFICIAL_CPP=${resolve(checkout)}`];
  try {
    cmake(...quiet, ...kind, ...source, '-B', folder);
    cmake('--build', folder);
  } catch {
    throw new Error(`the official C++ client at ${checkout} cannot be built`);
  }
}

async function measure(names) {
  const cores = pinToCores();
  mkdirSync(results, { recursive: true });
  const samples = [];
  const loads = [load()];
  for (const name of names) samples.push(...(await measurements[name]()));
  loads.push(load());
  return { machine: machine(cores), loads, rounds: options.rounds, rows: toRows(samples) };
}

async function main() {
  options = readOptions();
  if (options.report) return writeReport(JSON.parse(readFileSync(wholeRun)));
  if (options['official-cpp'] !== undefined) buildOfficialCpp(options['official-cpp']);
  if (options.topics.length > 0) return printReport(await measure(options.topics), options.topics);
  await waitForQuiet();
  const measured = await measure(Object.keys(topics));
  writeFileSync(wholeRun, JSON.stringify(measured, null, 1));
  printReport(measured, Object.keys(topics));
  return writeReport(measured);
}

process.on('exit', () => running.forEach((child) => child.kill('SIGKILL')));
process.on('SIGINT', () => process.exit(130));
process.on('SIGTERM', () => process.exit(143));
try {
  await main();
} catch (error) {
  console.error(`bench: ${error.message}`);
  process.exit(1);
}
