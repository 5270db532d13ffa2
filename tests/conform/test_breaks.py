"""orvex-conform finds each deliberate break of the module at its object, and nothing elsewhere. The breaks of one kind
of check are in force together, each at an object of its own: so a finding elsewhere would show."""

import re
import subprocess

import pytest

from conforming import READER, WRITER, BreakableDesk, conform, state, traps
from desk import await_until
from expected_tree import OID, ROWS

pytestmark = pytest.mark.commands  # only the desk build has the breaker

READS = {
    "rangePanLeftLimit": ("wrong-type", {"type"}),
    "positionTilt": ("too-short", {"value"}),
    "rangePanHomePosition": ("wrong-value", {"value"}),
    "alarmState.2": ("out-of-range", {"value"}),
    "rangeTiltUpLimit": ("missing", {"presence"}),
    "rangeZoomLimit": ("skipped", {"presence"}),
    "timeoutFocus": ("not-behind", {"order", "presence"}),
    "presetGotoPosition": ("slow", {"time"}),
    "moduleModel": ("wrong-value", {"relation"}),
    "power": ("error", {"order", "answer"}),
}
WRITES = {
    "rangeTrueNorthOffset": ("not-writable", {"SET grammar", "nothing half done"}),
    "globalMaxModules": ("writable", {"access"}),
    "timeoutPan": ("other-error", {"SET grammar"}),
    "systemCameraFeatureControl": ("any-number", {"SET grammar"}),
    "positionPan": ("beyond", {"SET grammar"}),
    "positionZoomLens": ("no-deltas", {"SET grammar"}),
    "positionFocusLens": ("other-answer", {"SET answer"}),
    "positionIrisLens": ("forgets", {"stored"}),
    "systemLensEquipped": ("ignores", {"SET grammar", "SET answer", "stored"}),
    "outputControl": ("half-done", {"stored", "nothing half done"}),
    "presetStorePosition": ("writable", {"SET answer"}),
    "relayState.3": ("ignores", {"stored"}),
    "relayState.5": ("any-octets", {"SET grammar"}),
    "rebootDevice": ("any-octets", {"SET grammar"}),
}
SEEN = {
    "positionPan": ("elsewhere", {"motion"}),
    "positionTilt": ("still", {"motion"}),
    "positionZoomLens": ("reversed", {"motion"}),
    "temperature": ("trap-type", {"trap"}),
    "power": ("no-trap", {"trap"}),
    "voltage": ("trap-value", {"trap"}),
}


@pytest.fixture(scope="module")
def breakable():
    with BreakableDesk() as desk:
        desk.start()
        desk.domectl("clock", "rate", 4)
        yield desk


def broken(desk, breaks, *options):
    desk.break_(kinds(breaks))
    try:
        return conform(desk, *options)
    finally:
        desk.break_({})


def kinds(breaks):
    return {OID[name]: kind for name, (kind, _) in breaks.items()}


def judged(breaks):
    return {name: checks for name, (_, checks) in breaks.items()}


def test_the_breaker_alone_breaks_nothing(breakable):
    done = conform(breakable, *WRITER, "--move", "grammar")
    assert (done.status, done.findings) == (0, {}), done.summary()


def test_broken_answers_are_found_at_their_objects_and_nowhere_else(breakable):
    done = broken(breakable, READS, *READER)
    assert (done.status, done.findings) == (1, judged(READS)), done.summary()


def test_what_only_getbulk_skips_is_found(breakable):
    breaks = {"moduleMake": ("skipped-by-bulk", {"order"})}
    done = broken(breakable, breaks, *READER)
    assert (done.status, done.findings) == (1, judged(breaks)), done.summary()
    assert "GETBULK meets" in done.text


def test_broken_sets_are_found_at_their_objects_and_nowhere_else_and_their_commands_repeat_them(breakable):
    breakable.break_(kinds(WRITES))
    try:
        done = conform(breakable, *WRITER, "--move", "grammar")
        said = {name: {repeated(breakable, command) for command in commands_of(done.text, name)}
                for name in ("positionPan", "timeoutPan", "globalMaxModules")}
    finally:
        breakable.break_({})
    assert (done.status, done.findings) == (1, judged(WRITES)), done.summary()
    assert said == {"positionPan": {""}, "timeoutPan": {"wrongLength"}, "globalMaxModules": {""}}


def commands_of(text, name):
    """The snmpset of each finding of an object; at most two, as each is a process."""
    lines = re.search(rf"^FAIL +{name} .*\n((?: .*\n)+)", text, re.MULTILINE)[1].splitlines()
    commands = [line.strip().removeprefix("$ ") for line in lines if line.strip().startswith("$ snmpset")]
    assert commands
    return commands[:2]


def repeated(desk, command):
    """The error that the command prints, or nothing."""
    done = subprocess.run(["bash", "-c", command], env=desk.environment, capture_output=True, text=True, timeout=20)
    error = re.search(r"Reason: (\w+)", done.stderr)
    return error[1] if error else done.stderr


def test_wrong_moves_and_traps_are_found_at_their_objects_and_nowhere_else(breakable):
    done = broken(breakable, SEEN, *WRITER, "--move", "motion", *state(breakable),
                  *traps(breakable, 51, "temperature", "power", "voltage"))
    assert (done.status, done.findings) == (1, judged(SEEN)), done.summary()


def test_a_trap_with_a_wrong_name_is_found(breakable):
    done = broken(breakable, {"temperature": ("trap-name", {"trap"})}, *READER, *traps(breakable, 61, "temperature"))
    assert (done.status, done.findings) == (1, {"temperature": {"trap"}}), done.summary()


def test_an_agent_that_dies_of_a_message_is_found(breakable):
    try:
        done = broken(breakable, {"modelName": ("dies-of-many", set())}, *READER, "--harsh", 2, "--timeout", 0.5)
    finally:
        await_until(lambda: not breakable.alive("agent"), "the agent has ended")
        breakable.start_agent()
    assert done.status == 1
    assert set(done.findings) == {"robustness", "answers"}, done.summary()
    assert "a GET of 1500 times the same name" in done.text


def test_readers_that_write_and_a_loader_in_sight_are_found():
    with BreakableDesk() as desk:
        file = desk.state / "snmpd.conf"
        text = file.read_text()
        for right, wrong in (('access readers "" any noauth exact readable none none',
                              'access readers "" any noauth exact readable camera none'),
                             ("view readable excluded .1.3.6.1.4.1.2021.13.14", "")):
            assert right in text
            text = text.replace(right, wrong)
        file.write_text(text)
        desk.start()
        done = conform(desk, *WRITER, "--move", "motion")
    writable = {row.name for row in ROWS if row.access != "read-only"} - {"rebootDevice"}
    assert done.findings.pop("access control") == {"the module loader"}
    assert {name for name, checks in done.findings.items() if checks == {"a reader's SET"}} == writable, done.summary()
