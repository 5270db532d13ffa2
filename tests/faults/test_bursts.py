"""Events by the hundred thousand, and a trap sink that is slow or missing."""

import time
from collections import Counter

import pytest

import ber
from busclient import Service
from desk import ManagerOf, await_until
from expected_tree import OID
from watching import SANITIZED, Asking, footprint, percentile, settled
from traps import Sink

COUNT = 100000
BUFFER = 256 << 20  # octets; holds all traps, because the system drops those that do not fit
LAST = COUNT + 1000  # sent after all the others
ROOM = 32 * 1024  # kB that the agent may grow meanwhile


pytestmark = [pytest.mark.slow, pytest.mark.usefixtures("undisturbed")]


@pytest.fixture
def burst(started):
    """Emits many events at once, as fast as the bus takes them, in the name of the voltage service."""
    started.domectl("fault", "voltage", "gone")
    with Service(started.state / "bus.sock", "Voltage2") as service:
        yield lambda values: service.emit("VoltageStatusChange", values)


def check_agent(desk, asking, before, figure, what, start, end):
    """Events arrived from `start` to `end`; the agent answered GETs in each quarter of that time."""
    after = footprint(desk.agent_pid())
    meanwhile = [answer for answer in asking.answers if start <= answer.sent <= end]
    quarters = Counter(int(4 * (answer.sent - start) / (end - start)) for answer in meanwhile)
    assert all(quarters[quarter] > 0 for quarter in range(4)), quarters
    taken = [answer.seconds for answer in meanwhile]
    figure(f"{what}; {len(taken)} GETs meanwhile, 99 % within {percentile(taken, 99) * 1e3:.1f} ms, at most "
           f"{max(taken) * 1e3:.0f} ms; agent before {before}, after {after}")
    assert None not in asking.statuses
    assert asking.statuses == {ber.NO_ERROR}
    assert (after.threads, after.descriptors) == (before.threads, before.descriptors)
    assert SANITIZED or after.highest - before.highest < ROOM


def test_a_sink_that_reads_late_gets_every_trap_in_order(started, burst, figure):
    with Sink(started, BUFFER) as sink, Asking(started, OID["modelName"]) as asking:
        before = settled(started)
        start = time.monotonic()
        burst(range(COUNT))
        burst([LAST])
        answered = len(asking.answers)
        await_until(lambda: len(asking.answers) > answered + 100, "GETs are answered")
        sink.read()
        await_until(lambda: sink.values[-1:] == [LAST], "the last trap", 60)
        end = time.monotonic()
    assert sink.values == [*range(COUNT), LAST]
    check_agent(started, asking, before, figure, f"{COUNT} events, each one a trap, in order", start, end)


def test_a_sink_that_is_gone(started, burst, figure):
    with Asking(started, OID["modelName"]) as asking:
        before = settled(started)
        start = time.monotonic()
        burst(range(COUNT))
        with Sink(started) as sink:
            sink.read()
            burst([LAST])
            await_until(lambda: sink.values[-1:] == [LAST], "a trap when the sink is back", 60)
        end = time.monotonic()
    check_agent(started, asking, before, figure, f"{COUNT} events, nobody listens; {len(sink.values)} traps afterwards",
                start, end)
    assert sink.values == [*range(COUNT - len(sink.values) + 1, COUNT), LAST]


def test_every_sensor_at_once_from_the_camera(started, figure):
    """The camera itself emits its events over five seconds and receives calls meanwhile."""
    with Sink(started, BUFFER) as sink, Asking(started, OID["modelName"]) as asking, \
            Asking(started, OID["voltage"]) as called:
        sink.read()
        before = settled(started)
        start = time.monotonic()
        started.domectl("event", "temperature", 0, 1, "--count", COUNT)
        await_until(lambda: len(sink.values) >= COUNT, "the last trap", 60)
        end = time.monotonic()
    assert sink.values == list(range(1, COUNT + 1))
    check_agent(started, asking, before, figure, f"{COUNT} events of the camera, called "
                f"{len(called.answers)} times meanwhile, at most {max(called.taken()) * 1e3:.0f} ms", start, end)
    assert None not in called.statuses


def test_the_agent_waits_for_services_while_they_come(started, burst, figure):
    """Traps queue up to a limit while the agent's thread waits; above it the events wait in the bus."""
    hanging = ["temperature", "power", "zoom", "alarm", "relay"]
    asked = [OID[name] for name in ("temperature", "power", "rangeZoomLimit", "alarmState.1", "relayState.1")]
    before = settled(started)  # calls every service
    for service in hanging:
        started.domectl("fault", service, "hang")
    with Sink(started, BUFFER) as sink, ManagerOf(started) as manager:
        sink.read()
        message = ber.encode(ber.GET, [(oid, ber.NULL, b"") for oid in asked])
        start = time.monotonic()
        manager._socket.send(message)
        burst(range(COUNT))
        emitted = time.monotonic() - start
        manager._socket.recv(65536)
        waited = time.monotonic() - start
        burst([LAST])
        await_until(lambda: sink.values[-1:] == [LAST], "the last trap", 60)
    assert sink.values == [*range(COUNT), LAST]
    after, bus = (footprint(started.processes[name].pid) for name in ("agent", "bus"))
    figure(f"the agent waited for {waited:.1f} s, the bus had taken the events after {emitted:.1f} s; before {before}, "
           f"after {after}; the bus {bus}")
    assert waited > 1
    assert SANITIZED or after.highest - before.highest < ROOM
