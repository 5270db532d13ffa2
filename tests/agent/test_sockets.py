"""The addresses at which others can reach a desk camera's processes. Each desk has a separate network, where every port
is free."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

import pytest

from desk import AGENT_PARTS, BUILD, CAMERA_PARTS, PARTS, ROOT, Desk, await_until
from sockets import Network, sockets_of


@pytest.fixture
def network():
    with Network() as network:
        yield network


class DeskIn(Desk):
    """A desk whose processes run in that network."""

    def __init__(self, network):
        super().__init__()
        self._network = network

    def _launch(self, name, command, environment=None):
        super()._launch(name, self._network.command(*map(str, command)), environment)

    def start_agent(self):
        self.launch_agent()
        self._await("agent", lambda: "NET-SNMP version" in self.log("agent"))


def reload(pid, log):
    os.kill(pid, signal.SIGHUP)
    await_until(lambda: "restarted" in log(), "the agent has read its configuration again")


def without_ports_of_traps(sockets):
    """Shows "any" for the ports that the kernel gave to the trap sessions on loopback."""
    return {"udp 127.0.0.1:any" if is_of_a_trap_session(text) else text for text in sockets}


def is_of_a_trap_session(text):
    return text.startswith("udp 127.0.0.1:") and " to " not in text and int(text.rpartition(":")[2]) > 32767


def check(pids, state, port, console):
    assert set(sockets_of(pids["bus"])) == {f"unix {state}/bus.sock listens", "unix connected"}
    assert set(sockets_of(pids["dome"])) == {"unix connected", *console}
    sockets = lambda: without_ports_of_traps(sockets_of(pids["agent"]))  # noqa: E731
    # The module connects to the bus shortly after the agent has loaded it.
    await_until(lambda: "unix connected" in sockets(), "the module is on the bus")
    assert sockets() == {f"udp 127.0.0.1:{port}", "udp 127.0.0.1:any", "unix connected",
                         f"unix {state}/trace.sock listens"}


def test_a_test_desk_is_open_to_its_own_machine_only(network):
    with DeskIn(network) as desk:
        desk.start()
        pids = {name: process.pid for name, process in desk.processes.items()}
        check(pids, desk.state, desk.port, [])
        reload(pids["agent"], lambda: desk.log("agent"))
        check(pids, desk.state, desk.port, [])


@pytest.mark.slow
@pytest.mark.commands
def test_what_run_starts_is_open_to_its_own_machine_only(network):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="orvex-run-"))
    state = folder / "state"
    try:
        with open(folder / "out", "w") as out:
            subprocess.run(network.command(ROOT / "run", "--detach", "--state", state), stdin=subprocess.DEVNULL,
                           stdout=out, stderr=out, timeout=300)
        assert (state / "ready").exists(), (folder / "out").read_text()
        pids = {name: int(pid) for name, pid, _ in map(str.split, (state / "pids").read_text().splitlines())}
        assert sockets_of(pids["run"]) == []
        started = pathlib.Path(f"/proc/{pids['agent']}/cmdline").read_text()
        # The agent replaces the commas, where it has read them, by zeros.
        assert f" -I {' '.join(PARTS)} " in started.replace("\0", " ")
        check(pids, state, 1161, ["tcp 127.0.0.1:8205 listens"])
        reload(pids["agent"], (state / "agent.log").read_text)
        check(pids, state, 1161, ["tcp 127.0.0.1:8205 listens"])
    finally:
        subprocess.run([ROOT / "run", "--stop", "--state", state], capture_output=True, timeout=60)
        shutil.rmtree(folder)


@contextlib.contextmanager
def open_camera(network, *words):
    """The state folder of a camera on every address, its processes' ids and what ./run printed."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="orvex-run-"))
    state = folder / "state"
    try:
        with open(folder / "out", "w") as out:
            subprocess.run(network.command(ROOT / "run", "--detach", "--state", state, "--address", "0.0.0.0", *words),
                           stdin=subprocess.DEVNULL, stdout=out, stderr=out, timeout=300)
        said = (folder / "out").read_text()
        assert (state / "ready").exists(), said
        pids = {name: int(pid) for name, pid, _ in map(str.split, (state / "pids").read_text().splitlines())}
        yield pids, said
    finally:
        subprocess.run([ROOT / "run", "--stop", "--state", state], capture_output=True, timeout=60)
        shutil.rmtree(folder)


@pytest.mark.slow
@pytest.mark.commands
def test_an_open_camera_opens_no_more_than_was_asked_for(network):
    with open_camera(network) as (pids, said):
        assert {"unix connected", "tcp 127.0.0.1:8205 listens"} == set(sockets_of(pids["dome"]))
        internet = [text for text in sockets_of(pids["agent"]) if text.startswith("udp")]
        # The second, of the traps' session, has a port from the kernel.
        assert "udp 0.0.0.0:1161" in internet and len(internet) == 2
        assert "Other machines can reach on 0.0.0.0: the agent (SNMPv2c: public reads;" in said
        assert "They cannot reach the page" in said


PAGE = """
import sys, urllib.error, urllib.request
try:
    request = urllib.request.Request("http://127.0.0.1:8205/", headers={"Host": sys.argv[1] + ":8205"})
    print(urllib.request.urlopen(request, timeout=10).status)
except urllib.error.HTTPError as error:
    print(error.code)
"""


@pytest.mark.slow
@pytest.mark.commands
def test_an_open_page_is_served_on_the_agents_address_by_its_names(network):
    words = ["--open-console", "--console-name", "dome.test", "--trap-to", "v3:127.0.0.1:1199", "--community", "none"]
    with open_camera(network, *words) as (pids, said):
        assert "tcp 0.0.0.0:8205 listens" in sockets_of(pids["dome"])
        assert "They can reach the page" in said and "cannot" not in said
        assert "Traps go to v3:127.0.0.1:1199." in said and "snmptrapd" not in said
        assert said.count("SNMPv3: desk reads and writes") == 2  # where it answers, and what others reach
        for name, status in [("dome.test", "200"), ("other.test", "403")]:
            page = network.command("/usr/bin/python3", "-c", PAGE, name)
            assert subprocess.run(page, capture_output=True, text=True, timeout=20).stdout.strip() == status, name


@pytest.mark.parametrize(("unit", "parts"), [("orvex-agent@.service", AGENT_PARTS),
                                             ("snmpd.service.d-orvexsnmp.conf", CAMERA_PARTS),
                                             ("snmpd.service.d-parts.conf", AGENT_PARTS)])
def test_every_agent_is_started_as_one_that_was_looked_at(unit, parts):
    lines = (BUILD / "packaging" / "systemd" / unit).read_text().splitlines()
    (command,) = [line for line in lines if "/usr/sbin/snmpd -" in line]
    assert f" {' '.join(parts)} " in command
