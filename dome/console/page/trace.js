// The trace: what the agent was asked, what the camera made of it, and why nothing moved. It asks only while it is shown.

import {arrange, Gap, Line, Readers} from './tracelines.js';
import {addressOf, isRead} from './tracewords.js';
import {capture, jsonLines, save} from './traceexport.js';

const kMaxRecords = 10000;
const kMaxText = 32 * 1024 * 1024; // characters of all records, about
const kPage = 200; // lines in the table
const kEvery = 200; // milliseconds
const kRevealTime = 5000; // milliseconds

const $ = (id) => document.getElementById(id);
const isOn = (button) => button.getAttribute('aria-checked') === 'true';

function names(bindings, object) {
  return (bindings ?? []).some(({name, oid}) =>
    name.toLowerCase().includes(object) || oid.startsWith(object) || `.${oid}`.startsWith(object));
}

const keyOf = ({number, time, pdu, id}) => JSON.stringify([number, time, pdu, id]);

export class Trace {
  /// `commands` has offers(binding) and take(binding); `report` shows a failure.
  constructor(commands, report) {
    Object.assign(this, {commands, report});
    this.readers = new Readers($('readers-rows'), $('readers'), commands);
    $('trace-open').addEventListener('click', () => this.toggle());
    for (const name of ['trace-object', 'trace-peer']) $(name).addEventListener('input', () => this.turn(0));
    for (const name of ['trace-failed', 'trace-fold', 'trace-pause']) {
      $(name).addEventListener('click', () => this.set(name, !isOn($(name))));
    }
    const pages = {newest: () => 0, newer: () => this.offset - kPage, older: () => this.offset + kPage, oldest: () => Infinity};
    for (const [name, offset] of Object.entries(pages)) $(`trace-${name}`).addEventListener('click', () => this.lookBack(offset()));
    $('trace-json').addEventListener('click', () => save('trace.jsonl', 'application/jsonl', [jsonLines(this.matching())]));
    $('trace-pcap').addEventListener('click', () => this.savePackets());
    document.addEventListener('visibilitychange', () => this.ask());
    this.reset(0);
  }

  reset(started) {
    Object.assign(this, {started, next: 0, own: 0, size: 0, entries: [], byKey: new Map(), lines: new Map(), frozen: null, offset: 0});
    $('trace-pause').setAttribute('aria-checked', 'false');
    this.render();
  }

  toggle() {
    const isOpen = $('trace-view').hidden;
    $('trace-view').hidden = !isOpen;
    $('trace-open').setAttribute('aria-expanded', String(isOpen));
    $('trace-open').textContent = isOpen ? 'Hide' : 'Show';
    this.ask();
  }

  set(name, on) {
    $(name).setAttribute('aria-checked', String(on));
    if (name === 'trace-pause') this.frozen = on ? [...this.entries] : null;
    this.turn(name === 'trace-pause' && on ? this.offset : 0);
  }

  /// Who looks back must not lose the place to what comes in.
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
      if (answer.more) wait = 0;
      this.take(answer, text.length);
      this.say([answer.agent, answer.camera].filter(Boolean).join(', '));
    } catch (error) {
      wait = 2000;
      this.say(`No trace: ${error.message}`);
    }
    this.isAsking = false;
    this.timer = setTimeout(() => this.ask(), wait);
  }

  say(trouble) {
    if ($('trace-trouble').textContent !== trouble) $('trace-trouble').textContent = trouble;
  }

  take({started, next, lost, own, records}, length) {
    if (started !== this.started) {
      // The camera was started anew, or has forgotten what it had read.
      const isWhole = this.next === 0;
      this.reset(started);
      if (!isWhole) return;
    }
    Object.assign(this, {next, own});
    if (lost) this.push({gap: `${lost} records came too fast for this page.`, lost, size: 100});
    records.forEach((record, i) => this.add(record, next - records.length + 1 + i, length / records.length));
    while (this.entries.length > kMaxRecords || (this.size > kMaxText && this.entries.length > 1)) {
      const entry = this.entries.shift();
      this.size -= entry.size;
      this.byKey.delete(entry.key);
    }
    if (records.length || lost) this.render();
    this.count();
  }

  add(record, place, size) {
    const key = keyOf(record);
    const entry = this.byKey.get(key);
    if (entry) {
      entry.record = record; // one that comes again keeps its place
      return;
    }
    const {lost} = record;
    if (lost) this.push({gap: `${lost} records were overwritten before they could be read.`, lost, size: 100});
    this.push({key, record, place, size});
  }

  push(entry) {
    entry.key ??= `gap ${this.next} ${this.entries.length}`;
    this.size += entry.size;
    this.entries.push(entry);
    this.byKey.set(entry.key, entry);
  }

  // -------------------------------------------------------------- what is shown

  filter() {
    const object = $('trace-object').value.trim().toLowerCase();
    const peer = $('trace-peer').value.trim();
    const onlyFailed = isOn($('trace-failed'));
    return ({record}) => {
      if (onlyFailed && !record.failed) return false;
      if (peer && record.peer !== peer && addressOf(record) !== peer && addressOf(record) !== `[${peer}]`) return false;
      return !object || names(record.bindings, object) || names(record.answer, object) ||
        record.traps.some(({bindings}) => names(bindings, object));
    };
  }

  /// What the filters let through, gaps included.
  matching() {
    const matches = this.filter();
    return (this.frozen ?? this.entries).filter((entry) => entry.gap || matches(entry));
  }

  render() {
    const matching = this.matching();
    const isFolded = isOn($('trace-fold')) ? ({record}) => record && isRead(record) : () => false;
    this.readers.show(matching.filter(isFolded));
    this.listed = matching.filter((entry) => !isFolded(entry));
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
    $('trace-place').textContent = shown.length ? `${this.offset + 1} to ${this.offset + shown.length} of ${this.listed.length}` : 'Nothing to show';
    this.count();
  }

  lineOf(entry) {
    return entry.gap ? new Gap(entry.gap) : new Line(entry.record, this.commands);
  }

  count() {
    const own = this.own ? `; ${this.own} requests of this page left out` : '';
    $('trace-count').textContent = `${this.entries.length} records${own}`;
  }

  // -------------------------------------------------------------- one record

  /// Shows the SET with this request ID from this peer as soon as it has come.
  async reveal({id, peer}) {
    if ($('trace-view').hidden) this.toggle();
    if (this.frozen) this.set('trace-pause', false);
    const deadline = performance.now() + kRevealTime;
    const isIt = ({record}) => record?.pdu === 'SET' && record.id === id && record.peer === peer;
    let entry;
    while (!(entry = this.entries.find(isIt))) {
      if (performance.now() > deadline) {
        this.report('The trace has no record of this command.');
        return;
      }
      await new Promise((done) => setTimeout(done, 50));
    }
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
