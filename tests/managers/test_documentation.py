"""The examples of docs/managers.md work and print what the page shows."""

import json
import re
import subprocess

import pytest

import documentation
import node_packages
from commands import calls
from managers import DRIVERS, FOLDER, NODE_MODULES

PROGRAMS = {
    "pysnmp": ("python", ["/usr/bin/python3", "-"]),
    "easysnmp": ("python", ["/usr/bin/python3", "-"]),
    "Net::SNMP": ("perl", ["perl", "-"]),
    "ruby-snmp": ("ruby", ["ruby", "-"]),
    "net-snmp for Node.js": ("javascript", ["node", "-"]),
}
MOVE = ["pan SetPositionAtSpeed 180000 0.503937 300"]


def environment(camera):
    return dict(camera.environment, NODE_PATH=str(NODE_MODULES), SNMPCONFPATH="/dev/null")


@pytest.mark.parametrize("section", PROGRAMS)
def test_a_program_prints_what_is_shown(camera, section):
    language, interpreter = PROGRAMS[section]
    (program,), (shown,) = documentation.blocks(section, language), documentation.blocks(section, "text")
    if language == "javascript":
        node_packages.install(FOLDER)
    done = subprocess.run(interpreter, input=documentation.here(program, camera), env=environment(camera),
                          capture_output=True, text=True, timeout=60)
    assert (done.stderr, done.stdout) == ("", shown)
    assert calls(camera) == MOVE


def test_the_tools_print_what_is_shown(camera):
    (session,) = documentation.blocks("net-snmp's tools", "console")
    commands = re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", session, re.MULTILINE)
    plain = dict(environment(camera), SNMPCONFPATH="/etc/snmp")  # as in a user's shell
    del plain["MIBS"]
    assert "".join(f"$ {command}\n{shown}" for command, shown in commands) == session
    for command, shown in commands:
        done = subprocess.run(["bash", "-c", documentation.here(command, camera)], env=plain, capture_output=True, text=True,
                              timeout=60)
        lines = [line.rstrip() for line in (done.stdout + done.stderr).splitlines()]
        assert [line for line in lines if line] == shown.splitlines(), command
    assert calls(camera) == MOVE


def test_every_manager_is_documented_with_its_versions():
    rows = re.findall(r"^\| ([^|]+) \| [^|]+ \| ([\dc, ]+) \|$", documentation.TEXT, re.MULTILINE)
    driven = {name.replace("npm net-snmp", "net-snmp for Node.js"): versions for name, (_, versions) in DRIVERS.items()}
    driven.update({"net-snmp's tools": ["1", "2c", "3"], "Prometheus": ["2c", "3"]})
    assert {name: versions.split(", ") for name, versions in rows} == driven


def test_the_documented_version_is_the_one_that_is_installed():
    (version,) = json.loads((FOLDER / "package.json").read_text())["dependencies"].values()
    assert f"npm `net-snmp` {version} " in documentation.TEXT
