"""What a fresh desk camera serves: one row an object, in the order in which a walk meets them."""

from typing import NamedTuple, Union

from ber import INTEGER, OCTET_STRING

RO, RW = "read-only", "read-write"

ORVEX = "1.3.6.1.4.1.32473"
GLOBAL = "1.3.6.1.4.1.1206.4.2.6.1"
CCTV = "1.3.6.1.4.1.1206.4.2.7"

# A walk that starts at one of these ends with the last of the rows below it.
SUBTREES = ["1.3.6.1.4.1.1206", ORVEX]


class Row(NamedTuple):
    oid: str
    name: str
    tag: int
    access: str
    value: Union[int, bytes]


ROWS = [
    Row(f"{GLOBAL}.2.0", "globalMaxModules", INTEGER, RO, 1),
    Row(f"{GLOBAL}.3.1.1.1", "moduleNumber", INTEGER, RO, 1),
    Row(f"{GLOBAL}.3.1.2.1", "moduleDeviceNode", OCTET_STRING, RO, b"1.3.6.1.4.1.1206.4.2.7"),
    Row(f"{GLOBAL}.3.1.3.1", "moduleMake", OCTET_STRING, RO, b"Orvex"),
    Row(f"{GLOBAL}.3.1.4.1", "moduleModel", OCTET_STRING, RO, b"MODEL"),
    Row(f"{GLOBAL}.3.1.5.1", "moduleVersion", OCTET_STRING, RO, b"20261121 - v02.01.00"),
    Row(f"{GLOBAL}.3.1.6.1", "moduleType", INTEGER, RO, 2),
    Row(f"{CCTV}.1.2.0", "rangePanLeftLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.3.0", "rangePanRightLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.4.0", "rangePanHomePosition", INTEGER, RO, 65535),
    Row(f"{CCTV}.1.5.0", "rangeTrueNorthOffset", INTEGER, RW, 65535),
    Row(f"{CCTV}.1.11.0", "rangeMinimumPanStepAngle", INTEGER, RO, 65535),
    Row(f"{CCTV}.2.1.0", "timeoutPan", INTEGER, RW, 0),
    Row(f"{CCTV}.4.1.0", "positionPan", OCTET_STRING, RW, bytes(4)),
    Row(f"{ORVEX}.1.1.1.0", "modelNumber", OCTET_STRING, RO, b"MODEL"),
    Row(f"{ORVEX}.1.1.2.0", "modelName", OCTET_STRING, RO, b"NAME"),
    Row(f"{ORVEX}.1.1.3.0", "serialNumber", OCTET_STRING, RO, b"SERIAL"),
    Row(f"{ORVEX}.1.1.4.0", "fwVersion", OCTET_STRING, RO, b"02.01.00-20261121a"),
    Row(f"{ORVEX}.1.1.5.0", "swVersion", OCTET_STRING, RO, b"02.01.00-20261121a"),
    Row(f"{ORVEX}.1.1.6.0", "hwVersion", OCTET_STRING, RO, b"1234-05"),
]

OID = {row.name: row.oid for row in ROWS}
