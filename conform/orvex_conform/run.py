"""One run against one camera: who asks, what is expected, what was found."""

import bisect
import json
import shlex
import subprocess

import promises
from orvex_conform.link import Silent
from orvex_conform.reads import parts
from orvex_conform.verdicts import FAIL

SAMPLED = 16  # rows at each end of a table that are checked one by one
STATE_TIMEOUT = 10  # seconds that the platform's command may take


class Run:
    def __init__(self, link, readers, writers, verdicts, commands, options):
        """`readers`, `writers`: each named role in each of its versions; the first ones make the checks."""
        self.link, self.readers, self.writers = link, readers, writers
        self.reader, self.writer = (readers or writers)[0], writers[0] if writers else None
        self.verdicts, self.commands, self.options = verdicts, commands, options
        self.enterprise, self.slow = options.enterprise, options.slow
        self.values = {}  # of the readable objects, by name
        self.unreadable = set()  # names whose GET gives no value
        self.old_agent = False  # before net-snmp 5.9; known after the first SETs
        self.dropped = set()  # the values that the agent drops for every name
        self.tree, self._order, self.alarms, self.relays = None, [], 0, 0

    def expect(self, tree):
        self.tree = tree
        for row in tree.rows:
            self.verdicts.subject(row.name, row.oid)
        self._order = sorted(tree.rows, key=lambda row: parts(row.oid))

    def following(self, oid):
        """The first promised row behind that name, or None."""
        index = bisect.bisect_right([parts(row.oid) for row in self._order], parts(oid))
        return self._order[index] if index < len(self._order) else None

    def name_of(self, oid):
        row = self.tree.by_oid.get(oid)
        return row.name if row else oid

    def failed(self):
        """The names of what has failed so far."""
        return {subject.name for subject in self.verdicts.of(FAIL)}

    def guarded(self, name, check, action, *arguments):
        """Runs a check of one object: an answer that does not come is a finding of it, and the run goes on."""
        try:
            action(self, *arguments)
        except Silent as silence:
            self.verdicts.failed(name, check, str(silence))

    def is_sampled(self, row):
        """False for the middle of a large table: there the walk alone judges, as a cell may cost the camera a call for
        each of its rows."""
        table, _, index = row.name.partition(".")
        count = self.alarms if table.startswith("alarm") else self.relays
        return not index or int(index) <= SAMPLED or int(index) > count - SAMPLED

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
