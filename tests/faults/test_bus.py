"""The bus dies and comes back."""

import os
import signal

import pytest

import ber
from desk import ManagerOf, await_until
from expected_tree import OID
from watching import SANITIZED, TRAPS_KEPT, Asking, footprint, settled, times, use_lanes
from traps import Sink


def kill(desk, name):
    process = desk.processes.pop(name)
    os.kill(process.pid, signal.SIGKILL)
    process.wait()


@pytest.mark.slow
def test_the_bus_restarts_over_and_over(transport, desk, figure):
    rounds = times(5, 100)
    with Sink(desk) as sink:
        sink.read()
        emitted = 0

        def events_arrive():
            """An event emitted before the agent listens again is lost: emits until one arrives."""
            nonlocal emitted
            emitted += 1
            before = len(sink.values)
            if desk.try_domectl("event", "voltage", emitted).returncode != 0:
                return False
            try:
                await_until(lambda: len(sink.values) > before, "the event's trap", 0.3)
            except AssertionError:
                return False
            return sink.values[-1] == emitted

        await_until(events_arrive, "the first event")
        desk.domectl("event", "power", 1, "--count", TRAPS_KEPT)
        await_until(lambda: len(sink.values) > TRAPS_KEPT, "all traps")
        before = settled(desk)
        with Asking(desk, OID["voltage"], pause=0.001) as served, Asking(desk, OID["modelName"]) as model:
            for number in range(rounds):
                if number % 2:
                    kill(desk, "bus")
                else:
                    desk.end("bus")
                served.await_answer(ber.GEN_ERR)
                desk.start_bus()
                served.await_answer(ber.NO_ERROR)
                await_until(events_arrive, "events arrive again")
            use_lanes(desk)
        after = footprint(desk.agent_pid())
    for asking in (served, model):
        assert None not in asking.statuses
    assert model.statuses == {ber.NO_ERROR}
    figure(f"{rounds} restarts; {len(served.answers)} requests for a service, at most {max(served.taken()) * 1e3:.0f} ms; "
           f"{len(model.answers)} others, at most {max(model.taken()) * 1e3:.0f} ms, none lost; agent before {before}, "
           f"after {after}")
    assert max(served.taken()) < 0.5 + 0.2
    assert (after.threads, after.descriptors) == (before.threads, before.descriptors)
    assert SANITIZED or after.resident - before.resident < 1024


def test_no_bus_at_the_start(desk):
    desk.start_agent()
    with ManagerOf(desk) as manager:
        assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        assert manager.set_octets(OID["positionPan"], bytes.fromhex("02000064")).error_status == ber.NO_ERROR
        desk.start_bus()
        desk.start_dome()

        def pan_is_called():
            assert manager.set_octets(OID["positionPan"], bytes.fromhex("02000064")).error_status == ber.NO_ERROR
            return any(call["call"] == "SetPositionAtSpeed" for call in desk.calls())

        await_until(pan_is_called, "the service is called")
        with Sink(desk) as sink:
            sink.read()
            await_until(lambda: desk.domectl("event", "power", 7) == "" and sink.values, "events arrive")
