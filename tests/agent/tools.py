"""The net-snmp command line tools as a manager uses them, their output parsed."""

import re
import subprocess

from desk import SLOWNESS

_LINE = re.compile(r"^\.(?P<oid>[\d.]+) = (?:(?P<type>[\w -]+?): ?)?(?P<value>.*)$")


class Answer:
    """Exit status, error text, and the (oid, type, value) triples of one tool's run. Values are int, bytes or text; an
    exception such as "No Such Instance ..." is a triple of type None."""

    def __init__(self, done):
        self.status, self.error, self.triples = done.returncode, done.stderr, []
        lines = []
        for line in done.stdout.splitlines():  # long hexadecimal values continue on further lines
            if line.startswith(".") or not lines:
                lines.append(line)
            else:
                lines[-1] += " " + line
        for line in lines:
            match = _LINE.match(line)
            if match:
                self.triples.append((match["oid"], match["type"], _value(match["type"], match["value"])))


def _value(kind, text):
    if kind in ("INTEGER", "Gauge32", "Counter32", "Counter64"):
        return int(text)
    if kind == "Hex-STRING":
        return bytes.fromhex(text)
    return text


class Tools:
    def __init__(self, desk):
        self._desk = desk

    def get(self, *oids):
        return self._run("snmpget", "public", oids)

    def get_next(self, *oids):
        return self._run("snmpgetnext", "public", oids)

    def walk(self, oid):
        return self._run("snmpwalk", "public", [oid])

    def bulk_get(self, repetitions, *oids):
        return self._run("snmpbulkget", "public", [f"-Cr{repetitions}", *oids], options_first=1)

    def set(self, *words):
        """Repeated OID, type letter and value."""
        return self._run("snmpset", "private", words)

    def _run(self, tool, community, words, options_first=0):
        words = [str(word) for word in words]
        command = [tool, "-v2c", "-c", community, "-t", str(5 * SLOWNESS), "-r", "0", "-On", "-Oe", "-Ox", "-Ot",
                   *words[:options_first], f"127.0.0.1:{self._desk.port}", *words[options_first:]]
        environment = dict(self._desk.environment, SNMPCONFPATH=str(self._desk.state / "snmp"))
        return Answer(subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30 * SLOWNESS))
