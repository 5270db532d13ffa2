"""Sensors are served or left out by their first reading; a real trap receiver gets their changes."""

import re
import socket
import subprocess
import threading

import pytest

import ber
import desk as desks
from desk import await_until
from expected_tree import OID

SENSORS = {name: OID[name] for name in ("temperature", "power", "voltage")}
TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"


@pytest.fixture
def receiver(running):
    """A stock snmptrapd at the desk's trap port; returns its lines so far."""
    with open(running.state / "traps.txt", "w+") as lines:
        command = ["snmptrapd", "-f", "-C", "-On", "-Lo", "--disableAuthorization=yes", "--doNotLogTraps=no",
                   "-F", "%v\\n", f"udp:127.0.0.1:{running.trap_port}"]
        process = subprocess.Popen(command, stdout=lines, stderr=subprocess.STDOUT, env=running.environment,
                                   cwd=running.state)
        try:
            await_until(lambda: "NET-SNMP version" in (running.state / "traps.txt").read_text(), "snmptrapd listens")
            yield lambda: traps((running.state / "traps.txt").read_text())
        finally:
            process.terminate()
            process.wait(10)


def traps(text):
    """(trap, name of its object, type, value) of each trap received."""
    line = re.compile(rf"\.{re.escape(TRAP_OID)} = OID: \.([\d.]+)\t\.([\d.]+) = (\w+): (\S+)")
    return [match.groups() for match in line.finditer(text)]


def test_changes_become_traps_in_their_order(running, receiver):
    for thing, value in (("temperature", -5), ("voltage", 2), ("power", 1), ("temperature", 41)):
        running.domectl("set", thing, value)
    t, p, v = SENSORS.values()
    expected = [
        (t, t, "Gauge32", "4294967291"),
        (v, v, "Gauge32", "2"),
        (p, p, "Gauge32", "1"),
        (t, t, "Gauge32", "41"),
    ]
    await_until(lambda: len(receiver()) >= len(expected), f"{len(expected)} traps")
    assert receiver() == expected


def test_another_sensor_sends_no_trap(running, receiver):
    running.domectl("event", "temperature", 1, 30)
    running.domectl("event", "temperature", 0, 31)
    await_until(receiver, "the trap of sensor 0")
    assert [trap[3] for trap in receiver()] == ["31"]
    assert "SendTemperatureTrap: Temp Change on sensor 1, only sensor 0 supported" in running.output("agent")


def test_a_burst_arrives_complete_and_in_order(running):
    """As many events as traps fit into a socket's default buffer: the kernel drops none, however late the receiver
    reads."""
    count, values = 200, []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sink:
        sink.bind(("127.0.0.1", running.trap_port))
        sink.settimeout(20)

        def receive():
            while len(values) < count:
                values.append(ber.Message(sink.recv(65536)).bindings[-1].value)

        reader = threading.Thread(target=receive, daemon=True)
        reader.start()
        running.domectl("event", "voltage", 0, "--count", count)
        reader.join(30)
    assert values == list(range(count))


@pytest.mark.parametrize(("name", "tag"), [("temperature", ber.GAUGE32), ("power", ber.INTEGER), ("voltage", ber.INTEGER)])
def test_a_reading_is_live_and_its_failure_an_error(running, manager, name, tag):
    for value, shown in ((7, 7), (-5, 4294967291 if tag == ber.GAUGE32 else -5)):
        running.domectl("set", name, value)
        (binding,) = manager.get(SENSORS[name]).bindings
        assert (binding.tag, binding.value) == (tag, shown)
    for kind in ("fail", "gone", "hang"):
        running.domectl("fault", name, kind)
        assert manager.get(SENSORS[name]).error_status == ber.GEN_ERR
    running.domectl("fault", name, "ok")
    # The client calls a service that hung again only after it answered a ping.
    await_until(lambda: manager.get(SENSORS[name]).error_status == ber.NO_ERROR, "it is read again")


def served(desk):
    with desks.ManagerOf(desk) as manager:
        answer = manager.get(*SENSORS.values())
        return [name for name, binding in zip(SENSORS, answer.bindings)
                if binding.tag not in (ber.NO_SUCH_OBJECT, ber.NO_SUCH_INSTANCE)]


def test_minus_1_switches_power_and_voltage_off_and_is_a_temperature(desk):
    desk.start_bus()
    desk.start_dome()
    for name in SENSORS:
        desk.domectl("set", name, -1)
    desk.start_agent()
    assert served(desk) == ["temperature"]


def test_a_sensor_that_fails_at_the_start_is_not_served(desk):
    desk.start_bus()
    desk.start_dome()
    for name in ("temperature", "voltage"):
        desk.domectl("fault", name, "fail")
    desk.start_agent()
    assert served(desk) == ["power"]
