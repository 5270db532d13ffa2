"""Every BER type at every length of interest, to every writable object and to others. The answer is the expected one or
a standard error, and a refused SET causes no motion. The test computes the expected answer from each object's
description."""

import itertools
import random
import subprocess
from typing import NamedTuple

import pytest

import ber
import desk as desks
import set_grammar
from expected_tree import CCTV, OID, ORVEX, RO, ROWS
from set_grammar import KNOWN, UNSERVED, WITHOUT_VALUE, expected_answer, value

OLD_AGENT = not desks.AGENT_REFUSES_NULL
VALUES = set_grammar.all_values(OLD_AGENT)


def refusals(sent, *errors):
    return set_grammar.refusals(sent, *errors, old_agent=OLD_AGENT)


def expected_error(name, sent):
    return set_grammar.expected_error(name, sent, OLD_AGENT)


# --- many messages at once ---

class Message(NamedTuple):
    octets: bytes
    request_id: int


def set_pdu(oid, sent, request_id):
    binding = ber.tlv(ber.SEQUENCE, ber.tlv(ber.OID, ber.oid_octets(oid)) + sent.encoded)
    return ber.tlv(ber.SET, ber.integers(request_id, 0, 0) + ber.tlv(ber.SEQUENCE, binding))


def message(oid, sent, community="private", version=1):
    request_id = next(_request_ids)
    head = ber.integers(version) + ber.tlv(ber.OCTET_STRING, community.encode())
    return Message(ber.tlv(ber.SEQUENCE, head + set_pdu(oid, sent, request_id)), request_id)


_request_ids = itertools.count(1_000_000)


def exchange(manager, messages, window=24):
    """The answers; None for a message without one. A request after every few messages shows that the agent has handled
    them."""
    answers = []
    for start in range(0, len(messages), window):
        some = messages[start : start + window]
        for one in some:
            manager._socket.send(one.octets)
        probe = ber.encode(ber.GET, [(desks.SYS_UP_TIME, ber.NULL, b"")])
        probe_id = ber.Message(probe).request_id
        manager._socket.send(probe)
        received = {}
        while probe_id not in received:
            answer = ber.Message(manager._socket.recv(65536))
            received[answer.request_id] = answer
        answers += [received.get(one.request_id) for one in some]
    return answers


def set_all(manager, oid, values):
    return exchange(manager, [message(oid, sent) for sent in values])


def drives(camera):
    return [call for call in camera.calls() if not call["call"].startswith(("Get", "Is"))]


@pytest.fixture(scope="module")
def readable(running):
    """The values that the agent can read: those that it answers even for a name that nobody serves. It drops the others
    for every name."""
    with desks.ManagerOf(running) as manager:
        answers = set_all(manager, UNSERVED, VALUES)
    readable = [sent for sent, answer in zip(VALUES, answers) if answer]
    odd = [(str(sent), answer.error_status) for sent, answer in zip(VALUES, answers)
           if answer and answer.error_status not in refusals(sent, ber.NO_CREATION, ber.NOT_WRITABLE)]
    assert odd == []
    # The agent's parser is net-snmp's. It must read these types, and no type that SNMP does not have.
    must = [sent for sent in VALUES if sent.tag == ber.OCTET_STRING and sent.encoded[1] != 0x80]
    must += [sent for sent in VALUES if sent.tag == ber.INTEGER and 1 <= len(sent.content) <= 4]
    must += [sent for sent in VALUES if sent.tag in WITHOUT_VALUE and not sent.content]
    assert [str(sent) for sent in must if sent not in readable] == []
    assert [str(sent) for sent in readable if sent.tag not in KNOWN] == []
    assert not any(sent.tag == ber.INTEGER and not sent.content for sent in readable)
    return set(readable)


WRITABLE = [row for row in ROWS if row.access != RO and row.name != "rebootDevice"]
READ_ONLY = ["globalMaxModules", "moduleMake", "modelName", "temperature", "rangePanHomePosition", "outputStatus",
             "systemLensFeatureStatus", "alarmBank.1", "alarmNumber.2", "alarmState.5"]
ABSENT = {"pan's second instance": f"{CCTV}.4.1.1", "pan without an instance": f"{CCTV}.4.1",
          "behind pan's instance": f"{CCTV}.4.1.0.0", "a relay too many": f"{ORVEX}.1.3.2.1.3.7",
          "relay 0": f"{ORVEX}.1.3.2.1.3.0", "a relay's fourth column": f"{ORVEX}.1.3.2.1.4.1",
          "a relay's column 0": f"{ORVEX}.1.3.2.1.0.1", "the relays' table": f"{ORVEX}.1.3.2",
          "another entry of the relays": f"{ORVEX}.1.3.2.2.3.1", "a name behind a relay's": f"{ORVEX}.1.3.2.1.3.1.1",
          "reboot's second instance": f"{ORVEX}.1.1.100.1"}


@pytest.mark.parametrize("row", WRITABLE, ids=lambda row: row.name)
def test_writable_objects_give_the_stated_answer(camera, manager, readable, row):
    before = manager.get(row.oid).bindings[0]
    refused = [sent for sent in VALUES if sent not in readable or expected_error(row.name, sent) != ber.NO_ERROR]
    taken = [sent for sent in VALUES if sent in readable and expected_error(row.name, sent) == ber.NO_ERROR]
    for sent, answer in zip(refused, set_all(manager, row.oid, refused)):
        if sent not in readable:
            assert answer is None, sent
            continue
        assert answer is not None, sent
        assert answer.error_status == expected_error(row.name, sent), sent
        assert answer.error_index in ((1,) if answer.error_status == ber.WRONG_TYPE else (0, 1)), sent
    assert drives(camera) == []
    if not row.name.startswith(("position", "systemCameraEquipped")):  # they store what they refuse
        assert repr(manager.get(row.oid).bindings[0]) == repr(before)

    for sent, answer in zip(taken, set_all(manager, row.oid, taken)):
        assert answer is not None and answer.error_status == ber.NO_ERROR, sent
        (binding,) = answer.bindings
        expected = expected_answer(row.name, sent)
        assert expected in (None, (binding.tag, binding.octets)), sent
    assert camera.alive("agent")
    (binding,) = manager.get(row.oid).bindings
    assert binding.tag == row.tag
    if row.name.startswith("position"):
        assert binding.octets == taken[-1].octets(4)


@pytest.mark.parametrize("name", READ_ONLY)
def test_read_only_objects_are_not_writable(camera, manager, readable, name):
    before = manager.get(OID[name]).bindings[0]
    for sent, answer in zip(VALUES, set_all(manager, OID[name], VALUES)):
        allowed = refusals(sent, ber.NOT_WRITABLE) if sent in readable else (None,)
        assert (answer.error_status if answer else None) in allowed, sent
    assert drives(camera) == []
    assert repr(manager.get(OID[name]).bindings[0]) == repr(before)


@pytest.mark.parametrize("name", ["relayBank.1", "relayNumber.2"])
def test_the_relays_other_columns_are_refused(camera, manager, readable, name):
    for sent, answer in zip(VALUES, set_all(manager, OID[name], VALUES)):
        # The object is not writable, or the type is already wrong.
        allowed = (ber.NOT_WRITABLE, ber.WRONG_TYPE) if sent in readable else (None,)
        assert (answer.error_status if answer else None) in allowed, sent
    assert drives(camera) == []


@pytest.mark.parametrize("oid", ABSENT.values(), ids=ABSENT.keys())
def test_what_is_not_there_cannot_be_made(camera, manager, readable, oid):
    for sent, answer in zip(VALUES, set_all(manager, oid, VALUES)):
        allowed = refusals(sent, ber.NO_CREATION, ber.NOT_WRITABLE, ber.WRONG_TYPE) if sent in readable else (None,)
        assert (answer.error_status if answer else None) in allowed, sent
    assert drives(camera) == []
    assert camera.alive("agent")


def test_only_integers_restart_the_camera(camera, manager, readable):
    log = camera.state / "restart.log"
    others = [sent for sent in VALUES if sent.tag != ber.INTEGER]
    for sent, answer in zip(others, set_all(manager, OID["rebootDevice"], others)):
        assert (answer.error_status if answer else None) == (ber.WRONG_TYPE if sent in readable else None), sent
    assert manager.get(OID["rebootDevice"]).bindings[0].value == 0

    integers = [sent for sent in VALUES if sent.tag == ber.INTEGER and sent in readable]
    for sent, answer in zip(integers, set_all(manager, OID["rebootDevice"], integers)):
        assert answer is not None and answer.error_status == ber.NO_ERROR, sent
    restarts = desks.await_until(lambda: log.exists() and len(log.read_text().splitlines()) >= len(integers) and
                                 log.read_text().splitlines(), "as many restarts as integers", seconds=40)
    assert len(restarts) == len(integers)


# --- several bindings ---

NAMES = {"cell": (f"{ORVEX}.1.3.2.1.3.1", b"\1"), "no column": (f"{ORVEX}.1.3.2.1.0.1", b"\1"),
         "no index": (f"{ORVEX}.1.3.2.1.3", b"\1"), "long index": (f"{ORVEX}.1.3.2.1.3.77.5", b"\1"),
         "no row": (f"{ORVEX}.1.3.2.1.3.99", b"\1"), "entry": (f"{ORVEX}.1.3.2.2.1.1", b"\1"),
         "table": (f"{ORVEX}.1.3.2", b"\1"), "alarm": (f"{ORVEX}.1.3.1.1.3.1", b"\1"),
         "no alarm column": (f"{ORVEX}.1.3.1.1.9.1", b"\1"), "north": (OID["rangeTrueNorthOffset"], b"\0"),
         "bad north": (OID["rangeTrueNorthOffset"], b"\7"), "timeout": (OID["timeoutPan"], b"\1")}
GOOD = ("cell", "north")


@pytest.mark.parametrize("count", [2, 3])
def test_one_refused_binding_refuses_them_all(camera, manager, count):
    """Every combination of cells, of invalid names, and of scalars, in every order."""
    for names in itertools.product(NAMES, repeat=count):
        if all(name in GOOD for name in names):
            continue
        answer = manager.set(*[(NAMES[name][0], ber.INTEGER, NAMES[name][1]) for name in names])
        assert answer.error_status != ber.NO_ERROR, names
        assert answer.error_index == 0 or names[answer.error_index - 1] not in GOOD, names
    assert drives(camera) == []
    assert camera.alive("agent")


# --- broken messages ---

def test_the_agent_survives_cut_and_flipped_messages(camera, manager):
    whole = [message(OID["positionPan"], value(ber.OCTET_STRING, bytes.fromhex("02000064"))),
             message(f"{ORVEX}.1.3.2.1.3.1", value(ber.INTEGER, b"\1")),
             message(OID["rangeTrueNorthOffset"], value(ber.INTEGER, b"\0"))]
    cut = [Message(one.octets[:length], one.request_id) for one in whole for length in range(len(one.octets))]
    assert [answer for answer in exchange(manager, cut) if answer] == []
    assert drives(camera) == []

    flipped = [bytearray(one.octets) for one in whole for _ in range(len(one.octets) * 8)]
    for bit, octets in enumerate(flipped[: len(whole[0].octets) * 8]):
        octets[bit // 8] ^= 1 << bit % 8
    generator = random.Random(2)
    for octets in flipped[len(whole[0].octets) * 8 :]:
        for _ in range(generator.randint(1, 4)):
            octets[generator.randrange(len(octets))] = generator.randrange(256)
    # The answers do not matter, but the agent must keep running.
    for start in range(0, len(flipped), 24):
        for octets in flipped[start : start + 24]:
            manager._socket.send(octets)
        assert answers_still(camera)
    assert camera.alive("agent")


def answers_still(camera):
    with desks.ManagerOf(camera) as other:
        return other.get(desks.SYS_UP_TIME).error_status == ber.NO_ERROR


# --- the other versions ---

# The SNMPv1 error for each SNMPv2 error (RFC 3584, 4.4).
V1 = {ber.NO_ERROR: 0, ber.GEN_ERR: 5, ber.WRONG_TYPE: 3, ber.WRONG_VALUE: 3, ber.NOT_WRITABLE: 2, ber.NO_CREATION: 2}


@pytest.fixture(scope="module")
def every_version():
    """A camera whose agent also accepts SNMPv1 and SNMPv3."""
    desk = desks.Desk()
    with open(desk.state / "snmpd.conf", "a", encoding="utf-8") as configuration:
        configuration.write("group writers v1 writer\ngroup readers v1 reader\ncreateUser grammar\n"
                            "rwuser grammar noauth .1.3.6.1.4.1\n"
                            'access writers "" v1 noauth exact readable camera none\n')
    try:
        desk.start()
        yield desk
    finally:
        desk.close()


def expected_error_1(name, sent):
    """SNMPv1 has no Counter64: for the agent such a name cannot be set."""
    return ber.NO_CREATION if sent.tag == ber.COUNTER64 else expected_error(name, sent)


@pytest.mark.slow
@pytest.mark.parametrize("row", WRITABLE, ids=lambda row: row.name)
def test_version_1_gets_its_own_errors(every_version, readable, row):
    with desks.ManagerOf(every_version) as manager:
        answers = exchange(manager, [message(row.oid, sent, version=0) for sent in VALUES])
    for sent, answer in zip(VALUES, answers):
        expected = V1[expected_error_1(row.name, sent)] if sent in readable else None
        assert (answer.error_status if answer else None) == expected, sent
    assert every_version.alive("agent")


def message_3(pdu, request_id, user="", engine=b""):
    """SNMPv3 without authentication, as in RFC 3412 and RFC 3414."""
    def octets(content=b""):
        return ber.tlv(ber.OCTET_STRING, content)

    header = ber.tlv(ber.SEQUENCE, ber.integers(request_id, 65507) + octets(b"\4") + ber.integers(3))
    security = ber.tlv(ber.SEQUENCE, octets(engine) + ber.integers(0, 0) + octets(user.encode()) + octets() + octets())
    scoped = ber.tlv(ber.SEQUENCE, octets(engine) + octets() + pdu)
    return Message(ber.tlv(ber.SEQUENCE, ber.integers(3) + header + octets(security) + scoped), request_id)


@pytest.fixture(scope="module")
def engine(every_version):
    """The agent's engine ID, as discovery returns it without authentication."""
    with desks.ManagerOf(every_version) as manager:
        nothing = ber.tlv(ber.GET, ber.integers(next(_request_ids), 0, 0) + ber.tlv(ber.SEQUENCE, b""))
        manager._socket.send(message_3(nothing, next(_request_ids)).octets)
        return ber.Message(manager._socket.recv(65536)).engine


@pytest.mark.slow
@pytest.mark.parametrize("row", WRITABLE, ids=lambda row: row.name)
def test_version_3_gets_the_errors_of_version_2(every_version, readable, engine, row):
    def sets():
        for sent in VALUES:
            request_id = next(_request_ids)
            yield message_3(set_pdu(row.oid, sent, request_id), request_id, "grammar", engine)

    with desks.ManagerOf(every_version) as manager:
        answers = exchange(manager, list(sets()))
    for sent, answer in zip(VALUES, answers):
        expected = expected_error(row.name, sent) if sent in readable else None
        assert (answer.error_status if answer else None) == expected, sent
    assert every_version.alive("agent")


# snmpset's type letters, a text of each, and the value that snmpset sends for it.
LETTERS = [("i", "7", value(ber.INTEGER, b"\7")), ("i", "0", value(ber.INTEGER, b"\0")),
           ("u", "7", value(ber.GAUGE32, b"\7")), ("o", "1.3.6", value(ber.OID, b"\x2B\6")),
           ("t", "7", value(ber.TIMETICKS, b"\7")), ("a", "0.0.0.0", value(ber.IP_ADDRESS, bytes(4))),
           ("s", "text", value(ber.OCTET_STRING, b"text")), ("x", "00000000", value(ber.OCTET_STRING, bytes(4))),
           ("x", "C080", value(ber.OCTET_STRING, b"\xC0\x80")), ("n", "", value(ber.NULL, b""))]
WORDS = {ber.GEN_ERR: "genError", ber.WRONG_TYPE: "wrongType", ber.WRONG_VALUE: "wrongValue"}


@pytest.mark.parametrize("name", ["positionTilt", "rangeTrueNorthOffset", "outputControl", "relayState.2"])
def test_version_3_gives_the_stated_answer(every_version, name):
    for letter, text, sent in LETTERS:
        command = ["snmpset", "-v3", "-u", "grammar", "-l", "noAuthNoPriv", "-t", "5", "-r", "0", "-On",
                   f"127.0.0.1:{every_version.port}", OID[name], letter, text]
        environment = dict(every_version.environment, SNMPCONFPATH=str(every_version.state / "snmp"))
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30)
        expected = expected_error(name, sent)
        assert (done.returncode == 0) == (expected == ber.NO_ERROR), (letter, text, done.stderr)
        assert expected == ber.NO_ERROR or WORDS[expected] in done.stderr, (letter, text, done.stderr)
