"""Services that are missing at the start, and services that end during a call."""

import os
import pathlib
import random
import signal
import subprocess
import time

import pytest

import ber
from desk import ManagerOf, await_until
from expected_tree import OID, ORVEX, ROWS, SUBTREES
from watching import Asking, percentile, times
from traps import Sink

DYING_SERVICE = pathlib.Path(__file__).with_name("dying_service.py")
SERVICES = ["pan", "tilt", "zoom", "focus", "focus2", "iris", "presets", "presets2", "alarm", "relay", "temperature",
            "voltage", "power", "fan"]
SENSORS = ["temperature", "power", "voltage"]
TABLES = tuple(f"{ORVEX}.1.3.{number}." for number in (1, 2))

# A request that calls each service: a SET of the object to these octets, or a GET where there are no octets.
USES = {
    "pan": ("positionPan", "02000064"),
    "tilt": ("positionTilt", "02000064"),
    "zoom": ("positionZoomLens", "02008000"),
    "focus": ("systemLensFeatureControl", "4080"),
    "focus2": ("positionFocusLens", "02008000"),
    "iris": ("positionIrisLens", "00000000"),
    "alarm": ("inputStatus", None),
    "relay": ("outputStatus", None),
    "temperature": ("temperature", None),
    "voltage": ("voltage", None),
    "power": ("power", None),
}


def tree(desk):
    met = []
    with ManagerOf(desk) as manager:
        for subtree in SUBTREES:
            oid = subtree
            for _ in range(1000):
                (binding,) = manager.get_next(oid).bindings
                oid = binding.oid
                if not oid.startswith(subtree + "."):
                    break
                met.append((oid, binding.tag, binding.value))
    return met


def rows_without(*names):
    return [(row.oid, row.tag, row.value) for row in ROWS if row.name not in names]


def test_no_service_at_the_start(desk):
    desk.start_bus()
    desk.start_dome()
    for service in SERVICES:
        desk.domectl("fault", service, "gone")
    desk.start_agent()
    expected = [row for row in rows_without(*SENSORS) if not row[0].startswith(TABLES)]
    # Auto focus is read from the settings store, auto iris from its service.
    lens = OID["systemLensFeatureStatus"]
    expected = [(oid, tag, b"\x40" if oid == lens else value) for oid, tag, value in expected]
    assert [row for row in tree(desk) if not row[0].startswith(TABLES)] == expected

    for service in SERVICES:
        desk.domectl("fault", service, "ok")
    # A sensor that is silent at the start is left out until the configuration is read again.
    assert tree(desk) == rows_without(*SENSORS)


@pytest.mark.parametrize("service", SERVICES)
def test_a_service_that_is_missing_at_the_start(desk, service):
    desk.start_bus()
    desk.start_dome()
    desk.domectl("fault", service, "gone")
    desk.start_agent()
    left_out = [service] if service in SENSORS else []
    with ManagerOf(desk) as manager:
        assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        desk.domectl("fault", service, "ok")
        assert tree(desk) == rows_without(*left_out)
        desk.clear_calls()
        if service in SENSORS:
            # Its changes still become traps. The agent serves it after it reads its configuration again.
            with Sink(desk) as sink:
                sink.read()
                desk.domectl("set", service, 2)
                await_until(lambda: sink.values == [2], "the trap of a sensor that is not served")
            os.kill(desk.agent_pid(), signal.SIGHUP)
            await_until(lambda: manager.get(OID[service]).bindings[0].value == 2, "the sensor is served")
            desk.clear_calls()
        if service in USES:
            name, octets = USES[service]
            answer = manager.get(OID[name]) if octets is None else manager.set_octets(OID[name], bytes.fromhex(octets))
            assert answer.error_status == ber.NO_ERROR
            assert service in {call["service"] for call in desk.calls()}


def die_of_a_call(desk):
    """A service with the sensor's name that ends during its first call."""
    command = ["/usr/bin/python3", DYING_SERVICE, desk.state / "bus.sock", "Voltage2"]
    with subprocess.Popen(list(map(str, command)), stdout=subprocess.PIPE) as service:
        try:
            assert service.stdout.readline() == b"ready\n"
            assert service.wait(5) == -signal.SIGKILL
        finally:
            service.kill()


def check_others(asking, figure, deaths):
    """Checks that every request got an answer, and that objects that do not call the dead service gave their value."""
    dead, *others = asking
    for one in asking:
        assert None not in one.statuses
    for one in others:
        assert one.statuses == {ber.NO_ERROR}
    taken = [seconds for one in others for seconds in one.taken()]
    figure(f"{deaths} deaths; {len(dead.answers)} requests for the dead one, at most {max(dead.taken()) * 1e3:.0f} ms, "
           f"{len([a for a in dead.answers if a.status != ber.NO_ERROR])} of them errors; {len(taken)} others, none lost, "
           f"at most {max(taken) * 1e3:.0f} ms, 99 % within {percentile(taken, 99) * 1e3:.1f} ms")
    assert dead.statuses <= {ber.NO_ERROR, ber.GEN_ERR}
    assert max(dead.taken()) < 0.5 + 0.2


def test_a_service_dies_in_the_middle_of_a_call(started, figure):
    deaths = times(20, 500)
    started.domectl("fault", "voltage", "gone")
    with Asking(started, OID["voltage"], pause=0.002) as dead, Asking(started, OID["modelName"], pause=0.002) as model, \
            Asking(started, OID["temperature"], pause=0.002) as temperature:
        for _ in range(deaths):
            die_of_a_call(started)
        assert dead.statuses == {ber.GEN_ERR}
        started.domectl("fault", "voltage", "ok")
        dead.await_answer(ber.NO_ERROR)
    check_others([dead, model, temperature], figure, deaths)


@pytest.mark.slow
def test_the_whole_camera_dies_over_and_over(started, figure):
    deaths = times(15, 300)
    with Asking(started, OID["voltage"]) as dead, Asking(started, OID["modelName"], pause=0.002) as model:
        for _ in range(deaths):
            time.sleep(random.uniform(0, 0.05))  # at any moment of its work
            dome = started.processes.pop("dome")
            os.kill(dome.pid, signal.SIGKILL)
            dome.wait()
            dead.await_answer(ber.GEN_ERR)
            started.start_dome()
            dead.await_answer(ber.NO_ERROR)
    check_others([dead, model], figure, deaths)
