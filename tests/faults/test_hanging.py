"""A service, or the bus, accepts calls and never answers: one call waits for the whole deadline, others only
briefly."""

import contextlib
import os
import signal

import pytest

import ber
from desk import ManagerOf, await_until
from expected_tree import OID
from watching import FULL, Asking, answers_at_a_rate, percentile, times

DEADLINE = 0.5  # seconds; of one call
UNRELATED = 0.05  # seconds; the max wait of others at the 99th percentile


@contextlib.contextmanager
def hung_service(desk):
    desk.domectl("fault", "voltage", "hang")
    yield
    desk.domectl("fault", "voltage", "ok")


@contextlib.contextmanager
def stopped(desk, name):
    """Stops a process: calls stay in its socket."""
    pid = desk.processes[name].pid
    os.kill(pid, signal.SIGSTOP)
    try:
        yield
    finally:
        os.kill(pid, signal.SIGCONT)


HANGING = {
    "service": hung_service,
    "camera": lambda desk: stopped(desk, "dome"),
    "bus": lambda desk: stopped(desk, "bus"),
}
# The object read meanwhile: another service's for a live camera, one that needs no service for a stopped camera.
UNRELATED_OBJECT = {"service": "temperature", "camera": "modelName", "bus": "modelName"}


def sound(desk):
    with ManagerOf(desk) as manager:
        return manager.get(OID["voltage"]).error_status == ber.NO_ERROR


@pytest.mark.slow
@pytest.mark.alone
@pytest.mark.parametrize("what,transport", [("service", "lanes"), ("service", "bus"), ("camera", "lanes"),
                                            ("camera", "bus"), ("bus", "bus")], indirect=["transport"])
def test_one_call_waits_and_others_are_answered(undisturbed, transport, desk, figure, what):
    unrelated = OID[UNRELATED_OBJECT[what]]
    seconds, rate = times(4, 100), 200
    with HANGING[what](desk):
        with Asking(desk, OID["voltage"], wait=False) as asking:
            before = answers_at_a_rate(desk.port, unrelated, rate, 1)  # the wait falls into this second
            for _ in range(times(3, 1)):  # repeated, because other work of the machine can only lengthen the times
                taken = answers_at_a_rate(desk.port, unrelated, rate, seconds)
                if percentile(taken, 99) < UNRELATED:
                    break
    await_until(lambda: sound(desk), "the service answers again")

    assert None not in asking.statuses
    assert asking.statuses == {ber.GEN_ERR}
    waits = asking.taken()
    waited = [wait for wait in waits if wait > DEADLINE * 0.95]
    everybody = before + taken
    figure(f"{len(waits)} requests for what hangs, {len(waited)} waited (at most {max(waits) * 1e3:.0f} ms), "
           f"99 % of the others within {percentile(sorted(waits)[:-len(waited) or None], 99) * 1e3:.1f} ms; unrelated, "
           f"{rate}/s: 99 % of {len(taken)} within {percentile(taken, 99) * 1e3:.1f} ms "
           f"(worst {max(taken) * 1e3:.1f}), of all {len(everybody)} with the wait "
           f"{percentile(everybody, 99) * 1e3:.1f} ms")
    assert len(waited) == 1
    assert max(waits) < DEADLINE + 0.2
    assert len(waits) > 1000
    assert percentile(waits, 99) < UNRELATED
    assert percentile(taken, 99) < UNRELATED
    assert max(before) < DEADLINE + 0.2
    if FULL:  # long enough that a wait of half a second is less than one percent
        assert percentile(everybody, 99) < UNRELATED


@pytest.mark.parametrize("transport", ["lanes"], indirect=True)
def test_calls_on_lanes_continue_while_the_bus_hangs(transport, desk):
    with stopped(desk, "bus"), ManagerOf(desk) as manager:
        for _ in range(20):
            assert manager.get(OID["voltage"]).error_status == ber.NO_ERROR
