// Commands in words: explains what the agent makes of a SET, and sends it.

import {decode, explain, kModes, kObjects, parseOctets, snmpset} from './command.js';
import {act} from './link.js';
import {bindingText} from './tracewords.js';

const $ = (id) => document.getElementById(id);
const hex = (octet) => octet.toString(16).padStart(2, '0').toUpperCase();
const kOctets = 'OCTET STRING';
const kTypes = [kOctets, 'INTEGER', 'Gauge32', 'Counter32', 'TimeTicks', 'Counter64', 'IpAddress', 'OBJECT IDENTIFIER'];
const kSamples = {[kOctets]: '00 00', IpAddress: '127.0.0.1', 'OBJECT IDENTIFIER': '1.3.6.1'};
const kExplainAfter = 120; // milliseconds without a key
const kErrors = {
  tooBig: 'the answer would be too long',
  noSuchName: 'there is no such object, or this user may not set it',
  badValue: 'the object does not take this value or type',
  readOnly: 'the object is read-only',
  genErr: 'the camera refuses it',
  noAccess: 'this user may not set it',
  wrongType: 'the object takes another type',
  wrongLength: 'the object takes another length',
  wrongEncoding: 'the value is encoded wrongly',
  wrongValue: 'the object does not take this value',
  noCreation: 'there is no such row',
  inconsistentValue: 'the object does not take this value now',
  resourceUnavailable: 'the agent lacks what it needs for it',
  commitFailed: 'the agent could not carry it out',
  undoFailed: 'the agent could neither carry it out nor undo it',
  authorizationError: 'this user may not set it',
  notWritable: 'the object is read-only',
  inconsistentName: 'the object cannot be made now',
};

export class CommandPanel {
  /// `reveal` shows the record of a command that was sent.
  constructor(reveal) {
    Object.assign(this, {agent: '127.0.0.1:1161', isWatched: false, trouble: 'the users are not known yet', zoomMaximum: 20000, users: [], reveal, sent: null, asked: 0});
    this.objects = kObjects.map(({name, oid}) => ({name, oid, type: kOctets, writable: true}));
    for (const type of kTypes) $('command-type').append(new Option(type));
    this.showObjects();
    $('command').addEventListener('input', () => this.show());
    $('command-object').addEventListener('change', () => this.choose());
    $('command-user').addEventListener('change', () => this.show());
    $('command').addEventListener('submit', (event) => {
      event.preventDefault();
      this.send();
    });
    $('copy').addEventListener('click', () => this.copy());
    $('command-record').addEventListener('click', () => this.reveal(this.sent));
    this.show();
  }

  /// The agent's address and port, and whether the dome sends to it.
  setAgent(agent, isWatched) {
    Object.assign(this, {agent, isWatched});
    this.show();
  }

  setZoomMaximum(maximum) {
    if (maximum === this.zoomMaximum) return;
    this.zoomMaximum = maximum;
    this.show();
  }

  /// What can be set, and as whom.
  async load() {
    try {
      const response = await fetch('/api/objects');
      const {objects, users, error} = await response.json();
      if (!response.ok) throw new Error(error);
      this.objects = objects;
      this.showObjects();
      this.showUsers(users);
    } catch (error) {
      this.showUsers([], `the users are not known: ${error.message}`);
    }
    this.show();
  }

  /// `trouble`: why there are none.
  showUsers(users, trouble) {
    const chosen = $('command-user').selectedIndex;
    this.users = users;
    this.trouble = trouble ?? (this.isWatched ? 'the agent has no user that is known here' : 'start orvex-dome with --agent-port');
    $('command-user').replaceChildren(...users.map(({name, version, level}) => new Option(`${name}, SNMPv${version}${level ? ` ${level}` : ''}`)));
    const writer = users.findIndex(({name}) => /^(writ|rw)/.test(name));
    $('command-user').selectedIndex = chosen >= 0 && chosen < users.length ? chosen : users.length ? Math.max(0, writer) : -1;
  }

  user() {
    return this.users[$('command-user').selectedIndex];
  }

  // -------------------------------------------------------------- the form

  showObjects() {
    const chosen = $('command-object').value;
    $('command-object').replaceChildren(...this.objects.filter(({writable}) => writable).map(({name, oid}) => new Option(name, oid)));
    const first = this.objects.find(({name}) => name === 'positionPan') ?? this.objects[0];
    $('command-object').value = this.objects.some(({oid}) => oid === chosen) ? chosen : first.oid;
    if (!chosen) $('command-type').value = first.type;
  }

  object() {
    return this.objects.find(({oid}) => oid === $('command-object').value);
  }

  /// With the row of a column.
  oid() {
    const {oid, column} = this.object();
    return column ? `${oid}.${$('command-row').value}` : oid;
  }

  position() {
    return $('command-type').value === kOctets ? kObjects.find(({oid}) => oid === this.oid()) : undefined;
  }

  choose() {
    const {type, name} = this.object();
    const wasPosition = $('command-octets').value.replaceAll(' ', '').length === 8;
    $('command-type').value = type;
    if (type !== kOctets) $('command-octets').value = kSamples[type] ?? '0';
    else if (!name.startsWith('position')) $('command-octets').value = kSamples[kOctets];
    else if (!wasPosition) $('command-octets').value = '00 00 00 00';
    this.show();
  }

  /// The camera's object that a binding names.
  objectOf({oid}) {
    return this.objects.find((object) => (object.column ? oid.startsWith(`${object.oid}.`) : oid === object.oid));
  }

  /// Octets that a trace shows may be a text: the form could not tell "ab" from AB. No object that is a text is writable.
  offers({oid, type}) {
    const object = this.objectOf({oid});
    return object !== undefined && kTypes.includes(type) && (type !== kOctets || object.writable);
  }

  /// Fills the form with what a record asked for.
  take(binding) {
    const object = this.objectOf(binding);
    const select = $('command-object');
    if (![...select.options].some(({value}) => value === object.oid)) select.append(new Option(object.name, object.oid));
    select.value = object.oid;
    if (object.column) $('command-row').value = binding.oid.slice(object.oid.length + 1);
    $('command-type').value = binding.type;
    $('command-octets').value = binding.value;
    this.show();
    $('command').scrollIntoView({block: 'center'});
    $('command-octets').focus();
  }

  /// {oid, type, value}; null for octets that are none.
  command() {
    const type = $('command-type').value;
    const text = $('command-octets').value.trim();
    if (type !== kOctets) return {oid: this.oid(), type, value: text};
    const octets = parseOctets(text);
    return octets && {oid: this.oid(), type, value: octets.map(hex).join(' ')};
  }

  // -------------------------------------------------------------- in words

  show() {
    const command = this.command();
    const position = this.position();
    $('command-row').hidden = !this.object().column;
    $('octets').hidden = !position;
    $('command-octets').setAttribute('aria-invalid', String(command === null));
    clearTimeout(this.timer);
    ++this.asked;
    if (!command) {
      this.say({ok: false, text: 'Enter octets as pairs of hexadecimal digits, such as 02 40 46 50.'});
      this.explainOctets(null);
      $('command-line').textContent = '';
      return;
    }
    $('command-line').textContent = snmpset(command, this.agent, this.user());
    if (position) {
      const octets = decode(parseOctets(command.value));
      this.say(explain(position, octets, {zoomMaximum: this.zoomMaximum}));
      this.explainOctets(octets);
    } else {
      this.timer = setTimeout(() => this.ask(command, this.asked), kExplainAfter);
    }
  }

  /// The words of the trace.
  async ask(command, asked) {
    let said;
    try {
      const {meaning, refused, effect, oddity} = await act('/api/words', command);
      const sentences = [meaning || (refused ? '' : 'set it'), refused && `refused: ${refused}`, effect, oddity].filter(Boolean);
      said = {ok: !refused, text: sentences.map((text) => `${text[0].toUpperCase()}${text.slice(1)}.`).join(' ')};
    } catch (error) {
      said = {ok: false, text: `${error.message}.`};
    }
    if (asked === this.asked) this.say(said);
  }

  say({ok, text}) {
    $('command-words').textContent = text;
    $('command-words').classList.toggle('refused', !ok);
  }

  explainOctets(command) {
    const cells = command && [
      ['Mode', `${hex(command.octets[0])} ${kModes[command.mode] ?? 'unknown'}`],
      ['Speed', `${hex(command.octets[1])} ${command.speed > 0 ? '+' : ''}${command.speed}`],
      ['Position', `${hex(command.octets[2])} ${hex(command.octets[3])} ${command.position}`],
    ];
    const rows = (cells ?? [['Mode', '–'], ['Speed', '–'], ['Position', '–']]).map(([name, text]) => {
      const cell = document.createElement('div');
      const term = Object.assign(document.createElement('dt'), {textContent: name});
      const value = Object.assign(document.createElement('dd'), {textContent: text});
      cell.append(term, value);
      return cell;
    });
    $('octets').replaceChildren(...rows);
  }

  // -------------------------------------------------------------- sending it

  async send() {
    const command = this.command();
    const user = this.user();
    if (this.isSending) return;
    if (!command || !user) {
      this.answer(command ? `Not sent: ${this.trouble}.` : 'Not sent: the value is no octets.', false);
      return;
    }
    this.isSending = true;
    this.answer('Sending …', true);
    $('command-record').hidden = true;
    try {
      this.sent = await act('/api/command', {...command, user: user.name, version: user.version});
      this.answer(...this.wordsOf(this.sent));
      $('command-record').hidden = this.sent.id === undefined;
    } catch (error) {
      this.answer(`${error.isRefused ? 'Not sent' : 'It is not known whether it was sent'}: ${error.message}.`, false);
    }
    this.isSending = false;
  }

  /// [text, whether the agent accepted it]
  wordsOf({outcome, error, reason, refused, effect, answer}) {
    if (outcome === 'silent') return ['No answer within 2 seconds: the agent is not there or busy, or drops what this user sends.', false];
    if (outcome === 'unsent') return [`Not sent: ${reason}.`, false];
    if (outcome !== 'answered') return [`No answer: ${reason}.`, false];
    if (error !== 'noError') return [`${error}: ${kErrors[error] ?? 'refused'}${refused ? `; ${refused}` : ''}.`, false];
    const values = answer.map((binding) => bindingText({...binding, meaning: ''}, false)).join(', ');
    return [`noError: ${values}${effect ? `; without effect: ${effect}` : ''}.`, true];
  }

  answer(text, ok) {
    $('command-answer').textContent = text;
    $('command-answer').classList.toggle('refused', !ok);
  }

  async copy() {
    let done = true;
    try {
      await navigator.clipboard.writeText($('command-line').textContent);
    } catch {
      getSelection().selectAllChildren($('command-line'));
      done = document.execCommand('copy');
    }
    $('copy').textContent = done ? 'Copied' : 'Select it';
    setTimeout(() => ($('copy').textContent = 'Copy'), 1500);
  }
}
