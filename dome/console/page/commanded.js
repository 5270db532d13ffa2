// The last SNMP commands, as a GET answers them, beside where the camera is.

const $ = (id) => document.getElementById(id);
const degrees = (thousandths) => `${(thousandths / 1000).toFixed(2)}°`.replace('-', '−');
const kAxes = [
  ['positionPan', ({pan}) => [degrees(pan.position), pan.moving]],
  ['positionTilt', ({tilt}) => [degrees(tilt.position), tilt.moving]],
  ['positionZoomLens', ({zoom}) => [`${(zoom.position / 1000).toFixed(2)}×`, zoom.moving]],
  ['positionFocusLens', ({focus}) => [`${focus.position.toFixed(1)} %`, focus.moving]],
  ['positionIrisLens', ({iris}) => [`${iris.position.toFixed(1)} %`, iris.moving]],
];
const kNote = 'The agent is asked once a second while a page is open; for the focus only after another request for it, ' +
  'because each calls the focus service.';

function make(name, text, properties) {
  return Object.assign(document.createElement(name), {textContent: text, ...properties});
}

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export class Commanded {
  constructor() {
    this.rows = kAxes.map(([name]) => {
      const row = make('tr', '');
      row.append(make('th', name, {scope: 'row'}), make('td', '–'), make('td', '–'), make('td', '–'));
      $('commanded').append(row);
      return row;
    });
  }

  /// Whether an agent is asked at all.
  setWatched(isWatched) {
    this.show([]);
    setText($('commanded-note'), isWatched ? kNote : 'Start orvex-dome with --agent-port to ask the agent.');
  }

  /// The bindings that the agent has answered.
  show(bindings) {
    const found = new Map(bindings.map((binding) => [binding.name, binding]));
    kAxes.forEach(([name], i) => {
      const {value = '–', meaning = '–'} = found.get(name) ?? {};
      const [, answer, words] = this.rows[i].cells;
      setText(answer, value);
      setText(words, meaning.replace(/^last command: /, ''));
    });
  }

  follow(camera) {
    kAxes.forEach(([, read], i) => {
      const [position, isMoving] = read(camera);
      setText(this.rows[i].cells[3], position + (isMoving ? ', moving' : ''));
    });
  }
}
