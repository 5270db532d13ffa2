import {call, control, Motion, Stream} from './link.js';
import {Arc, Bar, Plan} from './instruments.js';
import {Street} from './scene.js';
import {Arrivals} from './arrivals.js';
import {Commanded} from './commanded.js';
import {CommandPanel} from './panel.js';
import {Joystick, HoldButtons} from './hands.js';
import {Narration} from './narration.js';
import {Trace} from './trace.js';

const $ = (id) => document.getElementById(id);
const kSharpEnough = 1; // percent; a smaller error of the focus is invisible
const kCodes = {
  voltage: ['normal', 'low', 'high'],
  power: ['mains', 'backup', 'failing'],
};

let s_faults = new Map(); // name -> what is said of such a service
let s_failureTimer = 0;

/// Carries out an action and shows a failure.
async function attempt(action) {
  try {
    const answer = await action;
    if (answer.outcome !== 'ok') showMessage(`${answer.service} ${s_faults.get(answer.outcome) ?? answer.outcome}: nothing was done.`);
  } catch (error) {
    showMessage(error.message);
  }
}

function showMessage(text) {
  $('failure').textContent = text;
  $('failure').hidden = false;
  clearTimeout(s_failureTimer);
  s_failureTimer = setTimeout(() => ($('failure').hidden = true), 5000);
}

// ---------------------------------------------------------------- the picture

class Picture {
  constructor() {
    this.canvas = $('picture');
    this.context = this.canvas.getContext('2d', {alpha: false});
    this.street = new Street();
    this.still = matchMedia('(prefers-reduced-motion: reduce)');
    this.last = 0;
    this.street.advance(30);
  }

  draw(view, now) {
    if (!this.still.matches) this.street.advance(Math.min(0.5, (now - this.last) / 1000));
    this.last = now;
    // Beyond the optical zoom the same pixels only get larger.
    const dots = Math.min(window.devicePixelRatio, 2) / Math.max(1, view.zoom / view.optical);
    const width = Math.max(64, Math.round(this.canvas.clientWidth * dots));
    const height = Math.max(36, Math.round(this.canvas.clientHeight * dots));
    if (this.canvas.width !== width || this.canvas.height !== height) [this.canvas.width, this.canvas.height] = [width, height];
    this.street.draw(this.context, width, height, {...view, zoom: view.zoom / 1.08});
    this.expose(view);
  }

  expose({focus, sharp, iris, light: outside, zoom, optical}) {
    // The higher the zoom, the smaller the depth of field.
    const off = Math.max(0, Math.abs(focus - sharp) - kSharpEnough) / 50;
    const blur = off * (8 + 16 * Math.sqrt(Math.min(1, zoom / optical)));
    // The exposure is right when the iris and the light outside add up to 100 %.
    const open = iris / Math.max(2, 100 - outside);
    const light = open <= 1 ? 0.03 + 0.97 * Math.pow(open, 1.5) : 1 + 1.9 * Math.pow(Math.min(1.6, open - 1), 1.3);
    const filter = `brightness(${light.toFixed(3)})${blur ? ` blur(${blur.toFixed(2)}px)` : ''}`;
    const shown = Math.abs(light - 1) < 0.004 && !blur ? 'none' : filter;
    if (shown !== this.filter) this.canvas.style.filter = this.filter = shown;
  }
}

// ---------------------------------------------------------------- readings

const picture = new Picture();
const motion = new Motion();
const plan = new Plan($('plan'));
const arc = new Arc($('arc'));
const bars = Object.fromEntries([...document.querySelectorAll('.drive')].map((drive) => [drive.dataset.drive, new Bar(drive)]));
const arrivals = new Arrivals($('arrivals'), $('no-arrivals'), $('rate'));
const panel = new CommandPanel((sent) => trace.reveal(sent));
const trace = new Trace(panel, showMessage);
const commanded = new Commanded();
const narration = new Narration($('said'));
let s_camera = null;
let s_started = 0;

const minus = (text) => text.replace('-', '−');
const kTexts = {
  pan: (v) => `${v.pan.toFixed(2)}°`,
  tilt: (v) => `${minus((v.tilt || 0).toFixed(2))}°`,
  zoom: (v) => `${v.zoom.toFixed(v.zoom < 100 ? 2 : 1)}×`,
  focus: (v) => `${v.focus.toFixed(1)} %`,
  iris: (v) => `${v.iris.toFixed(1)} %`,
};
const s_shown = [...document.querySelectorAll('[data-show]')].map((element) => ({element, text: kTexts[element.dataset.show]}));

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/// The target of the positioned move under way; null without one.
function goalOf(axis) {
  return axis.moving && axis.target !== null ? axis.target : null;
}

function signedTurn(camera, pan, goal) {
  const growing = (goal - pan + 720) % 360;
  return camera.pan.velocity < 0 ? growing - 360 : growing;
}

function motionNote(axis, goal, words) {
  if (!axis.moving) return 'at rest';
  if (goal !== null) return `to ${minus(goal.toFixed(2))}°`;
  return `${axis.velocity < 0 ? words[0] : words[1]} at ${Math.round(Math.abs(axis.velocity) * 100)} %`;
}

const zoomWord = ({velocity}) => (velocity < 0 ? 'zooming out' : velocity > 0 ? 'zooming in' : 'zooming');

function zoomNote({zoom}) {
  const goal = goalOf(zoom);
  if (goal !== null) return `to ${(goal / 1000).toFixed(2)}×`;
  if (zoom.moving) return zoomWord(zoom);
  return `${zoom.position > zoom.optical ? 'cropped, ' : ''}of ${Math.round(zoom.maximum / 1000)}×`;
}

/// What the picture says of the motion; one thing at a time, for the narrowest picture.
function motionWord({pan, tilt, zoom, focus}) {
  if (zoom.moving) return zoomWord(zoom);
  if (focus.focusing) return 'focusing';
  return pan.moving || tilt.moving ? 'moving' : '';
}

function zoomFraction(zoom, camera) {
  const max = Math.max(1.001, camera.zoom.maximum / 1000);
  return Math.min(1, Math.max(0, Math.log(zoom) / Math.log(max)));
}

function showInstruments(view) {
  const camera = s_camera;
  for (const {element, text} of s_shown) setText(element, text(view));
  const panGoal = goalOf(camera.pan) === null ? null : camera.pan.target / 1000;
  const tiltGoal = goalOf(camera.tilt) === null ? null : camera.tilt.target / 1000;
  plan.show(view.pan, view.zoom, panGoal, panGoal === null ? 0 : signedTurn(camera, view.pan, panGoal));
  arc.show(view.tilt, view.zoom, tiltGoal);
  setText($('pan-note'), motionNote(camera.pan, panGoal, ['counter-clockwise', 'clockwise']));
  setText($('tilt-note'), motionNote(camera.tilt, tiltGoal, ['down', 'up']));
  const zoomGoal = goalOf(camera.zoom);
  bars.zoom.show(zoomFraction(view.zoom, camera), zoomGoal === null ? null : zoomFraction(zoomGoal / 1000, camera));
  for (const name of ['focus', 'iris']) {
    const goal = goalOf(camera[name]);
    bars[name].show(view[name] / 100, goal === null ? null : goal / 100);
  }
}

let s_nextFrame = 0;
function frame(now) {
  requestAnimationFrame(frame);
  if (!s_camera) return;
  const isMoving = ['pan', 'tilt', 'zoom', 'focus', 'iris'].some((name) => s_camera[name].moving);
  if (!isMoving && now < s_nextFrame) return; // while nothing moves, fewer than sixty frames a second are enough
  s_nextFrame = now + 30;
  const view = motion.at(now);
  if (!view) return; // the stream's first state has not arrived yet
  showInstruments(view);
  picture.draw(view, now);
}

// ---------------------------------------------------------------- switches

function element(name, properties, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children);
  return made;
}

const isOn = (button) => button.getAttribute('aria-checked') === 'true';
const setOn = (button, on) => {
  button.setAttribute('aria-checked', String(on));
  delete button.dataset.unknown;
};

/// Inputs or relays: a row of switches a bank.
class BankSwitches {
  constructor(root, kind, title) {
    Object.assign(this, {root, kind, title, shape: ''});
    root.addEventListener('click', (event) => {
      const point = event.target.closest('.point');
      if (point) attempt(control('set', kind, point.dataset.bank, point.dataset.number, isOn(point) ? 0 : 1));
    });
  }

  show(banks) {
    const shape = JSON.stringify(Object.entries(banks).map(([name, states]) => [name, states.length]));
    if (shape !== this.shape) this.build(banks, shape);
    let i = 0;
    for (const states of Object.values(banks)) {
      for (const state of states) {
        const point = this.points[i++];
        if (isOn(point) !== state) setOn(point, state);
      }
    }
  }

  build(banks, shape) {
    this.shape = shape;
    this.points = [];
    const word = this.kind === 'alarm' ? 'Input' : 'Relay';
    const rows = Object.entries(banks).map(([name, states]) => {
      const points = states.map((state, number) => {
        const point = element('button', {type: 'button', className: 'point', textContent: number});
        point.setAttribute('role', 'switch');
        setOn(point, state);
        point.setAttribute('aria-label', `${word} ${number} of ${name}`);
        Object.assign(point.dataset, {bank: name, number});
        return point;
      });
      this.points.push(...points);
      const none = states.length ? [] : [element('span', {className: 'note', textContent: 'none'})];
      return element('div', {className: `bank ${this.kind}`}, element('span', {textContent: name, title: name}), ...points, ...none);
    });
    this.root.replaceChildren(element('h3', {textContent: this.title}), ...rows);
  }
}

const inputs = new BankSwitches($('inputs'), 'alarm', 'Inputs');
const relays = new BankSwitches($('relays'), 'relay', 'Relays');

/// A field a temperature sensor.
function buildTemperatures(count) {
  for (const field of [...document.querySelectorAll('.temperature')]) field.remove();
  for (let sensor = 0; sensor < count; ++sensor) {
    const input = element('input', {id: `temperature-${sensor}`, type: 'number', step: 1});
    input.addEventListener('change', () => attempt(control('set', 'temperature', sensor, input.value || 0)));
    const label = element('label', {htmlFor: input.id, className: 'temperature', textContent: `Temperature ${sensor}`});
    $('voltage').previousElementSibling.before(label, element('span', {className: 'unit temperature'}, input, ' °C'));
  }
}

$('light').addEventListener('change', (event) => attempt(control('set', 'light', event.target.value || 0)));
for (const name of ['voltage', 'power']) {
  kCodes[name].forEach((text, code) => $(name).append(new Option(`${code} ${text}`, code)));
  $(name).addEventListener('change', (event) => attempt(control('set', name, event.target.value)));
}

/// Skips a field that the user is editing.
function setField(field, value) {
  if (field.value !== String(value) && field !== document.activeElement) field.value = value;
}

function showSensors(camera) {
  setField($('light'), Math.round(camera.iris.light));
  if (document.querySelectorAll('.unit.temperature').length !== camera.temperature.length) buildTemperatures(camera.temperature.length);
  camera.temperature.forEach((degrees, sensor) => setField($(`temperature-${sensor}`), degrees));
  for (const name of ['voltage', 'power']) {
    const select = $(name);
    const code = String(camera[name]);
    if (![...select.options].some((option) => option.value === code)) select.append(new Option(`${code} unknown`, code));
    if (select.value !== code) select.value = code;
  }
  $('fan').classList.toggle('on', camera.fan);
  setText($('fan'), camera.fan ? 'running' : 'off');
}

function buildServices(faults) {
  const rows = Object.keys(faults).map((name) => {
    const select = element('select', {id: `fault-${name}`}, ...[...s_faults.keys()].map((fault) => new Option(fault, fault)));
    select.addEventListener('change', () => attempt(control('fault', name, select.value)));
    return element('div', {className: 'service'}, element('label', {htmlFor: select.id, textContent: name}), select);
  });
  $('services').replaceChildren(...rows);
}

function showServices(faults) {
  const names = Object.keys(faults);
  if ($('services').childElementCount !== names.length) buildServices(faults);
  for (const name of names) {
    const select = $(`fault-${name}`);
    if (select.value !== faults[name]) select.value = faults[name];
    if (select.parentElement.dataset.fault !== faults[name]) select.parentElement.dataset.fault = faults[name];
  }
  return names.filter((name) => faults[name] !== 'ok').map((name) => `${name} ${s_faults.get(faults[name])}`);
}

/// What keeps the camera's motions from ending when they should.
function clockTrouble({mode, rate}) {
  if (mode === 'pause') return ['clock paused: nothing moves'];
  return rate === 1 ? [] : [`clock at ${rate}×`];
}

for (const [id, service, operation] of [['auto-focus', 'focus', 'SetAutoFocus'], ['auto-iris', 'iris', 'SetAutoIris']]) {
  $(id).addEventListener('click', (event) => attempt(call(service, operation, [!isOn(event.currentTarget)])));
}

// ---------------------------------------------------------------- the stream

const kLinks = {waiting: 'Connecting', live: 'Live', silent: 'Agent does not answer', lost: 'No connection'};

let s_agentLink = 'waiting'; // for the agent's first answer or timeout
let s_isLost = false;

/// The connection to the camera, and to the agent in front of it.
function showLink() {
  const link = s_isLost ? 'lost' : s_agentLink;
  if ($('link').dataset.link === link) return;
  $('link').dataset.link = link;
  setText($('link'), kLinks[link]);
  $('frame').classList.toggle('lost', s_isLost);
}

new Stream({
  onLink(isLost) {
    s_isLost = isLost;
    showLink();
  },
  onAgent({answers}) {
    s_agentLink = answers ? 'live' : 'silent';
    showLink();
  },
  onCommands(bindings) {
    commanded.show(bindings);
  },
  onHello({agentAddress, agentPort, agentWatched, faults, fleet, serial, started}) {
    s_faults = new Map(faults);
    s_agentLink = agentWatched ? 'waiting' : 'live';
    showLink();
    setText($('agent'), `${agentAddress}:${agentPort}`);
    setText($('serial'), serial);
    $('fleet').hidden = !fleet;
    document.title = serial ? `${serial} – Desk camera` : 'Desk camera';
    panel.setAgent(`${agentAddress}:${agentPort}`, agentWatched);
    panel.load();
    commanded.setWatched(agentWatched);
    motion.reset();
    if (started !== s_started) arrivals.restart();
    s_started = started;
  },
  onState(state) {
    const camera = (s_camera = state.camera);
    motion.add(state);
    panel.setZoomMaximum(camera.zoom.maximum);
    inputs.show(camera.alarm);
    relays.show(camera.relay);
    $('shortened').hidden = !camera.shortened;
    showSensors(camera);
    setText($('trouble'), [...clockTrouble(camera.clock), ...showServices(camera.faults)].join(', '));
    commanded.follow(camera);
    setOn($('auto-focus'), camera.focus.auto);
    setOn($('auto-iris'), camera.iris.auto);
    setText($('moving'), motionWord(camera));
    setText($('zoom-note'), zoomNote(camera));
    setText($('presets'), String(camera.presets));
    narration.follow(camera);
  },
  onActivity(activity) {
    arrivals.add(activity);
  },
});

new Joystick($('pad'), $('knob'), attempt);
new HoldButtons(document.querySelectorAll('[data-hold]'), attempt);
requestAnimationFrame(frame);
