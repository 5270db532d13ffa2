"""docs/objects.md names exactly what the agent serves."""

import re

from desk import ROOT
from expected_tree import ORVEX, ROWS
from test_tree import NAMES_OF_TAGS

TYPES = {tag: "OCTET STRING" if name == "Hex-STRING" else name for tag, name in NAMES_OF_TAGS.items()}


def is_cell(row):
    return row.oid.startswith(f"{ORVEX}.1.3.")


def documented():
    line = re.compile(r"^\| `([^`]+)` \| `([^`]+)` \| ([\w ]+) \| (read-\w+) \| (.+) \|$", re.MULTILINE)
    return [(match[1], match[2].replace("orvexEnterprise", ORVEX), match[3], match[4], match[5])
            for match in line.finditer((ROOT / "docs" / "objects.md").read_text())]


def test_every_object_is_documented_with_its_type_and_access():
    scalars = {(oid, kind, access) for _, oid, kind, access, _ in documented() if not oid.endswith(".ROW")}
    assert scalars == {(row.oid, TYPES[row.tag], row.access) for row in ROWS if not is_cell(row)}


def test_every_column_is_documented_with_its_type_and_access():
    columns = {(oid, kind, access) for _, oid, kind, access, _ in documented() if oid.endswith(".ROW")}
    assert columns == {(f"{row.oid.rpartition('.')[0]}.ROW", TYPES[row.tag], row.access) for row in ROWS if is_cell(row)}


def test_names_are_the_objects_own():
    names = {name for name, oid, *_ in documented() if not oid.endswith(".ROW")}
    assert names == {row.name for row in ROWS if not is_cell(row)}
