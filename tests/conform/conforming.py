"""Runs orvex-conform against a desk camera, and desk cameras whose module can be broken."""

import os
import shlex
import subprocess
from typing import NamedTuple
from xml.etree import ElementTree

from desk import BUILD, ROOT, Desk

COMMAND = ROOT / "conform" / "orvex-conform"
READER = ["--community", "public"]
WRITER = READER + ["--write-community", "private"]


class Outcome(NamedTuple):
    status: int
    text: str
    error: str
    verdicts: dict  # of each object: "pass", "fail" or "skipped"
    findings: dict  # of each failed object: the names of the checks that failed

    def summary(self):
        return self.text + self.error


def domectl(desk, *words):
    """The command as a text, for orvex-conform's options."""
    return shlex.join(map(str, [BUILD / "bin" / "domectl", "--state", desk.state, *words]))


def conform(desk, *options, environment=None):
    report = desk.state / "conform.xml"
    report.unlink(missing_ok=True)
    command = [COMMAND, "--host", "127.0.0.1", "--port", desk.port, "--junit", report, *options]
    done = subprocess.run(list(map(str, command)), env=dict(desk.environment, **(environment or {})),
                          capture_output=True, text=True, timeout=120)
    verdicts, findings = {}, {}
    for case in ElementTree.parse(report).getroot().iter("testcase") if report.exists() else ():
        name, failure = case.get("name"), case.find("failure")
        verdicts[name] = "fail" if failure is not None else "skipped" if case.find("skipped") is not None else "pass"
        if failure is not None:
            lines = [line for line in failure.text.splitlines() if line and not line.startswith("  ")]
            findings[name] = {line.partition(": ")[0] for line in lines}
    return Outcome(done.returncode, done.stdout, done.stderr, verdicts, findings)


def phrases(desk):
    """The environment with the pass phrases of the desk's SNMPv3 user."""
    lines = dict(line.split(None, 1) for line in (desk.state / "v3" / "snmp.conf").read_text().splitlines())
    return {"ORVEX_CONFORM_AUTHENTICATION": lines["defAuthPassphrase"],
            "ORVEX_CONFORM_PRIVACY": lines["defPrivPassphrase"]}


def state(desk):
    return ["--state-command", domectl(desk, "state")]


def traps(desk, first, *sensors):
    """The options that cause a trap of each sensor: its reading changes."""
    words = ["--trap-port", desk.trap_port, "--trap-wait", 3]
    for number, sensor in enumerate(sensors, first):
        words += ["--trap-command", f"{sensor}={domectl(desk, 'set', sensor, number)}"]
    return words


class BreakableDesk(Desk):
    """A desk whose agent also loads the breaker: tests/conform/breaker."""

    traced = False

    def __init__(self):
        super().__init__()
        self.breaks = self.state / "breaks"
        breaker = BUILD / "lib" / "orvexbreaker.so"
        self.environment["ORVEX_BREAKS"] = str(self.breaks)
        with open(self.state / "snmpd.conf", "a", encoding="utf-8") as configuration:
            configuration.write(f"dlmod orvexbreaker {breaker}\n")
        self.breaker = breaker

    def agent_command(self):
        # The agent's loader finds the same library: preloaded, it also replaces a function of the agent.
        return ["env", f"LD_PRELOAD={self.breaker}", *super().agent_command()]

    def break_(self, breaks):
        """`breaks`: the kind of each broken OID."""
        new = self.breaks.with_suffix(".new")
        new.write_text("".join(f"{kind} {oid}\n" for oid, kind in breaks.items()))
        os.replace(new, self.breaks)
