"""The includes follow the drawing in docs/architecture.md: a folder, or a header, includes only what is drawn below
it."""

import pathlib
import re

import pytest

from desk import ROOT

PAGE = ROOT / "docs" / "architecture.md"
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def floors(folder):
    """The drawing of a folder: name -> floor; 0 is the lowest. Names on one floor must not include one another."""
    drawing = re.search(rf"^```\n{re.escape(folder)}\n((?: .*\n)+)```$", PAGE.read_text(), re.MULTILINE)
    assert drawing, f"{PAGE.name} does not draw {folder}"
    lines = [line.split() for line in drawing[1].splitlines()]
    return {name: len(lines) - 1 - number for number, names in enumerate(lines) for name in names}


def sources(folder):
    return [file for file in sorted(folder.rglob("*")) if file.suffix in (".h", ".cpp")]


def wrong_arrows(floor_of, includes):
    """`includes`: (file, who includes, what is included)."""
    return [f"{file}: {who} (floor {floor_of[who]}) includes {what} (floor {floor_of[what]})"
            for file, who, what in includes if who != what and floor_of[what] >= floor_of[who]]


@pytest.mark.parametrize("name", ["orvexsnmp", "tavos", "trace"])
def test_folders_include_only_folders_below_them(name):
    floor_of = floors(f"{name}/")
    folder = ROOT / name
    prefix = f"{name}/" if name != "orvexsnmp" else ""
    includes = []
    for file in sources(folder):
        parts = file.relative_to(folder).parts
        who = parts[2] if parts[:2] == ("include", "tavos") and len(parts) > 3 else parts[0].removesuffix(".h")
        for target in INCLUDE.findall(file.read_text()):
            what = target.removeprefix(prefix).split("/")[0].removesuffix(".h") if target.startswith(prefix) else ""
            if what in floor_of and who in floor_of:
                includes.append((file.relative_to(ROOT), who, what))
        assert who in floor_of or who in ("include", "CMakeLists.txt"), f"{file} is in no folder of the drawing"
    assert includes
    assert wrong_arrows(floor_of, includes) == []


def test_the_headers_of_the_message_bus_include_only_those_below_them():
    floor_of = floors("tavos/msgbus/")
    folders = ROOT / "tavos" / "msgbus", ROOT / "tavos" / "include" / "tavos" / "msgbus"
    files = [file for folder in folders for file in sorted(folder.glob("*.h"))]
    assert {file.stem for file in files} == set(floor_of)
    includes = []
    for file in files:
        for target in INCLUDE.findall(file.read_text()):
            what = pathlib.PurePath(target)
            if str(what.parent) == "tavos/msgbus":
                includes.append((file.relative_to(ROOT), file.stem, what.stem))
    assert includes
    assert wrong_arrows(floor_of, includes) == []
