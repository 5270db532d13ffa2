"""Three protocol versions, truncated messages and wrong octets on the wire."""

import random
import socket
import subprocess
import threading

import pytest

import ber
import desk as desks
from desk import ManagerOf
from expected_tree import OID, ROWS, SUBTREES
from watching import SANITIZED, footprint, settled, times
from test_services import tree
from tools import Answer

DIGEST = "SHA-256" if desks.AGENT >= (5, 8) else "SHA"
SECURITY = {
    "1": ["-v1", "-c", "private"],
    "2c": ["-v2c", "-c", "private"],
    "3": ["-v3", "-u", "tester", "-l", "authPriv", "-a", DIGEST, "-A", "authentic tester 1", "-x", "AES", "-X",
          "private tester 2"],
}
KINDS = {ber.INTEGER: "INTEGER", ber.OCTET_STRING: "Hex-STRING", ber.GAUGE32: "Gauge32"}
PAN = OID["positionPan"]
ABSENT = OID["modelName"] + ".7"


@pytest.fixture(scope="module")
def running():
    """One camera for the whole file; its agent has one more user."""
    with desks.Desk() as desk:
        with open(desk.state / "snmpd.conf", "a") as configuration:
            configuration.write(f'createUser tester {DIGEST} "authentic tester 1" AES "private tester 2"\n'
                                'group testers usm tester\n'
                                'access testers "" usm priv exact readable camera none\n')
        desk.start()
        yield desk


def run(desk, version, tool, *words, port=None):
    command = [tool, *SECURITY[version], "-t", "5", "-r", "0", "-On", "-Oe", "-Ox", "-Ot",
               f"127.0.0.1:{port or desk.port}", *map(str, words)]
    environment = dict(desk.environment, SNMPCONFPATH="/dev/null", SNMP_PERSISTENT_DIR=f"{desk.state}/manager")
    return Answer(subprocess.run(command, env=environment, capture_output=True, text=True, timeout=60))


@pytest.mark.parametrize("version", SECURITY)
def test_every_version_serves_the_tree(running, version):
    for subtree in SUBTREES:
        walked = run(running, version, "snmpwalk", subtree)
        assert walked.status == 0, walked.error
        assert [(oid, kind) for oid, kind, _ in walked.triples] == [
            (row.oid, KINDS[row.tag]) for row in ROWS if row.oid.startswith(subtree + ".")]


@pytest.mark.parametrize("version", SECURITY)
def test_every_version_moves_the_camera(running, version):
    running.clear_calls()
    octets = bytes.fromhex("0200") + bytes([1, int(version[0])])
    done = run(running, version, "snmpset", PAN, "x", octets.hex())
    assert (done.status, done.triples) == (0, [(PAN, "Hex-STRING", octets)]), done.error
    assert [call["args"][0] for call in running.calls()] == [int.from_bytes(octets[2:], "big") * 10]


@pytest.mark.parametrize(("version", "error"), [("1", "(noSuchName)"), ("2c", "No Such"), ("3", "No Such")])
def test_what_is_not_there(running, version, error):
    answer = run(running, version, "snmpget", ABSENT)
    assert error in answer.error + "".join(str(value) for _, _, value in answer.triples)


@pytest.mark.parametrize(("version", "error"), [("1", "(badValue)"), ("2c", "wrongType"), ("3", "wrongType")])
def test_a_refusal(running, version, error):
    assert error in run(running, version, "snmpset", OID["rangeTrueNorthOffset"], "x", "01").error


class Eavesdropper:
    """Proxy between a manager and the agent that records the manager's messages."""

    def __init__(self, desk):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(10)
        self.port = self._socket.getsockname()[1]
        self._agent = ("127.0.0.1", desk.port)
        self.messages = []
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        manager = None
        while True:
            try:
                octets, source = self._socket.recvfrom(65536)
            except OSError:
                return
            if source != self._agent:
                manager = source
                self.messages.append(octets)
            self._socket.sendto(octets, self._agent if source != self._agent else manager)

    def close(self):
        self._socket.close()


@pytest.fixture(scope="module")
def messages(running):
    """Valid messages of every kind, as managers send them."""
    ear = Eavesdropper(running)
    for version in SECURITY:
        for tool, *words in (("snmpget", OID["modelName"], OID["temperature"]), ("snmpgetnext", OID["relayBank.1"]),
                             ("snmpset", PAN, "x", "02000064"),
                             ("snmpset", OID["relayState.1"], "i", "0", OID["outputControl"], "x", "0000")):
            assert run(running, version, tool, *words, port=ear.port).status == 0
        if version != "1":
            assert run(running, version, "snmpbulkget", "-Cr9", SUBTREES[1], port=ear.port).status == 0
    ear.close()
    return ear.messages


class Noise:
    """Sends any octets, and checks regularly that the agent still works."""

    def __init__(self, desk):
        self._desk, self.sent = desk, 0
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.connect(("127.0.0.1", desk.port))
        self._socket.setblocking(False)
        self._manager = ManagerOf(desk, timeout=10)
        self.answers = 0

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is None:
            self.check()
        self._socket.close()
        self._manager.close()

    def send(self, octets):
        self._socket.send(octets)
        self.sent += 1
        if self.sent % 20 == 0:  # no more than fit into the agent's socket
            self.check()

    def check(self):
        assert self._manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        assert self._desk.alive("agent")
        try:
            while self._socket.recv(65536):
                self.answers += 1
        except BlockingIOError:
            pass


@pytest.fixture
def noise(running, figure):
    """A source of noise. Checks afterwards that the agent is the same process, serves the same objects and uses no more
    resources."""
    before = settled(running)
    with Noise(running) as noise:
        yield noise
    after = footprint(running.agent_pid())
    figure(f"{noise.sent} messages, {noise.answers} answers; agent before {before}, after {after}")
    assert (after.threads, after.descriptors) == (before.threads, before.descriptors)
    assert SANITIZED or after.resident - before.resident < 1024
    assert [(oid, tag) for oid, tag, _ in tree(running)] == [(row.oid, row.tag) for row in ROWS]


def test_messages_that_end_too_early(messages, noise):
    for message in messages:
        for length in range(len(message)):
            noise.send(message[:length])
    noise.check()
    assert noise.answers == 0


@pytest.mark.slow
def test_each_octet_wrong(messages, noise):
    for message in messages:
        for at, octet in enumerate(message):
            for wrong in {0x00, 0x01, 0x02, 0x7F, 0x80, 0x81, 0x84, 0x88, 0xFF, octet ^ 1, (octet + 1) & 0xFF}:
                if wrong != octet:
                    noise.send(message[:at] + bytes([wrong]) + message[at + 1:])


def test_octets_wrong_missing_and_added_at_random(messages, noise, figure):
    seed = random.randrange(1 << 32)
    print(f"seed {seed}")
    dice = random.Random(seed)
    for _ in range(times(5000, 1000000)):
        octets = bytearray(dice.choice(messages))
        for _ in range(dice.randint(1, 6)):
            at = dice.randrange(len(octets))
            what = dice.randrange(4)
            if what == 0:
                octets[at] = dice.randrange(256)
            elif what == 1:
                del octets[at:at + dice.randint(1, 4)]
            elif what == 2:
                octets[at:at] = dice.randbytes(dice.randint(1, 4))
            else:
                octets[at:at] = octets[dice.randrange(len(octets)):][:dice.randint(1, 40)]
            octets = octets or bytearray(b"\x30")
        noise.send(bytes(octets))


def whole(pdu, names, community=b"public", numbers=(1, 0, 0)):
    body = b"".join(number if isinstance(number, bytes) else ber.tlv(ber.INTEGER, ber.integer_octets(number))
                    for number in numbers)
    return ber.tlv(0x30, ber.tlv(2, b"\1") + ber.tlv(4, community) + ber.tlv(pdu, body + ber.tlv(0x30, names)))


def binding(oid, value=b"\x05\x00"):
    return ber.tlv(0x30, oid + value)


NAME = ber.tlv(6, ber.oid_octets(OID["modelName"]))
NESTED = b"\x05\x00"
for _ in range(2000):
    NESTED = ber.tlv(0x30, NESTED)
ODD = {
    "nothing": b"",
    "one octet": b"\x30",
    "no end": b"\x30\x80" + b"\x02\x01\x01\x04\x06public\xa0\x80" + b"\0\0\0\0",
    "a length of four gigabytes": b"\x30\x84\xff\xff\xff\xff",
    "a length of 127 octets": b"\x30\xff" + b"\x01" * 127,
    "lengths with zeros in front": b"\x30\x88\0\0\0\0\0\0\0\x05\x02\x01\x01\x04\x00",
    "sequences only": b"\x30" * 60000,
    "deeply nested": NESTED,
    "deeply nested bindings": whole(ber.GET, NESTED),
    "an endless tag": b"\x3f" + b"\xff" * 1000,
    "a long community": whole(ber.GET, binding(NAME), b"c" * 60000),
    "thousands of bindings": whole(ber.GET, binding(NAME) * 2900),
    "bindings without names": whole(ber.GET, ber.tlv(0x30, b"") * 100),
    "an empty name": whole(ber.GET, binding(b"\x06\x00")),
    "a name of 128 parts": whole(ber.GETNEXT, binding(ber.tlv(6, ber.oid_octets("1.3" + ".1" * 126)))),
    "a name of 1000 parts": whole(ber.GETNEXT, binding(ber.tlv(6, ber.oid_octets("1.3" + ".1" * 998)))),
    "a part beyond 32 bits": whole(ber.GET, binding(ber.tlv(6, b"\x2b" + b"\xff" * 9 + b"\x7f"))),
    "a part without an end": whole(ber.GET, binding(ber.tlv(6, b"\x2b\x86\x8d\xff"))),
    "a value that is none": whole(ber.GET, binding(NAME, b"\x04\x05hello")),
    "an error in a question": whole(ber.GET, binding(NAME), numbers=(1, 5, 1)),
    "numbers without octets": whole(ber.GET, binding(NAME), numbers=(b"\x02\x00", b"\x02\x00", b"\x02\x00")),
    "numbers of nine octets": whole(ber.GET, binding(NAME), numbers=(b"\x02\x09" + b"\x7f" * 9, 0, 0)),
    "numbers of another type": whole(ber.GET, binding(NAME), numbers=(b"\x04\x01\x01", b"\x05\x00", b"\x06\x00")),
    "an answer": whole(ber.RESPONSE, binding(NAME)),
    "a report": whole(0xA8, binding(NAME)),
    "a trap": whole(ber.TRAP2, binding(NAME)),
    "an unknown kind": whole(0xAF, binding(NAME)),
    "a trap of version 1 in version 2": whole(0xA4, binding(NAME)),
    "version 4": b"\x30\x1d\x02\x01\x04" + whole(ber.GET, binding(NAME))[5:],
}


@pytest.mark.parametrize("name", ODD)
def test_odd_messages(noise, name):
    for _ in range(3):
        noise.send(ODD[name])
