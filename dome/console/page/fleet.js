// All cameras of a fleet. One request every two seconds brings what is known of every one; a picture is drawn only when
// its camera is in sight and has turned.

import {Street} from './scene.js';

const $ = (id) => document.getElementById(id);
const kAskEvery = 2000; // milliseconds
const kAnswerTime = 5000;
const kPicturesAtOnce = 8; // in one frame
const kStates = {'': 'not asked yet', silent: 'does not answer', ended: 'has ended'};

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

function element(name, properties, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children);
  return made;
}

/// "3 s ago"; the clocks of camera and browser may differ, so it is never negative.
function age(time) {
  const seconds = Math.max(0, Math.round((Date.now() - time) / 1000));
  if (seconds < 60) return `${seconds} s ago`;
  return seconds < 3600 ? `${Math.floor(seconds / 60)} min ago` : `${Math.floor(seconds / 3600)} h ago`;
}

// ---------------------------------------------------------------- the pictures

/// Draws the pictures that are due, a few in a frame: a thousand at once would stop the page.
class Studio {
  constructor() {
    this.street = new Street();
    this.street.advance(30);
    this.due = new Set();
    this.seen = new IntersectionObserver((entries) => {
      for (const {target, isIntersecting} of entries) {
        target.card.isInSight = isIntersecting;
        this.want(target.card);
      }
    }, {rootMargin: '200px'});
  }

  want(card) {
    if (!card.isInSight || card.drawn === card.view) return;
    if (this.due.size === 0) requestAnimationFrame(() => this.work());
    this.due.add(card);
  }

  work() {
    for (const card of [...this.due].slice(0, kPicturesAtOnce)) {
      this.due.delete(card);
      const [pan, tilt, zoom] = card.view.split(' ').map((value) => Number(value) / 1000);
      const context = (card.context ??= card.canvas.getContext('2d', {alpha: false}));
      this.street.draw(context, card.canvas.width, card.canvas.height, {pan, tilt, zoom});
      card.drawn = card.view;
    }
    if (this.due.size) requestAnimationFrame(() => this.work());
  }
}

const studio = new Studio();

// ---------------------------------------------------------------- the cards

class Card {
  constructor(number) {
    this.number = number;
    this.drawn = this.view = '';
    this.canvas = element('canvas', {width: 240, height: 135});
    this.canvas.setAttribute('aria-hidden', 'true');
    [this.name, this.place, this.last, this.faults] = ['name', 'place', 'last', 'faults'].map((className) => element('p', {className}));
    this.link = element('a', {}, this.canvas, this.name, this.place, this.last, this.faults);
    this.root = element('li', {card: this}, this.link);
    this.root.dataset.number = number;
    studio.seen.observe(this.root);
  }

  show({state, address, port, summary}) {
    this.state = state;
    this.isFaulty = Object.keys(summary?.faults ?? {}).length > 0;
    this.isMoving = state === 'answers' && summary?.moving === true;
    this.isAway = state !== 'answers';
    this.root.classList.toggle('away', this.isAway);
    // A page that is served on all addresses is there under the name of this one.
    if (port) this.link.href = `http://${address === '0.0.0.0' ? location.hostname : address}:${port}/`;
    else this.link.removeAttribute('href');
    setText(this.name, summary?.serial || `Camera ${this.number}`);
    const degrees = (value) => `${(value / 1000).toFixed(1)}°`;
    setText(this.place, summary ? `${degrees(summary.pan)}, ${degrees(summary.tilt)}, ${(summary.zoom / 1000).toFixed(1)}×${this.isMoving ? ', moves' : ''}` : '–');
    const last = summary?.last;
    setText(this.last, last ? `${age(last.time)}: ${last.service}.${last.call}` : 'no request yet');
    const faults = Object.entries(summary?.faults ?? {}).map(([service, fault]) => `${service} ${fault}`);
    setText(this.faults, [...(this.isAway ? [kStates[state] ?? state] : []), ...faults].join(', '));
    this.text = `${this.number} ${this.name.textContent} ${this.faults.textContent}`.toLowerCase();
    if (summary) this.view = `${summary.pan} ${summary.tilt} ${summary.zoom}`;
    studio.want(this);
  }
}

const kChoices = {all: () => true, faulty: (card) => card.isFaulty, away: (card) => card.isAway, moving: (card) => card.isMoving};
let s_cards = [];

function filter() {
  const words = $('words').value.toLowerCase().split(/\s+/).filter(Boolean);
  const isChosen = kChoices[$('which').value];
  let shown = 0;
  for (const card of s_cards) {
    const isShown = isChosen(card) && words.every((word) => card.text.includes(word));
    if (card.root.hidden === isShown) card.root.hidden = !isShown;
    shown += isShown;
  }
  const faulty = s_cards.filter(kChoices.faulty).length;
  const away = s_cards.filter(kChoices.away).length;
  setText($('count'), `${shown} of ${s_cards.length} cameras; ${faulty} with a fault, ${away} not answering`);
}

function show(cameras) {
  while (s_cards.length > cameras.length) s_cards.pop().root.remove();
  const added = cameras.slice(s_cards.length).map(({number}) => new Card(number));
  $('cameras').append(...added.map((card) => card.root));
  s_cards.push(...added);
  cameras.forEach((camera, i) => s_cards[i].show(camera));
  filter();
}

$('filter').addEventListener('input', filter);
$('filter').addEventListener('submit', (event) => event.preventDefault());

// ---------------------------------------------------------------- the camera that serves this page

function showLink(link, text, trouble = '') {
  $('link').dataset.link = link;
  setText($('link'), text);
  setText($('trouble'), trouble);
}

async function ask() {
  if (!document.hidden) {
    try {
      const response = await fetch('/api/fleet', {signal: AbortSignal.timeout(kAnswerTime)});
      const answer = await response.json();
      if (!response.ok) throw new Error(answer.error);
      show(answer.cameras);
      showLink('live', 'Live');
    } catch (error) {
      showLink('lost', 'No connection', error.message);
    }
  }
  setTimeout(ask, kAskEvery);
}

ask();
