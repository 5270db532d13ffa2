"""Scenarios: what happens to a camera when, in a TOML file, on the camera's own clock. docs/python.md has the format.

The clock is stepped from event to event, so a scenario always acts on the same camera."""

from __future__ import annotations

import pathlib
import shlex
import time
import tomllib
from decimal import ROUND_HALF_UP, Decimal, InvalidOperation
from types import TracebackType
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple, Type, Union

from orvex_camera.control import Control, ControlError
from orvex_camera.errors import CameraError

Seconds = Union[int, float, str, Decimal]

_TICK = Decimal("0.02")  # seconds; the model's tick: other times would cut a tick in two
_MAX_TIME = 86400  # seconds
_MAX_STEP = Decimal(3600)  # seconds, of domectl clock step
_PACE_STEP = Decimal("0.1")  # seconds of the camera's clock, when a scenario is paced
_MAX_EVENTS = 100000
_MAX_NUMBER = 2**63  # of a ramp, either way; Decimal computes with 28 digits
_COMMANDS = ("set", "banks", "event", "fault")  # those that do something, without the clock


class ScenarioError(CameraError):
    """A scenario that cannot be played; the text names the file and what is wrong in it."""


class Event(NamedTuple):
    at: Decimal  # seconds since the scenario's start
    words: Tuple[str, ...]  # domectl's

    def __str__(self) -> str:
        return f"{self.at:.2f} {shlex.join(self.words)}"


class Scenario:
    """Events in the order of their times; those of one time in the order of the file, ramps after single events."""

    def __init__(self, events: List[Event], length: Optional[Decimal] = None, title: str = "") -> None:
        self.events = sorted(events, key=lambda event: event.at)
        last = self.events[-1].at if self.events else Decimal(0)
        self.title, self.length = title, last if length is None else length
        if self.length < last:
            raise ScenarioError(f"length: {self.length} s end before the last event, at {last} s")

    @classmethod
    def read(cls, file: Union[str, pathlib.Path]) -> Scenario:
        """Raises ScenarioError."""
        try:
            return cls.parse(pathlib.Path(file).read_text(encoding="utf-8"))
        except OSError as error:
            raise ScenarioError(f"cannot read {file}: {error.strerror}") from None
        except (UnicodeDecodeError, ScenarioError) as error:
            raise ScenarioError(f"{file}: {error}") from None

    @classmethod
    def parse(cls, text: str) -> Scenario:
        """Raises ScenarioError."""
        try:
            document = tomllib.loads(text, parse_float=Decimal)
        except ValueError as error:  # also for a number of thousands of digits
            raise ScenarioError(str(error)) from None
        except InvalidOperation:
            raise ScenarioError("a number's exponent is too large") from None
        _check_keys("the file", document, ("title", "length", "event", "ramp"), ())
        events: List[Event] = []
        for number, table in enumerate(_tables(document, "event"), 1):
            events += _single(f"event {number}", table)
        for number, table in enumerate(_tables(document, "ramp"), 1):
            events += _ramp(f"ramp {number}", table)
            if len(events) > _MAX_EVENTS:
                raise ScenarioError(f"more than {_MAX_EVENTS} events")
        length = _time("length", document["length"]) if "length" in document else None
        return cls(events, length, str(document.get("title", "")))


def _tables(document: Dict[str, Any], name: str) -> List[Dict[str, Any]]:
    tables = document.get(name, [])
    if not isinstance(tables, list) or not all(isinstance(table, dict) for table in tables):
        raise ScenarioError(f"{name}: requires tables [[{name}]]")
    return tables


def _check_keys(where: str, table: Dict[str, Any], known: Tuple[str, ...], required: Tuple[str, ...]) -> None:
    for key in table:
        if key not in known:
            raise ScenarioError(f"{where}: unknown key '{key}', expected {', '.join(known)}")
    for key in required:
        if key not in table:
            raise ScenarioError(f"{where}: '{key}' is missing")


def _number(where: str, value: Any) -> Decimal:
    if isinstance(value, bool) or not isinstance(value, (int, Decimal)) or not Decimal(value).is_finite():
        raise ScenarioError(f"{where}: requires a number, not {value!r}")
    return Decimal(value)


def _time(where: str, value: Any) -> Decimal:
    seconds = _number(where, value)
    if not 0 <= seconds <= _MAX_TIME or seconds % _TICK:
        raise ScenarioError(f"{where}: requires 0 to {_MAX_TIME} seconds, a multiple of {_TICK}, not {value}")
    return seconds


def _words(where: str, text: Any) -> Tuple[str, ...]:
    try:
        words = tuple(shlex.split(text)) if isinstance(text, str) else ()
    except ValueError as error:
        raise ScenarioError(f"{where}: {text!r}: {error}") from None
    if not words or words[0] not in _COMMANDS:
        raise ScenarioError(f"{where}: requires domectl's words, beginning with {', '.join(_COMMANDS)}, not {text!r}")
    return words


def _single(where: str, table: Dict[str, Any]) -> List[Event]:
    _check_keys(where, table, ("at", "do"), ("at", "do"))
    at, do = _time(f"{where}, at", table["at"]), table["do"]
    return [Event(at, _words(f"{where}, do", text)) for text in (do if isinstance(do, list) else [do])]


def _end_of_ramp(where: str, value: Any) -> Decimal:
    number = _number(where, value)
    if abs(number) > _MAX_NUMBER:
        raise ScenarioError(f"{where}: requires a number from -2^63 to 2^63, not {value}")
    return number


def _ramp(where: str, table: Dict[str, Any]) -> List[Event]:
    """A value that changes evenly from one whole number to another; an event for each change of it."""
    keys = ("at", "until", "every", "do", "from", "to")
    _check_keys(where, table, keys, keys)
    begin, end, every = (_time(f"{where}, {key}", table[key]) for key in ("at", "until", "every"))
    first, last = (_end_of_ramp(f"{where}, {key}", table[key]) for key in ("from", "to"))
    words = _words(f"{where}, do", table["do"])
    if end <= begin or every == 0:
        raise ScenarioError(f"{where}: requires 'until' after 'at', and an 'every' above 0")
    count = int((end - begin) / every)
    if count > _MAX_EVENTS:
        raise ScenarioError(f"{where}: more than {_MAX_EVENTS} events")
    events: List[Event] = []
    for at in [begin + every * step for step in range(count + 1)] + [end]:
        exact = first + (last - first) * (at - begin) / (end - begin)
        event = Event(at, words + (str(exact.quantize(Decimal(1), ROUND_HALF_UP)),))
        if not events or events[-1].words != event.words:
            events.append(event)
    return events


class Player:
    """Plays a scenario on a camera, for a `with`: pauses the camera's clock, and at the end lets it run if it ran.
    What a test asks between two steps, it asks at exactly that time."""

    def __init__(self, camera: Control, scenario: Scenario, pace: Optional[float] = None,
                 played: Callable[[Event], None] = lambda event: None) -> None:
        """`pace`: the camera's seconds a second; as fast as it can without. `played` gets each event after it was
        played."""
        self._camera, self._scenario, self._pace, self._played = camera, scenario, pace, played
        self._next = 0
        self._ran = False
        self._started = 0.0
        self.time = Decimal(0)  # seconds since the scenario's start

    def __enter__(self) -> Player:
        self._ran = self._camera.state()["clock"]["mode"] == "run"
        self._camera.clock("pause")
        self._started = time.monotonic()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        if self._ran:
            try:
                self._camera.clock("run")
            except ControlError:
                if error is None:
                    raise

    def play(self) -> None:
        """To the scenario's end. Raises ControlError for words that domectl refuses."""
        self.play_until(max(self._scenario.length, self.time))

    def play_until(self, seconds: Seconds) -> None:
        """Plays the events up to and with that time, and steps the clock to it. Raises ControlError for words that
        domectl refuses; the event's time is in its text."""
        try:
            until = _time("a time to play until", Decimal(str(seconds)))
        except InvalidOperation:
            raise ScenarioError(f"a time to play until: not a number: {seconds!r}") from None
        if until < self.time:
            raise ScenarioError(f"cannot play until {until} s: {self.time} s are over")
        events = self._scenario.events
        while self._next < len(events) and events[self._next].at <= until:
            event = events[self._next]
            self._step(event.at)
            self._next += 1
            try:
                self._camera.domectl(*event.words)
            except ControlError as error:
                raise ControlError(error.status, f"at {event}: {error}") from None
            self._played(event)
        self._step(until)

    def _step(self, until: Decimal) -> None:
        while self.time < until:
            step = min(until - self.time, _MAX_STEP if self._pace is None else _PACE_STEP)
            if self._pace is not None:
                due = self._started + float(self.time + step) / self._pace
                time.sleep(max(0.0, due - time.monotonic()))
            self._camera.clock("step", step)
            self.time += step
