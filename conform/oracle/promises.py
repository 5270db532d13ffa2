"""What every camera promises of each object, whatever its platform: the rows of a walk, and which values they may have.
expected_tree.py has the values of a fresh desk camera; here are those of a camera with any identity and any number of
inputs and relays. The sources are docs/objects.md and the MIBs, never the module."""

import re
from typing import Callable, NamedTuple

import expected_tree
from expected_tree import ORVEX, RO, ROWS, Row

DEFAULT_ENTERPRISE = int(ORVEX.rpartition(".")[2])
SENSORS = ("temperature", "power", "voltage")
POSITIONS = ("positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens")
RELAY_STATE = re.compile(r"relayState\.\d+$")
# The module loader's objects (UCD-DLMOD-MIB): who writes them makes the agent load any code.
LOADER = "1.3.6.1.4.1.2021.13.14"


class Promise(NamedTuple):
    """What a GET of an object may answer."""

    words: str
    holds: Callable  # of the value: an int or octets


def octets(count, *allowed):
    """`count` octets; only these, if there are any."""
    words = f"{count} octet" + "s" * (count > 1) + (": " + " or ".join(one.hex() for one in allowed) if allowed else "")
    return Promise(words, lambda value: len(value) == count and (not allowed or value in allowed))


def among(*allowed):
    return Promise(" or ".join(map(str, allowed)), lambda value: value in allowed)


def between(low, high):
    return Promise(f"{low} to {high}", lambda value: low <= value <= high)


INTEGER32 = between(-(2**31), 2**31 - 1)
ANY_TEXT = Promise("a text", lambda value: True)
BIT = among(0, 1)

_PROMISES = {
    **dict.fromkeys(POSITIONS, octets(4)),
    **dict.fromkeys(("modelNumber", "modelName", "serialNumber", "fwVersion", "swVersion", "hwVersion", "moduleMake",
                     "moduleModel", "moduleVersion"), ANY_TEXT),
    "temperature": between(0, 2**32 - 1),
    "power": INTEGER32,
    "voltage": INTEGER32,
    "rebootDevice": INTEGER32,
    "rangeTrueNorthOffset": among(0, 65535),
    "systemCameraFeatureControl": octets(2),
    "systemCameraEquipped": octets(1),
    "systemLensFeatureControl": octets(2),
    "systemLensFeatureStatus": octets(1, b"\x00", b"\x40", b"\x80", b"\xc0"),
    "systemLensEquipped": octets(1, b"\x00", b"\x40"),
    "alarmStatus": octets(1, b"\x00", b"\x10"),
    "inputStatus": octets(1, b"\x00", b"\x01"),
    "outputStatus": octets(1, b"\x00", b"\x01"),
    "outputControl": octets(2),
    "alarmBank": ANY_TEXT,
    "relayBank": ANY_TEXT,
    "alarmNumber": between(0, 1023),
    "relayNumber": between(0, 1023),
    "alarmState": BIT,
    "relayState": BIT,
}


def promise(row):
    """Constants are those rows of expected_tree.py for which nothing else is promised."""
    found = _PROMISES.get(row.name.partition(".")[0])
    if found is None:
        found = octets(len(row.value), row.value) if isinstance(row.value, bytes) else among(row.value)
    return found


def is_constant(row):
    return row.name.partition(".")[0] not in _PROMISES


def module_version(firmware):
    """What moduleVersion answers for that fwVersion: its parts before and after the first dash, turned."""
    version, dash, date = firmware.partition(b"-")
    return date[:8] + b" - v" + version if dash else b" - v"


# (object, the object on which it depends, its value for that one's, in words)
RELATIONS = [
    ("swVersion", "fwVersion", lambda value: value, "equals fwVersion"),
    ("moduleModel", "modelNumber", lambda value: value, "equals modelNumber"),
    ("moduleVersion", "fwVersion", module_version,
     "is fwVersion's 8 characters after its '-', ' - v', its text before the '-'"),
]

UNREADABLE_FIRMWARE = b"Error: Firmware Version not defined"

# The MIBs allow no other states in a trap: its one binding, beside snmpTrapOID.0, has the sensor's name and a Gauge32.
TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"
UP_TIME = "1.3.6.1.2.1.1.3.0"


class Tree:
    """The promised rows of one camera, in the order of a walk."""

    def __init__(self, alarms, relays, enterprise=DEFAULT_ENTERPRISE):
        """`alarms` and `relays`: the number of its inputs and relays."""
        self.root = f"{ORVEX.rpartition('.')[0]}.{enterprise}"
        scalars = [row for row in ROWS if "." not in row.name]
        cells = cells_of("alarm", alarms) + cells_of("relay", relays)
        self.rows = [row._replace(oid=self.own(row.oid)) for row in scalars + cells]
        self.by_name = {row.name: row for row in self.rows}
        self.by_oid = {row.oid: row for row in self.rows}
        self.subtrees = [self.own(subtree) for subtree in expected_tree.SUBTREES]

    def own(self, oid):
        return self.root + oid.removeprefix(ORVEX) if oid.startswith(ORVEX + ".") or oid == ORVEX else oid

    def oid(self, name):
        return self.by_name[name].oid

    def writable(self):
        return [row for row in self.rows if row.access != RO]

    def read_only(self):
        return [row for row in self.rows if row.access == RO]


def cells_of(name, count):
    """The cells of a table with that many rows; banks and numbers are the camera's own."""
    shape = [row for row in ROWS if row.name.startswith(name) and row.name.endswith(".1")]
    return [Row(f"{row.oid.rpartition('.')[0]}.{index}", f"{row.name.rpartition('.')[0]}.{index}", row.tag, row.access,
                row.value, row.refusal) for row in shape for index in range(1, count + 1)]


def column(name, number, enterprise=DEFAULT_ENTERPRISE):
    """The OID of a column of the table `name` (alarm, relay)."""
    (first,) = [row for row in ROWS if row.name.endswith(".1") and row.name.startswith(name)
                and row.oid.split(".")[-2] == str(number)]
    return Tree(0, 0, enterprise).own(first.oid.rpartition(".")[0])
