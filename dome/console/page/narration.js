// What a screen reader says of the camera's motion: its begin, its target and its end, not each position on the way.

const kPause = 600; // milliseconds; what happens within them is said at once

const degrees = (thousandths) => `${(thousandths / 1000).toFixed(2)}°`.replace('-', '−');
const times = (thousandths) => `${(thousandths / 1000).toFixed(2)}×`;

const kAxes = [
  {name: 'pan', title: 'Pan', text: degrees, words: ['counter-clockwise', 'clockwise']},
  {name: 'tilt', title: 'Tilt', text: degrees, words: ['down', 'up']},
  {name: 'zoom', title: 'Zoom', text: times, words: ['out', 'in']},
];

/// Without the position of an axis that moves, so that it changes only when there is something to say.
function phrase({title, text, words}, {moving, target, velocity, position}) {
  if (!moving) return `${title} at rest at ${text(position)}`;
  if (target !== null) return `${title} to ${text(target)}`;
  return velocity ? `${title} ${velocity < 0 ? words[0] : words[1]}` : `${title} moves`;
}

export class Narration {
  constructor(status) {
    Object.assign(this, {status, now: null, said: null, timer: 0});
  }

  follow(camera) {
    this.now = kAxes.map((axis) => phrase(axis, camera[axis.name]));
    this.said ??= this.now; // the page has just been opened
    if (!this.timer && this.now.some((text, i) => text !== this.said[i])) this.timer = setTimeout(() => this.say(), kPause);
  }

  say() {
    this.timer = 0;
    const news = this.now.filter((text, i) => text !== this.said[i]);
    this.said = this.now;
    if (news.length) this.status.textContent = news.join('. ');
  }
}
