"""A camera as in the field: the agent runs with the shipped configuration, and the shipped command creates its
users."""

import os
import re
import subprocess

from desk import BUILD, CAMERA_PARTS, ROOT, SNMPD, Desk
from tools import Answer

PACKAGING = ROOT / "packaging"
ADD_USER = BUILD / "packaging" / "snmpd" / "orvexsnmp-add-user"
ROLES = ["reader", "operator", "administrator"]
READY = "1.3.6.1.2.1.1.3.0"

NO_SUCH_OBJECT = "No Such Object available on this agent at this OID"


def authentication(user):
    return f"authentic {user} 1"


def privacy(user):
    return f"private {user} 2"


def replace_once(text, pattern, replacement):
    text, count = re.subn(pattern, lambda _: replacement, text, flags=re.MULTILINE)
    assert count == 1, f"{count} lines are {pattern}"
    return text


def add_user(store, user, phrases=None, environment=None):
    """Runs the command; it reads `phrases` from its input."""
    if phrases is None:
        phrases = f"{authentication(user)}\n{privacy(user)}\n"
    return subprocess.run([ADD_USER, "--store", store, user], input=phrases, capture_output=True, text=True,
                          env=environment, timeout=20)


class FieldDesk(Desk):
    """The shipped configuration, changed only in this desk's port and this build's module."""

    def __init__(self):
        super().__init__()
        text = (BUILD / "packaging" / "snmpd" / "snmpd.conf").read_text()
        text = replace_once(text, r"^agentaddress .*$", f"agentaddress udp:127.0.0.1:{self.port}")
        text = replace_once(text, r"^dlmod orvexsnmp .*$", f"dlmod orvexsnmp {BUILD}/lib/orvexsnmp.so")
        self.configuration = self.state / "snmpd.conf"
        self.configuration.write_text(text)
        # With an explicit path the agent also reads its persistent store through it.
        self.environment["SNMPCONFPATH"] = f"{self.state}:{self.state}/snmp"

    def agent_command(self):
        # Without -C: with it the agent would ignore its persistent store.
        return [SNMPD, "-f", *CAMERA_PARTS, "-A", "-Lf", self.state / "agent.log"]

    def add_users(self, *users):
        for user in users:
            done = add_user(self.state / "snmp", user)
            assert (done.returncode, done.stdout, done.stderr) == (0, "", ""), done.stderr

    def start_agent(self):
        self.launch_agent()
        self._await("agent", lambda: self.ask("reader", "snmpget", READY, timeout="0.2").status == 0)

    def ask(self, user, tool, *words, timeout="5", **other):
        """One run of a net-snmp tool with the user's pass phrases; `other` overrides level, a, A, x, X."""
        options = {"l": "authPriv", "a": "SHA-256", "A": authentication(user), "x": "AES", "X": privacy(user)}
        options.update(other)
        security = [word for name, value in options.items() for word in (f"-{name}", value)]
        return self.run_tool(tool, ["-v3", "-u", user, *security], words, timeout)

    def ask_community(self, version, community, tool, *words):
        return self.run_tool(tool, [f"-v{version}", "-c", community], words, "0.3")

    def run_tool(self, tool, security, words, timeout):
        command = [tool, *security, "-t", timeout, "-r", "0", "-On", "-Oe", "-Ox", "-Ot", f"127.0.0.1:{self.port}",
                   *map(str, words)]
        environment = dict(os.environ, MIBS="", SNMPCONFPATH="/dev/null", SNMP_PERSISTENT_DIR=f"{self.state}/manager")
        return Answer(subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30))
