"""The measurements with a separate agent: the cost of loading the module, its instructions a request, traps, other
kinds of bus, and the log calls."""

import contextlib
import datetime
import json
import os
import pathlib
import random
import re
import subprocess
import time

from contestants import (BUILD, OID, ROOT, Desk, ManagerOf, await_until, ber, processor_microseconds, walked,
                         without_modules)
from loads import BUILT_IN, LOADS, WORKLOADS, Series, load, percentile_microseconds, program, rate_and_median

from desk import CAMERA_PARTS
from resting import wakes

BROKER = ROOT / "build" / "bench" / "dbus-broker" / "usr" / "bin" / "dbus-broker"


def today():
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")


def log_calls(options):
    """Nanoseconds of processor time a call; medians over repetitions."""
    repetitions = 5 if options.kind == "full" else 3
    command = [BUILD / "bin" / "bench-logger", "--benchmark_format=json", "--benchmark_min_time=0.1",
               f"--benchmark_repetitions={repetitions}"]
    done = subprocess.run(command, capture_output=True, text=True, check=True, timeout=120)
    times = {}
    for entry in json.loads(done.stdout)["benchmarks"]:
        if entry["run_type"] == "iteration":
            times.setdefault(entry["run_name"], []).append(entry["cpu_time"])
    return times


@contextlib.contextmanager
def _closing(desk):
    try:
        yield desk
    finally:
        desk.close()


class _PlainDesk(Desk):
    """The same agent without the module."""

    def agent_command(self):
        configuration = self.state / "snmpd.conf"
        configuration.write_text("\n".join(without_modules(configuration.read_text())) + "\n")
        return super().agent_command()


def _resident_megabytes(pid):
    text = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^VmRSS:\s+(\d+)", text, re.M).group(1)) / 1024


def _started(desk, oid):
    """Seconds from the start of the agent's process to its first answer, and its resident megabytes after two walks."""
    desk.start_bus()
    desk.start_dome()
    begun = time.perf_counter()
    desk.launch_agent()
    with ManagerOf(desk, timeout=0.001) as manager:

        def answered():
            with contextlib.suppress(OSError):
                return manager.get(oid).bindings[0].tag == ber.OCTET_STRING
            return False

        while not answered():
            assert time.perf_counter() - begun < 15 and desk.alive("agent"), "the agent does not answer"
        seconds = time.perf_counter() - begun
    with ManagerOf(desk) as manager:
        for _ in range(2):
            walked(manager)
    return seconds, _resident_megabytes(desk.processes["agent"].pid)


def start_and_memory(options):
    result = {}
    for _ in range(options.rounds):
        for name, kind, oid in (("with", Desk, OID["modelName"]), ("without", _PlainDesk, "1.3.6.1.2.1.1.5.0")):
            with _closing(kind()) as desk:
                seconds, megabytes = _started(desk, oid)
            figures = result.setdefault(name, {"start": [], "resident": []})
            figures["start"].append(seconds)
            figures["resident"].append(megabytes)
    return result


class _StockDesk(Desk):
    """A desk whose agent keeps TCP wrappers or all stock parts, as a camera's agent does by default."""

    def __init__(self, wrappers, all_parts):
        super().__init__()
        if wrappers:
            configuration = self.state / "snmpd.conf"
            configuration.write_text(configuration.read_text().replace("dlmod orvexnowrap", "#dlmod orvexnowrap"))
        if all_parts:
            self.parts = CAMERA_PARTS[1].split(",")


STOCK_AGENTS = {"all": (True, True), "no wrappers": (False, True), "few parts": (True, False), "both": (False, False)}
REST = 15  # seconds; the parts that watch the interfaces look every 15 s


def _memory(pid):
    """Megabytes: pages that several processes share are divided among them."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(r"^Pss:\s+(\d+)", text, re.M).group(1)) / 1024


def stock_agent(options):
    """What the stock agent does besides: sysName with and without TCP wrappers and the parts that no camera needs, and
    how often each agent wakes up at rest."""
    agents = {name: {"rounds": {str(n): [] for n in LOADS}} for name in STOCK_AGENTS}
    with contextlib.ExitStack() as stack:
        desks = {name: stack.enter_context(_closing(_StockDesk(*chosen))) for name, chosen in STOCK_AGENTS.items()}
        for desk in desks.values():
            desk.start()
        for number in range(options.rounds):
            for name in random.Random(number).sample(list(desks), len(desks)):
                for n in LOADS:
                    pids = [desks[name].agent_pid()]
                    figures = rate_and_median(load(desks[name].port, BUILT_IN, n, options.seconds, pids=pids))
                    agents[name]["rounds"][str(n)].append(figures)
        before = {name: wakes(desk.agent_pid()) for name, desk in desks.items()}
        start = time.monotonic()
        time.sleep(REST)
        seconds = time.monotonic() - start
        for name, desk in desks.items():
            agents[name]["wakes"] = (wakes(desk.agent_pid()) - before[name]) / seconds
            agents[name]["memory"] = _memory(desk.agent_pid())
    return {"load": os.getloadavg()[0], "date": today(), "seconds": options.seconds, "agents": agents}


class _CountingDesk(Desk):
    def agent_command(self):
        return ["valgrind", "--tool=callgrind", f"--callgrind-out-file={self.state}/callgrind",
                *super().agent_command()]

    def count(self, messages, requests):
        """Instructions of the agent a request."""
        pid = self.processes["agent"].pid
        with ManagerOf(self, timeout=20) as manager:
            for message in messages * 20:
                manager.exchange(message)
            self._control("-z", pid)
            for i in range(requests):
                manager.exchange(messages[i % len(messages)])
            self._control("-d", pid)
        dumps = sorted(self.state.glob("callgrind.*"), key=lambda path: int(path.suffix[1:]))
        total = re.search(r"^(?:summary|totals): (\d+)", dumps[-1].read_text(), re.M)
        return int(total.group(1)) / requests

    @staticmethod
    def _control(option, pid):
        subprocess.run(["callgrind_control", option, str(pid)], check=True, capture_output=True, timeout=60)


def instructions(options):
    """The agent's instructions a request, by workload; unlike a time they hardly depend on the machine."""
    requests = 200 if options.kind == "full" else 50
    with _closing(_CountingDesk()) as desk:
        desk.start_bus()
        desk.start_dome()
        desk.launch_agent()
        with ManagerOf(desk, timeout=1) as manager:

            def answers():
                with contextlib.suppress(OSError):
                    return bool(manager.get(OID["modelName"]).bindings)
                return False

            await_until(answers, "the agent answers under valgrind", 60)
        counted = {"sysName": desk.count(BUILT_IN, requests)}
        for workload, messages in WORKLOADS.items():
            counted[workload] = desk.count(messages, requests)
    return counted


class _LoggedDesk(Desk):
    """An agent that logs the notifications that it sends, as one with all parts does by default."""

    def __init__(self):
        super().__init__()
        self.parts.append("notification_log")


def traps(options):
    """Events emitted by a program that replaces the camera's thermometer."""
    results = {"rate": options.trap_rate}
    for kind, desk_class, rate in (("paced", Desk, options.trap_rate), ("burst", Desk, 0),
                                   ("logged", _LoggedDesk, 0)):
        with _closing(desk_class()) as desk:
            desk.start()
            desk.domectl("fault", "temperature", "gone")
            results[kind] = [_trap_round(desk, options.events, rate) for _ in range(options.trap_rounds)]
    return results


def _trap_round(desk, events, rate):
    pids = [desk.processes["agent"].pid]
    before = processor_microseconds(pids)
    figures = program("bench-traps", "--address", desk.environment["TAVOS_BUS_ADDRESS"], "--port", desk.trap_port,
                      "--count", events, "--rate", rate)
    figures["processor"] = (processor_microseconds(pids) - before) / events
    histogram = {int(time_): count for time_, count in figures.pop("histogram")}
    figures["percentiles"] = percentile_microseconds(histogram)
    return figures


class _BusDesk(Desk):
    """An agent with the module and services that do almost nothing, over one of several transports."""

    def __init__(self, kind):
        super().__init__()
        self.kind = kind

    def start(self):
        bench, socket = BUILD / "bin" / "bench-bus", f"{self.state}/bus.sock"
        if self.kind == "dbus-daemon":
            self.start_bus()
        elif self.kind == "dbus-broker":
            self._launch("bus", [bench, "broker", BROKER, socket])
            self._await("bus", lambda: "ready" in self.output("bus"))
        if self.kind == "none":
            self._launch("dome", [bench, "serve-peers", socket])
        else:
            self._launch("dome", [bench, "serve", "--address", f"unix:path={socket}"])
        self._await("dome", lambda: "ready" in self.output("dome"))
        self.start_agent()


def buses(options):
    """The same calls of the same little service over dbus-daemon, over dbus-broker, and without a bus; the agent asks
    through the module's usual client."""
    kinds = ["dbus-daemon", *(["dbus-broker"] if BROKER.exists() else []), "none"]
    series = {}
    with contextlib.ExitStack() as stack:
        desks = {}
        for kind in kinds:
            desks[kind] = stack.enter_context(_closing(_BusDesk(kind)))
            desks[kind].start()
        for _ in range(options.rounds):
            for kind, desk in desks.items():
                address = desk.environment["TAVOS_BUS_ADDRESS"]
                for what, reuse in (("round trip", 0), ("message reused", 1)):
                    figures = program("bench-bus", "call", "--address", address, "--reuse", reuse, "--seconds",
                                      options.seconds)
                    series.setdefault((kind, what), Series()).add(figures)
                for what in ("temperature", "cell", "move"):
                    series.setdefault((kind, what), Series()).add(load(desk.port, WORKLOADS[what], 1, options.seconds))
                series.setdefault((kind, "sysName"), Series()).add(load(desk.port, BUILT_IN, 1, options.seconds))
    return [{"bus": kind, "what": what, **one.json()} for (kind, what), one in series.items()]
