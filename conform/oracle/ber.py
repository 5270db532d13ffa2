"""SNMP messages octet by octet: enough BER for any request, well-formed or not."""

import itertools
import socket

INTEGER, OCTET_STRING, NULL, OID = 0x02, 0x04, 0x05, 0x06
IP_ADDRESS, COUNTER32, GAUGE32, TIMETICKS, OPAQUE, COUNTER64 = 0x40, 0x41, 0x42, 0x43, 0x44, 0x46
NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB_VIEW = 0x80, 0x81, 0x82
GET, GETNEXT, RESPONSE, SET, GETBULK, TRAP2 = 0xA0, 0xA1, 0xA2, 0xA3, 0xA5, 0xA7
SEQUENCE = 0x30

NO_ERROR, GEN_ERR, NO_ACCESS, WRONG_TYPE, WRONG_VALUE, NO_CREATION, NOT_WRITABLE = 0, 5, 6, 7, 10, 11, 17

_request_ids = itertools.count(1)


def tlv(tag, content):
    if len(content) < 0x80:
        return bytes([tag, len(content)]) + content
    length = len(content).to_bytes((len(content).bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(length)]) + length + content


def integer_octets(number):
    return number.to_bytes(number.bit_length() // 8 + 1, "big", signed=True)


def oid_octets(text):
    numbers = [int(part) for part in text.strip(".").split(".")]
    octets = bytearray()
    for number in [numbers[0] * 40 + numbers[1]] + numbers[2:]:
        groups = [number & 0x7F]
        while number > 0x7F:
            number >>= 7
            groups.append(0x80 | number & 0x7F)
        octets += bytes(reversed(groups))
    return bytes(octets)


def oid_text(octets):
    numbers, number = [], 0
    for octet in octets:
        number = number << 7 | octet & 0x7F
        if not octet & 0x80:
            numbers.append(number)
            number = 0
    first = min(numbers[0] // 40, 2)
    return ".".join(str(n) for n in [first, numbers[0] - 40 * first] + numbers[1:])


def split(octets):
    """The consecutive (tag, content) pairs in `octets`."""
    pairs = []
    while octets:
        tag, length, start = octets[0], octets[1], 2
        if length & 0x80:
            start += length & 0x7F
            length = int.from_bytes(octets[2:start], "big")
        if start + length > len(octets):
            raise ValueError("a length points beyond the message's end")
        pairs.append((tag, octets[start : start + length]))
        octets = octets[start + length :]
    return pairs


class Binding:
    """One variable: its name as dotted text, its type's tag and its value's octets as in the message."""

    def __init__(self, oid, tag, octets):
        self.oid, self.tag, self.octets = oid, tag, octets

    @property
    def value(self):
        """An int, dotted text, None or bytes, depending on the type."""
        if self.tag in (INTEGER, COUNTER32, GAUGE32, TIMETICKS, COUNTER64):
            return int.from_bytes(self.octets, "big", signed=True)
        if self.tag == OID:
            return oid_text(self.octets)
        if self.tag in (NULL, NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB_VIEW):
            return None
        return self.octets

    def __repr__(self):
        return f"{self.oid} type {self.tag:#04x} {self.octets.hex(' ')}"


class Message:
    """A decoded message. An SNMPv3 message must not be encrypted; it has an engine instead of a community. For a
    GETBULK, error_status and error_index are its two counts."""

    def __init__(self, octets):
        ((_, message),) = split(octets)
        (_, version), *parts = split(message)
        self.version = int.from_bytes(version, "big")
        if self.version == 3:
            _, (_, security), (_, scoped) = parts
            self.engine = split(split(security)[0][1])[0][1]
            self.pdu, pdu = split(scoped)[2]
        else:
            (_, community), (self.pdu, pdu) = parts
            self.community = community.decode()
        self._read(pdu)

    def _read(self, pdu):
        (_, request_id), (_, status), (_, index), (_, bindings) = split(pdu)
        self.request_id = int.from_bytes(request_id, "big", signed=True)
        self.error_status = int.from_bytes(status, "big")
        self.error_index = int.from_bytes(index, "big")
        self.bindings = []
        for _, binding in split(bindings):
            (_, oid), (tag, value) = split(binding)
            self.bindings.append(Binding(oid_text(oid), tag, value))


class Pdu(Message):
    """A PDU on its own, as in an SNMPv3 message that was decrypted."""

    def __init__(self, octets):
        ((self.pdu, content),) = split(octets)
        self._read(content)


def integers(*numbers):
    return b"".join(tlv(INTEGER, integer_octets(number)) for number in numbers)


def next_request_id():
    return next(_request_ids)


def pdu_octets(pdu, bindings, status=0, index=0, request_id=None):
    """A PDU's octets. `bindings` are (dotted oid, tag, content octets)."""
    names = b"".join(tlv(SEQUENCE, tlv(OID, oid_octets(oid)) + tlv(tag, value)) for oid, tag, value in bindings)
    return tlv(pdu, integers(request_id or next_request_id(), status, index) + tlv(SEQUENCE, names))


def message(pdu, community, version=1):
    """A message of SNMPv1 (version 0) or SNMPv2c (version 1) around a PDU's octets."""
    return tlv(SEQUENCE, integers(version) + tlv(OCTET_STRING, community.encode()) + pdu)


def encode(pdu, bindings, community="public", status=0, index=0, request_id=None):
    """The octets of an SNMPv2c message. `bindings` are (dotted oid, tag, content octets)."""
    return message(pdu_octets(pdu, bindings, status, index, request_id), community)


class Manager:
    """A manager of an agent on an address of loopback. It never retries: a request without an answer within `timeout`
    seconds raises socket.timeout."""

    def __init__(self, port, timeout=5.0, address="127.0.0.1"):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.connect((address, port))
        self._socket.settimeout(timeout)

    def close(self):
        self._socket.close()

    def exchange(self, octets):
        """Sends a message and returns the answer's Message."""
        sent = Message(octets).request_id
        self._socket.send(octets)
        while True:
            answer = Message(self._socket.recv(65536))
            if answer.request_id == sent:
                return answer

    def get(self, *oids):
        return self.exchange(encode(GET, [(oid, NULL, b"") for oid in oids]))

    def get_next(self, *oids):
        return self.exchange(encode(GETNEXT, [(oid, NULL, b"") for oid in oids]))

    def get_bulk(self, repetitions, *oids):
        return self.exchange(encode(GETBULK, [(oid, NULL, b"") for oid in oids], index=repetitions))

    def set(self, *bindings, community="private"):
        return self.exchange(encode(SET, bindings, community))

    def set_octets(self, oid, octets):
        return self.set((oid, OCTET_STRING, octets))

    def set_integer(self, oid, number):
        return self.set((oid, INTEGER, integer_octets(number)))
