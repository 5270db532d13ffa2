"""Many managers, impatient managers, and managers that request everything at once."""

import select
import socket
import time

import pytest

import ber
from desk import AGENT, ManagerOf
from expected_tree import OID, ROWS, SUBTREES
from watching import times

POSITIONS = ["positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens"]
DEADLINE = 0.5


def parts(oid):
    return [int(part) for part in oid.split(".")]


def bulk(manager, oids, repeated, others=0):
    """GETBULK with `others` non-repeaters; sends the counts unchecked."""
    message = ber.encode(ber.GETBULK, [(oid, ber.NULL, b"") for oid in oids], status=others, index=repeated)
    answer = manager.exchange(message)
    assert answer.error_status == ber.NO_ERROR
    return [(binding.oid, binding.tag, binding.value) for binding in answer.bindings]


def rows_below(subtree):
    return [(row.oid, row.tag, row.value) for row in ROWS if row.oid.startswith(subtree + ".")]


@pytest.mark.parametrize("subtree", SUBTREES)
@pytest.mark.parametrize("repeated", [100, 1000, 65535, 65536, 2**31 - 1])
def test_huge_repetitions_answer_what_follows(manager, subtree, repeated):
    start = time.monotonic()
    answered = bulk(manager, [subtree], repeated)
    assert time.monotonic() - start < 5
    expected = rows_below(subtree)
    # As many as fit into a message, which holds the whole subtree.
    assert answered[:len(expected)] == expected
    names = [parts(oid) for oid, tag, _ in answered if tag != ber.END_OF_MIB_VIEW]
    assert names == sorted(names)


@pytest.mark.parametrize("repeated", [0, -1, -(2**31)])
def test_no_repetitions_answer_nothing(manager, repeated):
    assert bulk(manager, [SUBTREES[1]], repeated) == []
    (one,) = bulk(manager, [SUBTREES[1]], repeated, others=1)
    assert one == rows_below(SUBTREES[1])[0]


@pytest.mark.parametrize("others", [2, 1000, 2**31 - 1])
def test_more_non_repeaters_than_names(manager, others):
    assert bulk(manager, SUBTREES, 2**31 - 1, others) == [rows_below(subtree)[0] for subtree in SUBTREES]


@pytest.mark.skipif(AGENT <= (5, 4, 2), reason="this message ends net-snmp 5.4.2, with the module or without")
def test_many_names_and_huge_repetitions(manager):
    names = [row.oid for row in ROWS[:40]]
    answered = bulk(manager, names, 2**31 - 1)
    follow = [(row.oid, row.tag, row.value) for row in ROWS]
    assert len(answered) >= 40
    assert answered[:39] == follow[1:40]


class Walker:
    """One of many: walks the tree, sending the next request once the last one is answered."""

    def __init__(self, desk):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.connect(("127.0.0.1", desk.port))
        self.met, self.subtrees, self.oid, self.done = [], list(SUBTREES), None, False
        self.sent_at, self.max_seconds = 0.0, 0.0
        self.ask()

    def ask(self):
        self.oid = self.oid or self.subtrees[0]
        self.sent_at = time.monotonic()
        message = ber.encode(ber.GETNEXT, [(self.oid, ber.NULL, b"")])
        self.request_id = ber.Message(message).request_id
        self.socket.send(message)

    def receive(self):
        answer = ber.Message(self.socket.recv(65536))
        self.max_seconds = max(self.max_seconds, time.monotonic() - self.sent_at)
        assert (answer.request_id, answer.error_status) == (self.request_id, ber.NO_ERROR)
        (binding,) = answer.bindings
        if binding.oid.startswith(self.subtrees[0] + "."):
            self.met.append((binding.oid, binding.tag, binding.value))
            self.oid = binding.oid
        else:
            self.subtrees.pop(0)
            self.oid = None
        if self.subtrees:
            self.ask()
        else:
            self.done = True
            self.socket.close()


def test_fifty_managers_at_once(running, figure):
    expected = [row for subtree in SUBTREES for row in rows_below(subtree)]
    walks, max_seconds, start = times(3, 100), 0.0, time.monotonic()
    for _ in range(walks):
        walkers = {walker.socket: walker for walker in (Walker(running) for _ in range(50))}
        while walkers:
            ready, _, _ = select.select(list(walkers), [], [], 10)
            assert ready, f"{len(walkers)} managers got no answer within 10 s"
            for one in ready:
                walker = walkers[one]
                walker.receive()
                if walker.done:
                    assert walker.met == expected
                    max_seconds = max(max_seconds, walker.max_seconds)
                    del walkers[one]
    count = walks * 50 * (len(expected) + len(SUBTREES))
    figure(f"{count} requests of 50 managers, {count / (time.monotonic() - start):.0f} a second, each answered, at most "
           f"{max_seconds * 1e3:.0f} ms")


def test_fifty_managers_and_five_of_them_send_commands(running):
    """Each of the five reads back its last command."""
    managers = [ManagerOf(running) for _ in range(50)]
    try:
        for number in range(times(20, 500)):
            sent = []
            for index, manager in enumerate(managers):
                if index < len(POSITIONS):
                    command = bytes([2, 0, 0, number % 100])
                    message = ber.encode(ber.SET, [(OID[POSITIONS[index]], ber.OCTET_STRING, command)], "private")
                    value = command
                else:
                    message, value = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")]), b"Orvex Dome D20"
                manager._socket.send(message)
                sent.append((manager, ber.Message(message).request_id, value))
            for manager, request_id, value in sent:
                answer = ber.Message(manager._socket.recv(65536))
                assert (answer.request_id, answer.error_status) == (request_id, ber.NO_ERROR)
                assert answer.bindings[0].octets == value
            for manager, name in zip(managers, POSITIONS):
                assert manager.get(OID[name]).bindings[0].octets == bytes([2, 0, 0, number % 100])
    finally:
        for manager in managers:
            manager.close()


def sent_again(manager, message, copies):
    """Sends a message many times before it reads the first answer; returns the answers and their times."""
    start = time.monotonic()
    for _ in range(copies):
        manager._socket.send(message)
    answers = [manager._socket.recv(65536) for _ in range(copies)]
    return answers, time.monotonic() - start


@pytest.mark.parametrize("kind", ["GET", "GETNEXT", "GETBULK", "SET"])
def test_retransmissions_get_the_same_answer(running, manager, kind):
    pan = OID["positionPan"]
    message = {
        "GET": ber.encode(ber.GET, [(row.oid, ber.NULL, b"") for row in ROWS[:30]]),
        "GETNEXT": ber.encode(ber.GETNEXT, [(row.oid, ber.NULL, b"") for row in ROWS[:30]]),
        "GETBULK": ber.encode(ber.GETBULK, [(SUBTREES[1], ber.NULL, b"")], index=len(rows_below(SUBTREES[1]))),
        "SET": ber.encode(ber.SET, [(pan, ber.OCTET_STRING, bytes.fromhex("02001194"))], "private"),
    }[kind]
    answers, _ = sent_again(manager, message, 10)
    assert len(set(answers)) == 1
    assert ber.Message(answers[0]).error_status == ber.NO_ERROR
    if kind == "SET":
        assert manager.get(pan).bindings[0].octets == bytes.fromhex("02001194")


def test_retransmissions_to_a_service_that_hangs_wait_once(running, manager):
    message = ber.encode(ber.SET, [(OID["positionPan"], ber.OCTET_STRING, bytes.fromhex("02001194"))], "private")
    running.domectl("fault", "pan", "hang")
    try:
        answers, taken = sent_again(manager, message, 10)
    finally:
        running.domectl("fault", "pan", "ok")
    assert {ber.Message(answer).error_status for answer in answers} == {ber.NO_ERROR}
    assert DEADLINE * 0.9 < taken < DEADLINE + 0.3
