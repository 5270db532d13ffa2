"""What a SET answers: every BER type at every length of interest, and each writable object's answer to it, computed
from the object's description. The tests and orvex-conform share it."""

import random
from typing import NamedTuple

import ber
from expected_tree import CCTV

BITS, NSAP, UINTEGER = 0x03, 0x45, 0x47
OPAQUE_COUNTER64, OPAQUE_FLOAT, OPAQUE_DOUBLE, OPAQUE_I64, OPAQUE_U64 = 0x76, 0x78, 0x79, 0x7A, 0x7B

LONGS = (ber.COUNTER32, ber.GAUGE32, ber.TIMETICKS, UINTEGER)
WIDE = (ber.COUNTER64, OPAQUE_COUNTER64, OPAQUE_I64, OPAQUE_U64)
AS_THEY_ARE = (ber.OCTET_STRING, ber.IP_ADDRESS, ber.OPAQUE, NSAP, BITS, OPAQUE_FLOAT, OPAQUE_DOUBLE)
WITHOUT_VALUE = (ber.NULL, ber.NO_SUCH_OBJECT, ber.NO_SUCH_INSTANCE, ber.END_OF_MIB_VIEW)
KNOWN = (ber.INTEGER, ber.OID, *LONGS, *WIDE, *AS_THEY_ARE, *WITHOUT_VALUE)
LENGTHS = (0, 1, 2, 3, 4, 5, 8, 9, 127, 128, 129, 255, 256, 1400)

# A name in the camera's subtree that no camera serves.
UNSERVED = f"{CCTV}.99.0"


class Value(NamedTuple):
    tag: int
    content: bytes
    encoded: bytes

    def octets(self, count):
        """The first octets of the buffer in which the agent hands over the value; missing ones are 0. Numbers arrive
        there as longs, low octet first."""
        if self.tag in WITHOUT_VALUE:
            octets = b""
        elif self.tag == ber.INTEGER:
            octets = (int.from_bytes(self.content, "big", signed=True) & 0xFFFFFFFF).to_bytes(4, "little")
        elif self.tag in LONGS:
            octets = (int.from_bytes(self.content, "big") & 0xFFFFFFFF).to_bytes(4, "little")
        elif self.tag in WIDE:  # two longs, the high one first
            octets = (int.from_bytes(self.content, "big") >> 32 & 0xFFFFFFFF).to_bytes(4, "little")
        elif self.tag == ber.OID:  # longs as well, the first sub-identifier first
            octets = bytes([self.content[0] // 40 if self.content else 0, 0, 0, 0])
        else:  # unchanged; a floating-point number's octets are reordered, but here all are alike
            octets = self.content
        return octets[:count].ljust(count, b"\0")

    def __str__(self):
        return f"type {self.tag:#04x}, {len(self.content)} octets: {self.encoded[:12].hex(' ')}"


def value(tag, content):
    return Value(tag, content, ber.tlv(tag, content))


def long_forms(tag, content):
    """The same value with its length encoded in more octets than necessary."""
    return [Value(tag, content, bytes([tag, 0x80 | width]) + len(content).to_bytes(width, "big") + content)
            for width in (1, 2, 4)]


def is_sound(sent):
    if sent.tag == OPAQUE_I64:
        return False
    if sent.tag in (OPAQUE_FLOAT, OPAQUE_DOUBLE):
        return len(sent.content) == (4 if sent.tag == OPAQUE_FLOAT else 8)
    limits = {ber.INTEGER: 4, ber.OID: 127, **dict.fromkeys(LONGS, 5), **dict.fromkeys(WIDE, 8)}
    return sent.tag not in limits or 1 <= len(sent.content) <= limits[sent.tag]


def all_values(old_agent=False):
    """Every value. Agents before 5.9 (`old_agent`) get only those that they read like later ones."""
    values = [value(tag, bytes([octet]) * length) for tag in KNOWN for length in LENGTHS for octet in (0, 1)]
    values += [value(tag, b"\x01" * length) for tag in range(256) if tag not in KNOWN for length in (0, 4)]
    texts = random.Random(1)
    values += [value(ber.OCTET_STRING, texts.randbytes(length)) for length in LENGTHS for _ in range(4)]
    positions = (b"\0\0", bytes.fromhex("8C9F"), bytes.fromhex("8CA0"), b"\xFF\xFF")
    values += [value(ber.OCTET_STRING, bytes([mode, speed]) + position)
               for mode in (0, 1, 2, 3, 4, 0x80, 0xFF) for speed in (0, 1, 0x7F, 0x80, 0x81, 0xFF)
               for position in positions]
    values += [value(ber.OCTET_STRING, bytes([octet])) for octet in range(256)]
    for number in (0, 1, 2, 5, 255, 65534, 65535, 65536, -1, -65535, 2**31 - 1, -(2**31)):
        values.append(value(ber.INTEGER, ber.integer_octets(number)))
        values.append(value(ber.INTEGER, number.to_bytes(4, "big", signed=True)))
    values += long_forms(ber.OCTET_STRING, bytes.fromhex("00000000")) + long_forms(ber.INTEGER, b"\1")
    # An indefinite length, and a tag of two octets.
    values += [Value(ber.OCTET_STRING, b"\1", b"\x04\x80\x01\0\0"), Value(0x1F, b"\1", b"\x1f\x05\x01\x01")]
    # Older agents read numbers of no octets or of too many, and endless OIDs, differently. They read only the type of
    # net-snmp's signed 64-bit numbers and of its floating-point numbers of a wrong length.
    return [sent for sent in values if is_sound(sent)] if old_agent else values


# --- what each object answers ---

def position_error(name, octets):
    mode, speed, position = octets[0], octets[1], int.from_bytes(octets[2:], "big")
    if mode == 0:
        return ber.NO_ERROR if speed == 0 else ber.GEN_ERR
    if mode > 3:
        return ber.GEN_ERR
    is_axis = name in ("positionPan", "positionTilt")
    if mode == 2 and is_axis and position > 35999:
        return ber.GEN_ERR
    return ber.GEN_ERR if mode == 3 and speed == 0x80 and not is_axis else ber.NO_ERROR


def refusals(sent, *errors, old_agent=False):
    """The agent itself refuses NULL for every name; other names that cannot be set get one of these errors."""
    return (ber.WRONG_TYPE,) if is_refused_null(sent, old_agent) else errors


def is_refused_null(sent, old_agent=False):
    """Agents before 5.9 (tried: 5.4.2 and 5.7.3) let a NULL reach the handlers."""
    return sent.tag == ber.NULL and not old_agent


def expected_error(name, sent, old_agent=False):
    """The answer to a SET of a writable object to a value that the agent can read."""
    if is_refused_null(sent, old_agent):
        return ber.WRONG_TYPE
    is_integer, is_octets = sent.tag == ber.INTEGER, sent.tag == ber.OCTET_STRING
    if name.startswith("position"):
        return position_error(name, sent.octets(4))
    if name.startswith("timeout"):
        return ber.GEN_ERR
    if name.startswith("preset") or name == "systemLensFeatureControl":
        return ber.NO_ERROR
    if name == "systemLensEquipped":
        return ber.GEN_ERR if sent.octets(1)[0] & 0xBF else ber.NO_ERROR
    if name == "rangeTrueNorthOffset":
        if not is_integer:
            return ber.WRONG_TYPE
        return ber.NO_ERROR if sent.octets(4) in (bytes(4), b"\xFF\xFF\0\0") else ber.WRONG_VALUE
    if name.startswith("relayState") or name == "rebootDevice":
        return ber.NO_ERROR if is_integer else ber.WRONG_TYPE
    if name == "systemCameraEquipped":
        return ber.GEN_ERR if is_octets else ber.WRONG_TYPE
    assert name in ("outputControl", "systemCameraFeatureControl")
    return ber.NO_ERROR if is_octets else ber.WRONG_TYPE


def expected_answer(name, sent):
    """(type, octets) of the answer to an accepted SET, where the object changes them."""
    if name.startswith("position"):
        return ber.OCTET_STRING, sent.octets(4)
    if name.startswith("preset"):
        return ber.INTEGER, b"\0"
    if name == "outputControl":
        return ber.OCTET_STRING, sent.octets(2)
    if name == "systemLensEquipped":
        return ber.OCTET_STRING, sent.octets(4)
    return None
