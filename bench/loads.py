"""The requests to the agents, and the programs that send them."""

import json
import statistics
import subprocess

from contestants import ALARM_TABLE, BUILD, OID, ber, processor_microseconds

LOADS = (1, 8, 64)
PERCENTILES = (50, 90, 99, 99.9)
FIRST_ID = 0x40000000
SYS_NAME = "1.3.6.1.2.1.1.5.0"


def get(oid):
    return [ber.encode(ber.GET, [(oid, ber.NULL, b"")], request_id=FIRST_ID)]


def set_octets(oid, *values):
    return [ber.encode(ber.SET, [(oid, ber.OCTET_STRING, bytes.fromhex(value))], "private", request_id=FIRST_ID)
            for value in values]


# workload: its messages, in turn
WORKLOADS = {
    "identity": get(OID["modelName"]),
    "last command": get(OID["positionPan"]),
    "constant": get(OID["rangePanHomePosition"]),
    "temperature": get(OID["temperature"]),
    "input": get(OID["inputStatus"]),
    "cell": get(f"{ALARM_TABLE}.3.5"),
    "move": set_octets(OID["positionPan"], "02404650", "02400064"),
    "relay": set_octets(OID["outputControl"], "0180", "0100"),
}
BUILT_IN = get(SYS_NAME)
WALKS = {"walk": 0, "bulk walk": 25}  # repetitions of a GETBULK; 0: GETNEXT
BARE_CALLS = ("temperature", "input", "count", "pan")
NO_SERVICE = ("identity", "last command", "constant")
LIVE = ("temperature", "input", "cell", "move", "relay")
# the bare calls behind a live request
BEHIND = {"temperature": ("temperature",), "input": ("input",), "cell": ("count", "input"), "move": ("pan",)}


def program(name, *arguments):
    """Runs one of the measuring programs and returns what it printed, as JSON."""
    command = [BUILD / "bin" / name, *map(str, arguments)]
    done = subprocess.run(["setpriv", "--pdeathsig", "KILL", *map(str, command)], capture_output=True, text=True,
                          timeout=120, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{name} {' '.join(map(str, arguments))[:200]}: {done.stderr.strip()}")
    return json.loads(done.stdout)


def load(port, messages, in_flight, seconds, *more, pids=()):
    """Also measures what the processes `pids` use for it."""
    before = processor_microseconds(pids)
    figures = program("bench-load", "requests", "--port", port, "--in-flight", in_flight, "--seconds", seconds, *more,
                      *(message.hex() for message in messages))
    if pids:
        figures["processor"] = (processor_microseconds(pids) - before) / figures["all"]
    return figures


class Series:
    """The rounds of one measurement. Answers that are errors are counted where they are allowed; else they end it."""

    def __init__(self, errors_allowed=False):
        self.rounds, self.histogram, self.lost, self.errors, self.generator = [], {}, 0, 0, []
        self._errors_allowed = errors_allowed

    def add(self, figures):
        histogram = {int(time): count for time, count in figures["histogram"]}
        if not histogram:
            raise RuntimeError("no answer at all")
        if figures["errors"] and not self._errors_allowed:
            raise RuntimeError(f"{figures['errors']} of {figures['requests']} answers are errors")
        self.rounds.append(rate_and_median(figures))
        for time, count in histogram.items():
            self.histogram[time] = self.histogram.get(time, 0) + count
        self.lost += figures["lost"]
        self.errors += figures["errors"]
        if "processor_seconds" in figures:
            self.generator.append(figures["processor_seconds"] / figures["seconds"])

    def json(self):
        """Rates a second, times in microseconds."""
        result = {"rounds": self.rounds, "samples": sum(self.histogram.values()), "lost": self.lost,
                  "errors": self.errors,
                  "percentiles": percentile_microseconds(self.histogram)}
        if self.generator:
            result["generator_share"] = statistics.median(self.generator)
        return result


def rate_and_median(figures):
    histogram = {int(time): count for time, count in figures["histogram"]}
    result = {"rate": figures["requests"] / figures["seconds"], "p50": percentiles(histogram, (50,))[0] / 1000}
    if "processor" in figures:
        result["processor"] = figures["processor"]
    return result


def percentiles(histogram, percents):
    total, results, seen = sum(histogram.values()), [], 0
    times = sorted(histogram)
    index = 0
    for percent in percents:
        while seen + histogram[times[index]] < total * percent / 100:
            seen += histogram[times[index]]
            index += 1
        results.append(times[index])
    return results


def percentile_microseconds(histogram):
    if not histogram:
        return {}
    times = percentiles(histogram, PERCENTILES)
    return {str(percent): time / 1000 for percent, time in zip(PERCENTILES, times)}


def walk_of(port, subtree, repetitions, seconds):
    return program("bench-load", "walk", "--port", port, "--repetitions", repetitions, "--seconds", seconds,
                   ber.oid_octets(subtree).hex())
