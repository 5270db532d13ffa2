"""Measures the module, its limits and its peers, all on this machine and in one go; writes the figures to a JSON file.

The contestants run side by side, and only the measured one has work. They take turns: every round measures each of them
once with every workload, in another order. So a machine that is slow for a while is slow for all of them. report.py
writes the page from the figures.
"""

import argparse
import contextlib
import json
import os
import pathlib
import platform
import random
import re
import signal
import statistics
import subprocess
import sys
import time

import experiments
from contestants import (ALARM_TABLE, BUILD, NO_LANES, PEER_CLASSES, RELAY_TABLE, SNMPD, SUBTREES, Desk, ManagerOf,
                         Unavailable, WithoutLanes, ber, free_udp_port, module_pids, sockets, walked, write_objects)
from loads import (BARE_CALLS, BEHIND, BUILT_IN, LIVE, LOADS, NO_SERVICE, WALKS, WORKLOADS, Series, load,
                   program, rate_and_median, walk_of)

def machine():
    model = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    system = pathlib.Path("/etc/os-release").read_text()
    return {
        "model": model.group(1) if model else platform.machine(),
        "cores": os.cpu_count(),
        "kernel": platform.release().partition("-")[0],
        "system": re.search(r'^PRETTY_NAME="(.*)"', system, re.M).group(1),
        "agent": subprocess.run([SNMPD, "-v"], capture_output=True, text=True).stdout.split("\n")[1].split()[-1],
        "load": os.getloadavg()[0],
    }


class Measurement:
    def __init__(self, options):
        self.options = options
        self.desk = Desk()
        self.desk.environment["TAVOS_BUS_LANES"] = "on"
        self.peers, self.absent = [], {}
        self.series = {}  # (contestant, workload, in flight)
        self.walks = {}  # (contestant, walk): {"objects", "requests", "rounds": seconds a walk}
        self.echoes, self.echo_ports = [], {}  # by what they do before they answer
        self.results = {}

    def close(self):
        for echo in self.echoes:
            echo.kill()
            echo.wait()
        for peer in self.peers:
            peer.close()
        self.desk.close()

    def say(self, text):
        print(f"{time.monotonic() - self.options.start:6.1f} s  {text}", flush=True)

    def start(self):
        self.desk.start()
        self.objects = self.desk.state / "objects"
        with ManagerOf(self.desk) as manager:
            self.rows = walked(manager)
        write_objects(self.objects, self.rows)
        for kind in (WithoutLanes, *PEER_CLASSES):
            if kind is WithoutLanes or kind.name in self.options.peers:
                self.start_peer(kind)
        self.start_echo("echo", "bench-load")
        for calls in BEHIND.values():
            self.start_echo(" ".join(("echo", *calls)), "bench-bus", *self.ways()["bare"], calls=calls)
            self.start_echo(" ".join(("pair echo", *calls)), "bench-bus", *self.ways()["pair"], calls=calls)

    def ways(self):
        """The options of bench-bus for the ways that its calls take."""
        return {"bare": ("--address", self.desk.environment["TAVOS_BUS_ADDRESS"]), "pair": ("--pair", 1)}

    def start_echo(self, what, name, *options, calls=()):
        self.echo_ports[what] = port = free_udp_port()
        command = [BUILD / "bin" / name, "echo", *options, "--port", port, *calls]
        echo = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *map(str, command)], stdout=subprocess.PIPE)
        self.echoes.append(echo)
        assert echo.stdout.readline() == b"ready\n", f"{name} echo does not start"

    def start_peer(self, kind):
        peer = None
        try:
            peer = kind(self.desk, self.objects)
            peer.start()
            with ManagerOf(peer) as manager:
                rows = walked(manager)
            if [row[:2] for row in rows] != [row[:2] for row in self.rows]:
                raise Unavailable(f"it serves other objects: {len(rows)} instead of {len(self.rows)}")
            self.peers.append(peer)
        except (Unavailable, AssertionError) as reason:
            self.absent[kind.name] = str(reason)
            self.say(f"without {kind.name}: {reason}")
            if peer:
                peer.close()

    def agents(self):
        return [("module", self.desk.port)] + [(peer.name, peer.port) for peer in self.peers]

    def modules(self, turn=0):
        """The ports of the module's agents with lanes and without; the other one first at every other turn."""
        ports = dict(self.agents())
        if NO_LANES not in ports:
            raise Unavailable(f"without lanes: {self.absent[NO_LANES]}")
        return {name: ports[name] for name in ("module", NO_LANES)[:: -1 if turn % 2 else 1]}

    def pids(self, contestant):
        if contestant in ("module", "built-in"):
            return module_pids(self.desk)
        for peer in self.peers:
            if peer.name == contestant:
                return peer.pids()
        return []

    def service_calls(self):
        """How many calls of services one request of each workload makes, by contestant."""
        return {name: {workload: self.calls_of(name, port, workload) for workload in WORKLOADS}
                for name, port in self.agents()}

    def calls_of(self, name, port, workload):
        """The median of a few tries: on a busy machine a call may time out, and the agent may then skip the next
        one."""
        counts = []
        for _ in range(3):
            with ManagerOf(self.desk) as manager:
                manager._socket.connect(("127.0.0.1", port))
                manager.exchange(WORKLOADS[workload][0])
                self.desk.clear_calls()
                answer = manager.exchange(WORKLOADS[workload][-1])
            if answer.error_status != 0:
                raise RuntimeError(f"{name} answers {workload} with error {answer.error_status}")
            counts.append(len(self.desk.calls()))
        return statistics.median(counts)

    def walk_calls(self):
        """How many calls of services a walk of everything makes, by contestant."""
        counts = {}
        for name, port in self.agents():
            for walk, repetitions in WALKS.items():
                self.desk.clear_calls()
                for subtree in SUBTREES:
                    walk_of(port, subtree, repetitions, 0)
                counts.setdefault(name, {})[walk] = len(self.desk.calls())
        return counts

    def sockets(self):
        """Shows who has lanes."""
        own = {"module": [self.desk.agent_pid()], **{peer.name: peer.own_pids() for peer in self.peers}}
        return {name: sockets(pids) for name, pids in own.items()}

    def jobs(self):
        """One round's measurements, as functions."""
        seconds = self.options.seconds
        jobs = []
        for in_flight in LOADS:
            jobs.append(lambda n=in_flight: self.requests("echo", "echo", n, self.echo_ports["echo"], BUILT_IN,
                                                          "--echo", 1))
            jobs.append(lambda n=in_flight: self.requests("built-in", "sysName", n, self.desk.port, BUILT_IN))
            for name, port in self.agents():
                for workload in self.options.workloads:
                    jobs.append(lambda c=name, p=port, w=workload, n=in_flight:
                                self.requests(c, w, n, p, WORKLOADS[w]))
        for what in BARE_CALLS:
            jobs.append(lambda w=what: self.add("bus", w, 1, self.bare_call("bare", w, seconds)))
        for name, port in self.agents():
            for walk in WALKS:
                jobs.append(lambda c=name, p=port, w=walk: self.walk(c, w, p))
        return jobs

    def close_ups(self):
        """Measures the module, with lanes and without, and its limits once more, alternately and often, so that their
        ratios hold on a machine whose speed changes. A list of {what: rate and median}, by the number in flight."""
        seconds, results, pids = self.options.seconds / 2, {}, module_pids(self.desk)
        for number in range(self.options.rounds * 2):
            for in_flight in LOADS:
                turn = {"sysName": load(self.desk.port, BUILT_IN, in_flight, seconds, pids=pids)}
                for workload in NO_SERVICE:
                    turn[workload] = load(self.desk.port, WORKLOADS[workload], in_flight, seconds, pids=pids)
                for workload in LIVE:
                    for name, port in self.modules(number).items():
                        turn[workload if name == "module" else f"{workload}, {name}"] = load(
                            port, WORKLOADS[workload], in_flight, seconds, pids=self.pids(name))
                if in_flight == 1:
                    turn.update((f"{way} {what}", self.bare_call(way, what, seconds))
                                for way in self.ways() for what in BARE_CALLS)
                    for what, port in self.echo_ports.items():
                        turn[what] = load(port, BUILT_IN, 1, seconds, "--echo", 1)
                results.setdefault(in_flight, []).append({what: rate_and_median(one) for what, one in turn.items()})
        return results

    def bare_call(self, way, what, seconds):
        return program("bench-bus", "call", *self.ways()[way], "--what", what, "--seconds", seconds)

    def requests(self, contestant, workload, in_flight, port, messages, *more):
        self.add(contestant, workload, in_flight,
                 load(port, messages, in_flight, self.options.seconds, *more, pids=self.pids(contestant)))

    def add(self, contestant, workload, in_flight, figures):
        peer = contestant not in ("module", NO_LANES, "built-in", "echo", "bus")
        self.series.setdefault((contestant, workload, in_flight), Series(errors_allowed=peer)).add(figures)

    def walk(self, contestant, walk, port):
        entry = self.walks.setdefault((contestant, walk), {"rounds": []})
        entry["objects"], entry["requests"], seconds = self.walks_of(port, WALKS[walk])
        entry["rounds"].append(seconds)

    def walks_of(self, port, repetitions):
        """Objects, requests and seconds of a walk of everything."""
        objects = requests = seconds = 0
        for subtree in SUBTREES:
            figures = walk_of(port, subtree, repetitions, self.options.seconds / 2)
            objects += figures["objects"]
            requests += figures["requests"]
            seconds += statistics.median(figures["walks"])
        return objects, requests, seconds

    def rounds(self):
        for number in range(self.options.rounds):
            jobs = self.jobs()
            random.Random(number).shuffle(jobs)
            for job in jobs:
                job()
            self.say(f"round {number + 1} of {self.options.rounds}: {len(jobs)} measurements")

    def table(self):
        """Seconds a walk of the alarm table, with few rows and with many, with lanes and without."""
        figures = {}
        for number in range(self.options.rounds):
            for rows in (100, 1000):
                half = rows // 2
                self.desk.domectl("banks", "alarm", f"BNK1={half}", f"BNK2={rows - half}")
                for walk, repetitions in WALKS.items():
                    for name, port in self.modules(number).items():
                        walk_of(port, ALARM_TABLE, repetitions, 0)  # the first walk rebuilds the table
                        done = walk_of(port, ALARM_TABLE, repetitions, self.options.seconds)
                        assert done["objects"] == 3 * rows, done
                        what = walk if name == "module" else f"{walk}, {name}"
                        figures.setdefault(what, {}).setdefault(str(rows), []).append(statistics.median(done["walks"]))
        self.desk.domectl("banks", "alarm", "BNK1=4", "BNK2=2")
        return figures

    def relays(self):
        """Seconds of SETs of one relay of 1,000, each of another one, with lanes and without. On a busy machine one may
        use up the time that a request has for its calls."""
        figures = {name: {"seconds": [], "errors": 0} for name in self.modules()}
        self.desk.domectl("banks", "relay", "BNK1=500", "BNK2=500")
        for name, port in self.modules().items():
            walk_of(port, RELAY_TABLE, 25, 0)  # rebuilds the table
        rows = iter(range(1, 1001))
        for number in range(self.options.sets):
            for name, port in self.modules(number).items():
                message = ber.encode(ber.SET, [(f"{RELAY_TABLE}.3.{next(rows)}", ber.INTEGER, b"\1")], "private")
                with contextlib.closing(ber.Manager(port)) as manager:
                    begun = time.perf_counter()
                    answer = manager.exchange(message)
                    figures[name]["seconds"].append(time.perf_counter() - begun)
                figures[name]["errors"] += answer.error_status != 0
        self.desk.domectl("banks", "relay", "BNK1=4", "BNK2=2")
        return figures

    def run(self):
        options = self.options
        self.results = {
            "date": experiments.today(),
            "machine": machine(),
            "kind": options.kind,
            "rounds": options.rounds,
            "seconds": options.seconds,
            "failed": {},
        }
        self.start()
        self.say(f"started: {', '.join(name for name, _ in self.agents())}")
        self.results["service_calls"] = self.service_calls()
        self.results["walk_calls"] = self.walk_calls()
        self.results["sockets"] = self.sockets()
        self.rounds()
        self.results["titles"] = {kind.name: kind.title for kind in PEER_CLASSES}  # of the peers
        self.results["absent"] = self.absent
        self.results["series"] = [
            {"contestant": c, "workload": w, "in_flight": n, **series.json()}
            for (c, w, n), series in sorted(self.series.items())]
        self.results["walks"] = [{"contestant": c, "walk": w, **entry} for (c, w), entry in sorted(self.walks.items())]
        if not options.parts:
            return
        for name in (*IN_THE_RUN, *SEPARATE):
            self.say(name.replace("_", " "))
            try:
                self.results[name] = IN_THE_RUN[name](self) if name in IN_THE_RUN else SEPARATE[name](options)
            except Exception as reason:  # keeps the figures of the other parts
                self.say(f"not measured: {reason}")
                self.results["failed"][name] = f"{type(reason).__name__}: {reason}"


# The parts that need the run's camera, and those that need nothing of it. Each can be repeated alone.
IN_THE_RUN = {"close_ups": Measurement.close_ups, "table": Measurement.table, "relays": Measurement.relays}
SEPARATE = {"traps": experiments.traps, "log_calls": experiments.log_calls,
            "start_and_memory": experiments.start_and_memory, "stock_agent": experiments.stock_agent,
            "instructions": experiments.instructions, "buses": experiments.buses}

KINDS = {
    "full": {"rounds": 9, "seconds": 0.15, "peers": [kind.name for kind in PEER_CLASSES], "parts": True,
             "workloads": list(WORKLOADS), "trap_rounds": 5, "events": 30000, "sets": 30},
    "quick": {"rounds": 1, "seconds": 0.1, "peers": [kind.name for kind in PEER_CLASSES], "parts": True,
              "workloads": list(WORKLOADS), "trap_rounds": 1, "events": 5000, "sets": 30},
    "smoke": {"rounds": 1, "seconds": 0.05, "peers": ["agentx"], "parts": False,
              "workloads": ["identity", "temperature", "move"], "trap_rounds": 0, "events": 0},
}


def as_text(results):
    """JSON with a line for each part and for each entry of a list, so that a diff is readable."""
    def part(value):
        if not isinstance(value, list):
            return json.dumps(value)
        return "[" + ",".join("\n  " + json.dumps(entry) for entry in value) + "\n ]"

    return "{\n" + ",\n".join(f" {json.dumps(name)}: {part(value)}" for name, value in results.items()) + "\n}\n"


def measured(options):
    measurement = Measurement(options)
    try:
        measurement.run()
    finally:
        measurement.close()
    return measurement.results


def repeated(options):
    """The figures of one part."""
    if options.part in SEPARATE:
        return SEPARATE[options.part](options)
    options.peers = []
    measurement = Measurement(options)
    try:
        measurement.start()
        return IN_THE_RUN[options.part](measurement)
    finally:
        measurement.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--kind", choices=KINDS, default="full")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--part", choices=[*IN_THE_RUN, *SEPARATE],
                        help="repeats this part alone; the other figures of --out stay")
    parser.add_argument("--out", required=True)
    options = parser.parse_args()
    rounds = options.rounds
    for name, value in KINDS[options.kind].items():
        if name != "rounds" or rounds is None:
            setattr(options, name, value)
    options.start, options.trap_rate = time.monotonic(), 10000
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended by a signal"))  # this also ends everything that was started
    out = pathlib.Path(options.out)
    if options.part:
        results = {**json.loads(out.read_text()), options.part: repeated(options)}
    else:
        results = measured(options)
    out.parent.mkdir(parents=True, exist_ok=True)
    out.write_text(as_text(results))
    print(f"{time.monotonic() - options.start:6.1f} s  written: {out}", flush=True)


if __name__ == "__main__":
    main()
