// Makes tables, charts and docs/performance.md of what was measured.
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { chart, figure, grouped } from './chart.mjs';
import { topics } from './topics.mjs';

const page = 'docs/performance.md';
const images = 'docs/performance';
/** A greater load before the first measurement is somebody else's. */
export const quietLoad = 0.5;

function table(heading, lines) {
  const all = [heading, ...lines];
  const widths = heading.map((_, i) => Math.max(3, ...all.map((cells) => cells[i].length)));
  const line = (cells) => `| ${cells.map((cell, i) => cell.padEnd(widths[i])).join(' | ')} |`;
  const rule = line(widths.map((width) => '-'.repeat(width)));
  return [line(heading), rule, ...lines.map(line)].join('\n');
}

const shown = (value) => (value === undefined ? '–' : figure(value));

const rowsOf = (rows) => ({ id }) => {
  const found = rows.filter((row) => row.table === id);
  if (found.length === 0) throw new Error(`nothing was measured for the table '${id}'`);
  return found;
};

function find(rows, [id, name, candidate, metric]) {
  const row = rows.find(
    (each) => each.table === id && each.case === name && each.candidate === candidate,
  );
  const value = row?.values[metric];
  if (value === undefined) {
    throw new Error(`nothing was measured of ${[id, name, candidate, metric].join('/')}`);
  }
  return value;
}

/** Headings, and what is below them in each row. */
function columnsOf({ metrics, bases, beyond }, rows) {
  const [first, ...others] = Object.entries(metrics)
    .filter(([metric]) => rows.some((row) => metric in row.values))
    .map(([metric, heading]) => ({ heading, metric, cell: ({ values }) => shown(values[metric]) }));
  const { metric } = first;
  const against = (base, compute) => (row) => {
    const other = rows.find((each) => each.case === row.case && each.candidate === base);
    return shown(other && compute(row.values[metric], other.values[metric]));
  };
  const spread = {
    heading: 'min–max',
    cell: (row) => (row.spread[metric] ?? []).map(figure).join('–'),
  };
  return [
    first,
    ...(rows.some((row) => metric in row.spread) ? [spread] : []),
    ...others,
    ...bases.map((base) => ({ heading: `÷ ${base}`, cell: against(base, (a, b) => a / b) })),
    ...(beyond ? [{ heading: `ns beyond ${beyond}`, cell: against(beyond, (a, b) => a - b) }] : []),
  ];
}

function measuredTable(description, rows) {
  const columns = columnsOf(description, rows);
  const groups = grouped(rows);
  const manyCases = groups.size > 1;
  const lines = [...groups].flatMap(([name, group]) =>
    group.map((row, index) => [
      ...(manyCases ? [index === 0 ? name : ''] : []),
      row.candidate,
      ...columns.map(({ cell }) => cell(row)),
    ]),
  );
  return table([...(manyCases ? [''] : []), '', ...columns.map(({ heading }) => heading)], lines);
}

/** A target of every case becomes one for each. */
function casesOf(target, rows) {
  if (target.of[1] !== '*') return [target];
  const names = grouped(rowsOf(rows)({ id: target.of[0] })).keys();
  return [...names].map((name) => {
    const inCase = (key) => target[key] && { [key]: Object.assign([...target[key]], { 1: name }) };
    const what = `${target.what}, ${name}`;
    return { ...target, what, ...inCase('of'), ...inCase('per'), ...inCase('beyond') };
  });
}

function judged(target, rows) {
  const { of, per, beyond } = target;
  const value = find(rows, of) / (per ? find(rows, per) : 1) - (beyond ? find(rows, beyond) : 0);
  const met = 'least' in target ? value >= target.least : value <= target.most;
  return { ...target, value, met };
}

const judgedTargets = (topic, rows) =>
  topic.targets.flatMap((target) => casesOf(target, rows)).map((target) => judged(target, rows));

function targetTable(targets) {
  const lines = targets.map(({ what, least, most, value, met }) => [
    what,
    least === undefined ? `at most ${most}` : `at least ${least}`,
    figure(value),
    met ? 'met' : '**missed**',
  ]);
  return table(['Target', '', 'measured', ''], lines);
}

/** bench/notes.md holds a section for each topic that there is something to say of. */
function readNotes() {
  const sections = readFileSync('bench/notes.md', 'utf8').split(/^## /m).slice(1);
  const notes = new Map(
    sections.map((section) => {
      const [name, ...lines] = section.split('\n');
      return [name.trim(), lines.join('\n').trim()];
    }),
  );
  const unknown = [...notes.keys()].find((name) => !(name in topics));
  if (unknown !== undefined) throw new Error(`bench/notes.md: there is no topic '${unknown}'`);
  return notes;
}

function tablesOf(topic, rows) {
  return topic.tables.map(
    (each) => `**${each.title}**\n\n${measuredTable(each, rowsOf(rows)(each))}`,
  );
}

function section(name, rows, note) {
  const topic = topics[name];
  const targets = judgedTargets(topic, rows);
  const parts = [`## ${topic.title}`, topic.text, ...tablesOf(topic, rows)];
  parts.push(`![${topic.title}](performance/${name}.svg)`);
  if (targets.length > 0) parts.push(targetTable(targets));
  if (note) parts.push(note);
  return parts.join('\n\n');
}

function summary(rows) {
  const targets = Object.values(topics).flatMap((topic) => judgedTargets(topic, rows));
  const met = targets.filter((target) => target.met).length;
  return `${met} of ${targets.length} targets are met`;
}

const warning = (loads) =>
  loads[0] > quietLoad
    ? ['**The machine had something else to do as well: these figures are not to be relied on.**']
    : [];

const loadText = ([before, after]) =>
  `The load of the machine was ${before.toFixed(2)} at the start and ${after.toFixed(2)} at the ` +
  "end, of which up to 2 is the benchmark's own.";

function introduction({ machine, loads, rounds, rows }) {
  const { cpu, cores, compiler, node } = machine;
  return [
    '# Performance',
    'How fast KorivaSDK is beside what could be used instead, and beside what the machine can do ' +
      'at all (the *floors*). `script/bench` builds the programs in `bench/`, measures anew and ' +
      'writes this page; with the names of topics ' +
      `(${Object.keys(topics).join(', ')}) it prints their tables only, and with ` +
      '`--official-cpp PATH` it also measures the official C++ client of Socket.IO, of which there ' +
      'is a checkout at that path.',
    `Measured on ${cpu}, ${cores} cores, with ${compiler} and Node.js ${node}; the other ` +
      `libraries are those of Debian 12. Figures are medians of ${rounds} rounds in which the ` +
      'candidates take turns; *min–max* is how far those of the column before were apart. Ratios ' +
      'within one run are what counts: the figures themselves differ from machine to machine and ' +
      `from day to day. ${loadText(loads)}`,
    ...warning(loads),
    'Over the network all clients get the same warm-up, which is not measured, and the same ' +
      'counts. It is at least as long as the JavaScript client takes until its rate is flat; the ' +
      'start is a table of its own.',
    `${summary(rows)}. Beside those that are missed it says what stands in the way.`,
  ].join('\n\n');
}

export function printReport({ rows, loads }, names) {
  for (const name of names) {
    const targets = judgedTargets(topics[name], rows);
    console.log(`\n${topics[name].title}\n`);
    console.log(tablesOf(topics[name], rows).join('\n\n').replaceAll('**', ''));
    if (targets.length > 0) console.log(`\n${targetTable(targets).replaceAll('**', '')}`);
  }
  console.log(['', loadText(loads), ...warning(loads), ''].join('\n').replaceAll('**', ''));
}

export function writeReport(measured) {
  const { rows } = measured;
  const notes = readNotes();
  const sections = Object.keys(topics).map((name) => section(name, rows, notes.get(name)));
  const charts = Object.entries(topics).map(([name, topic]) => [name, chart(topic, rowsOf(rows))]);
  mkdirSync(images, { recursive: true });
  for (const [name, image] of charts) writeFileSync(`${images}/${name}.svg`, image);
  writeFileSync(page, `${[introduction(measured), ...sections].join('\n\n')}\n`);
  console.log(`${page}: ${summary(rows)}`);
  const missed = (name) => judgedTargets(topics[name], rows).some(({ met }) => !met);
  for (const name of Object.keys(topics).filter((each) => !notes.has(each) && missed(each))) {
    console.log(`bench/notes.md does not say what stands in the way of '${name}'`);
  }
}
