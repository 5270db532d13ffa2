// The lines of the trace: a record, a gap, and a manager's reads.

import {addressOf, clockOf, detailsOf, motionsOf, outcomeOf, subjectOf} from './tracewords.js';

const kMaxReads = 100; // that an opened reader shows
const kRateOver = 10; // seconds
const kHeads = ['Number', 'Time, UTC', 'Manager', 'Who', 'PDU', 'Outcome', 'What'];
const kColumns = kHeads.length;

export function make(name, text, ...children) {
  const element = document.createElement(name);
  if (text) element.textContent = text;
  element.append(...children);
  return element;
}

const makeButton = (text) => Object.assign(make('button', text), {type: 'button'});
const wide = (columns, ...children) => make('tr', '', Object.assign(make('td', '', ...children), {colSpan: columns}));

/// Makes the list's children those elements. Leaves alone what is in place already: it may have the focus.
export function arrange(list, elements) {
  const kept = new Set(elements);
  for (const child of [...list.tBodies]) if (!kept.has(child)) child.remove();
  let next = list.tBodies[0] ?? null;
  for (const element of elements) {
    if (element === next) next = next.nextElementSibling;
    else list.insertBefore(element, next);
  }
}

/// A row that opens to more. The button stands in its first cell.
class Opening {
  constructor(cells) {
    this.body = make('tbody');
    this.button = makeButton('');
    this.button.setAttribute('aria-expanded', 'false');
    this.button.addEventListener('click', () => this.toggle());
    this.row = make('tr', '', make('td', '', this.button), ...Array.from({length: cells}, () => make('td')));
    this.body.append(this.row);
  }

  write(texts) {
    texts.forEach((text, i) => {
      const cell = this.row.cells[i + 1];
      if (cell.textContent !== text) cell.textContent = text;
    });
  }

  toggle() {
    if (this.more) this.close();
    else this.open();
  }

  open() {
    this.close();
    this.more = this.content();
    this.body.append(this.more);
    this.button.setAttribute('aria-expanded', 'true');
  }

  close() {
    this.more?.remove();
    this.more = null;
    this.button.setAttribute('aria-expanded', 'false');
  }
}

/// A record's line, and below it what is known of it once it is opened. `commands` offers to set a binding again.
export class Line extends Opening {
  constructor(record, commands) {
    super(kColumns - 1);
    this.commands = commands;
    this.show(record);
  }

  /// Also when the record comes again, with the end of its motion.
  show(record) {
    if (this.record === record) return;
    this.record = record;
    const subject = subjectOf(record);
    this.button.textContent = record.number ?? '–';
    this.button.setAttribute('aria-label', `${record.number ?? '–'}, details of ${record.pdu ?? 'a message'} ${subject}`);
    this.write([clockOf(record), addressOf(record), record.who ?? '', record.pdu ?? '?', outcomeOf(record) ?? '', subject + motionsOf(record)]);
    this.body.classList.toggle('failed', record.failed);
    if (this.more) this.renew();
  }

  /// A button within keeps the focus.
  renew() {
    const buttons = () => [...this.more.querySelectorAll('button')];
    const focused = buttons().indexOf(document.activeElement);
    this.open();
    buttons()[focused]?.focus();
  }

  content() {
    const items = detailsOf(this.record).flatMap(([name, text, binding]) => {
      const item = make('dd', text);
      if (binding && this.record.pdu === 'SET' && this.commands.offers(binding)) item.append(this.commandButton(binding));
      return [make('dt', name), item];
    });
    return wide(kColumns, make('dl', '', ...items));
  }

  commandButton(binding) {
    const button = makeButton('Command in words');
    button.setAttribute('aria-label', `Command in words: ${binding.name}`);
    button.addEventListener('click', () => this.commands.take(binding));
    return button;
  }
}

/// Says that records are missing.
export class Gap {
  constructor(text) {
    this.body = make('tbody', '', wide(kColumns, text));
    this.body.className = 'gap';
  }

  show() {}
}

/// Of the last ones, the last first.
function objectsOf(entries) {
  const objects = new Set();
  for (const {record} of entries.slice(-kMaxReads).reverse()) {
    for (const {name, oid} of record.answer?.length ? record.answer : record.bindings) objects.add(name || oid);
  }
  const names = [...objects];
  return names.slice(0, 5).join(', ') + (names.length > 5 ? ` and ${names.length - 5} more` : '');
}

const timeOf = ({record}) => Date.parse(record.time) / 1000;

/// Over the last ten seconds before the last read, or since the first one, but at least a second.
function rateOf(entries) {
  const last = timeOf(entries[entries.length - 1]);
  let first = entries.length - 1;
  while (first > 0 && last - timeOf(entries[first - 1]) <= kRateOver) --first;
  const count = entries.length - 1 - first;
  return count ? (count / Math.max(1, last - timeOf(entries[first]))).toFixed(1) : '–';
}

/// One manager's reads as one line, which opens to the last of them.
class Reader extends Opening {
  constructor(commands) {
    super(5);
    this.commands = commands;
  }

  show(entries) {
    if (this.entries?.length === entries.length && this.entries[entries.length - 1] === entries[entries.length - 1]) return;
    this.entries = entries;
    const {record} = entries[entries.length - 1];
    const who = `${addressOf(record)} ${record.who}`;
    this.last = timeOf(entries[entries.length - 1]);
    this.button.textContent = entries.length;
    this.button.setAttribute('aria-label', `${entries.length} reads by ${who}`);
    this.write([addressOf(record), record.who ?? '', rateOf(entries), clockOf(record), objectsOf(entries)]);
    if (this.list) this.fill();
  }

  /// `now`: milliseconds since 1970, by the camera's clock. A reader that has stopped has no rate.
  tick(now) {
    if (now / 1000 - this.last > kRateOver) this.row.cells[3].textContent = '–';
  }

  content() {
    this.lines = new Map();
    const heads = kHeads.map((text) => Object.assign(make('th', text), {scope: 'col'}));
    this.list = make('table', '', make('thead', '', make('tr', '', ...heads)));
    this.list.setAttribute('aria-label', this.button.getAttribute('aria-label'));
    this.note = make('p', '');
    this.note.className = 'note';
    this.fill();
    const inner = make('div', '', this.list, this.note);
    inner.className = 'inner';
    return wide(6, inner);
  }

  close() {
    super.close();
    this.list = null;
  }

  fill() {
    const entries = this.entries.slice(-kMaxReads).reverse();
    const older = new Map(this.lines);
    this.lines = new Map(entries.map((entry) => [entry.key, older.get(entry.key) ?? new Line(entry.record, this.commands)]));
    arrange(this.list, [...this.lines.values()].map(({body}) => body));
    this.note.textContent = this.entries.length > kMaxReads ? `The last ${kMaxReads} of ${this.entries.length}. Without "Fold reads" all are in the list.` : '';
  }
}

/// The managers that read, one line each.
export class Readers {
  constructor(root, table, commands) {
    Object.assign(this, {root, table, commands, lines: new Map()});
  }

  /// `entries`: reads, in their order; `now` as for tick.
  show(entries, now) {
    const groups = new Map();
    for (const entry of entries) {
      entry.reader ??= JSON.stringify([addressOf(entry.record), entry.record.who]);
      if (groups.has(entry.reader)) groups.get(entry.reader).push(entry);
      else groups.set(entry.reader, [entry]);
    }
    for (const key of this.lines.keys()) if (!groups.has(key)) this.lines.delete(key);
    for (const [key, reads] of groups) {
      if (!this.lines.has(key)) this.lines.set(key, new Reader(this.commands));
      this.lines.get(key).show(reads);
    }
    arrange(this.table, [...this.lines.values()].map(({body}) => body));
    this.root.hidden = !groups.size;
    this.tick(now);
  }

  tick(now) {
    for (const line of this.lines.values()) line.tick(now);
  }
}
