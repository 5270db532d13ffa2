"""./run --fleet: several desk cameras at once, each with a different identity."""

import os
import re
import shutil
import signal
import socket
import subprocess

import pytest

import ber
from desk import ROOT, await_until
from expected_tree import OID
from test_run import Started, gone, message, run

pytestmark = [pytest.mark.slow, pytest.mark.commands]
COUNT = 3


@pytest.fixture
def fleet():
    started = Started()
    yield started
    run("--stop", "--state", started.state)
    shutil.rmtree(started.folder)


def serial_numbers(fleet):
    found = []
    for number in range(COUNT):
        manager = ber.Manager(fleet.port + number, timeout=5)
        found.append(manager.get(OID["serialNumber"]).bindings[0].value)
        manager.close()
    return found


def pids_of(folder):
    return [int(line.split()[1]) for line in (folder / "pids").read_text().splitlines()]


def test_a_fleet_has_identities_and_ports_of_its_own_and_ends_as_one(fleet):
    status, out, error = fleet.run("--detach", "--fleet", str(COUNT))
    assert status == 0, error
    assert f"ports {fleet.port} to {fleet.port + COUNT - 1}" in out
    assert serial_numbers(fleet) == [b"OD20-000001", b"OD20-000002", b"OD20-000003"]
    shown, (documented,) = [re.findall(r"^ +(for p in .*)$", text, re.MULTILINE)
                            for text in (out, (ROOT / "docs" / "dome.md").read_text())]
    documented = documented.replace("1161", str(fleet.port)).replace("1210", str(fleet.port + COUNT - 1))
    for command in [*shown, documented]:
        answers = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=30).stdout
        assert len(answers.splitlines()) == COUNT, answers
    assert "OD20-000003" in answers
    with_processes = [fleet.state, *(fleet.state / str(number) for number in range(1, COUNT + 1))]
    pids = [pid for folder in with_processes for pid in pids_of(folder)]
    assert len(pids) == 1 + 4 * COUNT
    assert (fleet.state.stat().st_mode & 0o777) == 0o700

    # A second start in its folder changes nothing.
    status, _, error = fleet.run("--detach", "--fleet", str(COUNT))
    assert (status, len(message(error))) == (1, 1)
    assert len(serial_numbers(fleet)) == COUNT

    assert run("--stop", "--state", fleet.state)[0] == 0
    assert all(map(gone, pids))


def test_one_camera_that_ends_leaves_the_others(fleet):
    assert fleet.run("--detach", "--fleet", str(COUNT))[0] == 0
    assert run("--stop", "--state", fleet.state / "2")[0] == 0
    await_until(lambda: "run: camera 2 has ended" in (fleet.state / "run.log").read_text(), "the fleet reports it")
    manager = ber.Manager(fleet.port + 2, timeout=5)
    assert manager.get(OID["serialNumber"]).bindings[0].value == b"OD20-000003"
    manager.close()


def test_a_fleet_whose_supervisor_is_killed_leaves_nobody_behind(fleet):
    assert fleet.run("--detach", "--fleet", str(COUNT))[0] == 0
    pids = [pid for number in range(1, COUNT + 1) for pid in pids_of(fleet.state / str(number))]
    os.kill(pids_of(fleet.state)[0], signal.SIGKILL)
    await_until(lambda: all(map(gone, pids)), "all have ended")


@pytest.mark.parametrize("words", [["--fleet", "0"], ["--fleet", "many"], ["--fleet", "3", "--port", "65534"],
                                   ["--fleet", "3", "--console-port", "65534"],
                                   ["--fleet", "3", "--port", "2000", "--trap-port", "2002"]])
def test_an_impossible_fleet_is_refused(words):
    status, _, error = run(*words)
    assert (status, len(error.splitlines())) == (2, 1)


def test_traps_go_to_the_port_after_the_agents_by_default(fleet):
    status, out, error = run("--detach", "--fleet", str(COUNT), "--state", fleet.state, "--port", fleet.port,
                             "--console-port", "0")
    assert status == 0, error
    assert f"their traps go to UDP port {fleet.port + COUNT}." in out
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", fleet.port + COUNT))
        receiver.settimeout(10)
        subprocess.run([ROOT / "build" / "desk" / "bin" / "domectl", "--state", fleet.state / "2", "event",
                        "temperature", "0", "41"], check=True, timeout=20)
        assert receiver.recv(65536)


def test_a_taken_port_is_named(fleet):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", fleet.port + 1))
        status, _, error = fleet.run("--detach", "--fleet", str(COUNT))
    assert status == 1
    assert message(error)[-1] == f"run: UDP port {fleet.port + 1} is taken"
