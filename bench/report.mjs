// Makes tables, charts and docs/performance.md of what was measured.
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { chart, figure, grouped } from './chart.mjs';
import { topics } from './topics.mjs';

const page = 'docs/performance.md';
const images = 'docs/performance';

function table(heading, lines) {
  const all = [heading, ...lines];
  const widths = heading.map((_, i) => Math.max(3, ...all.map((cells) => cells[i].length)));
  const line = (cells) => `| ${cells.map((cell, i) => cell.padEnd(widths[i])).join(' | ')} |`;
  const rule = line(widths.map((width) => '-'.repeat(width)));
  return [line(heading), rule, ...lines.map(line)].join('\n');
}

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

/** The metric divided by that of the base, in the same case. */
function ratio(row, base, group, metric) {
  const other = group.find((each) => each.candidate === base);
  return other ? figure(row.values[metric] / other.values[metric]) : '–';
}

function measuredTable(description, rows) {
  const measured = ([metric]) => rows.some((row) => metric in row.values);
  const columns = Object.entries(description.metrics).filter(measured);
  const [[first]] = columns;
  const groups = grouped(rows);
  const manyCases = groups.size > 1;
  const lines = [...groups].flatMap(([name, group]) =>
    group.map((row, index) => [
      ...(manyCases ? [index === 0 ? name : ''] : []),
      row.candidate,
      ...columns.map(([metric]) => (metric in row.values ? figure(row.values[metric]) : '–')),
      ...description.bases.map((base) => ratio(row, base, group, first)),
    ]),
  );
  const heading = [
    ...(manyCases ? [''] : []),
    '',
    ...columns.map(([, heading]) => heading),
    ...description.bases.map((base) => `÷ ${base}`),
  ];
  return table(heading, lines);
}

/** A target of every case becomes one for each. */
function casesOf(target, rows) {
  if (target.of[1] !== '*') return [target];
  const names = grouped(rowsOf(rows)({ id: target.of[0] })).keys();
  return [...names].map((name) => ({
    ...target,
    what: `${target.what}, ${name}`,
    of: Object.assign([...target.of], { 1: name }),
    per: Object.assign([...target.per], { 1: name }),
  }));
}

function judged(target, rows) {
  const value = find(rows, target.of) / (target.per ? find(rows, target.per) : 1);
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

function introduction({ machine, rounds, rows }) {
  const { cpu, cores, compiler, node } = machine;
  return [
    '# Performance',
    'How fast KorivaSDK is beside what could be used instead, and beside what the machine can do ' +
      'at all (the *floors*). `script/bench` builds the programs in `bench/`, measures anew and ' +
      'writes this page; with the names of topics ' +
      `(${Object.keys(topics).join(', ')}) it prints their tables only.`,
    `Measured on ${cpu}, ${cores} cores, with ${compiler} and Node.js ${node}; the other ` +
      `libraries are those of Debian 12. Figures are medians of ${rounds} rounds in which the ` +
      'candidates take turns. Ratios within one run are what counts: the figures themselves differ ' +
      'from machine to machine and from day to day.',
    `${summary(rows)}. Beside those that are missed it says what stands in the way.`,
  ].join('\n\n');
}

export function printReport({ rows }, names) {
  for (const name of names) {
    const targets = judgedTargets(topics[name], rows);
    console.log(`\n${topics[name].title}\n`);
    console.log(tablesOf(topics[name], rows).join('\n\n').replaceAll('**', ''));
    if (targets.length > 0) console.log(`\n${targetTable(targets).replaceAll('**', '')}`);
  }
  console.log();
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
