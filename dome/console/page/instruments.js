// Plan, tilt arc and lens bars: drawn once, then only moved.

import {fieldOfView} from './scene.js';

const kSvg = 'http://www.w3.org/2000/svg';

function add(parent, name, attributes, text) {
  const element = document.createElementNS(kSvg, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  if (text !== undefined) element.textContent = text;
  parent.append(element);
  return element;
}

/// A point at an angle, in degrees clockwise from the top.
function polar(angle, radius) {
  const a = (angle * Math.PI) / 180;
  return [radius * Math.sin(a), -radius * Math.cos(a)];
}

const pair = ([x, y]) => `${x.toFixed(2)} ${y.toFixed(2)}`;

function wedgePath(from, to, radius) {
  const large = to - from > 180 ? 1 : 0;
  return `M0 0L${pair(polar(from, radius))}A${radius} ${radius} 0 ${large} 1 ${pair(polar(to, radius))}Z`;
}

function arcPath(from, to, radius) {
  const [a, b] = from <= to ? [from, to] : [to, from];
  const end = Math.min(b, a + 359.9);
  return `M${pair(polar(a, radius))}A${radius} ${radius} 0 ${end - a > 180 ? 1 : 0} 1 ${pair(polar(end, radius))}`;
}

function ticks(parent, angles, outer, lengthOf) {
  for (const angle of angles) {
    const length = lengthOf(angle);
    const [x1, y1] = polar(angle, outer);
    const [x2, y2] = polar(angle, outer - length);
    add(parent, 'line', {x1, y1, x2, y2, class: length > 5 ? 'tick major' : 'tick'});
  }
}

/// Inside the scale, so that it never covers a number.
const kGoal = 'M0 -78L-5 -68H5Z';

/// Degrees; a narrower wedge would be invisible.
const visible = (degrees) => Math.max(degrees, 1.6);

export class Plan {
  constructor(svg) {
    // The crossing, with the camera at its corner.
    add(svg, 'path', {d: 'M-24 -74.2A78 78 0 0 1 -3 -77.9V-36H69.2A78 78 0 0 1 76.5 -15H-3V77.9A78 78 0 0 1 -24 74.2V-15H-76.5A78 78 0 0 1 -69.2 -36H-24Z', class: 'street'});
    add(svg, 'circle', {r: 78, class: 'rim'});
    ticks(svg, Array.from({length: 72}, (_, i) => i * 5), 78, (angle) => (angle % 90 === 0 ? 9 : angle % 30 === 0 ? 6 : 3));
    for (const angle of [0, 90, 180, 270]) {
      const [x, y] = polar(angle, angle % 180 ? 97 : 90);
      add(svg, 'text', {x, y: y + 4.3, class: 'mark'}, `${angle}°`);
    }
    this.travel = add(svg, 'path', {class: 'travel'});
    this.goal = add(svg, 'path', {class: 'goal', d: kGoal});
    this.wedge = add(svg, 'path', {class: 'wedge'});
    this.hand = add(svg, 'line', {x1: 0, y1: 0, x2: 0, y2: -68, class: 'hand'});
    add(svg, 'circle', {r: 3.6, class: 'hub'});
  }

  /// Degrees; `goal` null: no target. `turn`: signed distance to it.
  show(pan, zoom, goal, turn) {
    const half = visible(fieldOfView(zoom)) / 2;
    this.hand.setAttribute('transform', `rotate(${pan})`);
    this.wedge.setAttribute('d', wedgePath(pan - half, pan + half, 68));
    this.goal.toggleAttribute('hidden', goal === null);
    this.travel.toggleAttribute('hidden', goal === null);
    if (goal === null) return;
    this.goal.setAttribute('transform', `rotate(${goal})`);
    this.travel.setAttribute('d', arcPath(pan, pan + turn, 73));
  }
}

export class Arc {
  constructor(svg) {
    add(svg, 'path', {d: 'M0 -78A78 78 0 0 1 0 78', class: 'rim'});
    add(svg, 'line', {x1: -12, y1: 0, x2: 78, y2: 0, class: 'horizon'});
    ticks(svg, Array.from({length: 37}, (_, i) => i * 5), 78, (angle) => (angle % 90 === 0 ? 9 : angle % 30 === 0 ? 6 : 3));
    for (const [angle, text] of [[0, '90°'], [90, '0°'], [180, '−90°']]) {
      const [x, y] = polar(angle, 92);
      add(svg, 'text', {x, y: y + 4.3, class: 'mark'}, text);
    }
    this.travel = add(svg, 'path', {class: 'travel'});
    this.goal = add(svg, 'path', {class: 'goal', d: kGoal});
    this.wedge = add(svg, 'path', {class: 'wedge'});
    this.hand = add(svg, 'line', {x1: 0, y1: 0, x2: 0, y2: -68, class: 'hand'});
    add(svg, 'circle', {r: 3.6, class: 'hub'});
  }

  show(tilt, zoom, goal) {
    const half = visible((fieldOfView(zoom) * 9) / 16) / 2;
    const angle = 90 - tilt;
    this.hand.setAttribute('transform', `rotate(${angle})`);
    this.wedge.setAttribute('d', wedgePath(angle - half, angle + half, 68));
    this.goal.toggleAttribute('hidden', goal === null);
    this.travel.toggleAttribute('hidden', goal === null);
    if (goal === null) return;
    this.goal.setAttribute('transform', `rotate(${90 - goal})`);
    this.travel.setAttribute('d', arcPath(angle, 90 - goal, 73));
  }
}

export class Bar {
  constructor(drive) {
    [this.fill, this.goal, this.thumb] = ['fill', 'goal', 'thumb'].map((name) => drive.querySelector(`.${name}`));
  }

  /// Fractions, 0 to 1; `goal` null: no target.
  show(position, goal) {
    this.fill.style.transform = `scaleX(${position})`;
    this.thumb.style.left = `${position * 100}%`;
    this.goal.hidden = goal === null;
    if (goal !== null) this.goal.style.left = `${goal * 100}%`;
  }
}
