"""The MIBs of the build, as smidump and smilint read them, and the options that make net-snmp's tools load them."""

import functools
import os
import re
import subprocess
from typing import NamedTuple
from xml.etree import ElementTree

from desk import BUILD

FOLDER = BUILD / "mibs"
OBJECT_MODULES = ["ORVEX-MIB", "ORVEX-NTCIP-GLOBAL-MIB", "ORVEX-NTCIP-CCTV-MIB"]
MODULES = OBJECT_MODULES + ["ORVEX-CAPABILITIES-MIB", "ORVEX-TRAP-MIB"]
ACCESS = {"readonly": "read-only", "readwrite": "read-write", "noaccess": "not-accessible"}


class Object(NamedTuple):
    """A scalar or a column. `ranges` limit an integer's values or a string's lengths; empty: no limits."""

    module: str
    name: str
    oid: str
    is_scalar: bool
    access: str
    base: str
    ranges: tuple

    def allows(self, number):
        return not self.ranges or any(low <= number <= high for low, high in self.ranges)


def smi_environment(folder=FOLDER):
    return dict(os.environ, SMIPATH=f"{folder}:{folder}/smi")


def naming(environment, *modules, folder=FOLDER):
    """The options that a net-snmp tool requires to translate the modules' names, and no others."""
    return dict(environment, MIBDIRS=f"{folder}/smi:{folder}", MIBS=":".join(modules), SNMPCONFPATH="/dev/null")


def findings(module, folder=FOLDER):
    """(level, tag, text) of each message of smilint."""
    command = ["smilint", "-c", "/dev/null", "-l", "6", "-s", "-m", f"{folder}/{module}.txt"]
    done = subprocess.run(command, env=smi_environment(folder), capture_output=True, text=True, timeout=60)
    line = re.compile(r"^\S+: \[(\d)\] \{([\w-]+)\} (.*)$")
    matches = [(text, line.match(text)) for text in (done.stdout + done.stderr).splitlines()]
    assert all(match for _, match in matches), matches
    return [(int(match[1]), match[2], match[3]) for _, match in matches]


def dump(module):
    command = ["smidump", "-c", "/dev/null", "-f", "xml", module]
    done = subprocess.run(command, env=smi_environment(), capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return ElementTree.fromstring(done.stdout)


@functools.cache
def objects():
    """Every object of the modules, including those that are not accessible."""
    trees = {module: dump(module) for module in OBJECT_MODULES}
    conventions = {(module, node.get("name")): node for module, tree in trees.items() for node in tree.iter("typedef")
                   if node.get("name")}
    found = []
    for module, tree in trees.items():
        for kind in ("scalar", "column"):
            for node in tree.iter(kind):
                base, ranges = _syntax(node.find("syntax")[0], conventions)
                found.append(Object(module, node.get("name"), node.get("oid"), kind == "scalar",
                                    ACCESS[node.find("access").text], base, ranges))
    return found


def accessible():
    return [thing for thing in objects() if thing.access != "not-accessible"]


def groups(module):
    """The members' names of each group."""
    return {group.get("name"): [member.get("name") for member in group.iter("member")]
            for group in dump(module).iter("group")}


def _syntax(node, conventions):
    if node.tag == "type":
        if node.get("module") in ("", "SNMPv2-SMI"):
            return node.get("name"), ()
        node = conventions[node.get("module"), node.get("name")]
    ranges = [(int(limit.get("min")), int(limit.get("max"))) for limit in node.findall("range")]
    ranges += [(int(named.get("number")),) * 2 for named in node.findall("namednumber")]
    return node.get("basetype"), tuple(ranges)
