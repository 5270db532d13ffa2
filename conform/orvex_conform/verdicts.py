"""What was checked, and what came of it, for each object and for the camera as a whole."""

import time
from typing import NamedTuple

PASS, FAIL, SKIPPED = "pass", "fail", "skipped"


class Check(NamedTuple):
    name: str
    verdict: str
    text: str = ""  # what is wrong, or why it was skipped
    command: str = ""  # one line that shows it again


class Subject:
    """An object, or an aspect of the whole camera."""

    def __init__(self, name, oid=""):
        self.name, self.oid, self.checks = name, oid, []

    @property
    def verdict(self):
        verdicts = [check.verdict for check in self.checks]
        if FAIL in verdicts:
            return FAIL
        return PASS if PASS in verdicts else SKIPPED

    @property
    def reason(self):
        """Why it failed, or was not judged at all."""
        if not self.checks:
            return "nothing was checked"
        return "; ".join(check.text for check in self.checks if check.verdict == self.verdict and check.text)

    def findings(self):
        return [check for check in self.checks if check.verdict == FAIL]

    def skips(self):
        return [check for check in self.checks if check.verdict == SKIPPED]


class Verdicts:
    MAX_FINDINGS = 5  # of one check of one subject; more of the same kind say no more

    def __init__(self, camera):
        self.camera, self.started, self.seconds = camera, time.time(), 0.0
        self.notes, self._subjects, self._began = [], {}, time.monotonic()

    def subject(self, name, oid=""):
        return self._subjects.setdefault(name, Subject(name, oid))

    def passed(self, name, check):
        """The check found nothing so far: a finding of the same check replaces this."""
        subject = self.subject(name)
        if not any(one.name == check and one.verdict != SKIPPED for one in subject.checks):
            subject.checks.append(Check(check, PASS))

    def failed(self, name, check, text, command=""):
        subject = self.subject(name)
        subject.checks = [one for one in subject.checks if (one.name, one.verdict) != (check, PASS)]
        alike = [one for one in subject.checks if (one.name, one.verdict) == (check, FAIL)]
        if len(alike) < self.MAX_FINDINGS and text not in [one.text for one in alike]:
            subject.checks.append(Check(check, FAIL, text, command))

    def skipped(self, name, check, reason):
        self.subject(name).checks.append(Check(check, SKIPPED, reason))

    def judge(self, name, check, holds, text, command=""):
        """Records a pass or a finding; returns whether it passed."""
        if holds:
            self.passed(name, check)
        else:
            self.failed(name, check, text, command)
        return bool(holds)

    def note(self, text):
        """Something that the reader should know and that is no verdict."""
        if text not in self.notes:
            self.notes.append(text)

    def end(self):
        self.seconds = time.monotonic() - self._began

    def subjects(self):
        return list(self._subjects.values())

    def of(self, verdict):
        return [subject for subject in self.subjects() if subject.verdict == verdict]
