// The table of arrivals: calls from the bus, calls of this page's controls, events.

const kMaxRows = 500; // as many as the camera keeps
const kTurn = 360000;

const degrees = (thousandths) => `${(Number(thousandths) / 1000).toFixed(2)}°`.replace('-', '−');
const percent = (fraction) => `${Math.round(Math.abs(Number(fraction)) * 100)} %`;
const within = (seconds) => `, within ${seconds} s`;
const speedOf = (speed) => (Number(speed) === 0 ? 'at the default speed' : `at ${percent(speed)}`);

function velocity(forward, backward) {
  return ([v, limit]) => (Number(v) === 0 ? 'stop' : `${Number(v) > 0 ? forward : backward} at ${percent(v)}, at most ${limit} s`);
}

function direction(backward, forward) {
  return ([d]) => ({'-1': backward, 0: 'stop', 1: forward})[d];
}

function panTarget(position) {
  return degrees(((Number(position) % kTurn) + kTurn) % kTurn);
}

const bankPoint = ([bank, number]) => `${number} of ${bank}`;

const kMeanings = {
  'pan.SetPosition': ([p, limit]) => `to ${panTarget(p)}${within(limit)}`,
  'pan.SetPositionAtSpeed': ([p, speed, limit]) => {
    const turning = Number(speed) > 0 ? ', clockwise' : Number(speed) < 0 ? ', counter-clockwise' : '';
    return `to ${panTarget(p)} ${speedOf(speed)}${turning}${within(limit)}`;
  },
  'pan.SetRelativeVelocity': velocity('clockwise', 'counter-clockwise'),
  'tilt.SetPosition': ([p, limit]) => `to ${degrees(p)}${within(limit)}`,
  'tilt.SetPositionAtSpeed': ([p, speed, limit]) => `to ${degrees(p)} ${speedOf(speed)}${within(limit)}`,
  'tilt.SetRelativeVelocity': velocity('up', 'down'),
  'zoom.SetMagnificationThousandthsX': ([m, limit]) => `to ${(m / 1000).toFixed(2)}×${within(limit)}`,
  'zoom.ZoomRelative': ([d, limit]) => `${direction('out', 'in')([d])}${d === '0' ? '' : `, at most ${limit} s`}`,
  'focus.MoveFocus': direction('nearer', 'farther'),
  'focus.SetAutoFocus': ([on]) => `automatic ${on === 'true' ? 'on' : 'off'}`,
  'focus2.SetPosition': ([p]) => `to ${Number(p).toFixed(1)} %`,
  'focus2.RelativeFocus': ([p]) => `by ${Number(p).toFixed(1)} %`,
  'focus2.AutoFocus': ([start]) => (start === 'true' ? 'find the focus once' : 'stop focusing'),
  'iris.MoveIris': direction('close', 'open'),
  'iris.SetAutoIris': ([on]) => `automatic ${on === 'true' ? 'on' : 'off'}`,
  'relay.SetRelay': (args) => `energise ${bankPoint(args)}`,
  'relay.ClearRelay': (args) => `release ${bankPoint(args)}`,
  'temperature.OnTemperatureChange': ([sensor, value]) => `sensor ${sensor}: ${value} °C`,
  'voltage.OnVoltageStatusChange': ([code]) => `status ${code}`,
  'power.OnPowerStatusChange': ([code]) => `status ${code}`,
};

function meaningOf({service, call, args}) {
  return kMeanings[`${service}.${call}`]?.(args) ?? '';
}

function timeText(milliseconds) {
  const time = new Date(milliseconds);
  const two = (number) => String(number).padStart(2, '0');
  return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}.${String(time.getMilliseconds()).padStart(3, '0')}`;
}

function make(name, className, text) {
  const element = document.createElement(name);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

export class Arrivals {
  constructor(table, empty, rate) {
    Object.assign(this, {rows: table.tBodies[0], empty, rate, waiting: [], times: []});
    this.restart();
    document.getElementById('clear-list').addEventListener('click', () => this.clear());
    this.hold = document.getElementById('hold-list');
    const reads = document.getElementById('show-reads');
    for (const button of [this.hold, reads]) {
      button.addEventListener('click', () => {
        button.setAttribute('aria-checked', String(button.getAttribute('aria-checked') !== 'true'));
        table.classList.toggle('no-reads', reads.getAttribute('aria-checked') !== 'true');
        this.flush();
      });
    }
    setInterval(() => this.showRate(), 1000);
  }

  /// Clears the table for a restarted camera, which counts from 1 again.
  restart() {
    this.last = 0;
    this.clear();
  }

  clear() {
    this.rows.replaceChildren();
    this.newest = null;
    this.waiting = [];
    this.empty.hidden = false;
  }

  add(activity) {
    if (activity.number <= this.last) return; // shown before the connection was lost
    this.last = activity.number;
    this.times.push(performance.now());
    this.waiting.push(activity);
    if (this.waiting.length > kMaxRows) this.waiting.shift();
    // Renders a burst in one step, not row by row.
    if (!this.scheduled) this.scheduled = setTimeout(() => this.flush(), 60);
  }

  flush() {
    this.scheduled = 0;
    if (this.hold.getAttribute('aria-checked') === 'true') return;
    for (const activity of this.waiting.splice(0)) this.show(activity);
    while (this.rows.childElementCount > kMaxRows) this.rows.lastElementChild.remove();
    this.empty.hidden = this.rows.childElementCount > 0;
  }

  show(activity) {
    const {source, service, call, args, outcome} = activity;
    const key = JSON.stringify([source, service, call, args, outcome]);
    const outcomeText = source === 'event' ? 'event' : outcome;
    if (this.newest?.key === key) {
      this.newest.count += 1;
      this.newest.outcome.textContent = `${outcomeText} ×${this.newest.count}`;
      this.newest.time.textContent = timeText(activity.time);
      return;
    }
    const row = make('tr', call.startsWith('Get') || call === 'IsRunning' ? 'read' : '');
    const time = make('time', '', timeText(activity.time));
    const code = make('code', '', `${service}.${call}`);
    code.append(make('em', '', `(${args.join(', ')})`));
    const outcomeMark = make('span', 'outcome', outcomeText);
    outcomeMark.dataset.is = source === 'event' ? 'event' : outcome;
    const cells = [time, code, outcomeMark].map((content) => row.insertCell().appendChild(content).parentElement);
    const words = [source === 'console' ? 'this console' : '', meaningOf(activity)].filter(Boolean).join(': ');
    if (words) cells[1].append(make('span', 'meaning', words));
    this.rows.prepend(row);
    this.newest = {key, count: 1, outcome: outcomeMark, time};
  }

  showRate() {
    const since = performance.now() - 5000;
    this.times = this.times.filter((time) => time > since);
    const rate = this.times.length / 5;
    this.rate.textContent = rate ? `${rate < 10 ? rate.toFixed(1) : Math.round(rate)} a second` : '';
  }
}
