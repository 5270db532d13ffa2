"""What a fresh desk camera serves: one row per object, in the order of a walk."""

from typing import NamedTuple, Union

from ber import GAUGE32, INTEGER, NOT_WRITABLE, OCTET_STRING, WRONG_TYPE, integer_octets

RO, RW = "read-only", "read-write"

ORVEX = "1.3.6.1.4.1.32473"
GLOBAL = "1.3.6.1.4.1.1206.4.2.6.1"
CCTV = "1.3.6.1.4.1.1206.4.2.7"

# A walk from one of these ends with the last of its rows below.
SUBTREES = ["1.3.6.1.4.1.1206", ORVEX]


class Row(NamedTuple):
    oid: str
    name: str
    tag: int
    access: str
    value: Union[int, bytes]
    refusal: int = NOT_WRITABLE  # the error for a SET of a read-only object

    @property
    def content(self):
        """The value as in a message."""
        return integer_octets(self.value) if isinstance(self.value, int) else self.value


# The desk camera's alarm inputs and relays: (bank, number within the bank), in the order of the tables' rows.
POINTS = [(b"BNK1", 0), (b"BNK1", 1), (b"BNK1", 2), (b"BNK1", 3), (b"BNK2", 0), (b"BNK2", 1)]


def table(oid, name, state_access, bank_refusal):
    """A table of points: column 1 the bank, column 2 the number, column 3 the state, which is 0 everywhere."""
    columns = [
        ("Bank", OCTET_STRING, RO, [bank for bank, _ in POINTS], bank_refusal),
        ("Number", INTEGER, RO, [number for _, number in POINTS], NOT_WRITABLE),
        ("State", INTEGER, state_access, [0 for _ in POINTS], NOT_WRITABLE),
    ]
    return [
        Row(f"{oid}.1.{column}.{row}", f"{name}{title}.{row}", tag, access, value, refusal)
        for column, (title, tag, access, values, refusal) in enumerate(columns, 1)
        for row, value in enumerate(values, 1)
    ]


ROWS = [
    Row(f"{GLOBAL}.2.0", "globalMaxModules", INTEGER, RO, 1),
    Row(f"{GLOBAL}.3.1.1.1", "moduleNumber", INTEGER, RO, 1),
    Row(f"{GLOBAL}.3.1.2.1", "moduleDeviceNode", OCTET_STRING, RO, b"1.3.6.1.4.1.1206.4.2.7"),
    Row(f"{GLOBAL}.3.1.3.1", "moduleMake", OCTET_STRING, RO, b"Orvex"),
    Row(f"{GLOBAL}.3.1.4.1", "moduleModel", OCTET_STRING, RO, b"OD20-DESK"),
    Row(f"{GLOBAL}.3.1.5.1", "moduleVersion", OCTET_STRING, RO, b"20261121 - v02.01.00"),
    Row(f"{GLOBAL}.3.1.6.1", "moduleType", INTEGER, RO, 2),
    Row(f"{CCTV}.1.1.0", "rangeMaximumPreset", INTEGER, RO, 0),
    Row(f"{CCTV}.1.2.0", "rangePanLeftLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.3.0", "rangePanRightLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.4.0", "rangePanHomePosition", INTEGER, RO, 65535),
    Row(f"{CCTV}.1.5.0", "rangeTrueNorthOffset", INTEGER, RW, 65535),
    Row(f"{CCTV}.1.6.0", "rangeTiltUpLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.7.0", "rangeTiltDownLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.8.0", "rangeZoomLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.9.0", "rangeFocusLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.10.0", "rangeIrisLimit", INTEGER, RO, 0),
    Row(f"{CCTV}.1.11.0", "rangeMinimumPanStepAngle", INTEGER, RO, 65535),
    Row(f"{CCTV}.1.12.0", "rangeMinimumTiltStepAngle", INTEGER, RO, 65535),
    Row(f"{CCTV}.2.1.0", "timeoutPan", INTEGER, RW, 0),
    Row(f"{CCTV}.2.2.0", "timeoutTilt", INTEGER, RW, 0),
    Row(f"{CCTV}.2.3.0", "timeoutZoom", INTEGER, RW, 0),
    Row(f"{CCTV}.2.4.0", "timeoutFocus", INTEGER, RW, 0),
    Row(f"{CCTV}.2.5.0", "timeoutIris", INTEGER, RW, 0),
    Row(f"{CCTV}.3.1.0", "presetGotoPosition", INTEGER, RW, 0),
    Row(f"{CCTV}.3.2.0", "presetStorePosition", INTEGER, RW, 0),
    Row(f"{CCTV}.4.1.0", "positionPan", OCTET_STRING, RW, bytes(4)),
    Row(f"{CCTV}.4.2.0", "positionTilt", OCTET_STRING, RW, bytes(4)),
    Row(f"{CCTV}.4.3.0", "positionZoomLens", OCTET_STRING, RW, bytes(4)),
    Row(f"{CCTV}.4.4.0", "positionFocusLens", OCTET_STRING, RW, bytes(4)),
    Row(f"{CCTV}.4.5.0", "positionIrisLens", OCTET_STRING, RW, bytes(4)),
    Row(f"{CCTV}.5.1.0", "systemCameraFeatureControl", OCTET_STRING, RW, bytes(2)),
    Row(f"{CCTV}.5.2.0", "systemCameraFeatureStatus", OCTET_STRING, RO, bytes(1)),
    Row(f"{CCTV}.5.3.0", "systemCameraEquipped", OCTET_STRING, RW, bytes(1)),
    Row(f"{CCTV}.5.4.0", "systemLensFeatureControl", OCTET_STRING, RW, bytes(2)),
    Row(f"{CCTV}.5.5.0", "systemLensFeatureStatus", OCTET_STRING, RO, b"\xc0"),
    Row(f"{CCTV}.5.6.0", "systemLensEquipped", OCTET_STRING, RW, b"\x40"),
    Row(f"{CCTV}.6.1.0", "alarmStatus", OCTET_STRING, RO, bytes(1)),
    Row(f"{CCTV}.7.1.0", "inputStatus", OCTET_STRING, RO, bytes(1)),
    Row(f"{CCTV}.8.1.0", "outputStatus", OCTET_STRING, RO, bytes(1)),
    Row(f"{CCTV}.8.2.0", "outputControl", OCTET_STRING, RW, bytes(2)),
    Row(f"{ORVEX}.1.1.1.0", "modelNumber", OCTET_STRING, RO, b"OD20-DESK"),
    Row(f"{ORVEX}.1.1.2.0", "modelName", OCTET_STRING, RO, b"Orvex Dome D20"),
    Row(f"{ORVEX}.1.1.3.0", "serialNumber", OCTET_STRING, RO, b"OD20-000001"),
    Row(f"{ORVEX}.1.1.4.0", "fwVersion", OCTET_STRING, RO, b"02.01.00-20261121a"),
    Row(f"{ORVEX}.1.1.5.0", "swVersion", OCTET_STRING, RO, b"02.01.00-20261121a"),
    Row(f"{ORVEX}.1.1.6.0", "hwVersion", OCTET_STRING, RO, b"1234-05"),
    Row(f"{ORVEX}.1.1.7.0", "temperature", GAUGE32, RO, 25),
    Row(f"{ORVEX}.1.1.8.0", "power", INTEGER, RO, 0),
    Row(f"{ORVEX}.1.1.9.0", "voltage", INTEGER, RO, 0),
    Row(f"{ORVEX}.1.1.100.0", "rebootDevice", INTEGER, RW, 0),
    *table(f"{ORVEX}.1.3.1", "alarm", RO, NOT_WRITABLE),
    # The relays' handler requires an INTEGER in every column, and its error is the last one.
    *table(f"{ORVEX}.1.3.2", "relay", RW, WRONG_TYPE),
]

OID = {row.name: row.oid for row in ROWS}
