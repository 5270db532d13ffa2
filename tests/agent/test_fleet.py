"""./run --fleet: several desk cameras at once, each with a different identity."""

import csv
import io
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import urllib.request

import pytest

import ber
from desk import ROOT, await_until, free_tcp_port
from expected_tree import OID
from test_run import Started, gone, message, run

pytestmark = [pytest.mark.slow, pytest.mark.commands]
COUNT = 3
SYS_NAME = "1.3.6.1.2.1.1.5.0"


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


def engine(fleet, number):
    store = (fleet.state / str(number) / "snmp" / "snmpd.conf").read_text()
    return re.findall(r"^oldEngineID (\S+)", store, re.MULTILINE)[0]


def test_cameras_with_addresses_of_their_own_answer_and_emit_from_them(fleet):
    fleet.console_port = free_tcp_port()
    status, out, error = fleet.run("--detach", "--fleet", str(COUNT), "--first-address", "127.0.8.254")
    assert status == 0, error
    addresses = ["127.0.8.254", "127.0.8.255", "127.0.9.0"]
    assert f"on 127.0.8.254 to 127.0.9.0, port {fleet.port} (" in out
    for number, address in enumerate(addresses, 1):
        name = f"OD20-{number:06}"
        manager = ber.Manager(fleet.port, timeout=5, address=address)
        values = [binding.value for binding in manager.get(OID["serialNumber"], SYS_NAME).bindings]
        manager.close()
        assert values == [name.encode()] * 2
        with urllib.request.urlopen(f"http://{address}:{fleet.console_port}/", timeout=10) as page:
            assert b"<title>" in page.read()
    engines = [engine(fleet, number) for number in range(1, COUNT + 1)]
    assert len(set(engines)) == COUNT
    for number, address in enumerate(addresses, 1):
        done = subprocess.run(
            ["snmpget", "-e", engines[number - 1], "-On", f"{address}:{fleet.port}", SYS_NAME], timeout=20,
            env=dict(os.environ, SNMPCONFPATH=str(fleet.state / str(number) / "v3"), SNMP_PERSISTENT_DIR="/dev/null", MIBS=""))
        assert done.returncode == 0
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", fleet.port - 1))
        receiver.settimeout(10)
        for number, address in enumerate(addresses, 1):
            subprocess.run([ROOT / "build" / "desk" / "bin" / "domectl", "--state", fleet.state / str(number), "event",
                            "temperature", "0", "41"], check=True, timeout=20)
            assert receiver.recvfrom(65536)[1][0] == address


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


def test_a_fleet_is_listed_and_one_camera_restarted_with_its_own_configuration(fleet):
    own = fleet.folder / "second.toml"
    own.write_text("presets = 9\n")
    status, _, error = fleet.run("--detach", "--fleet", str(COUNT), "--config", f"2={own}")
    assert status == 0, error
    assert (fleet.state / "progress").read_text() == f"{COUNT}\n"
    presets = lambda: ['"presets":9,' in subprocess.run(  # noqa: E731
        [ROOT / "build" / "desk" / "bin" / "domectl", "--state", fleet.state / str(number), "state"],
        capture_output=True, text=True, timeout=20).stdout for number in range(1, COUNT + 1)]
    assert presets() == [False, True, False]

    status, out, error = run("--inventory", "json", "--state", fleet.state)
    cameras = json.loads(out)
    assert [camera["serial"] for camera in cameras] == ["OD20-000001", "OD20-000002", "OD20-000003"]
    assert [camera["port"] for camera in cameras] == [fleet.port, fleet.port + 1, fleet.port + 2]
    assert {(camera["address"], camera["state"], camera["trap_port"]) for camera in cameras} == {
        ("127.0.0.1", "runs", fleet.port - 1)}
    assert [f"0x{camera['engine_id']}" for camera in cameras] == [engine(fleet, n) for n in range(1, COUNT + 1)]
    status, out, error = run("--inventory", "csv", "--state", fleet.state)
    assert [row["serial"] for row in csv.DictReader(io.StringIO(out))] == [camera["serial"] for camera in cameras]

    before = [pids_of(fleet.state / str(number))[0] for number in range(1, COUNT + 1)]
    own.write_text("presets = 8\n")
    status, _, error = run("--restart", "2", "--state", fleet.state)
    assert status == 0, error
    after = [pids_of(fleet.state / str(number))[0] for number in range(1, COUNT + 1)]
    assert [a == b for a, b in zip(before, after)] == [True, False, True]
    assert presets() == [False, False, False] and serial_numbers(fleet)[1] == b"OD20-000002"

    domectl = lambda *words: subprocess.run([ROOT / "build" / "desk" / "bin" / "domectl", "--fleet", fleet.state,  # noqa: E731
                                             *words], capture_output=True, text=True, timeout=20)
    done = domectl("--only", "1,3", "set", "pan", "1000")
    assert (done.returncode, done.stderr) == (0, "")
    positions = {line.partition(": ")[0]: json.loads(line.partition(": ")[2])["pan"]["position"]
                 for line in domectl("state").stdout.splitlines()}
    assert positions == {"1": 1000, "2": 0, "3": 1000}
    for words, reason in [(["--only", "2-4", "state"], "--only 2-4: the fleet has the cameras 1 to 3"),
                          (["--only", "x", "state"], "--only requires numbers such as 1,4-6, not x"),
                          (["trace"], "trace is for one camera: choose it with --state")]:
        done = domectl(*words)
        assert (done.returncode, done.stdout, done.stderr) == (1, "", f"domectl: {reason}\n")

    # One that has ended is listed as such, and a restart brings it back.
    assert run("--stop", "--state", fleet.state / "3")[0] == 0
    out = run("--fleet-status", "--state", fleet.state)[1]
    assert "2 of 3 cameras run" in out and re.search("OD20-000003 +ended", out), out
    done = domectl("state")
    assert done.returncode == 1 and [line[:2] for line in done.stdout.splitlines()] == ["1:", "2:"]
    assert done.stderr.startswith("domectl: 3: ")
    assert run("--restart", "3", "--state", fleet.state)[0] == 0
    assert "3 of 3 cameras run" in run("--fleet-status", "--state", fleet.state)[1]
    (fleet.state / "4").mkdir()  # of a larger fleet, earlier
    status, _, error = run("--restart", "4", "--state", fleet.state)
    assert (status, message(error)) == (1, [f"run: {fleet.state} has no camera '4'"])

    # A camera that cannot be prepared is not started from its old configuration.
    phrases = fleet.state / "2" / "v3" / "snmp.conf"
    whole = phrases.read_text()
    phrases.write_text("defSecurityName desk\n")
    status, _, error = run("--restart", "2", "--state", fleet.state)
    assert status == 1 and message(error)[0].startswith("run: camera 2 does not start; see "), error
    assert "has no defAuthPassphrase" in (fleet.state / "run.log").read_text()
    assert "2 of 3 cameras run" in run("--fleet-status", "--state", fleet.state)[1]
    phrases.write_text(whole)
    assert run("--restart", "2", "--state", fleet.state)[0] == 0

    # While it starts, no camera may be restarted: the first start of each is awaited.
    (fleet.state / "ready").rename(fleet.folder / "ready")
    pid = pids_of(fleet.state / "1")[0]
    status, _, error = run("--restart", "1", "--state", fleet.state)
    assert (status, len(message(error))) == (1, 1) and "still starts" in error, error
    assert pids_of(fleet.state / "1")[0] == pid and not gone(pid)

    # A copied folder has the running cameras' process ids.
    copy = fleet.folder / "copy"
    shutil.copytree(fleet.state, copy, ignore=lambda folder, names: [name for name in names if name.endswith(".sock")])
    assert "0 of 3 cameras run" in run("--fleet-status", "--state", copy)[1]
    for number in range(1, COUNT + 1):
        (copy / str(number) / "ready").write_text("console_port=8205\n")  # of an earlier version
    assert run("--inventory", "json", "--state", copy)[0] == 0

    (fleet.state / "fleet").unlink()
    os.mkfifo(fleet.state / "fleet")
    assert run("--fleet-status", "--state", fleet.state)[0] == 1
    assert run("--stop", "--state", fleet.state)[0] == 0
    (fleet.state / "fleet").unlink()
    (fleet.state / "fleet").write_text(f"{COUNT}\n")
    status, _, error = run("--restart", "1", "--state", fleet.state)
    assert (status, message(error)) == (1, [f"run: no fleet runs in {fleet.state}"])


def test_a_folder_without_a_fleet_is_named(fleet):
    for words in (["--fleet-status"], ["--inventory", "json"], ["--restart", "1"]):
        assert run(*words, "--state", fleet.state) == (1, "", f"run: there is no fleet in {fleet.state}\n")


@pytest.mark.parametrize(
    ("words", "reason"),
    [(["--fleet", "0"], "--fleet requires a number from 1 to 9999, not '0'"),
     (["--fleet", "many"], "--fleet requires a number from 1 to 9999, not 'many'"),
     (["--fleet", "3", "--port", "65534"], "--port 65534 leaves no room for 3 cameras"),
     (["--fleet", "3", "--console-port", "65534"], "--console-port 65534 leaves no room for 3 cameras"),
     (["--fleet", "3", "--port", "2000", "--trap-port", "2002"], "--trap-port 2002 is the port of one of the agents"),
     (["--fleet", "3", "--first-address", "127.255.255.254"],
      "--first-address 127.255.255.254: 128.0.0.0 is not an address of this machine"),
     (["--first-address", "127.0.8.1"], "--first-address is for a fleet; --address chooses one camera's"),
     (["--inventory", "xml"], "--inventory requires json or csv, not 'xml'"),
     (["--config", f"2={ROOT}/dome/desk.toml"], "--config N=FILE is for a fleet"),
     (["--fleet", "3", "--config", "2=/nowhere.toml"], "--config requires a readable file, not '/nowhere.toml'"),
     (["--fleet", "3", "--config", f"4={ROOT}/dome/desk.toml"],
      f"--config 4={ROOT}/dome/desk.toml: there are only 3 cameras"),
     (["--address", "192.0.2.7"], "--address 192.0.2.7 is not an address of this machine")])
def test_an_impossible_fleet_is_refused(words, reason):
    status, _, error = run(*words)
    assert (status, len(error.splitlines())) == (2, 1)
    assert error.startswith(f"run: {reason} ("), error


def test_a_fleet_says_that_the_machine_lets_too_few_files_be_watched():
    watches = int(pathlib.Path("/proc/sys/fs/inotify/max_user_instances").read_text())
    _, _, error = run("--fleet", "9999", "--port", "2000", "--trap-port", "2002")
    said = f"run: fs.inotify.max_user_instances is {watches}, and each camera uses 2: "
    assert error.startswith(said) == (2 * 9999 > watches), error


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
