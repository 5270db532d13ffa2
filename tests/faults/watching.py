"""The length of the tests, the resources of a process, and requests that continue during a fault."""

import contextlib
import gc
import os
import pathlib
import socket
import subprocess
import threading
import time
from typing import NamedTuple, Optional

import ber
from desk import ManagerOf, await_until, sanitizer_runtime
from expected_tree import OID

# ./check runs the short form; tests/faults/full runs the full one, which gives the figures of docs/reliability.md.
FULL = os.environ.get("ORVEX_FULL") == "1"

# A sanitizer build's memory is not comparable with that of the real one.
SANITIZED = bool(sanitizer_runtime())
TRAPS_KEPT = 1000  # the default of a stock agent's notification log: about 9 kB each
ASKING = pathlib.Path(__file__).with_name("asking.py")


def times(short, full):
    return full if FULL else short


class Footprint(NamedTuple):
    resident: int  # kB, without shared memory
    highest: int  # kB, since the start
    threads: int
    descriptors: tuple  # their targets, without the numbers that identify single sockets

    def __str__(self):
        return (f"{self.resident} kB resident ({self.highest} kB at most), {self.threads} threads, "
                f"{len(self.descriptors)} descriptors")


def footprint(pid):
    status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())
    targets = []
    for link in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            targets.append(os.readlink(link).split(":[")[0])
        except FileNotFoundError:
            continue  # closed meanwhile
    # The trace's ring is shared memory that fills up to its fixed size.
    own = int(status["VmRSS"].split()[0]) - int(status["RssShmem"].split()[0])
    return Footprint(own, int(status["VmHWM"].split()[0]), int(status["Threads"]),
                     tuple(sorted(targets)))


# Requests that call each service and change nothing: GETs, and stops of what does not move.
READ = ["temperature", "voltage", "power", "inputStatus", "outputStatus"]
STOPPED = ["positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens"]


def use_lanes(desk):
    """Calls each service until its calls take a lane. Then the agent opens no further descriptors."""
    def count():
        with ManagerOf(desk) as manager:
            for name in READ * 3:
                manager.get(OID[name])
            for name in STOPPED * 3:
                manager.set_octets(OID[name], bytes(4))
        return len(footprint(desk.agent_pid()).descriptors)

    def is_done():
        before = count()
        time.sleep(0.25)  # the agent looks for lanes at least every 0.2 s while it has requests
        return count() == before == count()

    await_until(is_done, "every service has a lane")


def settled(desk):
    """The agent's footprint after it has closed the store that it writes after its start, and uses all lanes."""
    use_lanes(desk)

    def look():
        now = footprint(desk.agent_pid())
        return now if not any(name.endswith("/snmpd.conf") for name in now.descriptors) else None

    return await_until(look, "the agent has closed its store")


def percentile(values, percent):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * percent / 100))]


class Answer(NamedTuple):
    sent: float  # the time of sending
    seconds: float
    status: Optional[int]  # None for a missing answer
    value: str


def parsed(line):
    sent, seconds, *outcome = line.split(None, 3)
    status, value = (int(outcome[0]), outcome[1].strip()) if len(outcome) == 2 else (None, "")
    return Answer(float(sent), float(seconds), status, value)


class Asking:
    """A manager for a `with` that repeats GETs of one object, each after the last answer. With `wait`, the `with`
    begins after the first answer."""

    def __init__(self, desk, oid, pause=0.0, timeout=5.0, wait=True):
        self._command = ["/usr/bin/python3", ASKING, desk.port, oid, pause, timeout]
        self._wait, self._lines = wait, []

    def __enter__(self):
        self._process = subprocess.Popen(list(map(str, self._command)), stdout=subprocess.PIPE, text=True)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        if self._wait:
            await_until(lambda: self._lines, "the first answer")
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(10)
        self._reader.join(10)
        self._process.stdout.close()

    def _read(self):
        for line in self._process.stdout:
            if line.endswith("\n"):  # the process may have ended in the middle of a line
                self._lines.append(line)

    @property
    def answers(self):
        return [parsed(line) for line in self._lines]

    @property
    def statuses(self):
        return {answer.status for answer in self.answers}

    def await_answer(self, status, seconds=15):
        """Waits until a request sent from now on is answered with this status."""
        start = time.monotonic()

        def answered():
            for answer in map(parsed, reversed(self._lines)):
                if answer.sent < start:
                    return False
                if answer.status == status:
                    return True
            return False

        await_until(answered, f"an answer with status {status}", seconds)

    def taken(self):
        return [answer.seconds for answer in self.answers]


@contextlib.contextmanager
def no_collections():
    """Turns off the interpreter's garbage collection: its pauses, up to 0.2 s, would distort the figures."""
    gc.disable()
    try:
        yield
    finally:
        gc.enable()


def answers_at_a_rate(port, oid, rate, seconds):
    """Sends GETs at fixed times, independently of earlier answers. Returns the seconds from each due time to its
    answer. Fails when an answer is missing two seconds after the last GET."""
    ids = {}
    messages = []
    for number in range(int(rate * seconds)):
        message = ber.encode(ber.GET, [(oid, ber.NULL, b"")])
        ids[ber.Message(message).request_id] = number
        messages.append(message)
    taken = [None] * len(messages)
    with no_collections(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as manager:
        manager.connect(("127.0.0.1", port))
        start = time.monotonic()

        def receive():
            left = len(messages)
            manager.settimeout(seconds + 2)
            while left:
                try:
                    answer = ber.Message(manager.recv(65536))
                except OSError:
                    return
                now = time.monotonic()
                number = ids[answer.request_id]
                taken[number] = now - start - number / rate
                left -= 1
                manager.settimeout(max(0.01, start + seconds + 2 - now))

        receiver = threading.Thread(target=receive)
        receiver.start()
        for number, message in enumerate(messages):
            time.sleep(max(0.0, start + number / rate - time.monotonic()))
            manager.send(message)
        receiver.join()
    assert None not in taken, f"{taken.count(None)} of {len(taken)} requests were not answered"
    return taken
