"""Moves each axis and judges where it goes, by what the camera's platform shows (--state-command). Without that only
answers can be judged, and sets.py has judged them."""

import time

import ber
from orvex_conform.reads import error_name

CHECK = "motion"
NOTICE = 2.0  # seconds within which a move must show
STAYS = 0.5  # seconds without a change of the position after which an axis counts as at rest
PATIENCE = 30.0  # seconds for a move to end
PAUSE = 0.05  # between two looks at the platform
STOPPED, DELTA, ABSOLUTE, CONTINUOUS = range(4)
TURN = 360000  # thousandths of a degree


class Axis:
    """One axis: its object, its name on the platform, and what positions and units mean there."""

    tolerance = 60  # of the platform's units: a step of a hundredth of a degree is 10
    min_move = 300  # a continuous move that is shorter is none
    sense = 1  # of a continuous move with a positive speed

    def __init__(self, run, name, key):
        self.run, self.name, self.key = run, name, key
        self.oid = run.tree.oid(name)
        self._last, self._changed = None, 0.0  # the last position that was seen, and since when

    def look(self):
        """(position, moving, the whole axis). Without `moving`, an axis moves until its position stays."""
        shown = self.run.platform().get(self.key)
        if not isinstance(shown, dict) or not isinstance(shown.get("position"), (int, float)):
            return None
        position, now = shown["position"], time.monotonic()
        if position != self._last:
            self._last, self._changed = position, now
        return position, bool(shown.get("moving", now - self._changed < STAYS)), shown

    def difference(self, to, since):
        return to - since

    def targets(self, shown):
        """(position of the command, position on the platform) of moves to try, the start among neither."""
        raise NotImplementedError

    def back(self, start, shown):
        """The command's position that leads back, or None."""
        raise NotImplementedError

    # --- steps ---

    def command(self, mode, speed=0, position=0):
        return bytes([mode, speed & 0xFF]) + position.to_bytes(2, "big")

    def send(self, octets):
        """False, with a finding, if the SET failed."""
        answer = self.run.link.set(self.run.writer, (self.oid, ber.OCTET_STRING, octets), retries=0)
        return self.run.verdicts.judge(self.name, CHECK, answer.error == 0,
                                       f"a SET of {octets.hex()} answers {error_name(answer.error)}", self.line(octets))

    def line(self, octets):
        return self.run.commands.set(self.run.writer, (self.oid, ber.OCTET_STRING, octets))

    def fail(self, octets, text):
        self.run.verdicts.failed(self.name, CHECK, f"after a SET of {octets.hex()} {text}", self.line(octets))

    def arrives(self, octets, target):
        if not self.send(octets):
            return False
        began = time.monotonic()
        while True:
            position, moving, _ = self.look()
            if abs(self.difference(position, target)) <= self.tolerance and not moving:
                self.run.verdicts.passed(self.name, CHECK)
                return True
            waited = time.monotonic() - began
            if waited > PATIENCE or (waited > NOTICE and not moving):
                self.fail(octets, f"it is at {position}, not at {target}")
                return False
            time.sleep(PAUSE)

    def runs(self, speed):
        """Whether a continuous move goes the right direction, and a stop ends it."""
        since = self.look()[0]
        octets = self.command(CONTINUOUS, speed)
        direction = self.sense * (1 if speed >= 0 else -1)
        if not self.send(octets):
            return False
        moved = self._moved(since, time.monotonic() + NOTICE)
        if not self.send(self.command(STOPPED)):
            return False
        if moved * direction < 0 or abs(moved) < self.min_move:
            self.fail(octets, f"it moved by {moved:g}, not {'upwards' if direction > 0 else 'downwards'}")
            return False
        return self._rests()

    def _moved(self, since, deadline):
        while True:
            position, _, _ = self.look()
            moved = self.difference(position, since)
            if abs(moved) >= self.min_move or time.monotonic() > deadline:
                return moved
            time.sleep(PAUSE)

    def _rests(self):
        deadline = time.monotonic() + NOTICE
        while self.look()[1]:
            if time.monotonic() > deadline:
                self.fail(self.command(STOPPED), "it still moves")
                return False
            time.sleep(PAUSE)
        return True

    def check(self):
        seen = self.look()
        if seen is None:
            self.run.verdicts.skipped(self.name, CHECK, "the platform shows no position of it")
            return
        start, _, shown = seen
        for position, target in self.targets(start, shown):
            if not self.arrives(self.command(ABSOLUTE, 0x7F, position), target):
                return
        if self.runs(0x40) and self.runs(-0x40):
            self.extra()
        position = self.back(start, shown)
        if position is not None:
            self.arrives(self.command(ABSOLUTE, 0x7F, position), start)

    def extra(self):
        pass


class Pan(Axis):
    def difference(self, to, since):
        return (to - since + TURN // 2) % TURN - TURN // 2

    def targets(self, start, shown):
        position = (round(start / 10) + 1000) % 36000
        return [(position, position * 10)]

    def back(self, start, shown):
        return round(start / 10) % 36000

    def extra(self):
        """A delta steps from where the axis is."""
        here = self.look()[0]
        self.arrives(self.command(DELTA, 0x7F, 500), (here + 5000) % TURN)


class Tilt(Axis):
    def targets(self, start, shown):
        low, high = shown.get("minimum", -90000), shown.get("maximum", 90000)
        angles = [angle for angle in (10000, -10000, 20000, -20000)
                  if low <= angle <= high and abs(angle - start) > 1000]
        return [(self.back(angle, shown), angle) for angle in angles[:2]]

    def back(self, start, shown):
        position = round(abs(start) / 10)
        return min(position, 8999) if start >= 0 else 18000 + min(position, 8999 + 1)


class Zoom(Axis):
    tolerance, min_move = 3, 20

    def targets(self, start, shown):
        top = shown.get("maximum")
        positions = (0x8000, 0x4000) if isinstance(top, int) else ()
        return [(position, 1000 + (top - 1000) * position // 65535) for position in positions]

    def back(self, start, shown):
        top = shown.get("maximum")
        if not isinstance(top, int) or top <= 1000:
            return None
        return min(65535, -(-(start - 1000) * 65535 // (top - 1000)))


class Focus(Axis):
    """Continuous commands move it toward 0 for speeds of 0 and above."""

    tolerance, min_move, sense = 0.1, 1.0, -1

    def targets(self, start, shown):
        return [(position, position * 100 / 65535) for position in (0x4000, 0xA000)]

    def back(self, start, shown):
        return round(start * 65535 / 100)


class Iris(Axis):
    """It has continuous commands only; which direction opens is the service's."""

    min_move = 1.0

    def check(self):
        seen = self.look()
        if seen is None:
            self.run.verdicts.skipped(self.name, CHECK, "the platform shows no position of it")
            return
        # Starts away from the nearer end.
        first = self.probe(0x40)
        second = self.probe(-0x40)
        if first * second > 0 or (first == 0 and second == 0):
            self.fail(self.command(CONTINUOUS, 0x40), f"it moved by {first:g}, at the opposite speed by {second:g}")
        else:
            self.run.verdicts.passed(self.name, CHECK)

    def probe(self, speed):
        since = self.look()[0]
        self.send(self.command(CONTINUOUS, speed))
        moved = self._moved(since, time.monotonic() + NOTICE)
        self.send(self.command(STOPPED))
        return moved


# The focus first: the auto focus of a camera works after the moves of the other axes.
AXES = [(Focus, "positionFocusLens", "focus"), (Pan, "positionPan", "pan"), (Tilt, "positionTilt", "tilt"),
        (Zoom, "positionZoomLens", "zoom"), (Iris, "positionIrisLens", "iris")]
AUTO_FOCUS = 0x40


def check(run):
    if run.platform() is None:
        for _, name, _ in AXES:
            run.verdicts.skipped(name, CHECK, "seen by its answers only: there is no --state-command")
        return
    off = (run.tree.oid("systemLensFeatureControl"), ber.OCTET_STRING, bytes([AUTO_FOCUS, 0]))
    run.link.set(run.writer, off)  # set back at the end of the run
    for kind, name, key in AXES:
        if name not in run.unreadable:
            run.guarded(name, CHECK, lambda _, axis: axis.check(), kind(run, name, key))
