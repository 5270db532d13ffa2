"""The agent's start when a part of the camera is missing or broken."""

import fcntl
import os
import pathlib
import signal

import pytest

import ber
from desk import ManagerOf, answers, await_until
from expected_tree import OID


def value(desk, name):
    with ManagerOf(desk) as manager:
        return manager.get(OID[name]).bindings[0].value


def assert_constants_answer(desk):
    assert value(desk, "moduleType") == 2
    assert value(desk, "rangePanHomePosition") == 65535
    assert value(desk, "fwVersion") == b"02.01.00-20261121a"


def module_lines(desk, *words):
    return [line for line in desk.output("agent").splitlines() if all(word in line for word in words)]


def test_without_the_dome(desk):
    desk.start_bus()
    desk.start_agent()
    assert_constants_answer(desk)
    desk.start_dome()
    with ManagerOf(desk) as manager:
        manager.set_octets(OID["positionPan"], bytes.fromhex("02002328"))
    assert "SetPositionAtSpeed" in [call["call"] for call in desk.calls()]


def test_without_the_bus(desk):
    desk.start_agent()
    assert_constants_answer(desk)
    assert module_lines(desk, desk.environment["TAVOS_BUS_ADDRESS"])


@pytest.mark.parametrize("damage", ["missing", "empty file", "no database", "cut short"])
def test_without_a_sound_settings_store(desk, damage):
    store = desk.state / "settings.db"
    whole = store.read_bytes()
    for leftover in desk.state.glob("settings.db-*"):
        leftover.unlink()
    if damage == "missing":
        store.unlink()
    else:
        store.write_bytes({"empty file": b"", "no database": b"camera" * 1000, "cut short": whole[:1500]}[damage])
    before = store.read_bytes() if store.exists() else None
    desk.start_bus()
    desk.launch_agent()
    await_until(lambda: not desk.alive("agent"), "the agent ends")
    assert desk.processes.pop("agent").returncode != 0
    assert module_lines(desk, "Error reloading, invalid configuration")
    assert (store.read_bytes() if store.exists() else None) == before


def test_without_the_version_file(desk):
    (desk.state / "etc" / "version").unlink()
    desk.environment["TAVOS_LOG_LEVEL"] = "3"
    desk.start()
    assert module_lines(desk, "could not open", "etc/version")
    assert value(desk, "fwVersion") == b"Error: Firmware Version not defined"
    assert value(desk, "swVersion") == b"Error: Firmware Version not defined"
    assert value(desk, "moduleVersion") == b" - v"


@pytest.mark.parametrize(
    "text, firmware, module",
    [
        ("02.01.00-20120531b\n", b"02.01.00-20120531b", b"20120531 - v02.01.00"),
        ("1.2.3-456789012 rest\n", b"1.2.3-456789012", b"45678901 - v1.2.3"),
        ("  7.0\n", b"7.0", b" - v"),
        ("", b"Error: Firmware Version not defined", b" - v"),
    ],
)
def test_version_files(desk, text, firmware, module):
    (desk.state / "etc" / "version").write_text(text)
    desk.start()
    assert value(desk, "fwVersion") == firmware
    assert value(desk, "moduleVersion") == module


def path_with_myname(desk, script):
    """A PATH with the system's commands and, when `script` is given, with that script as myname."""
    folder = desk.state / "commands"
    folder.mkdir()
    if script is not None:
        command = folder / "myname"
        command.write_text("#!/bin/sh\n" + script)
        command.chmod(0o755)
    elsewhere = [p for p in os.environ["PATH"].split(":") if p and not (pathlib.Path(p) / "myname").exists()]
    return ":".join([str(folder), *elsewhere])


def test_without_myname(desk):
    desk.start_bus()
    desk.start_dome()
    desk.environment["PATH"] = path_with_myname(desk, None)
    desk.start_agent()
    assert value(desk, "modelNumber") == b""
    assert value(desk, "moduleModel") == b""
    assert value(desk, "serialNumber") == b"Error: Serial Number not defined"
    assert value(desk, "hwVersion") == b"-"


@pytest.mark.parametrize("assembly, hardware", [("1234-05", b"1234-05"), ("ABC", b"ABC-ABC"), ("1-2-3", b"1-2-3")])
def test_the_answers_of_myname(desk, assembly, hardware):
    script = f'case $1 in -m) printf " \\tM%0200d \\n" 0 ;; -s) echo 4711 ;; -w) echo {assembly} ;; esac\n'
    desk.start_bus()
    desk.start_dome()
    desk.environment["PATH"] = path_with_myname(desk, script)
    desk.start_agent()
    assert value(desk, "modelNumber") == b"M" + b"0" * 200
    assert value(desk, "serialNumber") == b"4711"
    assert value(desk, "hwVersion") == hardware


def test_the_operator_sees_trace_lines(desk):
    desk.environment["TAVOS_LOG_LEVEL"] = "8"
    desk.start()
    with ManagerOf(desk) as manager:
        manager.get(OID["positionPan"])
    assert module_lines(desk, "handle_positionPan: Enter.")


def test_a_quiet_camera_logs_errors_only(desk):
    desk.start()
    with ManagerOf(desk) as manager:
        manager.get(OID["positionPan"])
        manager.set_octets(OID["positionPan"], bytes.fromhex("09000000"))
    assert module_lines(desk, "unknown pan mode")
    assert not module_lines(desk, "Enter.")


def test_a_reader_of_the_log_that_stops_and_goes_on(desk):
    """Meanwhile log lines are lost, but no request."""
    desk.environment["TAVOS_LOG_LEVEL"] = "8"
    log = desk.state / "agent.out"
    os.mkfifo(log)
    reader = os.open(log, os.O_RDWR | os.O_NONBLOCK)
    try:
        desk.start_bus()
        desk.start_dome()
        desk.launch_agent()
        with ManagerOf(desk) as manager:
            await_until(lambda: answers(manager) or not desk.alive("agent"), "the agent answers")
            for _ in range(2000):
                assert manager.get(OID["positionPan"]).error_status == ber.NO_ERROR
            room = fcntl.fcntl(reader, fcntl.F_GETPIPE_SZ)
            assert 0 < os.read(reader, room).count(b"handle_positionPan: Enter.") < 2000, "the pipe did not lose lines"
            manager.get(OID["positionPan"])
        assert b"handle_positionPan: Enter." in os.read(reader, room)
    finally:
        log.unlink()
        os.close(reader)


def test_the_module_loaded_twice_ends_the_start(desk):
    configuration = desk.state / "snmpd.conf"
    text = configuration.read_text()
    (line,) = [line for line in text.splitlines() if line.startswith("dlmod orvexsnmp ")]
    configuration.write_text(text.replace(line, f"{line}\n{line}"))
    desk.start_bus()
    desk.start_dome()
    desk.launch_agent()
    await_until(lambda: not desk.alive("agent"), "the agent ends")
    assert desk.processes.pop("agent").returncode == -signal.SIGABRT
    assert module_lines(desk, "Error OrvexSnmpMain: Duplicate instance, exiting!")
    assert "Duplicate Instance" in desk.log("agent")


def test_the_bus_may_restart(desk):
    desk.start()
    desk.end("bus")
    with ManagerOf(desk) as manager:
        answer = manager.set_octets(OID["positionPan"], bytes.fromhex("02002328"))
        assert answer.error_status == ber.NO_ERROR
    desk.start_bus()
    await_until(lambda: desk.try_domectl("calls", "--clear").returncode == 0, "the dome is back on the bus")

    def served():
        with ManagerOf(desk) as manager:
            manager.set_octets(OID["positionPan"], bytes.fromhex("02002328"))
        return "SetPositionAtSpeed" in [call["call"] for call in desk.calls()]

    await_until(served, "the module is back on the bus")
