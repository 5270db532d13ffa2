// The connection to the camera: its event stream, its actions, and its positions between two states.

const kSilence = 4500; // milliseconds; the stream beats every two seconds
const kDelay = 70; // milliseconds that the page lags behind, so that it can interpolate to a later state
const kKept = 24;
const kContinuous = 130; // milliseconds; after a longer gap between two states the camera was at rest meanwhile

/// POSTs an action; resolves to the answer, rejects with an Error whose text the page can show. Its `isRefused` is true
/// when the camera has refused the action; otherwise it is not known what came of it.
export async function act(path, body, options = {}) {
  const response = await fetch(path, {
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify(body),
    ...options,
  });
  if (response.ok) return response.json();
  const {error} = await response.json().catch(() => ({}));
  const isRefused = response.status !== 500;
  throw Object.assign(new Error(error ?? `refused (${response.status})`), {isRefused});
}

export const call = async (service, operation, args, options) => ({service, ...(await act('/api/call', {service, operation, args}, options))});
export const control = (...words) => act('/api/control', {words: words.map(String)});

/// Follows the camera while the page is visible. `listener` has onHello, onState, onActivity, onAgent and onCommands, and
/// onLink(isLost): whether the camera has been heard of lately.
export class Stream {
  constructor(listener) {
    this.listener = listener;
    document.addEventListener('visibilitychange', () => (document.hidden ? this.close() : this.open()));
    this.open();
  }

  open() {
    if (this.source || document.hidden) return;
    this.source = new EventSource('/api/stream');
    this.awaitBeat();
    this.source.addEventListener('error', () => {
      this.listener.onLink(true);
      if (this.source?.readyState === EventSource.CLOSED) {
        this.close();
        setTimeout(() => this.open(), 2000);
      }
    });
    for (const name of ['Hello', 'State', 'Activity', 'Agent', 'Commands']) {
      this.source.addEventListener(name.toLowerCase(), (event) => this.listener[`on${name}`](JSON.parse(event.data)));
    }
    // These come from the camera's thread. The others come also while that one hangs.
    for (const name of ['state', 'activity', 'beat']) this.source.addEventListener(name, () => this.hear());
  }

  hear() {
    this.listener.onLink(false);
    this.awaitBeat();
  }

  awaitBeat() {
    clearTimeout(this.silence);
    this.silence = setTimeout(() => this.listener.onLink(true), kSilence);
  }

  close() {
    clearTimeout(this.silence);
    this.source?.close();
    this.source = null;
  }
}

/// The camera's positions at a moment, interpolated between two states.
export class Motion {
  constructor() {
    this.reset();
  }

  reset() {
    this.states = [];
    this.offset = null;
  }

  add({time, camera}) {
    const last = this.states[this.states.length - 1];
    if (last && time < last.time) this.reset();
    else if (last && time - last.time > kContinuous) this.states.push({time: time - 40, positions: last.positions});
    this.states.push({time, positions: positionsOf(camera)});
    if (this.states.length > kKept) this.states.shift();
    // The state that arrives fastest gives the difference of the clocks, which may drift.
    const late = performance.now() - time;
    this.offset = this.offset === null ? late : Math.min(late, this.offset + 0.05);
  }

  at(now) {
    if (!this.states.length) return null;
    const time = now - this.offset - kDelay;
    let i = this.states.length - 1;
    while (i > 0 && this.states[i].time > time) --i;
    const [a, b] = [this.states[i], this.states[i + 1]];
    if (!b || time <= a.time) return a.positions;
    return between(a.positions, b.positions, Math.min(1, (time - a.time) / (b.time - a.time)));
  }
}

function positionsOf(camera) {
  return {
    pan: camera.pan.position / 1000,
    tilt: camera.tilt.position / 1000,
    zoom: camera.zoom.position / 1000,
    focus: camera.focus.position,
    iris: camera.iris.position,
    sharp: camera.focus.sharp,
    light: camera.iris.light,
    optical: camera.zoom.optical / 1000,
  };
}

function between(a, b, t) {
  const result = {};
  for (const name of Object.keys(a)) {
    const distance = name === 'pan' ? ((b.pan - a.pan + 540) % 360) - 180 : b[name] - a[name];
    result[name] = a[name] + distance * t;
  }
  result.pan = (result.pan + 360) % 360;
  return result;
}
