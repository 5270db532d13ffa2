"""The trace as trace/Format.h lays it out, read from the agent's ring."""

import array
import mmap
import os
import select
import socket
import struct

PAGE = 4096
MAGIC = 0x3130435254585652
HEADER = struct.Struct("=QQQQQQqii")  # magic, capacity, begin, end, next number, cut, started, process, reserved
RECORD = struct.Struct("=IIQqqQII")  # length, kind, number, time, microseconds, cause, flags, reserved
SECTION = struct.Struct("=II")
PDU = struct.Struct("=iiiII")
BINDING = struct.Struct("=HHI")
CALL = struct.Struct("=IIQHHHHII")

REQUEST, TRAP = 1, 2
CUT, ANSWERED, PARSED, NOT_AWAITED = 1, 2, 4, 8
(PEER, MESSAGE_IN, REQUEST_PDU, VERDICT, NAME_REFUSED, CALLED, MESSAGE_OUT, ANSWER_PDU, TRAP_PDU, RECEIVER,
 TRAP_MESSAGE) = range(1, 12)
CALL_ANSWERED, CALL_FAILED, CALL_NOT_MADE = 1, 2, 3

INTEGERS = {0x02, 0x41, 0x42, 0x43, 0x47}
COUNTER64, OID = 0x46, 0x06


class Record:
    def __init__(self, octets):
        fields = RECORD.unpack_from(octets)
        length, self.kind, self.number, self.time, self.microseconds, self.cause, self.flags, _ = fields
        assert length == len(octets) and length % 8 == 0
        self.sections, at = [], RECORD.size
        while at < length:
            kind, size = SECTION.unpack_from(octets, at)
            at += SECTION.size
            assert at + size <= length
            self.sections.append((kind, octets[at:at + size]))
            at += size + -size % 8
        assert at == length

    def all(self, kind):
        return [contents for found, contents in self.sections if found == kind]

    def one(self, kind):
        (contents,) = self.all(kind)
        return contents

    @property
    def answered(self):
        return bool(self.flags & ANSWERED)

    @property
    def parsed(self):
        return bool(self.flags & PARSED)

    @property
    def peer(self):
        return self.one(PEER).decode()

    @property
    def verdict(self):
        return struct.unpack("=i", self.one(VERDICT))[0]

    @property
    def calls(self):
        return [Call(contents) for contents in self.all(CALLED)]

    @property
    def receivers(self):
        """(sent, address) of each."""
        return [(struct.unpack_from("=i", contents)[0], contents[4:].decode()) for contents in self.all(RECEIVER)]

    @property
    def names_refused(self):
        """(verdict, dotted name) of each."""
        names = []
        for contents in self.all(NAME_REFUSED):
            verdict, count = struct.unpack_from("=iI", contents)
            names.append((verdict, ".".join(map(str, struct.unpack_from(f"={count}I", contents, 8)))))
        return names


class Call:
    def __init__(self, contents):
        self.outcome, self.microseconds, self.serial, *lengths, arguments, _ = CALL.unpack_from(contents)
        sender, service, operation, error = lengths
        texts, at = [], CALL.size
        for length in (sender, service, operation, arguments, error):
            texts.append(contents[at:at + length].decode())
            at += length
        assert at == len(contents)
        self.sender, self.service, self.operation, self.arguments, self.error = texts


class Pdu:
    """A PDU that the agent has decoded. `bindings`: (dotted name, type, value)."""

    def __init__(self, contents):
        self.command, self.status, self.index, self.request_id, count = PDU.unpack_from(contents)
        self.bindings, at = [], PDU.size
        for _ in range(count):
            name_length, type_, length = BINDING.unpack_from(contents, at)
            at += BINDING.size
            name = ".".join(map(str, struct.unpack_from(f"={name_length}I", contents, at)))
            at += 4 * name_length
            value = contents[at:at + length]
            at += length + -length % 4
            self.bindings.append((name, type_, decoded(type_, value)))
        assert at == len(contents)


def decoded(type_, value):
    if not value:
        return value
    if type_ in INTEGERS:
        return struct.unpack("=q", value)[0]
    if type_ == COUNTER64:
        return struct.unpack("=Q", value)[0]
    if type_ == OID:
        return ".".join(map(str, struct.unpack(f"={len(value) // 4}I", value)))
    return value


class Ring:
    """Connects as any reader does. Loses no record of a test: these write less than a ring holds."""

    def __init__(self, path):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as door:
            door.settimeout(5)
            door.connect(str(path))
            octets, descriptors, _, _ = socket.recv_fds(door, 1, 2)
        assert octets == b"R" and len(descriptors) == 2
        memory, self.life = descriptors
        self.map = mmap.mmap(memory, 0, mmap.MAP_SHARED, mmap.PROT_READ)
        self.memory = memory
        self.header = HEADER.unpack_from(self.map)
        assert self.header[0] == MAGIC
        self.capacity = self.header[1]
        assert len(self.map) == PAGE + self.capacity
        self.next = self.begin

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.map.close()
        os.close(self.memory)
        os.close(self.life)

    @property
    def begin(self):
        return HEADER.unpack_from(self.map)[2]

    @property
    def end(self):
        return HEADER.unpack_from(self.map)[3]

    @property
    def agent_pid(self):
        return HEADER.unpack_from(self.map)[7]

    def agent_is_gone(self):
        return bool(select.select([self.life], [], [], 0)[0])

    def octets(self, at, length):
        start = at % self.capacity
        data = memoryview(self.map)[PAGE:]
        try:
            first = bytes(data[start:start + length])
            return first + bytes(data[:length - len(first)])
        finally:
            data.release()

    def skip(self):
        self.next = self.end

    def records(self):
        """Those since the last call."""
        found = []
        while self.next < self.end:
            assert self.next >= self.begin, "overtaken"
            length = struct.unpack("=I", self.octets(self.next, 4))[0]
            found.append(Record(self.octets(self.next, length)))
            self.next += length
        return found
