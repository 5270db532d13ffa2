"""What this package shares with orvex-conform: the coder of SNMP's messages, the link to an agent, and what a camera
serves. They are orvex-conform's modules, whose folder is on Python's path only while they are imported."""

from __future__ import annotations

import pathlib
import re
import sys

HERE = pathlib.Path(__file__).resolve().parent
CHECKOUT = HERE.parents[2]
PREFIX = HERE.parents[3]  # of an installation: PREFIX/lib/python3/dist-packages/orvex_camera


def is_checkout() -> bool:
    return (CHECKOUT / "conform" / "oracle").is_dir()


def _folder() -> pathlib.Path:
    folder = CHECKOUT / "conform" if is_checkout() else PREFIX / "share" / "orvex-conform"
    if not (folder / "oracle" / "ber.py").is_file():
        raise ImportError(f"orvex_camera requires the package orvex-conform: {folder} is missing")
    return folder


_folders = [str(_folder()), str(_folder() / "oracle")]
sys.path[:0] = _folders
try:
    import ber
    import expected_tree
    import promises
    from orvex_conform import link, usm
    from orvex_conform.main import Unusable, only_one_host
    from orvex_conform.reads import TYPES, error_name, type_name
finally:
    for _name in _folders:
        sys.path.remove(_name)


def version() -> str:
    """A package states its version in a file, a checkout in its CMakeLists.txt."""
    if not is_checkout():
        return (_folder() / "version").read_text().strip()
    text = (CHECKOUT / "CMakeLists.txt").read_text()
    return str(re.findall(r"^project\(.* VERSION (\S+)", text, re.MULTILINE)[0])


__all__ = ["CHECKOUT", "PREFIX", "TYPES", "Unusable", "ber", "error_name", "expected_tree", "is_checkout", "link",
           "only_one_host", "promises", "type_name", "usm", "version"]
