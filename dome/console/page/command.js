// The position objects' four-octet commands, in words: what the agent does with them.

const kTurn = 36000; // hundredths of a degree
const kMaxSpeed = 127;
const kMaxPosition = 65535;

export const kObjects = [
  {name: 'positionPan', oid: '1.3.6.1.4.1.1206.4.2.7.4.1.0', explain: (c) => axis(c, pan)},
  {name: 'positionTilt', oid: '1.3.6.1.4.1.1206.4.2.7.4.2.0', explain: (c) => axis(c, tilt)},
  {name: 'positionZoomLens', oid: '1.3.6.1.4.1.1206.4.2.7.4.3.0', explain: zoom},
  {name: 'positionFocusLens', oid: '1.3.6.1.4.1.1206.4.2.7.4.4.0', explain: focus},
  {name: 'positionIrisLens', oid: '1.3.6.1.4.1.1206.4.2.7.4.5.0', explain: iris},
];

export const kModes = ['stop', 'delta', 'absolute', 'continuous'];

const refused = (reason) => ({ok: false, text: `Refused with genErr: ${reason}. A GET still returns it.`});
const done = (text) => ({ok: true, text});

const pan = {
  forward: 'clockwise',
  backward: 'counter-clockwise',
  target: (position) => `${degrees(position)}`,
  direction: (speed) => (speed > 0 ? ', clockwise' : speed < 0 ? ', counter-clockwise' : ', in the shorter direction'),
};

const tilt = {
  forward: 'up',
  backward: 'down',
  target: (position) => {
    const angle = signedAngle(position);
    return angle === 0 ? 'the horizon (0.00°)' : `${degrees(Math.abs(angle))} ${angle > 0 ? 'up' : 'down'}`;
  },
  direction: () => '',
};

// The second quadrant repeats the first.
function signedAngle(position) {
  if (position <= 8999) return position;
  if (position <= 17999) return position - 9000;
  if (position <= 26999) return 18000 - position;
  return position - kTurn;
}

function degrees(hundredths) {
  return `${(hundredths / 100).toFixed(2)}°`;
}

function percentOf(speed) {
  return `${Math.round((Math.abs(speed) / kMaxSpeed) * 100)} %`;
}

function atSpeed(speed) {
  return speed === 0 ? 'at the default speed' : `at ${percentOf(speed)} of the max speed`;
}

function common(command) {
  if (command.mode > 3) return refused(`there is no mode ${command.mode}`);
  if (command.mode === 0 && command.speed !== 0) return refused('a stop requires the speed 0');
  return null;
}

function axis(command, words) {
  const objection = common(command);
  if (objection) return objection;
  const {mode, speed, position} = command;
  if (mode === 0) return done('Stop.');
  if (mode === 2 && position >= kTurn) return refused(`${position} is above the max, 35999`);
  if (speed === -128) return done('No motion: the speeds are -127 to 127.');
  if (mode === 1) {
    const direction = speed < 0 ? words.backward : words.forward;
    return done(`Move by ${degrees(position)} ${direction} from the current position, ${atSpeed(speed)}.`);
  }
  if (mode === 2) return done(`Move to ${words.target(position)} ${atSpeed(speed)}${words.direction(speed)}.`);
  if (speed === 0) return done('Move at the speed 0: the axis comes to rest.');
  return done(`Move ${speed < 0 ? words.backward : words.forward} at ${percentOf(speed)} of the max speed until stopped.`);
}

function zoom(command, camera) {
  const objection = common(command);
  if (objection) return objection;
  const {mode, speed, position} = command;
  const range = camera.zoomMaximum - 1000;
  const times = (thousandths) => `${(thousandths / 1000).toFixed(2)}×`;
  if (mode === 0) return done('Stop the zoom.');
  if (mode === 1) {
    const step = ((speed < 0 ? -position : position) << 16) >> 16; // 16 bits, two's complement
    return done(`Zoom ${step < 0 ? 'out' : 'in'} by ${times((Math.abs(step) / kMaxPosition) * range)} from the current magnification.`);
  }
  if (mode === 2) return done(`Zoom to ${times(Math.floor(1000 + (position / kMaxPosition) * range))}.`);
  if (speed === -128) return refused('the speeds are -127 to 127');
  return done(`Zoom ${speed < 0 ? 'out' : 'in'} until stopped, at the default rate.`);
}

function focus(command) {
  const objection = common(command);
  if (objection) return objection;
  const {mode, speed, position} = command;
  const percent = `${((position / kMaxPosition) * 100).toFixed(1)} %`;
  if (mode === 0) return done('Stop the focus: it holds the position read at that moment.');
  if (mode === 1) return done(`Focus ${speed < 0 ? 'nearer' : 'farther'} by ${percent} of the range.`);
  if (mode === 2) return done(`Focus at ${percent} of the range from near to far.`);
  if (speed === -128) return refused('the speeds are -127 to 127');
  return done(speed < 0 ? 'Focus farther until stopped, at most to 100.0 %.' : 'Focus nearer until stopped, at most to 0.0 %.');
}

function iris(command) {
  const objection = common(command);
  if (objection) return objection;
  const {mode, speed} = command;
  if (mode === 0) return done('Stop the iris.');
  if (mode < 3) return done('Accepted without effect: the iris supports only stop and continuous.');
  if (speed === -128) return refused('the speeds are -127 to 127');
  return done(`${speed < 0 ? 'Open' : 'Close'} the iris until stopped.`);
}

/// The octets of a text such as "02 40 46 50", "0x02404650" or "02:40:46:50"; null for any other text.
export function parseOctets(text) {
  const digits = text.replace(/0x/gi, '').replace(/[\s:.,-]/g, '');
  if (digits.length % 2 || /[^0-9a-f]/i.test(digits)) return null;
  return (digits.match(/../g) ?? []).map((pair) => parseInt(pair, 16));
}

/// {octets, mode, speed, position} of the first four octets; missing octets are 0.
export function decode(octets) {
  const four = [0, 1, 2, 3].map((i) => octets[i] ?? 0);
  return {octets: four, mode: four[0], speed: (four[1] << 24) >> 24, position: four[2] * 256 + four[3]};
}

export function explain(object, command, camera) {
  return object.explain(command, camera);
}

const kLetters = {
  'OCTET STRING': 'x', INTEGER: 'i', Gauge32: 'u', Counter32: 'c', TimeTicks: 't', Counter64: 'C', IpAddress: 'a', 'OBJECT IDENTIFIER': 'o',
};

const quoted = (text) => (/^[\w.-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);

/// How snmpset says who sends it. The page knows no secrets: words in capitals stand for them. The desk's default
/// without a user.
function credentials(user) {
  if (!user) return '-v2c -c private';
  const {name, version, level, authentication, privacy} = user;
  if (version !== '3') return `-v${version} -c ${quoted(`COMMUNITY-OF-${name}`)}`;
  const keys = [authentication && `-a ${quoted(authentication)} -A PASS-PHRASE`, privacy && `-x ${quoted(privacy)} -X PRIVACY-PASS-PHRASE`];
  return ['-v3', `-l ${level}`, `-u ${quoted(name)}`, ...keys.filter(Boolean)].join(' ');
}

/// The command line that sends it. The page's own text is in the user's hands: quoted, no shell takes it apart.
export function snmpset({oid, type, value}, agent, user) {
  const text = type === 'OCTET STRING' ? value.replaceAll(' ', '').toLowerCase() : value;
  return `snmpset ${credentials(user)} -On ${agent} ${quoted(oid)} ${kLetters[type]} ${text ? quoted(text) : '""'}`;
}
