"""Third-party managers, each behind a small driver in its own language.

A driver is a process that reads commands from its standard input, a JSON list a line, and answers each with one line:
    ["walk", OID]    ["get", OID, ...]    ["set", OID, "INTEGER" | "OCTET STRING", VALUE]
    {"values": [[OID, TYPE, VALUE], ...]}    or    {"error": WHAT-THE-MANAGER-SAYS}
A value is a number, the octets in hexadecimal, or null. Its environment names VERSION (1, 2c or 3), PORT and, as
USER_OF_3, the SNMPv3 user."""

import json
import pathlib
import selectors
import subprocess
from typing import NamedTuple

import node_packages
from tools import Answer

FOLDER = pathlib.Path(__file__).parent
NODE_MODULES = node_packages.node_modules(FOLDER)

DRIVERS = {
    "pysnmp": (["/usr/bin/python3", "pysnmp_driver.py"], ["1", "2c", "3"]),
    "easysnmp": (["/usr/bin/python3", "easysnmp_driver.py"], ["1", "2c", "3"]),
    "Net::SNMP": (["perl", "net_snmp_driver.pl"], ["1", "2c", "3"]),
    "ruby-snmp": (["ruby", "ruby_driver.rb"], ["1", "2c"]),
    "npm net-snmp": (["node", "node_driver.js"], ["1", "2c", "3"]),
}


def user_of_3(desk):
    """The name and the pass phrases of the desk camera's SNMPv3 user."""
    lines = dict(line.split() for line in (desk.state / "v3" / "snmp.conf").read_text().splitlines())
    return {"name": lines["defSecurityName"], "authentication": lines["defAuthPassphrase"],
            "privacy": lines["defPrivPassphrase"]}


class Reply(NamedTuple):
    values: list  # (oid, type, value) triples, or None after an error
    error: str


class Driven:
    """A manager and its driver."""

    def __init__(self, desk, name, version):
        self.name = name
        (program, script), _ = DRIVERS[name]
        if program == "node":
            node_packages.install(FOLDER)
        environment = dict(desk.environment, VERSION=version, PORT=str(desk.port), USER_OF_3=json.dumps(user_of_3(desk)),
                           NODE_PATH=str(NODE_MODULES), SNMPCONFPATH="/dev/null")
        self._log = open(desk.state / f"{script}-{version}.log", "w+")
        self._process = subprocess.Popen([program, FOLDER / "drivers" / script], stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, stderr=self._log, text=True, env=environment)

    def walk(self, oid):
        return self._ask("walk", oid)

    def get(self, *oids):
        return self._ask("get", *oids)

    def set(self, oid, kind, value):
        return self._ask("set", oid, kind, value)

    def close(self):
        self._process.stdin.close()
        status = self._process.wait(10)
        self._process.stdout.close()
        self._log.close()
        assert status == 0

    def _ask(self, *command):
        self._process.stdin.write(json.dumps(command) + "\n")
        self._process.stdin.flush()
        with selectors.DefaultSelector() as selector:
            selector.register(self._process.stdout, selectors.EVENT_READ)
            assert selector.select(30), f"no answer to {command}"
        line = self._process.stdout.readline()
        assert line, f"{command}: {self._complaint()}"
        answer = json.loads(line)
        values = answer.get("values")
        return Reply(values and [tuple(value) for value in values], answer.get("error", ""))

    def _complaint(self):
        self._log.seek(0)
        return self._log.read()


class Tools:
    """net-snmp's tools, one process for each command. For SNMPv3 they use the desk camera's file of pass phrases."""

    name = "net-snmp's tools"
    _TYPES = {"Hex-STRING": "OCTET STRING", "INTEGER": "INTEGER", "Gauge32": "Gauge32"}
    _LETTERS = {"INTEGER": "i", "OCTET STRING": "x"}
    _ABSENT = {"No Such Instance currently exists at this OID": "noSuchInstance",
               "No Such Object available on this agent at this OID": "noSuchObject"}

    def __init__(self, desk, version):
        self._desk, self._version = desk, version

    def walk(self, oid):
        return self._run("snmpwalk" if self._version == "1" else "snmpbulkwalk", "public", oid)

    def get(self, *oids):
        return self._run("snmpget", "public", *oids)

    def set(self, oid, kind, value):
        return self._run("snmpset", "private", oid, self._LETTERS[kind], str(value))

    def close(self):
        pass

    def _run(self, tool, community, *words):
        security = [] if self._version == "3" else [f"-v{self._version}", "-c", community]
        command = [tool, *security, "-t", "5", "-r", "0", "-On", "-Oe", "-Ox", "-Ot", f"127.0.0.1:{self._desk.port}",
                   *words]
        environment = dict(self._desk.environment, SNMPCONFPATH=str(self._desk.state / "v3"),
                           SNMP_PERSISTENT_DIR=str(self._desk.state / "v3"))
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30)
        if done.returncode:
            return Reply(None, done.stderr)
        return Reply([self._triple(*triple) for triple in Answer(done).triples], "")

    def _triple(self, oid, kind, value):
        if kind is None:
            return oid, self._ABSENT[value], None
        return oid, self._TYPES[kind], value.hex() if isinstance(value, bytes) else value


MANAGERS = [(Tools.name, version) for version in ["1", "2c", "3"]]
MANAGERS += [(name, version) for name, (_, versions) in DRIVERS.items() for version in versions]


def manager(desk, name, version):
    return Tools(desk, version) if name == Tools.name else Driven(desk, name, version)
