"""Where a camera's agent answers, who may use it, and where its traps go: the choices of ./run and prepare-state."""

import os
import re
import socket
import subprocess

import pytest

import ber
from desk import BUILD, ROOT, SYS_UP_TIME, Desk, await_until, free_udp_port
from expected_tree import OID

OUTSIDE = "192.0.2.7"  # RFC 5737: an address of documentation. Nothing is started on it.


def prepare(state, *words, port=1161, **environment):
    command = [ROOT / "scripts" / "prepare-state", BUILD, state, str(port), "1162", *words]
    return subprocess.run(command, capture_output=True, text=True, timeout=20,
                          env=dict(os.environ, **environment))


def lines(state, directive):
    return [line for line in (state / "snmpd.conf").read_text().splitlines() if line.startswith(directive)]


@pytest.fixture
def state(tmp_path):
    return tmp_path / "camera"


def test_on_loopback_the_machine_reads_and_writes(state):
    assert prepare(state).returncode == 0
    assert lines(state, "com2sec") == ["com2sec reader 127.0.0.1 public", "com2sec writer 127.0.0.1 private"]
    assert lines(state, "agentaddress") == ["agentaddress udp:127.0.0.1:1161"]


@pytest.mark.parametrize("address", [OUTSIDE, "0.0.0.0"])
def test_off_loopback_no_community_writes_unless_it_is_named(state, address):
    assert prepare(state, "--address", address).returncode == 0
    assert lines(state, "com2sec") == ["com2sec reader default public"]
    assert prepare(state, "--address", address, "--write-community", "steer").returncode == 0
    assert lines(state, "com2sec") == ["com2sec reader default public", "com2sec writer default steer"]


def test_only_the_allowed_networks_and_the_machine_itself_use_communities(state):
    assert prepare(state, "--address", OUTSIDE, "--allow", "198.51.100.0/24", "--allow", "203.0.113.9").returncode == 0
    sources = ["127.0.0.1", OUTSIDE, "198.51.100.0/24", "203.0.113.9"]
    assert sorted(lines(state, "com2sec")) == sorted(f"com2sec reader {source} public" for source in sources)


def test_an_agent_on_every_address_accepts_the_communities_from_those_of_its_machine(state, tmp_path):
    (tmp_path / "hostname").write_text("#!/bin/sh\necho 192.0.2.7 192.0.2.8 2001:db8::1\n")
    (tmp_path / "hostname").chmod(0o755)
    done = prepare(state, "--address", "0.0.0.0", "--allow", "198.51.100.0/24", PATH=f"{tmp_path}:{os.environ['PATH']}")
    assert done.returncode == 0, done.stderr
    sources = ["127.0.0.1", "192.0.2.7", "192.0.2.8", "198.51.100.0/24"]
    assert sorted(lines(state, "com2sec")) == sorted(f"com2sec reader {source} public" for source in sources)


def test_the_machines_hosts_files_apply_where_others_can_reach_the_agent(state):
    assert prepare(state, "--address", "127.0.9.1").returncode == 0
    assert len(lines(state, "dlmod orvexnowrap")) == 1
    assert prepare(state, "--address", OUTSIDE).returncode == 0
    assert lines(state, "dlmod orvexnowrap") == []


@pytest.mark.parametrize(
    ("words", "reason"),
    [(["--address", "127.0.0.256"], "--address requires an IPv4 address, not '127.0.0.256'"),
     (["--allow", "10.0.0.0/33"], "--allow requires a network such as 192.0.2.0/24, not '10.0.0.0/33'"),
     (["--trap-to", "no.such.host.invalid"], "--trap-to requires an IPv4 address or the name of one, not"),
     (["--allow", "192.0.2.5/24"], "--allow requires a network"),
     (["--allow", "128.0.0.0/0"], "--allow requires a network"),
     (["--community", "-v1"], "--community requires 1 to 32 letters"),
     (["--community", "two words"], "--community requires 1 to 32 letters"),
     (["--community", "a\ncom2sec writer default a"], "--community requires 1 to 32 letters"),
     (["--user", "a\tb"], "--user requires 1 to 32 letters"),
     (["--write-community", "public"], "one community cannot be two"),
     (["--trap-to", "127.0.0.1:0"], "--trap-to requires a port from 1 to 65535"),
     (["--trap-to", OUTSIDE], f"--trap-to {OUTSIDE} is not on this machine: choose an --address from which it can")],
    ids=lambda value: value if isinstance(value, str) else " ".join(value))
def test_an_impossible_choice_is_refused_before_anything_is_written(state, words, reason):
    done = prepare(state, *words)
    assert (done.returncode, done.stdout, len(done.stderr.splitlines())) == (2, "", 1 + words[1].count("\n"))
    assert reason in done.stderr
    assert not state.exists()


def test_the_system_is_named_by_its_serial_number(state):
    assert prepare(state, "--serial", "OD20-000321").returncode == 0
    assert lines(state, "sysName") == ["sysName OD20-000321"]
    assert prepare(state, "--serial", "OD20-000999").returncode == 0
    assert lines(state, "sysName") == ["sysName OD20-000321"], "a camera keeps its number"
    store = state / "settings.db"
    subprocess.run([BUILD / "bin" / "tavos-settings", "--store", store, "set", "[Device/ReadOnly]SerialNumber",
                    "a\ndlmod x y"], check=True, timeout=20)
    assert prepare(state).returncode == 0
    assert lines(state, "sysName") == ["sysName orvex-desk"]
    assert lines(state, "dlmod x") == []


class Receiver:
    """A receiver of traps on a free port of loopback."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.settimeout(10)
        self.port = self.socket.getsockname()[1]

    def next(self):
        octets, (source, _) = self.socket.recvfrom(65536)
        return octets, source


class Source:
    """Asks an agent from a chosen address of loopback."""

    def __init__(self, port, address="127.0.0.1"):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((address, 0))
        self._socket.connect(("127.0.9.1", port))

    def answers(self, community, seconds=10.0, pdu=ber.GET, binding=(SYS_UP_TIME, ber.NULL, b"")):
        """The answer, or None after the time."""
        self._socket.settimeout(seconds)
        try:
            self._socket.send(ber.encode(pdu, [binding], community))
            return ber.Message(self._socket.recv(65536))
        except (socket.timeout, ConnectionRefusedError):
            return None
        finally:
            self._socket.settimeout(None)


def test_a_camera_answers_and_emits_as_it_was_asked_to():
    trap, inform, v3 = Receiver(), Receiver(), Receiver()
    with Desk() as desk:
        done = prepare(desk.state, "--address", "127.0.9.1", "--community", "watch", "--write-community", "steer",
                       "--user", "operator", "--allow", "127.0.0.5", "--trap-to", f"127.0.0.1:{trap.port}", "--trap-to",
                       f"inform:127.0.0.1:{inform.port}", "--trap-to", f"v3:127.0.0.1:{v3.port}", port=desk.port)
        assert done.returncode == 0, done.stderr
        desk.start_bus()
        desk.start_dome()
        desk.launch_agent()
        own = Source(desk.port)
        await_until(lambda: own.answers("watch", 0.5), "the agent answers on its address")

        write = dict(pdu=ber.SET, binding=(OID["positionPan"], ber.OCTET_STRING, bytes.fromhex("02404650")))
        assert own.answers("watch", **write).error_status == ber.NO_ACCESS
        assert own.answers("steer", **write).error_status == ber.NO_ERROR
        assert Source(desk.port, "127.0.0.5").answers("watch")
        for community, address in [("public", "127.0.0.1"), ("private", "127.0.0.1"), ("watch", "127.0.0.6")]:
            assert Source(desk.port, address).answers(community, 1) is None, (community, address)

        (engine,) = re.findall(r"^oldEngineID 0x(\S+)", (desk.state / "snmp" / "snmpd.conf").read_text(), re.MULTILINE)
        desk.domectl("event", "temperature", "0", "41")
        octets, source = trap.next()
        assert (source, ber.Message(octets).pdu, ber.Message(octets).community) == ("127.0.9.1", ber.TRAP2, "watch")
        octets, source = inform.next()
        assert (source, ber.Message(octets).pdu) == ("127.0.9.1", 0xA6)
        octets, source = v3.next()
        assert source == "127.0.9.1"
        assert bytes.fromhex(engine) in octets and b"operator" in octets


def test_the_pass_phrases_stay_when_the_user_is_renamed(state):
    assert prepare(state).returncode == 0
    before = (state / "v3" / "snmp.conf").read_text()
    assert prepare(state, "--user", "operator").returncode == 0
    assert (state / "v3" / "snmp.conf").read_text() == before.replace("SecurityName desk", "SecurityName operator")
    assert lines(state, "group managers usm") == ["group managers usm operator"]
    phrases = (state / "v3" / "snmp.conf").read_text()
    assert prepare(state, "--user", "operat.r").returncode == 0
    assert (state / "v3" / "snmp.conf").read_text() == phrases.replace("operator", "operat.r")


def test_an_engine_id_is_drawn_once_for_a_camera_of_a_fleet(tmp_path):
    def drawn(state):
        assert prepare(state, "--serial", "OD20-000007").returncode == 0
        return (state / "snmp" / "snmpd.conf").read_text()

    first = drawn(tmp_path / "1")
    assert re.fullmatch(r"oldEngineID 0x80001f8880[0-9a-f]{16}\n", first)
    assert drawn(tmp_path / "1") == first
    assert drawn(tmp_path / "2") != first
