// The street that the camera watches: flat surfaces, drawn as the lens would see them. Units are metres: x east, y
// north, z up. The camera hangs on a mast at a crossing and only turns, so the order of drawing is known beforehand.

const kEye = [9, -17, 8.5];
const kHalfWidthAtOne = Math.tan((30 * Math.PI) / 180); // the field of view is 60 degrees wide at 1.0x
const kNear = 0.2;
const kSun = {azimuth: 214, elevation: 33};
const kHaze = [206, 219, 228];

export function fieldOfView(zoom) {
  return (2 * Math.atan(kHalfWidthAtOne / zoom) * 180) / Math.PI;
}

// ---------------------------------------------------------------- helpers

function random(seed) {
  let state = seed;
  return () => {
    state = (state * 1664525 + 1013904223) % 4294967296;
    return state / 4294967296;
  };
}

const rgb = (c) => `rgb(${c[0] | 0},${c[1] | 0},${c[2] | 0})`;
const mix = (a, b, t) => [a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t];
const scale = (c, k) => c.map((v) => Math.min(255, v * k));
const distanceTo = (x, y) => Math.hypot(x - kEye[0], y - kEye[1]);
const hazed = (c, distance) => mix(c, kHaze, 0.75 * (1 - Math.exp(-distance / 420)));

function direction(azimuth, elevation) {
  const a = (azimuth * Math.PI) / 180;
  const e = (elevation * Math.PI) / 180;
  return [Math.sin(a) * Math.cos(e), Math.cos(a) * Math.cos(e), Math.sin(e)];
}

// ---------------------------------------------------------------- the lens

/// Clips an outline to where `inside` is not negative.
function cutAt(outline, inside) {
  const kept = [];
  for (let i = 0; i < outline.length; ++i) {
    const a = outline[i];
    const b = outline[(i + 1) % outline.length];
    const da = inside(a);
    const db = inside(b);
    if (da >= 0) kept.push(a);
    if (da >= 0 !== db >= 0) {
      const t = da / (da - db);
      kept.push([a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t]);
    }
  }
  return kept;
}

class Lens {
  constructor(context, width, height, view) {
    this.context = context;
    this.width = width;
    this.height = height;
    const p = (view.pan * Math.PI) / 180;
    const t = (view.tilt * Math.PI) / 180;
    this.tilt = t;
    this.forward = [Math.sin(p) * Math.cos(t), Math.cos(p) * Math.cos(t), Math.sin(t)];
    this.right = [Math.cos(p), -Math.sin(p), 0];
    this.up = [-Math.sin(p) * Math.sin(t), -Math.cos(p) * Math.sin(t), Math.cos(t)];
    this.focal = ((width / 2) * view.zoom) / kHalfWidthAtOne;
    // The side planes of the view, a little wider.
    this.sideX = (1.05 * width) / 2 / this.focal;
    this.sideY = (1.05 * height) / 2 / this.focal;
  }

  turn(x, y, z) {
    const {right: r, up: u, forward: f} = this;
    return [x * r[0] + y * r[1] + z * r[2], x * u[0] + y * u[1] + z * u[2], x * f[0] + y * f[1] + z * f[2]];
  }

  see(point) {
    return this.turn(point[0] - kEye[0], point[1] - kEye[1], point[2] - kEye[2]);
  }

  onScreen(seen) {
    const k = this.focal / seen[2];
    return [this.width / 2 + seen[0] * k, this.height / 2 - seen[1] * k];
  }

  /// Null behind the lens.
  project(point) {
    const seen = this.see(point);
    return seen[2] < kNear ? null : this.onScreen(seen);
  }

  /// Pixels per metre at that point; 0 behind the lens.
  pixelsPerMetre(point) {
    const seen = this.see(point);
    return seen[2] < kNear ? 0 : this.focal / seen[2];
  }

  /// True when a sphere may be visible.
  sees(point, radius) {
    const [x, y, z] = this.see(point);
    if (z < -radius) return false;
    return Math.abs(x) < this.sideX * z + radius * (1 + this.sideX) && Math.abs(y) < this.sideY * z + radius * (1 + this.sideY);
  }

  /// The outline on the screen; null when it is invisible.
  clipped(points) {
    const seen = points.map((point) => this.see(point));
    let cut = 0; // the planes that clip it, one bit each
    let out = 31;
    for (const point of seen) {
      const beyond = this.beyond(point);
      cut |= beyond;
      out &= beyond;
    }
    if (out) return null;
    return (cut ? this.cut(seen, cut) : seen)?.map((point) => this.onScreen(point));
  }

  /// The planes behind which a point is: the near one and the four sides.
  beyond([x, y, z]) {
    const sx = this.sideX * z;
    const sy = this.sideY * z;
    return (z < kNear ? 1 : 0) | (x > sx ? 2 : 0) | (x < -sx ? 4 : 0) | (y > sy ? 8 : 0) | (y < -sy ? 16 : 0);
  }

  cut(seen, planes) {
    const {sideX, sideY} = this;
    const insides = [
      (s) => s[2] - kNear,
      (s) => sideX * s[2] - s[0],
      (s) => sideX * s[2] + s[0],
      (s) => sideY * s[2] - s[1],
      (s) => sideY * s[2] + s[1],
    ];
    let left = seen;
    for (let i = 0; i < insides.length; ++i) {
      if (planes & (1 << i)) left = cutAt(left, insides[i]);
      if (left.length < 3) return null;
    }
    return left;
  }

  /// Adds a surface to the current path.
  trace(points) {
    const outline = this.clipped(points);
    if (!outline) return;
    const c = this.context;
    c.moveTo(outline[0][0], outline[0][1]);
    for (let i = 1; i < outline.length; ++i) c.lineTo(outline[i][0], outline[i][1]);
    c.closePath();
  }

  fill(points, style) {
    this.context.beginPath();
    this.trace(points);
    this.context.fillStyle = style;
    this.context.fill();
  }

  fillAll(surfaces, style) {
    this.context.beginPath();
    for (const points of surfaces) this.trace(points);
    this.context.fillStyle = style;
    this.context.fill();
  }

  disc(point, radius, style) {
    const at = this.project(point);
    if (!at) return;
    this.context.beginPath();
    this.context.arc(at[0], at[1], Math.max(0.4, radius * this.pixelsPerMetre(point)), 0, 7);
    this.context.fillStyle = style;
    this.context.fill();
  }
}

// ---------------------------------------------------------------- lettering

const kFontPixels = 64;
const kFont = `600 ${kFontPixels}px "Helvetica Neue", Helvetica, Arial, sans-serif`;
const s_widths = new Map();

function letterWidth(context, letter) {
  if (!s_widths.has(letter)) {
    context.font = kFont;
    s_widths.set(letter, context.measureText(letter).width / kFontPixels);
  }
  return s_widths.get(letter);
}

function textWidth(context, text) {
  let width = 0;
  for (const letter of text) width += letterWidth(context, letter);
  return width;
}

/// Writes on a wall: `at` is the upper left corner, `along` the unit vector of the line, which is `size` metres high.
function write(lens, text, at, along, size, style) {
  const c = lens.context;
  const pixels = lens.pixelsPerMetre(at) * size;
  if (pixels < 1.6) return;
  c.save();
  c.font = kFont;
  c.textBaseline = 'alphabetic';
  c.fillStyle = style;
  let offset = 0;
  for (const letter of text) {
    const width = letterWidth(c, letter) * size;
    const corner = [at[0] + along[0] * offset, at[1] + along[1] * offset, at[2]];
    offset += width;
    if (letter === ' ') continue;
    if (!lens.sees(corner, size * 2)) continue;
    const p = lens.project(corner);
    const q = lens.project([corner[0] + along[0] * width, corner[1] + along[1] * width, at[2]]);
    const r = lens.project([corner[0], corner[1], at[2] - size]);
    if (!p || !q || !r) continue;
    const w = (width / size) * kFontPixels;
    c.setTransform((q[0] - p[0]) / w, (q[1] - p[1]) / w, (r[0] - p[0]) / kFontPixels, (r[1] - p[1]) / kFontPixels, p[0], p[1]);
    c.fillText(letter, 0, kFontPixels * 0.8);
  }
  c.restore();
}

/// Like write, centred in `width` metres; smaller when it would not fit.
function writeCentred(lens, text, at, along, width, size, style) {
  const natural = textWidth(lens.context, text);
  const height = Math.min(size, (0.94 * width) / natural);
  const start = (width - natural * height) / 2;
  const drop = (size - height) / 2;
  write(lens, text, [at[0] + along[0] * start, at[1] + along[1] * start, at[2] - drop], along, height, style);
}

// ---------------------------------------------------------------- walls and boxes

/// The upright walls of a box, each with its outward normal and, seen from outside, its lower left corner.
function walls(x0, y0, x1, y1) {
  return [
    {corner: [x0, y0], along: [1, 0], length: x1 - x0, normal: [0, -1]},
    {corner: [x1, y1], along: [-1, 0], length: x1 - x0, normal: [0, 1]},
    {corner: [x1, y0], along: [0, 1], length: y1 - y0, normal: [1, 0]},
    {corner: [x0, y1], along: [0, -1], length: y1 - y0, normal: [-1, 0]},
  ];
}

function facesEye(wall) {
  return (kEye[0] - wall.corner[0]) * wall.normal[0] + (kEye[1] - wall.corner[1]) * wall.normal[1] > 0;
}

function onWall(wall, from, to, low, high) {
  const at = (s, z) => [wall.corner[0] + wall.along[0] * s, wall.corner[1] + wall.along[1] * s, z];
  return [at(from, low), at(to, low), at(to, high), at(from, high)];
}

function sunlight(normal) {
  const sun = direction(kSun.azimuth, kSun.elevation);
  return 0.74 + 0.4 * Math.max(0, normal[0] * sun[0] + normal[1] * sun[1]);
}

function flat(x0, y0, x1, y1, z = 0) {
  return [[x0, y0, z], [x1, y0, z], [x1, y1, z], [x0, y1, z]];
}

class Building {
  constructor(x0, y0, x1, y1, height, colour, options = {}) {
    Object.assign(this, {x0, y0, x1, y1, height, colour, ...options});
    this.centre = [(x0 + x1) / 2, (y0 + y1) / 2, height / 2];
    this.radius = Math.hypot(x1 - x0, y1 - y0, height) / 2;
    const nearX = Math.max(x0, Math.min(kEye[0], x1));
    const nearY = Math.max(y0, Math.min(kEye[1], y1));
    this.distance = distanceTo(nearX, nearY);
    this.walls = walls(x0, y0, x1, y1).filter(facesEye);
    const chance = random(Math.round((x0 + 500) * 31 + (y0 + 500) * 17));
    for (const wall of this.walls) this.furnish(wall, chance);
  }

  furnish(wall, chance) {
    const [x, y] = [wall.corner[0] + (wall.along[0] * wall.length) / 2, wall.corner[1] + (wall.along[1] * wall.length) / 2];
    wall.distance = distanceTo(x, y);
    wall.middle = [x, y, this.height / 2];
    wall.panes = {dark: [], bright: [], frames: [], sheen: []};
    wall.courses = [];
    for (let z = 4.2; z < this.height - 0.6; z += 0.42) wall.courses.push(onWall(wall, 0, wall.length, z, z + 0.022));
    const storey = this.storey ?? 3.2;
    const columns = Math.max(2, Math.round(wall.length / (this.bay ?? 2.9)));
    const bay = wall.length / columns;
    for (let z = 4.4; z + storey * 0.8 < this.height; z += storey) {
      for (let i = 0; i < columns; ++i) {
        const from = i * bay + bay * 0.22;
        const to = (i + 1) * bay - bay * 0.22;
        const pane = onWall(wall, from, to, z + 0.5, z + storey * 0.78);
        (chance() < 0.2 ? wall.panes.bright : wall.panes.dark).push(pane);
        const [low, high] = [z + 0.5, z + storey * 0.78];
        const across = onWall(wall, from, to, low, high);
        const [a, b] = onWall(wall, from, from + (to - from) * 0.62, low + (high - low) * 0.3, high);
        wall.panes.sheen.push([a, across[2], across[3]], [across[0], b, [b[0], b[1], low + 0.12]]);
        wall.panes.frames.push(
          onWall(wall, (from + to) / 2 - 0.04, (from + to) / 2 + 0.04, z + 0.5, z + storey * 0.78),
          onWall(wall, from - 0.12, to + 0.12, z + 0.38, z + 0.5),
        );
      }
    }
    wall.shop = onWall(wall, 0.6, wall.length - 0.6, 0.5, 3.1);
    wall.posts = [];
    for (let s = 0.6; s < wall.length; s += 2.4) wall.posts.push(onWall(wall, s, s + 0.14, 0.2, 3.1));
  }

  draw(lens) {
    if (!lens.sees(this.centre, this.radius)) return;
    for (const wall of this.walls) this.drawWall(lens, wall);
    if (this.top) this.top(lens);
  }

  drawWall(lens, wall) {
    const paint = (colour) => rgb(hazed(scale(colour, sunlight(wall.normal)), wall.distance));
    lens.fill(onWall(wall, 0, wall.length, 0, this.height), paint(this.colour));
    lens.fill(onWall(wall, 0, wall.length, this.height - 0.5, this.height), paint(scale(this.colour, 0.82)));
    if (!this.plain) {
      lens.fill(onWall(wall, 0, wall.length, 0, 3.9), paint(scale(this.colour, 0.7)));
      lens.fill(wall.shop, paint([58, 68, 74]));
    }
    const pixels = lens.pixelsPerMetre(wall.middle) || lens.focal / wall.distance;
    if (pixels > 22) lens.fillAll(wall.courses, paint(scale(this.colour, 0.93)));
    if (pixels > 1.1) {
      lens.fillAll(wall.panes.dark, paint([84, 104, 120]));
      lens.fillAll(wall.panes.bright, paint([214, 200, 158]));
    } else {
      lens.fill(onWall(wall, 0, wall.length, 4.6, this.height - 1), paint(mix(this.colour, [84, 104, 120], 0.3)));
    }
    if (pixels > 12) lens.fillAll(wall.panes.sheen, 'rgba(255,255,255,.09)');
    if (pixels > 9) {
      lens.fillAll(wall.panes.frames, paint(scale(this.colour, 1.12)));
      if (!this.plain) lens.fillAll(wall.posts, paint(scale(this.colour, 0.85)));
    }
    if (this.sign && Math.abs(wall.normal[0]) === (this.signOnX ? 1 : 0)) this.drawSign(lens, wall, paint);
  }

  drawSign(lens, wall, paint) {
    lens.fill(onWall(wall, 0.4, wall.length - 0.4, 3.15, 4.15), paint(this.signColour ?? [38, 56, 60]));
    const at = onWall(wall, 0.4, wall.length - 0.4, 3.2, 4.08)[3];
    writeCentred(lens, this.sign, at, wall.along, wall.length - 0.8, 0.84, paint([245, 240, 225]));
  }
}

// ---------------------------------------------------------------- street furniture

function upright(lens, x, y, z0, z1, width) {
  const [rx, ry] = lens.right;
  const h = width / 2;
  return [[x - rx * h, y - ry * h, z0], [x + rx * h, y + ry * h, z0], [x + rx * h, y + ry * h, z1], [x - rx * h, y - ry * h, z1]];
}

class Tree {
  constructor(x, y, height, seed) {
    Object.assign(this, {x, y, height});
    this.distance = distanceTo(x, y);
    const chance = random(seed);
    this.leaves = [[], [], []];
    for (let i = 0; i < 54; ++i) {
      const a = chance() * 6.283;
      const e = Math.acos(2 * chance() - 1);
      const r = Math.cbrt(chance()) * 0.3 * height;
      const dz = Math.cos(e) * r * 1.15;
      const leaf = [x + Math.sin(e) * Math.cos(a) * r, y + Math.sin(e) * Math.sin(a) * r, height * 0.66 + dz, (0.07 + chance() * 0.05) * height];
      this.leaves[dz < -0.06 * height ? 0 : dz < 0.1 * height ? 1 : 2].push(leaf);
    }
  }

  draw(lens) {
    if (!lens.sees([this.x, this.y, this.height / 2], this.height * 0.7)) return;
    lens.fill(upright(lens, this.x, this.y, 0, this.height * 0.6, 0.32), rgb(hazed([86, 70, 58], this.distance)));
    const shades = [[58, 84, 58], [78, 108, 68], [104, 134, 80]];
    const c = lens.context;
    this.leaves.forEach((leaves, i) => {
      c.beginPath();
      for (const [x, y, z, r] of leaves) {
        const at = lens.project([x, y, z]);
        if (!at) continue;
        const radius = r * lens.pixelsPerMetre([x, y, z]);
        c.moveTo(at[0] + radius, at[1]);
        c.arc(at[0], at[1], radius, 0, 7);
      }
      c.fillStyle = rgb(hazed(shades[i], this.distance));
      c.fill();
    });
  }
}

class Lamp {
  constructor(x, y, ax, ay) {
    Object.assign(this, {x, y, ax, ay, distance: distanceTo(x, y)});
  }

  draw(lens) {
    if (!lens.sees([this.x, this.y, 4.5], 6)) return;
    const style = rgb(hazed([74, 82, 84], this.distance));
    lens.fill(upright(lens, this.x, this.y, 0, 8.6, 0.16), style);
    const {x, y, ax, ay} = this;
    lens.fill([[x, y, 8.5], [x + ax * 2.2, y + ay * 2.2, 8.75], [x + ax * 2.2, y + ay * 2.2, 8.87], [x, y, 8.66]], style);
    const nx = -ay * 0.14;
    const ny = ax * 0.14;
    const head = (s, side) => [x + ax * s + nx * side, y + ay * s + ny * side, 8.74];
    lens.fill([head(1.6, -1), head(2.5, -1), head(2.5, 1), head(1.6, 1)], rgb(hazed([232, 232, 220], this.distance)));
  }
}

/// A lettered board on one or two posts; it faces `facing` (degrees).
class Board {
  constructor(x, y, facing, width, low, lines, options = {}) {
    Object.assign(this, {x, y, facing, width, low, lines, ground: [24, 74, 66], ink: [246, 246, 240], ...options});
    this.distance = distanceTo(x, y);
    this.height = lines.reduce((sum, line) => sum + line.size * 1.25, 0.24);
    const a = (facing * Math.PI) / 180;
    this.normal = [Math.sin(a), Math.cos(a)];
    this.along = [-Math.cos(a), Math.sin(a)];
    this.seenFromFront = (kEye[0] - x) * this.normal[0] + (kEye[1] - y) * this.normal[1] > 0;
  }

  at(s, z) {
    return [this.x + this.along[0] * s, this.y + this.along[1] * s, z];
  }

  panel(from, to, low, high) {
    return [this.at(from, low), this.at(to, low), this.at(to, high), this.at(from, high)];
  }

  draw(lens) {
    const high = this.low + this.height;
    if (!lens.sees([this.x, this.y, high / 2], Math.hypot(this.width, high) / 2 + 1)) return;
    const half = this.width / 2;
    const post = rgb(hazed([96, 104, 104], this.distance));
    for (const s of this.posts ?? [0]) {
      const [x, y] = this.at(s * half, 0);
      lens.fill(upright(lens, x, y, 0, high, this.postWidth ?? 0.12), post);
    }
    if (!this.seenFromFront) {
      lens.fill(this.panel(-half, half, this.low, high), rgb(hazed([120, 126, 126], this.distance)));
      return;
    }
    lens.fill(this.panel(-half, half, this.low, high), rgb(hazed(this.ink, this.distance)));
    const rim = Math.min(0.06, this.height * 0.03);
    lens.fill(this.panel(-half + rim, half - rim, this.low + rim, high - rim), rgb(hazed(this.ground, this.distance)));
    let top = high - 0.12;
    for (const line of this.lines) {
      const style = rgb(hazed(line.ink ?? this.ink, this.distance));
      const text = typeof line.text === 'function' ? line.text() : line.text;
      if (line.left) {
        write(lens, text, this.at(-half + 0.25, top), this.along, line.size, style);
      } else {
        writeCentred(lens, text, this.at(-half + 0.1, top), this.along, this.width - 0.2, line.size, style);
      }
      top -= line.size * 1.25;
    }
  }
}

class TrafficLight {
  constructor(x, y, facing, group) {
    Object.assign(this, {x, y, group, distance: distanceTo(x, y)});
    const a = (facing * Math.PI) / 180;
    this.normal = [Math.sin(a), Math.cos(a)];
    this.seenFromFront = (kEye[0] - x) * this.normal[0] + (kEye[1] - y) * this.normal[1] > 0;
  }

  draw(lens, street) {
    if (!lens.sees([this.x, this.y, 2.5], 3)) return;
    const dark = rgb(hazed([48, 54, 56], this.distance));
    lens.fill(upright(lens, this.x, this.y, 0, 3.3, 0.13), dark);
    lens.fill(upright(lens, this.x, this.y, 3.1, 4.25, 0.42), dark);
    if (!this.seenFromFront) return;
    const shown = street.light(this.group);
    const lamps = [['red', 4.03, [232, 58, 46]], ['amber', 3.68, [246, 178, 40]], ['green', 3.33, [62, 206, 120]]];
    const [nx, ny] = this.normal;
    for (const [name, z, colour] of lamps) {
      lens.disc([this.x + nx * 0.12, this.y + ny * 0.12, z], 0.13, rgb(shown === name ? colour : scale(colour, 0.25)));
    }
  }
}

class TownHall {
  constructor(x, y) {
    Object.assign(this, {x, y, distance: distanceTo(x, y)});
    this.hall = new Building(x - 22, y, x + 22, y + 16, 17, [196, 182, 158], {plain: true, storey: 5, bay: 4});
    this.tower = new Building(x - 4.5, y - 1, x + 4.5, y + 8, 38, [204, 190, 166], {plain: true, storey: 40});
  }

  draw(lens) {
    if (!lens.sees([this.x, this.y, 20], 40)) return;
    this.hall.draw(lens);
    this.tower.draw(lens);
    const y = this.y - 1;
    const roof = rgb(hazed([112, 132, 122], this.distance));
    lens.fill([[this.x - 5, y, 38], [this.x + 5, y, 38], [this.x, y + 4, 49]], roof);
    writeCentred(lens, 'TOWN HALL', [this.x - 20, this.y - 0.1, 16.4], [1, 0], 14, 1.3, rgb(hazed([70, 62, 52], this.distance)));
    writeCentred(lens, 'ANNO 1887', [this.x - 3.5, y, 26.4], [1, 0], 7, 0.7, rgb(hazed([84, 74, 62], this.distance)));
    this.drawClock(lens, [this.x, y - 0.05, 31.5], 3.2);
  }

  drawClock(lens, at, radius) {
    lens.disc(at, radius, rgb(hazed([250, 248, 240], this.distance)));
    const now = new Date();
    const ink = rgb(hazed([36, 42, 46], this.distance));
    const hand = (turn, length, width) => {
      const a = turn * 2 * Math.PI;
      const [s, c] = [Math.sin(a), Math.cos(a)];
      const point = (along, across) => [at[0] + s * along + c * across, at[1] - 0.02, at[2] + c * along - s * across];
      lens.fill([point(-0.4, -width), point(length, -width / 2), point(length, width / 2), point(-0.4, width)], ink);
    };
    for (let i = 0; i < 12; ++i) {
      const a = (i / 12) * 2 * Math.PI;
      lens.disc([at[0] + Math.sin(a) * radius * 0.85, at[1], at[2] + Math.cos(a) * radius * 0.85], i % 3 ? 0.12 : 0.22, ink);
    }
    hand((now.getHours() % 12) / 12 + now.getMinutes() / 720, radius * 0.55, 0.2);
    hand(now.getMinutes() / 60 + now.getSeconds() / 3600, radius * 0.8, 0.13);
  }
}

class Walker {
  constructor(axis, side, start, speed, coat) {
    Object.assign(this, {axis, side, start, speed, coat});
  }

  updatePosition(time) {
    const length = 150;
    const s = ((((this.start + this.speed * time) % length) + length) % length) - length / 2;
    [this.x, this.y] = this.axis === 'x' ? [s, this.side] : [this.side, s];
    this.distance = distanceTo(this.x, this.y);
    this.step = Math.sin(time * this.speed * 4.2);
  }

  draw(lens) {
    const {x, y} = this;
    if (this.distance < 3 || !lens.sees([x, y, 0.9], 1.2)) return;
    const sway = 0.16 * this.step;
    const [ax, ay] = this.axis === 'x' ? [1, 0] : [0, 1];
    const trousers = rgb(hazed([52, 58, 72], this.distance));
    for (const k of [-1, 1]) {
      const foot = upright(lens, x + ax * sway * k, y + ay * sway * k, 0, 0.1, 0.17);
      const hip = upright(lens, x, y, 0.84, 0.88, 0.2);
      lens.fill([foot[0], foot[1], hip[2], hip[3]], trousers);
    }
    lens.fill(upright(lens, x, y, 0.78, 1.48, 0.46), rgb(hazed(this.coat, this.distance)));
    lens.disc([x, y, 1.62], 0.14, rgb(hazed([206, 164, 136], this.distance)));
  }
}

// ---------------------------------------------------------------- cars

class Car {
  /// `lane`: where it drives; `s`: metres along it.
  constructor(lane, s, colour, plate) {
    Object.assign(this, {lane, s, colour, plate, speed: lane ? 9 : 0, braking: false, length: 4.4, width: 1.8});
  }

  park(x, y, heading) {
    [this.x, this.y, this.heading] = [x, y, heading];
    this.distance = distanceTo(x, y);
    return this;
  }

  updatePosition() {
    const {origin, along} = this.lane;
    this.park(origin[0] + along[0] * this.s, origin[1] + along[1] * this.s, along);
  }

  at(along, across, z) {
    const [hx, hy] = this.heading;
    return [this.x + hx * along + hy * across, this.y + hy * along - hx * across, z];
  }

  draw(lens) {
    if (!lens.sees([this.x, this.y, 0.8], 3)) return;
    const l = this.length / 2;
    const w = this.width / 2;
    const shade = [[-l - 0.1, -w - 0.15], [l + 0.1, -w - 0.15], [l + 0.25, w + 0.35], [-l + 0.1, w + 0.35]];
    lens.fill(shade.map(([a, b]) => this.at(a, b, 0.01)), 'rgba(20,24,26,.34)');
    this.drawBox(lens, [-l, l, w, 0.32], [-l + 0.06, l - 0.12, w - 0.05, 0.86], this.colour, false);
    this.drawWheels(lens, l, w);
    this.drawBox(lens, [-l + 0.5, l - 1.0, w - 0.07, 0.86], [-l + 1.05, l - 1.85, w - 0.22, 1.43], [52, 64, 72], true);
    this.drawEnds(lens, l, w);
  }

  /// The direction of the camera, along and across the car; only the signs matter.
  sidesSeen() {
    const [dx, dy] = [kEye[0] - this.x, kEye[1] - this.y];
    const [hx, hy] = this.heading;
    return {along: dx * hx + dy * hy, across: dx * hy - dy * hx};
  }

  /// A box that may be narrower at its top: [from, to, half width, height] for bottom and top.
  drawBox(lens, bottom, top, colour, isCabin) {
    const corner = (box, along, across) => this.at(along ? box[1] : box[0], across * box[2], box[3]);
    const paint = (light) => rgb(hazed(scale(colour, light), this.distance));
    const seen = this.sidesSeen();
    const across = seen.across > 0 ? 1 : -1;
    const end = seen.along > 0 ? 1 : 0;
    const side = [corner(bottom, 0, across), corner(bottom, 1, across), corner(top, 1, across), corner(top, 0, across)];
    const front = [corner(bottom, end, -1), corner(bottom, end, 1), corner(top, end, 1), corner(top, end, -1)];
    const roof = [corner(top, 0, -1), corner(top, 0, 1), corner(top, 1, 1), corner(top, 1, -1)];
    lens.fill(front, paint(0.86));
    lens.fill(side, paint(0.74));
    lens.fill(roof, isCabin ? rgb(hazed(scale(this.colour, 1.06), this.distance)) : paint(1.0));
  }

  drawWheels(lens, l, w) {
    const across = (this.sidesSeen().across > 0 ? 1 : -1) * (w + 0.01);
    for (const along of [-l + 0.85, l - 0.85]) {
      const wheel = [];
      for (let i = 0; i < 14; ++i) {
        const a = (i / 14) * 2 * Math.PI;
        wheel.push(this.at(along + Math.cos(a) * 0.33, across, 0.33 + Math.sin(a) * 0.33));
      }
      lens.fill(wheel, 'rgb(28,30,32)');
    }
  }

  drawEnds(lens, l, w) {
    const front = this.sidesSeen().along > 0;
    const at = front ? l - 0.01 : -l + 0.01;
    const lamp = front ? [250, 246, 226] : this.braking ? [255, 64, 48] : [150, 34, 30];
    for (const side of [-1, 1]) {
      const inner = side * (w - 0.42);
      const outer = side * (w - 0.1);
      lens.fill([this.at(at, inner, 0.58), this.at(at, outer, 0.58), this.at(at, outer, 0.74), this.at(at, inner, 0.74)], rgb(hazed(lamp, this.distance)));
    }
    const left = front ? 0.27 : -0.27;
    lens.fill([this.at(at, left, 0.4), this.at(at, -left, 0.4), this.at(at, -left, 0.53), this.at(at, left, 0.53)], rgb(hazed([240, 240, 232], this.distance)));
    const [hx, hy] = this.heading;
    const along = front ? [-hy, hx] : [hy, -hx];
    writeCentred(lens, this.plate, this.at(at, left, 0.525), along, 0.54, 0.115, rgb(hazed([30, 34, 40], this.distance)));
  }
}

const kCycle = 26; // seconds of the traffic lights
const kStopLine = 12.5;
const kPark = 66; // metres; the south-east block, from 13 to here, has no houses

/// The traffic. A lane is a line through the crossing; a car that reaches its end continues at its start.
class Traffic {
  constructor() {
    const colours = [[176, 52, 46], [232, 232, 228], [44, 62, 92], [94, 104, 108], [206, 168, 62], [38, 42, 46], [120, 142, 132], [222, 214, 198]];
    const lane = (x, y, dx, dy, group) => ({origin: [x, y], along: [dx, dy], group, cars: []});
    this.reach = 170;
    this.lanes = [lane(3.4, 0, 0, 1, 0), lane(-3.4, 0, 0, -1, 0), lane(0, -3.4, 1, 0, 1), lane(0, 3.4, -1, 0, 1)];
    this.cars = [];
    const chance = random(1205);
    this.lanes.forEach((l, k) => {
      for (let i = 0; i < 4; ++i) {
        const plate = `OV ${1200 + k * 8 + i * 2 + 1} ${'KLMR'[i]}`;
        const car = new Car(l, -150 + i * 78 + chance() * 22, colours[(k * 3 + i * 5) % colours.length], plate);
        car.updatePosition();
        l.cars.push(car);
        this.cars.push(car);
      }
    });
    this.time = 0;
  }

  light(group) {
    const phase = (this.time + (group ? kCycle / 2 : 0)) % kCycle;
    if (phase < kCycle / 2 - 4) return 'green';
    return phase < kCycle / 2 - 2 ? 'amber' : 'red';
  }

  advance(seconds) {
    for (let left = Math.min(seconds, 1); left > 0; left -= 0.05) this.step(Math.min(left, 0.05));
  }

  step(dt) {
    this.time += dt;
    for (const lane of this.lanes) {
      for (const car of lane.cars) {
        let room = Infinity;
        for (const other of lane.cars) {
          if (other === car) continue;
          const ahead = (other.s - car.s + 2 * this.reach) % (2 * this.reach);
          room = Math.min(room, ahead - car.length - 2);
        }
        const toLine = -kStopLine - car.s - car.length / 2;
        if (this.light(lane.group) !== 'green' && toLine > -1) room = Math.min(room, toLine);
        const target = Math.min(11, Math.sqrt(Math.max(0, room - 0.5) * 2 * 2.6));
        const change = Math.max(-6 * dt, Math.min(2.2 * dt, target - car.speed));
        car.braking = change < -0.4 * dt || car.speed < 0.2;
        car.speed = Math.max(0, car.speed + change);
        car.s += car.speed * dt;
        if (car.s > this.reach) car.s -= 2 * this.reach;
        car.updatePosition();
      }
    }
  }
}

// ---------------------------------------------------------------- the street itself

function roadMarkings() {
  const dashes = [];
  const lines = [];
  const bars = [];
  for (const s of [-1, 1]) {
    for (let d = 16; d < 320; d += 9) {
      dashes.push(flat(-0.08, s * d, 0.08, s * (d + 4)), flat(s * d, -0.08, s * (d + 4), 0.08));
    }
    lines.push(flat(6.6, s * 16, 6.72, s * 320), flat(-6.72, s * 16, -6.6, s * 320));
    lines.push(flat(s * 16, 6.6, s * 320, 6.72), flat(s * 16, -6.72, s * 320, -6.6));
    for (let a = -6; a < 6; a += 1.2) {
      bars.push(flat(a, s * 8.2, a + 0.6, s * 11.2), flat(s * 8.2, a, s * 11.2, a + 0.6));
    }
  }
  bars.push(flat(0.4, -12.6, 6.4, -12.1), flat(-6.4, 12.1, -0.4, 12.6), flat(-12.6, -6.4, -12.1, -0.4), flat(12.1, 0.4, 12.6, 6.4));
  return {dashes, lines, bars};
}

function makeBuildings() {
  const shops = ['BAKERY', 'BOOKS & MAPS', 'PHARMACY', 'CAFÉ LUMEN', 'FLOWERS', 'BICYCLES', 'POST OFFICE', 'HOTEL MERIDIAN', 'TEA ROOM', 'CLOCKMAKER', 'THEATRE', 'CITY LIBRARY', 'OPTICIAN', 'PIANOS', 'FISH MARKET', 'HARDWARE'];
  const colours = [[206, 178, 148], [188, 120, 96], [214, 204, 186], [170, 172, 168], [202, 160, 112], [150, 134, 124], [222, 214, 204], [164, 96, 80], [186, 190, 176]];
  const chance = random(77);
  const buildings = [];
  let shop = 0;
  const add = (x0, y0, x1, y1, onX, near) => {
    const height = 9 + Math.floor(chance() * 5) * 3.2 + (near ? 0 : chance() * 8);
    const colour = colours[Math.floor(chance() * colours.length)];
    const options = {signOnX: onX, signColour: [[38, 56, 60], [96, 36, 34], [30, 52, 86], [52, 66, 40]][shop % 4], sign: shops[shop++ % shops.length]};
    buildings.push(new Building(Math.min(x0, x1), Math.min(y0, y1), Math.max(x0, x1), Math.max(y0, y1), height, colour, options));
  };
  for (const sx of [-1, 1]) {
    for (const sy of [-1, 1]) {
      const isPark = sx > 0 && sy < 0;
      for (let d = isPark ? kPark : 13, i = 0; d < 240; ++i) { // along the north-south road
        const front = 12 + Math.floor(chance() * 4) * 2;
        add(sx * 13, sy * d, sx * 27, sy * (d + front), true, i < 2);
        d += front + (chance() < 0.15 ? 6 : 0.3);
      }
      for (let d = isPark ? kPark + 15 : 30, i = 0; d < 240; ++i) { // along the east-west road
        const front = 12 + Math.floor(chance() * 4) * 2;
        add(sx * d, sy * 13, sx * (d + front), sy * 27, false, i < 2);
        d += front + (chance() < 0.15 ? 6 : 0.3);
      }
    }
  }
  for (let d = 30; d < kPark; d += 15) add(d, -kPark, d + 14.7, -kPark - 14, false, true); // the park's far sides
  for (let d = 18; d < kPark + 12; d += 15) add(kPark + 15, -d, kPark + 29, -d - 14.7, true, true);
  for (let i = 0; i < 34; ++i) { // towers behind
    const azimuth = (i / 34) * 360 + chance() * 8;
    const [dx, dy] = direction(azimuth, 0);
    const distance = 330 + chance() * 420;
    const x = dx * distance;
    const y = dy * distance;
    if (Math.abs(x) < 60 || Math.abs(y) < 60) continue;
    const w = 12 + chance() * 16;
    buildings.push(new Building(x - w, y - w, x + w, y + w, 24 + chance() * 62, mix([150, 164, 176], [196, 186, 172], chance()), {plain: true, storey: 3.6, bay: 4}));
  }
  return buildings.sort((a, b) => b.distance - a.distance);
}

function readingChart() {
  return new Board(46, -36, 297, 11, 2.6, [
    {text: 'READING CHART', size: 1.1},
    {text: 'Focus and zoom test chart', size: 0.55},
    {text: 'This line becomes readable at about 4 times zoom.', size: 0.22},
    {text: 'This line becomes readable at about 8 times zoom. It is 11 centimetres high.', size: 0.11},
    {text: 'This line becomes readable at about 16 times zoom. It is 5.5 centimetres high.', size: 0.055},
    {text: 'Above 20 times the zoom is digital: the picture gets larger but shows no more detail.', size: 0.024},
  ], {ground: [236, 230, 214], ink: [32, 44, 52], posts: [-0.7, 0.7], postWidth: 0.3});
}

function makeThings() {
  const things = [];
  let seed = 1;
  for (const s of [-1, 1]) {
    for (const side of [-10, 10]) {
      for (let d = 24; d < 200; d += 19) {
        if (distanceTo(side, s * d) > 26) things.push(new Tree(side, s * d, 6.5 + (seed % 4), seed++ * 97));
        if (distanceTo(s * d, side) > 26) things.push(new Tree(s * d, side, 6.5 + (seed % 4), seed++ * 97));
      }
    }
    for (let d = 33; d < 200; d += 38) {
      things.push(new Lamp(8.2, s * d, -1, 0), new Lamp(-8.2, s * d, 1, 0), new Lamp(s * d, 8.2, 0, -1), new Lamp(s * d, -8.2, 0, 1));
    }
  }
  things.push(new TrafficLight(7.8, -12.6, 180, 0), new TrafficLight(-7.8, 12.6, 0, 0), new TrafficLight(-12.6, -7.8, 270, 1), new TrafficLight(12.6, 7.8, 90, 1));
  // Lamps on the far side, as the drivers see them.
  things.push(new TrafficLight(7.8, 12.9, 180, 0), new TrafficLight(12.9, -7.8, 270, 1));
  const board = (...words) => things.push(new Board(...words));
  board(10.6, 10.6, 180, 2.6, 3.4, [{text: 'HARBOUR STREET', size: 0.34}], {ground: [26, 58, 110]});
  board(-10.6, 10.6, 135, 2.2, 3.4, [{text: 'MILL LANE', size: 0.34}], {ground: [26, 58, 110]});
  board(-10.6, -10.6, 90, 2.6, 3.4, [{text: 'HARBOUR STREET', size: 0.34}], {ground: [26, 58, 110]});
  board(0, 92, 180, 13, 6.2, [{text: '↑ TOWN HALL  0.2', size: 0.62, left: true}, {text: '← HARBOUR  3', size: 0.62, left: true}, {text: '→ AIRPORT  12', size: 0.62, left: true}], {posts: [-1, 1], postWidth: 0.3});
  board(0, -96, 0, 13, 6.2, [{text: '↑ SOUTH BRIDGE  2', size: 0.62, left: true}, {text: '→ UNIVERSITY  1', size: 0.62, left: true}, {text: '← STATION  4', size: 0.62, left: true}], {posts: [-1, 1], postWidth: 0.3});
  board(96, 0, 270, 13, 6.2, [{text: '↑ AIRPORT  12', size: 0.66, left: true}, {text: '→ GARDENS  1', size: 0.66, left: true}], {posts: [-1, 1], postWidth: 0.3, ground: [26, 58, 110]});
  board(-96, 0, 90, 13, 6.2, [{text: '↑ HARBOUR  3', size: 0.66, left: true}, {text: '← LIGHTHOUSE  5', size: 0.66, left: true}], {posts: [-1, 1], postWidth: 0.3, ground: [26, 58, 110]});
  board(-9.2, 30, 150, 1.3, 1.2, [{text: 'BUS 12', size: 0.24}, {text: 'HARBOUR – GARDENS', size: 0.1}, {text: '6:04  6:24  6:44', size: 0.09}, {text: '7:00  7:12  7:24', size: 0.09}, {text: 'then every 12 minutes', size: 0.06}], {ground: [250, 246, 232], ink: [30, 40, 46]});
  for (const [x, y] of [[25, -46], [36, -58], [58, -20], [62, -34], [58, -54], [44, -58], [28, -56], [19, -46], [20, -33], [66, -60], [53, -27]]) {
    things.push(new Tree(x, y, 7 + (seed % 5), seed++ * 131));
  }
  board(15, -13.6, 330, 3.2, 0.7, [{text: 'ORCHARD PARK', size: 0.3}, {text: 'open from dawn to dusk', size: 0.14}], {ground: [66, 52, 40], posts: [-0.8, 0.8]});
  things.push(new TownHall(0, 262));
  const parked = [[6, 34, [0, 1], [70, 92, 120], 'OV 2011 A'], [6, 41, [0, 1], [210, 206, 196], 'OV 1783 B'], [-6, 48, [0, -1], [130, 44, 44], 'OV 1610 C'], [-6, -40, [0, -1], [62, 78, 66], 'OV 1905 D'], [36, -6, [1, 0], [188, 188, 186], 'OV 1534 E'], [-44, 6, [-1, 0], [214, 150, 60], 'OV 1441 F'], [6, -52, [0, 1], [40, 46, 54], 'OV 2112 G']];
  for (const [x, y, heading, colour, plate] of parked) things.push(new Car(null, 0, colour, plate).park(x, y, heading));
  return things;
}

/// True when the box stands between the eye and the point.
function covers(building, x, y) {
  let from = 0;
  let to = 1;
  for (const [eye, end, low, high] of [[kEye[0], x, building.x0, building.x1], [kEye[1], y, building.y0, building.y1]]) {
    const d = end - eye;
    if (Math.abs(d) < 1e-9) {
      if (eye < low || eye > high) return false;
      continue;
    }
    const a = (low - eye) / d;
    const b = (high - eye) / d;
    from = Math.max(from, Math.min(a, b));
    to = Math.min(to, Math.max(a, b));
  }
  return from < to && from < 0.995;
}

function softCloud(seed) {
  const canvas = document.createElement('canvas');
  [canvas.width, canvas.height] = [512, 200];
  const c = canvas.getContext('2d');
  const chance = random(seed);
  for (let i = 0; i < 46; ++i) {
    const x = 70 + chance() * 372;
    const reach = 1 - Math.abs(x - 256) / 256;
    const y = 146 - chance() * 96 * reach;
    const r = 22 + chance() * 48 * (0.4 + reach);
    const g = c.createRadialGradient(x, y, 0, x, y, r);
    const v = 255 - Math.floor(Math.max(0, y - 96) * 0.5);
    g.addColorStop(0, `rgba(${v},${v},${v},.32)`);
    g.addColorStop(1, `rgba(${v},${v},${v},0)`);
    c.fillStyle = g;
    c.fillRect(0, 0, 512, 200);
  }
  return canvas;
}

export class Street {
  constructor() {
    this.buildings = makeBuildings();
    this.traffic = new Traffic();
    this.markings = roadMarkings();
    this.paths = [[[14, -16, 0], [16, -14, 0], [66, -63, 0], [64, -65, 0]], [[14, -62, 0], [16, -64, 0], [66, -16, 0], [64, -14, 0]]];
    this.things = [...makeThings(), readingChart()];
    const coats = [[150, 62, 58], [60, 84, 116], [204, 178, 96], [88, 100, 84], [120, 100, 130], [190, 190, 186]];
    this.walkers = coats.map((coat, i) => new Walker(i % 2 ? 'x' : 'y', [8.9, -9.1, -8.9, 9.2, 11.6, -11.4][i], i * 47, (i % 3 ? 1 : -1) * (1.1 + i * 0.09), coat));
    this.fixed = this.inSlots(this.things);
    this.clouds = [];
    const chance = random(9);
    const sprites = [3, 14, 27, 41].map(softCloud);
    for (let i = 0; i < 15; ++i) {
      this.clouds.push({azimuth: i * 24 + chance() * 16, elevation: 7 + chance() * 34, width: 20 + chance() * 26, sprite: sprites[i % 4]});
    }
    this.time = 0;
  }

  light(group) {
    return this.traffic.light(group);
  }

  /// Advances traffic and walkers by that many seconds.
  advance(seconds) {
    this.time += seconds;
    this.traffic.advance(seconds);
  }

  /// Sorts the things into slots: a thing in slot i must be drawn before building i, which covers it.
  inSlots(things) {
    const slots = Array.from({length: this.buildings.length + 1}, () => []);
    for (const thing of things) {
      const slot = this.buildings.findIndex((building) => covers(building, thing.x, thing.y));
      slots[slot < 0 ? this.buildings.length : slot].push(thing);
    }
    return slots;
  }

  /// view: pan and tilt in degrees, zoom as a factor.
  draw(context, width, height, view) {
    const lens = new Lens(context, width, height, view);
    context.setTransform(1, 0, 0, 1, 0, 0);
    this.drawSky(lens);
    this.drawGround(lens);
    for (const walker of this.walkers) walker.updatePosition(this.time + 100);
    const moving = this.inSlots([...this.traffic.cars, ...this.walkers]);
    for (let i = 0; i <= this.buildings.length; ++i) {
      const here = [...this.fixed[i], ...moving[i]].sort((a, b) => b.distance - a.distance);
      for (const thing of here) thing.draw(lens, this);
      if (i < this.buildings.length) this.buildings[i].draw(lens);
    }
  }

  drawSky(lens) {
    const {context: c, width, height} = lens;
    const sky = c.createLinearGradient(0, 0, 0, height);
    for (let i = 0; i <= 10; ++i) {
      const angle = lens.tilt + Math.atan((height / 2 - (i / 10) * height) / lens.focal);
      const up = Math.min(1, Math.max(0, Math.sin(angle)));
      sky.addColorStop(i / 10, rgb(mix([222, 230, 234], [86, 140, 196], Math.pow(up, 0.62))));
    }
    c.fillStyle = sky;
    c.fillRect(0, 0, width, height);
    this.drawSun(lens);
    for (const cloud of this.clouds) this.drawCloud(lens, cloud);
  }

  drawSun(lens) {
    const seen = lens.turn(...direction(kSun.azimuth, kSun.elevation));
    if (seen[2] < 0.05) return;
    const [x, y] = lens.onScreen(seen);
    const c = lens.context;
    const disc = 0.012 * lens.focal;
    const reach = Math.max(disc * 16, lens.width * 0.2);
    const glow = c.createRadialGradient(x, y, 0, x, y, reach);
    glow.addColorStop(0, 'rgba(255,250,228,1)');
    glow.addColorStop(Math.min(0.5, disc / reach), 'rgba(255,248,220,.95)');
    glow.addColorStop(Math.min(0.6, (disc / reach) * 1.3), 'rgba(255,244,208,.42)');
    glow.addColorStop(1, 'rgba(255,240,200,0)');
    c.fillStyle = glow;
    c.fillRect(x - reach, y - reach, 2 * reach, 2 * reach);
  }

  drawCloud(lens, cloud) {
    const drift = this.time * 0.02;
    const seen = lens.turn(...direction(cloud.azimuth + drift, cloud.elevation));
    if (seen[2] < 0.1) return;
    const [x, y] = lens.onScreen(seen);
    const width = 2 * Math.tan((cloud.width / 2) * (Math.PI / 180)) * lens.focal / Math.sqrt(seen[2]);
    const height = width * 0.39;
    if (x + width < 0 || x - width > lens.width || y + height < 0 || y - height > lens.height) return;
    lens.context.drawImage(cloud.sprite, x - width / 2, y - height / 2, width, height);
  }

  drawGround(lens) {
    const {context: c, width, height} = lens;
    lens.fill(flat(-6000, -6000, 6000, 6000), rgb([146, 152, 140]));
    const pavement = rgb([178, 176, 168]);
    lens.fillAll([flat(-13, -330, 13, 330), flat(-330, -13, 330, 13)], pavement);
    lens.fill(flat(14, -kPark + 1, kPark, -14), rgb([122, 146, 96]));
    lens.fillAll(this.paths, rgb([196, 188, 166]));
    lens.fill(ring(40, -42, 5.2), rgb([196, 188, 166]));
    lens.fill(ring(40, -42, 3.2), rgb([150, 156, 158]));
    lens.fill(ring(40, -42, 2.8), rgb([104, 150, 172]));
    const asphalt = rgb([92, 96, 100]);
    lens.fill(flat(-7, -330, 7, 330), asphalt);
    lens.fill(flat(-330, -7, 330, 7), asphalt);
    const kerb = rgb([204, 202, 194]);
    const kerbs = [];
    for (const s of [-1, 1]) {
      for (const t of [-1, 1]) {
        kerbs.push(flat(s * 7, t * 7, s * 7.25, t * 330), flat(s * 7.25, t * 7, s * 330, t * 7.25));
      }
    }
    lens.fillAll(kerbs, kerb);
    const paint = rgb([226, 226, 220]);
    lens.fillAll(this.markings.dashes, paint);
    lens.fillAll(this.markings.lines, rgb([186, 188, 186]));
    lens.fillAll(this.markings.bars, paint);
    for (const [x, y] of [[2, -24], [-4, 19], [22, 3], [-31, -2]]) lens.fill(ring(x, y, 0.42), rgb([70, 74, 76]));
    // The air above the ground.
    const horizon = height / 2 + lens.focal * Math.tan(lens.tilt);
    const depth = lens.focal * 0.075;
    if (horizon > -depth && horizon < height) {
      const haze = c.createLinearGradient(0, horizon, 0, horizon + depth);
      haze.addColorStop(0, rgb(kHaze));
      haze.addColorStop(0.35, `rgba(${kHaze.join()},.5)`);
      haze.addColorStop(1, `rgba(${kHaze.join()},0)`);
      c.fillStyle = haze;
      c.fillRect(0, Math.max(0, horizon), width, depth);
    }
  }
}

function ring(x, y, radius) {
  return Array.from({length: 16}, (_, i) => [x + Math.cos((i / 8) * Math.PI) * radius, y + Math.sin((i / 8) * Math.PI) * radius, 0]);
}
