"""A fake service of the camera, on the wire. It takes a name on the bus, receives calls and emits events as fast as the
bus takes them. It can send wrong answers, be slow, flood others, and disappear at any moment."""

import os
import socket
import struct
import threading
import time

BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
CALL, RETURN, ERROR, SIGNAL = 1, 2, 3, 4
PATH, INTERFACE, MEMBER, REPLY_SERIAL, DESTINATION, SENDER, SIGNATURE = 1, 2, 3, 5, 6, 7, 8
_TYPES = {PATH: "o", INTERFACE: "s", MEMBER: "s", DESTINATION: "s", SIGNATURE: "g", REPLY_SERIAL: "u"}
NO_REPLY_EXPECTED = 1


def _text(text):
    octets = text.encode()
    return struct.pack("<I", len(octets)) + octets + b"\0"


def _pad(octets, to):
    return octets + b"\0" * (-len(octets) % to)


def message(kind, serial, fields, body=b""):
    head = b""
    for code, value in fields.items():
        head = _pad(head, 8) + bytes([code, 1]) + _TYPES[code].encode() + b"\0"
        if _TYPES[code] == "g":
            head += bytes([len(value)]) + value.encode() + b"\0"
        else:
            head = _pad(head, 4) + (struct.pack("<I", value) if _TYPES[code] == "u" else _text(value))
    return _pad(struct.pack("<BBBBIII", ord("l"), kind, 0, 1, len(body), serial, len(head)) + head, 8) + body


def fields_of(header):
    """The fields of a message's header, by code."""
    fields, at = {}, 0
    while at + 4 <= len(header) and header[at]:
        code, kind = header[at], chr(header[at + 2])
        at += 4
        if kind == "g":
            length, at = header[at], at + 1
            fields[code], at = header[at:at + length].decode(), at + length + 1
        else:
            at = (at + 3) // 4 * 4
            (number,) = struct.unpack_from("<I", header, at)
            at += 4
            if kind == "u":
                fields[code] = number
            else:
                fields[code], at = header[at:at + number].decode(), at + number + 1
        at = (at + 7) // 8 * 8
    return fields


def number(value):
    return "i", struct.pack("<i", value)


def truth(value):
    return "b", struct.pack("<I", value)


def texts(values):
    body = b"".join(_pad(_text(value), 4) for value in values[:-1]) + b"".join(map(_text, values[-1:]))
    return "as", struct.pack("<I", len(body)) + body


NOTHING = "", b""


class Refused(Exception):
    """The bus answered with an error."""


class Service:
    """Takes the name `name` ("Voltage2") at once; it must be free."""

    def __init__(self, bus_socket, name):
        self._path, self._interface = f"/org/tavos/{name}", f"org.tavos.{name}"
        self._serial = 0
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(bus_socket))
        self._socket.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
        assert self._socket.recv(1000).startswith(b"OK ")
        self._socket.sendall(b"BEGIN\r\n")
        self._file = self._socket.makefile("rb")
        self._ask_bus("Hello", "", b"")
        arguments = _pad(_text(self._interface), 4) + struct.pack("<I", 4)  # 4: do not queue for it
        (answer,) = struct.unpack("<I", self._ask_bus("RequestName", "su", arguments))
        assert answer == 1, f"{name} is taken"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._file.close()
        self._socket.close()

    def receive(self):
        """Kind, serial, header and body of the next message."""
        head = self._file.read(16)
        if len(head) < 16:
            raise EOFError("the bus has hung up")
        _, kind, _, _, length, serial, fields = struct.unpack("<BBBBIII", head)
        rest = self._file.read((fields + 7) // 8 * 8 + length)
        return kind, serial, rest[:len(rest) - length], rest[len(rest) - length:]

    def await_call(self):
        """Waits for the next call of one of the camera's operations; skips pings."""
        while True:
            kind, _, header, _ = self.receive()
            if kind == CALL and b"\0Ping\0" not in header:
                return

    def answer(self, header, serial, signature, body):
        """Answers the call with that header and serial."""
        self._serial += 1
        fields = {REPLY_SERIAL: serial, DESTINATION: fields_of(header)[SENDER]}
        if signature:
            fields[SIGNATURE] = signature
        self._socket.sendall(message(RETURN, self._serial, fields, body))

    def connections_of(self, pid):
        """The unique names of a process."""
        body = self._ask_bus("ListNames", "", b"")
        names, at = [], 4
        while at < len(body):
            at = (at + 3) // 4 * 4
            (length,) = struct.unpack_from("<I", body, at)
            names.append(body[at + 4:at + 4 + length].decode())
            at += 4 + length + 1
        return [name for name in names if name.startswith(":") and self._pid_of(name) == pid]

    def _pid_of(self, name):
        """0 for a connection that has ended."""
        try:
            return struct.unpack("<I", self._ask_bus("GetConnectionUnixProcessID", "s", _text(name)))[0]
        except Refused:
            return 0

    def flood(self, targets, seconds):
        """Sends calls of 60 kB each to all targets in turn. Returns the octets that the bus took."""
        fields = {PATH: "/x", INTERFACE: "x.x", MEMBER: "X", SIGNATURE: "s"}
        calls = b""
        for target in targets:
            call = bytearray(message(CALL, 1, {**fields, DESTINATION: target}, _text("x" * 60000)))
            call[2] = NO_REPLY_EXPECTED
            calls += bytes(call)
        sent, end = 0, time.monotonic() + seconds
        while time.monotonic() < end:
            self._socket.sendall(calls)
            sent += len(calls)
        return sent

    def emit(self, event, values):
        """Emits one event with one number for each of the values, all at once. Waits only for the bus."""
        fields = {PATH: self._path, INTERFACE: self._interface, MEMBER: event, SIGNATURE: "i"}
        template = message(SIGNAL, 0, fields, struct.pack("<i", 0))
        out = bytearray()
        for value in values:
            one = bytearray(template)
            self._serial += 1
            struct.pack_into("<I", one, 8, self._serial)
            struct.pack_into("<i", one, len(one) - 4, value)
            out += one
        self._socket.sendall(out)

    def _ask_bus(self, member, signature, body):
        self._serial += 1
        destination, path, interface = BUS
        fields = {PATH: path, INTERFACE: interface, MEMBER: member, DESTINATION: destination}
        if signature:
            fields[SIGNATURE] = signature
        self._socket.sendall(message(CALL, self._serial, fields, body))
        while True:
            kind, _, header, answer = self.receive()
            # The calls of a flood are refused, too, when their receiver has ended.
            if kind not in (RETURN, ERROR) or fields_of(header)[REPLY_SERIAL] != self._serial:
                continue
            if kind == ERROR:
                raise Refused(f"{member}: {answer}")
            return answer


class Answering(Service):
    """Answers each call and ping `delay` seconds after receiving it. `answers` maps the call's name to a pair of
    signature and body. `served` holds the answered calls in order."""

    def __init__(self, bus_socket, name, answers, delay=0.0):
        super().__init__(bus_socket, name)
        self.answers, self.delay, self.served = {"Ping": NOTHING, **answers}, delay, []
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def close(self):
        self._socket.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        super().close()

    def _serve(self):
        try:
            while True:
                kind, serial, header, _ = self.receive()
                member = fields_of(header).get(MEMBER)
                if kind == CALL and member in self.answers:
                    time.sleep(self.delay)
                    self.served.append(member)
                    self.answer(header, serial, *self.answers[member])
        except (EOFError, OSError):
            pass
