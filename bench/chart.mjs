// Draws the tables of a topic as one SVG image, in colours that can be read on white and on black.
const width = 760;
const left = 190;
const right = 110;
const ink = '#7a828c';
const colours = {
  KorivaSDK: '#3f87d9',
  'KorivaSDK run()': '#3f87d9',
  'KorivaSDK attached': '#7aa9dd',
  'delegate call': '#3f87d9',
  'DOM floor': '#5a9e6f',
  'copy of the records': '#5a9e6f',
  'Beast floor': '#5a9e6f',
  'by hand': '#5a9e6f',
  'bare decode': '#5a9e6f',
};
const lineColours = ['#3f87d9', '#c9823a', '#5a9e6f', '#a678c4'];
const other = '#9aa1aa';

const format = new Intl.NumberFormat('en', { maximumSignificantDigits: 3 });
/** Three digits are what a measurement is worth. */
export const figure = (value) => format.format(value);

const escaped = (text) =>
  String(text).replace(/[&<>"]/g, (each) => `&#${each.charCodeAt(0)};`);
const at = (value) => String(Math.round(value * 10) / 10);

function text(x, y, content, { anchor = 'start', size = 12, weight = 400, fill = ink } = {}) {
  return (
    `<text x="${at(x)}" y="${at(y)}" font-size="${size}" font-weight="${weight}" ` +
    `text-anchor="${anchor}" fill="${fill}">${escaped(content)}</text>`
  );
}

const line = (x1, y1, x2, y2) =>
  `<path d="M${at(x1)} ${at(y1)}L${at(x2)} ${at(y2)}" stroke="${ink}" stroke-opacity="0.35"/>`;

export function grouped(rows) {
  const groups = new Map();
  for (const row of rows) groups.set(row.case, [...(groups.get(row.case) ?? []), row]);
  return groups;
}

/** A panel is what it draws and its height; it begins at the height 0. */
function barPanel(table, rows) {
  const [metric] = Object.keys(table.metrics);
  const scale = (width - left - right) / Math.max(...rows.map((row) => row.values[metric]), 1e-9);
  const parts = [];
  const groups = grouped(rows);
  let y = 0;
  for (const [name, group] of groups) {
    if (groups.size > 1) parts.push(text(0, (y += 20), name, { weight: 600 }));
    for (const row of group) {
      const value = row.values[metric];
      parts.push(
        text(left - 8, y + 17, row.candidate, { anchor: 'end' }),
        `<rect x="${left}" y="${y + 6}" width="${at(Math.max(value * scale, 1))}" height="14" ` +
          `rx="2" fill="${colours[row.candidate] ?? other}"/>`,
        text(left + value * scale + 6, y + 17, figure(value)),
      );
      y += 19;
    }
    y += 8;
  }
  return { parts, height: y };
}

function decades(values) {
  const first = Math.floor(Math.log10(Math.min(...values)));
  const last = Math.max(Math.ceil(Math.log10(Math.max(...values))), first + 1);
  return Array.from({ length: last - first + 1 }, (_, i) => 10 ** (first + i));
}

/** Maps the decades to the range from `begin` to `end`. */
function logarithmic(marks, begin, end) {
  const [low, high] = [Math.log10(marks[0]), Math.log10(marks.at(-1))];
  return (value) => begin + ((Math.log10(value) - low) / (high - low)) * (end - begin);
}

const numberOf = (row) => Number(row.candidate.replaceAll(',', ''));

function linePanel(table, rows) {
  const [metric] = Object.keys(table.metrics);
  const height = 240;
  const columns = decades(rows.map(numberOf));
  const marks = decades(rows.map((row) => row.values[metric]));
  const x = logarithmic(columns, 60, width - left);
  const y = logarithmic(marks, height - 20, 14);
  const parts = [];
  for (const mark of marks) {
    parts.push(line(60, y(mark), width - left, y(mark)));
    parts.push(text(52, y(mark) + 4, figure(mark), { anchor: 'end' }));
  }
  for (const column of columns) {
    parts.push(text(x(column), height, figure(column), { anchor: 'middle' }));
  }
  const last = ([, points]) => points.at(-1).values[metric];
  const groups = [...grouped(rows)].sort((a, b) => last(b) - last(a));
  for (const [index, [name, points]] of groups.entries()) {
    const colour = lineColours[index % lineColours.length];
    const corners = points.map((row) => `${at(x(numberOf(row)))} ${at(y(row.values[metric]))}`);
    parts.push(`<path d="M${corners.join('L')}" stroke="${colour}" stroke-width="2" fill="none"/>`);
    for (const row of points) {
      const [px, py] = [x(numberOf(row)), y(row.values[metric])];
      parts.push(`<circle cx="${at(px)}" cy="${at(py)}" r="3" fill="${colour}"/>`);
      const label = index === 0 ? py - 8 : py + 16; // above the line that ends highest
      parts.push(text(px, label, figure(row.values[metric]), { anchor: 'middle', size: 11 }));
    }
    const end = points.at(-1);
    const [endX, endY] = [x(numberOf(end)), y(end.values[metric])];
    parts.push(text(endX + 18, endY + 4, name, { fill: colour, weight: 600 }));
  }
  return { parts, height };
}

const panels = { bars: barPanel, lines: linePanel };

/** `rowsOf` gives the rows of a table. */
export function chart(topic, rowsOf) {
  const parts = [];
  let y = 0;
  for (const table of topic.tables.filter((each) => each.chart)) {
    const [unit] = Object.values(table.metrics);
    const panel = panels[table.chart](table, rowsOf(table));
    parts.push(text(0, y + 16, table.title, { size: 15, weight: 600 }));
    parts.push(text(0, y + 34, `${unit} (${table.better ?? 'less'} is better)`));
    parts.push(`<g transform="translate(0 ${y + 40})">`, ...panel.parts, '</g>');
    y += 40 + panel.height + 24;
  }
  return [
    `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${width} ${y}" width="${width}" ` +
      `height="${y}" font-family="system-ui, sans-serif" role="img">`,
    `<title>${escaped(topic.title)}</title>`,
    ...parts,
    '</svg>\n',
  ].join('\n');
}
