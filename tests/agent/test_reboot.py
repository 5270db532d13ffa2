"""rebootDevice with the desk's restart script, which only logs that it ran."""

import time

import pytest

import ber
from desk import await_until
from expected_tree import OID

REBOOT = OID["rebootDevice"]


def runs(desk):
    log = desk.state / "restart.log"
    return log.read_text().splitlines() if log.exists() else []


@pytest.mark.parametrize("value", [0, 1, -7])
def test_any_integer_restarts_once_after_about_three_seconds(running, manager, value):
    before = len(runs(running))
    start = time.monotonic()
    answer = manager.set_integer(REBOOT, value)
    assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, value)
    assert manager.get(REBOOT).bindings[0].value == value
    await_until(lambda: len(runs(running)) > before, "the restart script ran")
    assert time.monotonic() - start > 2.9
    assert runs(running)[-1].endswith("-s -k")
    assert len(runs(running)) == before + 1
    assert "rebootDevice variable set for this camera using snmpset, rebooting system now!!!!" in running.output("agent")


@pytest.mark.parametrize(("tag", "value"), [(ber.OCTET_STRING, b"\x01"), (ber.GAUGE32, b"\x01"), (ber.NULL, b"")])
def test_another_type_starts_nothing(running, manager, tag, value):
    before = len(runs(running))
    held = manager.get(REBOOT).bindings[0].value
    answer = manager.set((REBOOT, tag, value))
    assert (answer.error_status, answer.error_index) == (ber.WRONG_TYPE, 1)
    assert manager.get(REBOOT).bindings[0].value == held
    time.sleep(3.5)  # longer than a restart's delay, so that a restart would show
    assert len(runs(running)) == before


def test_a_refused_neighbour_keeps_the_camera_up(running, manager):
    before = len(runs(running))
    answer = manager.set((REBOOT, ber.INTEGER, b"\x01"), (OID["rangeTrueNorthOffset"], ber.INTEGER, b"\x01"))
    assert (answer.error_status, answer.error_index) == (ber.WRONG_VALUE, 2)
    time.sleep(3.5)
    assert len(runs(running)) == before
