// The trace: what the agent was asked, what the camera made of it, and why nothing moved. It asks only while it is shown.

import {arrange, Gap, Line, Readers} from './tracelines.js';
import {addressOf, isRead} from './tracewords.js';
import {capture, jsonLines, save} from './traceexport.js';

const kMaxRecords = 10000;
const kMaxText = 32 * 1024 * 1024; // characters of all records, about
const kPage = 200; // lines in the table
const kEvery = 200; // milliseconds
const kRenderEvery = 1000; // milliseconds, while more answers follow at once
const kRevealTime = 5000; // milliseconds after all that the camera keeps has come

const $ = (id) => document.getElementById(id);
const isOn = (button) => button.getAttribute('aria-checked') === 'true';

function names(bindings, object) {
  return (bindings ?? []).some(({name, oid}) =>
    name.toLowerCase().includes(object) || oid.startsWith(object) || `.${oid}`.startsWith(object));
}

const keyOf = ({number, time, pdu, id}) => JSON.stringify([number, time, pdu, id]);

/// What the page keeps of a record: {key, record, started, position: its number in the camera's list, size}, or of a gap:
/// {key, gap: its text, lost, size}. An entry does not change, but for the filters' verdict.
export class Trace {
  /// `commands` has offers(binding) and take(binding); `report` shows a failure.
  constructor(commands, report) {
    Object.assign(this, {commands, report});
    this.readers = new Readers($('readers-rows'), $('readers'), commands);
    $('trace-open').addEventListener('click', () => this.toggle());
    for (const name of ['trace-object', 'trace-peer']) {
      $(name).addEventListener('input', () => {
        this.filters();
        this.turn(0);
      });
    }
    for (const name of ['trace-failed', 'trace-fold', 'trace-pause']) {
      $(name).addEventListener('click', () => this.set(name, !isOn($(name))));
    }
    const pages = {newest: () => 0, newer: () => this.offset - kPage, older: () => this.offset + kPage, oldest: () => Infinity};
    for (const [name, offset] of Object.entries(pages)) $(`trace-${name}`).addEventListener('click', () => this.lookBack(offset()));
    $('trace-json').addEventListener('click', () => save('trace.jsonl', 'application/jsonl', [jsonLines(this.matching())]));
    $('trace-pcap').addEventListener('click', () => this.savePackets());
    document.addEventListener('visibilitychange', () => this.ask());
    Object.assign(this, {next: 0, started: 0, own: 0, size: 0, entries: [], byKey: new Map(), dropped: '', gaps: 0, shifted: 0});
    Object.assign(this, {lines: new Map(), frozen: null, offset: 0, isBehind: true, rendered: 0, now: 0});
    this.filters();
    this.render();
  }

  /// The camera was started anew, or has forgotten what it had read: it begins again, with much that is here already.
  restart(started) {
    if (this.entries.length) this.push({gap: 'The camera has begun its list anew: records before this may be missing.', size: 100});
    Object.assign(this, {started, next: 0, isBehind: true, isRepeating: true});
  }

  toggle() {
    const isOpen = $('trace-view').hidden;
    $('trace-view').hidden = !isOpen;
    this.isBehind = true;
    $('trace-open').setAttribute('aria-expanded', String(isOpen));
    $('trace-open').textContent = isOpen ? 'Hide' : 'Show';
    this.ask();
  }

  set(name, on) {
    $(name).setAttribute('aria-checked', String(on));
    if (name === 'trace-pause') this.frozen = on ? [...this.entries] : null;
    this.filters();
    this.turn(name === 'trace-pause' && on ? this.offset : 0);
  }

  /// Who looks back must not be pushed on by what comes in.
  lookBack(offset) {
    if (offset > 0 && !this.frozen) this.set('trace-pause', true);
    this.turn(offset);
  }

  turn(offset) {
    this.offset = offset;
    this.render();
  }

  // -------------------------------------------------------------- what comes in

  async ask() {
    clearTimeout(this.timer);
    if (this.isAsking || $('trace-view').hidden || document.hidden) return;
    this.isAsking = true;
    let wait = kEvery;
    try {
      const response = await fetch(`/api/trace?since=${this.next}`);
      const text = await response.text();
      const answer = JSON.parse(text);
      if (!response.ok) throw new Error(answer.error);
      this.take(answer, text.length);
      if (this.isBehind) wait = 0;
      this.say([answer.agent, answer.camera].filter(Boolean).join(', '));
    } catch (error) {
      wait = 2000;
      this.isBehind = false;
      this.say(`No trace: ${error.message}`);
    }
    this.isAsking = false;
    this.timer = setTimeout(() => this.ask(), wait);
  }

  say(trouble) {
    if ($('trace-trouble').textContent !== trouble) $('trace-trouble').textContent = trouble;
  }

  take({started, next, more, lost, own, time, records}, length) {
    if (started !== this.started) {
      const isFirst = this.next === 0;
      if (this.started) this.restart(started);
      this.started = started;
      if (!isFirst) return;
    }
    Object.assign(this, {next, own, isBehind: more, now: Date.parse(time)});
    if (lost) this.push({gap: `${lost} records are no longer kept: they came too fast for this page, or while it did not ask.`, lost, size: 100});
    records.forEach((record, i) => this.add(record, next - records.length + 1 + i, length / records.length));
    if (!more) this.isRepeating = false;
    this.drop();
    this.readers.tick(this.now);
    if (this.isDirty) this.schedule();
    this.count();
  }

  add(record, position, size) {
    const key = keyOf(record);
    const entry = {key, record, started: this.started, position, size};
    const index = this.indexOf(key);
    if (index >= 0) {
      const before = this.entries[index];
      if (before.started === entry.started) entry.position = before.position; // one that comes again has no messages
      this.size += size - before.size;
      this.entries[index] = entry;
      this.isDirty = true;
      return;
    }
    if (this.isRepeating && record.time <= this.dropped) return;
    const {lost} = record;
    if (lost) this.push({gap: `${lost} records were overwritten before they could be read.`, lost, size: 100});
    this.push(entry);
  }

  push(entry) {
    entry.key ??= `gap ${++this.gaps}`;
    this.size += entry.size;
    this.byKey.set(entry.key, this.shifted + this.entries.length);
    this.entries.push(entry);
    this.isDirty = true;
  }

  /// -1: none.
  indexOf(key) {
    return (this.byKey.get(key) ?? -1 + this.shifted) - this.shifted;
  }

  drop() {
    let count = 0;
    for (; this.entries.length - count > kMaxRecords || (this.size > kMaxText && this.entries.length - count > 1); ++count) {
      const {key, record, size} = this.entries[count];
      this.size -= size;
      this.byKey.delete(key);
      if (record) this.dropped = record.time;
    }
    this.entries.splice(0, count);
    this.shifted += count;
  }

  // -------------------------------------------------------------- what is shown

  /// The filters have changed. Entries keep their verdict until then.
  filters() {
    const object = $('trace-object').value.trim().toLowerCase();
    const peer = $('trace-peer').value.trim();
    const onlyFailed = isOn($('trace-failed'));
    this.matches = (record) => {
      if (onlyFailed && !record.failed) return false;
      if (peer && record.peer !== peer && addressOf(record) !== peer && addressOf(record) !== `[${peer}]`) return false;
      return !object || names(record.bindings, object) || names(record.answer, object) ||
        record.traps.some(({bindings}) => names(bindings, object));
    };
  }

  lets(entry) {
    if (entry.gap) return true;
    if (entry.filter !== this.matches) Object.assign(entry, {filter: this.matches, isLet: this.matches(entry.record)});
    return entry.isLet;
  }

  /// What the filters let through, gaps included.
  matching() {
    return (this.frozen ?? this.entries).filter((entry) => this.lets(entry));
  }

  /// Renders once for all that comes before the next frame; while more follows, from time to time.
  schedule() {
    if (this.frame || (this.isBehind && performance.now() - this.rendered < kRenderEvery)) return;
    this.frame = requestAnimationFrame(() => {
      this.frame = 0;
      this.render();
    });
  }

  render() {
    this.rendered = performance.now();
    this.isDirty = false;
    const matching = this.matching();
    const isFolded = isOn($('trace-fold')) ? ({record}) => record && isRead(record) : () => false;
    this.readers.show(matching.filter(isFolded), this.now);
    this.listed = matching.filter((entry) => !isFolded(entry));
    this.holdOpened();
    const last = Math.max(0, Math.ceil(this.listed.length / kPage) - 1) * kPage;
    this.offset = Math.min(Math.max(0, this.offset), last);
    const end = this.listed.length - this.offset;
    const shown = this.listed.slice(Math.max(0, end - kPage), end).reverse();
    const before = this.lines;
    this.lines = new Map(shown.map((entry) => [entry.key, before.get(entry.key) ?? this.lineOf(entry)]));
    for (const entry of shown) this.lines.get(entry.key).show(entry.record);
    arrange($('trace'), [...this.lines.values()].map(({body}) => body));
    for (const name of ['newest', 'newer']) $(`trace-${name}`).disabled = this.offset === 0;
    for (const name of ['older', 'oldest']) $(`trace-${name}`).disabled = this.offset === last;
    $('trace-position').textContent = shown.length ? `${this.offset + 1} to ${this.offset + shown.length} of ${this.listed.length}` : 'Nothing to show';
    this.count();
  }

  /// A line that is open, or has the focus, pauses the list before what comes in pushes it off the page.
  holdOpened() {
    if (this.frozen || this.offset) return;
    const first = Math.max(0, this.listed.length - kPage);
    for (let i = 0; i < first; ++i) {
      const line = this.lines.get(this.listed[i].key);
      if (!line?.more && !line?.body.contains(document.activeElement)) continue;
      this.frozen = [...this.entries];
      $('trace-pause').setAttribute('aria-checked', 'true');
      this.offset = this.listed.length - kPage - i;
      return;
    }
  }

  lineOf(entry) {
    return entry.gap ? new Gap(entry.gap) : new Line(entry.record, this.commands);
  }

  count() {
    const own = this.own ? `; ${this.own} requests of this page left out` : '';
    const gaps = this.entries.filter(({gap}) => gap).length;
    $('trace-count').textContent = `${this.entries.length - gaps} records${own}`;
  }

  // -------------------------------------------------------------- one record

  /// Shows the SET with this request ID from this peer as soon as it has come.
  async reveal({id, peer}) {
    if ($('trace-view').hidden) this.toggle();
    if (this.frozen) this.set('trace-pause', false);
    const isIt = ({record}) => record?.pdu === 'SET' && record.id === id && record.peer === peer;
    let entry;
    for (let deadline = Infinity; !(entry = this.entries.findLast(isIt)); ) {
      if ($('trace-view').hidden) return;
      if (!this.isBehind) deadline = Math.min(deadline, performance.now() + kRevealTime);
      if (performance.now() > deadline) {
        this.report('The trace has no record of this command.');
        return;
      }
      await new Promise((done) => setTimeout(done, 50));
    }
    this.render();
    if (!this.listed.includes(entry)) this.showAll();
    const offset = this.listed.length - 1 - this.listed.indexOf(entry);
    this.lookBack(Math.floor(offset / kPage) * kPage);
    const line = this.lines.get(entry.key);
    for (const {body} of this.lines.values()) body.classList.toggle('found', body === line.body);
    if (!line.more) line.open();
    line.body.scrollIntoView({block: 'nearest'});
    line.button.focus();
  }

  showAll() {
    for (const name of ['trace-object', 'trace-peer']) $(name).value = '';
    this.set('trace-failed', false);
  }

  async savePackets() {
    try {
      const entries = this.matching();
      const {octets, missing} = await capture(entries, this.started);
      save('trace.pcap', 'application/vnd.tcpdump.pcap', octets);
      if (missing) this.report(`The messages of ${missing} records are no longer kept.`);
    } catch (error) {
      this.report(`Not saved: ${error.message}`);
    }
  }
}
