// Joystick and held keys. They call the same operations as a manager's commands.

import {call} from './link.js';

const kEvery = 80; // min milliseconds between two calls of one axis
const kRenewed = 900; // milliseconds; a held stick repeats its call before kLimit ends the move
const kLimit = 2; // seconds
const kRest = 0.08; // fraction of the travel: the stick's dead zone
const kReach = 66; // the knob's travel, in the drawing's units

/// One axis of the stick: limits the rate of calls and always sends the last value.
class Velocity {
  constructor(service, attempt) {
    Object.assign(this, {service, attempt, value: 0, sent: 0, sentAt: 0, timer: 0});
  }

  set(value) {
    this.value = Math.round(value * 100) / 100;
    if (!this.timer) this.send();
  }

  send() {
    clearTimeout(this.timer);
    this.timer = 0;
    const now = performance.now();
    const isStop = this.value === 0;
    const isNews = this.value !== this.sent;
    if (!isNews && (isStop || now - this.sentAt < kRenewed)) {
      if (!isStop) this.timer = setTimeout(() => this.send(), kRenewed / 3);
      return;
    }
    if (!isStop && now - this.sentAt < kEvery) {
      this.timer = setTimeout(() => this.send(), kEvery);
      return;
    }
    this.sent = this.value;
    this.sentAt = now;
    this.attempt(call(this.service, 'SetRelativeVelocity', [this.value, kLimit], {keepalive: isStop}));
    if (!isStop) this.timer = setTimeout(() => this.send(), kEvery);
  }
}

function curved(value) {
  const travel = Math.max(0, Math.abs(value) - kRest) / (1 - kRest);
  return Math.sign(value) * Math.pow(travel, 1.6);
}

export class Joystick {
  constructor(pad, knob, attempt) {
    Object.assign(this, {pad, knob, keys: new Set()});
    this.pan = new Velocity('pan', attempt);
    this.tilt = new Velocity('tilt', attempt);
    this.zoom = new Held('zoom', 'ZoomRelative', (d) => [d, kLimit], attempt);
    pad.addEventListener('pointerdown', (event) => this.grab(event));
    pad.addEventListener('pointermove', (event) => this.drag(event));
    for (const name of ['pointerup', 'pointercancel', 'lostpointercapture']) pad.addEventListener(name, () => this.release());
    pad.addEventListener('keydown', (event) => this.key(event, true));
    pad.addEventListener('keyup', (event) => this.key(event, false));
    pad.addEventListener('blur', () => this.release());
    window.addEventListener('pagehide', () => this.release());
  }

  grab(event) {
    if (event.button) return;
    this.pad.setPointerCapture(event.pointerId);
    this.pad.classList.add('held');
    this.isDragged = true;
    this.drag(event);
  }

  drag(event) {
    if (!this.isDragged) return;
    const box = this.pad.getBoundingClientRect();
    const radius = (box.width / 2) * (kReach / 96);
    let x = (event.clientX - box.left - box.width / 2) / radius;
    let y = (box.top + box.height / 2 - event.clientY) / radius;
    const length = Math.hypot(x, y);
    if (length > 1) [x, y] = [x / length, y / length];
    this.steer(x, y, curved);
  }

  steer(x, y, shape) {
    this.knob.setAttribute('transform', `translate(${x * kReach} ${-y * kReach})`);
    this.pan.set(shape(x));
    this.tilt.set(shape(y));
  }

  release() {
    this.isDragged = false;
    this.keys.clear();
    this.pad.classList.remove('held');
    this.steer(0, 0, (v) => v);
    this.zoom.set(0);
  }

  key(event, isDown) {
    const name = event.key === '=' ? '+' : event.key === '_' ? '-' : event.key;
    if (!['ArrowLeft', 'ArrowRight', 'ArrowUp', 'ArrowDown', '+', '-', 'Shift'].includes(name)) return;
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    if (isDown) this.keys.add(name);
    else this.keys.delete(name);
    const has = (key) => (this.keys.has(key) ? 1 : 0);
    const speed = event.shiftKey ? 1 : 0.4;
    this.steer((has('ArrowRight') - has('ArrowLeft')) * speed, (has('ArrowUp') - has('ArrowDown')) * speed, (v) => v);
    this.zoom.set(has('+') - has('-'));
  }
}

/// A drive with three directions: back, stop, forward.
class Held {
  constructor(service, operation, argumentsOf, attempt) {
    Object.assign(this, {service, operation, argumentsOf, attempt, direction: 0, timer: 0});
  }

  set(direction) {
    if (direction === this.direction) return;
    this.direction = direction;
    clearInterval(this.timer);
    this.send();
    if (direction && this.service === 'zoom') this.timer = setInterval(() => this.send(), kRenewed);
  }

  send() {
    this.attempt(call(this.service, this.operation, this.argumentsOf(this.direction), {keepalive: this.direction === 0}));
  }
}

const kHolds = {
  'zoom-in': ['zoom', 1], 'zoom-out': ['zoom', -1],
  'focus-near': ['focus', -1], 'focus-far': ['focus', 1],
  'iris-close': ['iris', -1], 'iris-open': ['iris', 1],
};

const kStep = 400; // milliseconds that a click without a pointer or a key holds, as a screen reader's

export class HoldButtons {
  constructor(buttons, attempt) {
    const drives = {
      zoom: new Held('zoom', 'ZoomRelative', (d) => [d, kLimit], attempt),
      focus: new Held('focus', 'MoveFocus', (d) => [d], attempt),
      iris: new Held('iris', 'MoveIris', (d) => [d], attempt),
    };
    for (const button of buttons) {
      const [name, direction] = kHolds[button.dataset.hold];
      this.wire(button, drives[name], direction);
    }
  }

  wire(button, drive, direction) {
    let isHeld = false;
    const hold = (held) => {
      if (held === isHeld) return;
      isHeld = held;
      button.classList.toggle('held', held);
      drive.set(held ? direction : 0);
    };
    button.addEventListener('pointerdown', (event) => {
      if (event.button) return;
      button.setPointerCapture(event.pointerId);
      hold(true);
    });
    for (const name of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) button.addEventListener(name, () => hold(false));
    button.addEventListener('click', (event) => {
      if (event.detail || isHeld) return; // a pointer has held it already
      hold(true);
      setTimeout(() => hold(false), kStep);
    });
    button.addEventListener('contextmenu', (event) => event.preventDefault());
    for (const [name, held] of [['keydown', true], ['keyup', false]]) {
      button.addEventListener(name, (event) => {
        if (event.key !== ' ' && event.key !== 'Enter') return;
        event.preventDefault();
        hold(held);
      });
    }
    window.addEventListener('pagehide', () => hold(false));
  }
}
