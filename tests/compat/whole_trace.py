#!/usr/bin/python3
"""Writes what one desk camera answers, octet by octet, with the module's log lines, to a text file: every object is read
and set, and the sensors change. Two builds that behave alike write equal files.

usage: whole_trace.py [--all] FILE

It tries the values in which 32 and 64 bits differ and a fixed sample of every type, length and command; with --all, every
one of them (some 50,000 requests)."""

import itertools
import os
import pathlib
import random
import re
import socket
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "agent"), str(HERE.parents[1] / "conform" / "oracle")]

import ber  # noqa: E402
import set_grammar  # noqa: E402
from desk import Desk, ManagerOf, await_until  # noqa: E402
from expected_tree import ROWS, RW, SUBTREES  # noqa: E402

STEP = 0.1  # seconds of the camera's paused clock after each SET of a position
SAMPLE = 30  # values for each object, of all types and lengths
STAMP = 24  # octets of a log line's time
# The thread that receives events logs these while the agent sends the trap: written first, whichever was first.
OF_EVENT_THREAD = re.compile(r"\| OrvexSnmp \w+ (send_v2trap|SendTrap): ")
# Restarts the camera three seconds later; its own tests show what it does.
NOT_SET = "rebootDevice"
# Absent objects, columns and rows; the subtrees themselves.
ABSENT = [f"{row.oid}.1" for row in ROWS[:3]] + [f"{ROWS[-1].oid.rsplit('.', 1)[0]}.{row}" for row in (0, 7, 2**32 - 1)]
# Numbers in which a 32-bit and a 64-bit long differ.
WIDE = [set_grammar.value(tag, octets) for tag, octets in itertools.product(
    (ber.INTEGER, ber.GAUGE32, ber.COUNTER64),
    (b"\x7f\xff\xff\xff", b"\x80\0\0\0", b"\xff\xff\xff\xff", b"\0\x80\0\0\0", b"\0\xff\xff\xff\xff", b"\1\0\0\0\0",
     b"\x80\0\0\0\0\0\0\0", b"\x7f" + 7 * b"\xff"))]
# Sub-identifiers of 31 and 32 bits. Debian's 32-bit agent cuts larger ones, its 64-bit agent drops the message.
NAMES = [set_grammar.value(ber.OID, b"\x2b" + octets) for octets in (
    b"\x87\xff\xff\xff\x7f", b"\x88\x80\x80\x80\x00", b"\x8f\xff\xff\xff\x7f")]


def is_read_alike(sent):
    """Debian's 32-bit agent drops a message with a number of more than 32 bits, its 64-bit agent shortens the number."""
    is_too_wide = sent.tag in set_grammar.LONGS and len(sent.content) == 5 and sent.content[0] != 0
    return set_grammar.is_sound(sent) and not is_too_wide


class Recorder:
    def __init__(self, desk, out):
        self._desk, self._out, self._read = desk, out, 0
        self._numbers = itertools.count(1)
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.connect(("127.0.0.1", desk.port))
        self._socket.settimeout(120)

    def close(self):
        self._socket.close()

    def ask(self, pdu, community, bindings, **fields):
        """Sends one message and writes its answer. `bindings` is encoded."""
        number = next(self._numbers)
        content = ber.integers(number, fields.get("status", 0), fields.get("index", 0)) + ber.tlv(ber.SEQUENCE, bindings)
        head = ber.integers(1) + ber.tlv(ber.OCTET_STRING, community.encode())
        octets = ber.tlv(ber.SEQUENCE, head + ber.tlv(pdu, content))
        self._write(f"> {octets.hex()}")
        self._write(f"< {self._answer_to(octets)}")
        self._write_log()

    def _answer_to(self, octets):
        """The agent does not answer what it cannot read: the answer to the GET behind it shows that."""
        probe = ber.encode(ber.GET, [("1.3.6.1.2.1.1.3.0", ber.NULL, b"")], request_id=2**30 + next(self._numbers))
        self._socket.send(octets)
        self._socket.send(probe)
        expected, answer = ber.Message(probe).request_id, "nothing"
        while True:
            received = self._socket.recv(65536)
            if ber.Message(received).request_id == expected:
                return answer
            answer = received.hex()

    def _write_log(self):
        text = self._desk.output("agent")
        lines = []
        for line in text[self._read:].splitlines():
            line = line[STAMP:] if re.match(r"\d{4}-\d\d-\d\d ", line) else line
            lines.append("| " + line.replace(str(self._desk.state), "STATE"))
        for line in sorted(lines, key=lambda line: not OF_EVENT_THREAD.match(line)):
            self._write(line)
        self._read = len(text)

    def _write(self, line):
        self._out.write(line + "\n")


def binding(oid, value):
    return ber.tlv(ber.SEQUENCE, ber.tlv(ber.OID, ber.oid_octets(oid)) + value)


NULL = ber.tlv(ber.NULL, b"")


def read_all(recorder):
    names = [*SUBTREES, *[row.oid for row in ROWS], *ABSENT]
    for pdu, oid in itertools.product((ber.GET, ber.GETNEXT), names):
        recorder.ask(pdu, "public", binding(oid, NULL))
    recorder.ask(ber.GETBULK, "public", b"".join(binding(oid, NULL) for oid in SUBTREES), index=40)


def set_all(recorder, desk, every):
    values = [sent for sent in set_grammar.all_values() if is_read_alike(sent)]
    commands = [sent for sent in values if sent.tag == ber.OCTET_STRING and len(sent.content) == 4]
    draw = random.Random(1)
    for row in ROWS:
        if row.name == NOT_SET:
            continue
        chosen = values if every else draw.sample(values, SAMPLE)
        if row.name.startswith("position") and not every:
            chosen += draw.sample(commands, SAMPLE)
        # Those of a read-only object are refused alike.
        for sent in [*chosen, *filter(is_read_alike, WIDE), *NAMES] if row.access == RW else chosen[:2]:
            recorder.ask(ber.SET, "private", binding(row.oid, sent.encoded))
            recorder.ask(ber.GET, "public", binding(row.oid, NULL))
            if row.name.startswith("position") and len(sent.content) == 4:
                desk.domectl("clock", "step", STEP)


def change_sensors(recorder, desk, out):
    """Each change becomes a trap; everything but its time of day is written."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", desk.trap_port))
        receiver.settimeout(60)
        for event in [("temperature", 0, 41), ("temperature", 0, -5), ("temperature", 0, 2**31 - 1),
                      ("temperature", 0, -2**31), ("voltage", 1), ("power", 1), ("temperature", 0, 25)]:
            desk.domectl("event", *event)
            trap = ber.Message(receiver.recv(65536))
            for one in trap.bindings[1:]:
                out.write(f"trap {one.oid} {one.tag:02x} {one.octets.hex()}\n")
            recorder.ask(ber.GETNEXT, "public", binding("1.3.6.1.4.1.32473.1.1.6.0", NULL))


def main():
    *options, file = sys.argv[1:]
    with open(file, "w") as out, Desk() as desk:
        # An emulated processor is slow; a timeout would show in the log.
        desk.environment.update(TAVOS_LOG_LEVEL="8", TAVOS_CALL_TIMEOUT_MS="30000", TAVOS_REQUEST_TIMEOUT_MS="60000")
        with open(desk.state / "snmpd.conf", "a") as configuration:
            configuration.write("exactEngineID 0x80001f888000000000\n")  # otherwise a random one
        desk.start()
        desk.domectl("clock", "pause")
        recorder = Recorder(desk, out)
        try:
            with ManagerOf(desk, timeout=60) as manager:
                await_until(lambda: manager.get("1.3.6.1.2.1.1.3.0"), "the agent answers")
            read_all(recorder)
            set_all(recorder, desk, options == ["--all"])
            read_all(recorder)
            change_sensors(recorder, desk, out)
        finally:
            recorder.close()
    print(f"{file}: {os.path.getsize(file)} octets")


if __name__ == "__main__":
    main()
