// Explains four-octet commands.

import {decode, explain, kModes, kObjects, parseOctets, snmpset} from './command.js';

const $ = (id) => document.getElementById(id);
const hex = (octet) => octet.toString(16).padStart(2, '0').toUpperCase();

export class CommandPanel {
  constructor() {
    this.port = 1161;
    this.zoomMaximum = 20000;
    kObjects.forEach((object, i) => $('command-object').append(new Option(object.name, i)));
    $('command').addEventListener('input', () => this.show());
    $('command').addEventListener('submit', (event) => event.preventDefault());
    $('copy').addEventListener('click', () => this.copy());
    this.show();
  }

  setPort(port) {
    this.port = port;
    this.show();
  }

  setZoomMaximum(maximum) {
    if (maximum === this.zoomMaximum) return;
    this.zoomMaximum = maximum;
    this.show();
  }

  show() {
    const object = kObjects[$('command-object').value];
    const octets = parseOctets($('command-octets').value);
    $('command-octets').setAttribute('aria-invalid', String(octets === null));
    if (!octets) {
      this.say({ok: false, text: 'Enter octets as pairs of hexadecimal digits, such as 02 40 46 50.'});
      this.explainOctets(null);
      $('command-line').textContent = '';
      return;
    }
    const command = decode(octets);
    this.say(explain(object, command, {zoomMaximum: this.zoomMaximum}));
    this.explainOctets(command);
    $('command-line').textContent = snmpset(object, octets, this.port);
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
