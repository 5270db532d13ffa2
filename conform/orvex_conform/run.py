"""One run against one camera: who asks, what is expected, what was found."""

import bisect
import json
import shlex
import subprocess

import promises
from orvex_conform.reads import parts
from orvex_conform.verdicts import FAIL

STATE_TIMEOUT = 10  # seconds that the platform's command may take


class Run:
    def __init__(self, link, reader, writer, verdicts, commands, options):
        self.link, self.reader, self.writer = link, reader, writer
        self.verdicts, self.commands, self.options = verdicts, commands, options
        self.enterprise, self.slow = options.enterprise, options.slow
        self.values = {}  # of the readable objects, by name
        self.unreadable = set()  # names whose GET gives no value
        self.old_agent = False  # before net-snmp 5.9; known after the first SETs
        self.dropped = set()  # the values that the agent drops for every name
        self.tree, self._order = None, []

    def expect(self, tree):
        self.tree = tree
        for row in tree.rows:
            self.verdicts.subject(row.name, row.oid)
        self._order = sorted(tree.rows, key=lambda row: parts(row.oid))

    def following(self, oid):
        """The first promised row behind that name, or None."""
        place = bisect.bisect_right([parts(row.oid) for row in self._order], parts(oid))
        return self._order[place] if place < len(self._order) else None

    def name_of(self, oid):
        row = self.tree.by_oid.get(oid)
        return row.name if row else oid

    def failed(self):
        """The names of what has failed so far."""
        return {subject.name for subject in self.verdicts.of(FAIL)}

    def platform(self):
        """The camera's state as its platform shows it (--state-command), or None."""
        if not self.options.state_command:
            return None
        try:
            done = subprocess.run(shlex.split(self.options.state_command), capture_output=True, text=True,
                                  timeout=STATE_TIMEOUT, check=True)
            state = json.loads(done.stdout)
        except (OSError, subprocess.SubprocessError, ValueError) as error:
            raise StateUnknown(f"--state-command: {error}") from None
        if not isinstance(state, dict):
            raise StateUnknown("--state-command: its output is no JSON object")
        return state

    def expected_tree(self, alarms, relays):
        return promises.Tree(alarms, relays, self.enterprise)


class StateUnknown(Exception):
    """The platform's state cannot be read."""
