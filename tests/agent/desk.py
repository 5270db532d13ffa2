"""A desk camera for one test: its bus, dome and agent in a temporary folder, on free ports."""

import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import ber

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "clients" / "python"))

from orvex_camera import processes  # noqa: E402

BUILD = pathlib.Path(os.environ.get("ORVEX_BUILD", ROOT / "build" / "desk")).resolve()
MODULE = BUILD / "lib" / "orvexsnmp.so"
SYS_UP_TIME = "1.3.6.1.2.1.1.3.0"
SNMPD = os.environ.get("ORVEX_SNMPD", "/usr/sbin/snmpd")  # tests/compat/agents names others
LDD = shlex.split(os.environ.get("ORVEX_LDD", "ldd"))  # of the agent's processor: tests/compat/processors names others
# Stretches every deadline, also the agent's for the camera's services: an emulated processor is slow.
SLOWNESS = int(os.environ.get("ORVEX_SLOWNESS", "1"))
# As ./run and the desk cameras' unit start it: only the stock parts that a camera needs.
PARTS = [line for line in (ROOT / "scripts" / "agent-parts").read_text().splitlines() if not line.startswith("#")]
AGENT_PARTS = ["-I", ",".join(PARTS)]
# As a camera's unit starts it, with nearly all parts. Without SMUX the agent listens on no TCP port.
CAMERA_PARTS = ["-I", "-smux,mteTrigger,mteTriggerConf"]


def snmpd_version():
    """As a tuple of numbers: (5, 9, 3)."""
    said = subprocess.run([SNMPD, "-v"], capture_output=True, text=True, check=True).stdout
    return tuple(int(number) for number in re.search(r"version: +([\d.]+\d)", said)[1].split("."))


AGENT = snmpd_version()
# Agents before 5.9 differ (tried: 5.4.2 and 5.7.3): a NULL in a SET reaches the handlers.
AGENT_REFUSES_NULL = AGENT >= (5, 9)


def await_until(condition, what, seconds=15.0):
    """Polls until `condition()` is true and returns its value; fails after `seconds`."""
    deadline = time.monotonic() + seconds * SLOWNESS
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < deadline, f"not within {seconds} s: {what}"
        time.sleep(0.02)


def free_udp_port():
    return processes.free_port(socket.SOCK_DGRAM)


def free_tcp_port():
    return processes.free_port(socket.SOCK_STREAM)


def sanitizer_runtime():
    """The LD_PRELOAD for a stock program that loads a module built with sanitizers; nothing for other builds."""
    needed = subprocess.run([*LDD, MODULE], capture_output=True, text=True, check=True).stdout
    paths = {word.split(".")[0]: path for word, path in re.findall(r"(\S+) => (\S+)", needed)}
    runtime = paths.get("libclang_rt") or paths.get("libasan")
    # The runtime looks for the C++ library's throw when the program starts, and a C program does not load that library.
    return f"{runtime} {paths['libstdc++']}" if runtime else ""


def has_wrappers():
    """True for an agent that reads TCP wrappers' lists of hosts."""
    return "libwrap" in subprocess.run([*LDD, SNMPD], capture_output=True, text=True, check=True).stdout


# For a build with sanitizers. The agent keeps some memory until its end and never frees it.
SANITIZERS = {"ASAN_OPTIONS": "detect_leaks=0:abort_on_error=1:log_path=stderr",
              "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1"}


def preloaded(*libraries):
    """The LD_PRELOAD for these libraries; the sanitizers' runtime must be the first."""
    return " ".join([*sanitizer_runtime().split(), *map(str, libraries)])


class Desk:
    """Not started yet: change settings, versions and configurations before start(). A `with` closes it."""

    traced = True

    def __init__(self):
        self.state = pathlib.Path(tempfile.mkdtemp(prefix="orvex-"))
        self.port, self.trap_port = free_udp_port(), free_udp_port()
        command = [ROOT / "scripts" / "prepare-state", BUILD, self.state, str(self.port), str(self.trap_port)]
        subprocess.run(command, check=True)
        if not self.traced:
            self.leave_out("orvextrace")
        (self.state / "snmp" / processes.CERTIFICATES).mkdir()
        self.environment = {**processes.environment(self.state, BUILD / "bin"), **SANITIZERS}
        if SLOWNESS > 1:
            self.environment.update(TAVOS_CALL_TIMEOUT_MS=str(500 * SLOWNESS),
                                    TAVOS_REQUEST_TIMEOUT_MS=str(1000 * SLOWNESS))
        self.parts = list(PARTS)  # of the stock agent
        self.dome_options = []
        self.processes = {}  # in the order of their start

    def leave_out(self, module):
        """The agent does not load this module at its next start or reload."""
        configuration = self.state / "snmpd.conf"
        lines = configuration.read_text().splitlines(True)
        configuration.write_text("".join(line for line in lines if not line.startswith(f"dlmod {module} ")))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def start(self):
        self.start_bus()
        self.start_dome()
        self.start_agent()

    def start_bus(self):
        self._launch("bus", processes.bus(self.state))
        self._await("bus", lambda: self.output("bus"))

    def start_dome(self):
        self.launch_dome()
        self._await("dome", lambda: "ready" in self.output("dome").splitlines())

    def launch_dome(self):
        """Starts the dome without waiting for it."""
        self._launch("dome", self.dome_command())

    def dome_command(self):
        return [*processes.dome(self.state, BUILD / "bin"), *self.dome_options]

    def start_agent(self):
        self.launch_agent()
        with ManagerOf(self, timeout=0.2) as manager:
            self._await("agent", lambda: answers(manager))

    def launch_agent(self):
        """Starts the agent without waiting for its first answer."""
        environment = dict(self.environment)
        environment["LD_PRELOAD"] = preloaded(*environment.get("LD_PRELOAD", "").split())
        self._launch("agent", self.agent_command(), environment)

    def agent_command(self):
        return processes.agent(self.state, SNMPD, ",".join(self.parts))

    def output(self, name):
        """The process's standard output; the module logs to the agent's."""
        return (self.state / f"{name}.out").read_text(errors="replace")

    def log(self, name):
        """The process's standard error and, for the agent, its log file."""
        return (self.state / f"{name}.log").read_text(errors="replace")

    def alive(self, name):
        return self.processes[name].poll() is None

    def agent_pid(self):
        return self.processes["agent"].pid

    def try_domectl(self, *words):
        command = [BUILD / "bin" / "domectl", "--state", self.state, *map(str, words)]
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=20 * SLOWNESS)

    def domectl(self, *words):
        done = self.try_domectl(*words)
        assert done.returncode == 0, f"domectl {words}: {done.stderr}"
        return done.stdout

    def settings(self, *words, text=None):
        """Runs tavos-settings on the desk's store; returns its output."""
        command = [BUILD / "bin" / "tavos-settings", *map(str, words)]
        return subprocess.run(command, env=self.environment, input=text, stdout=subprocess.PIPE, text=True,
                              timeout=20 * SLOWNESS, check=True).stdout

    def dome_state(self):
        return json.loads(self.domectl("state"))

    def calls(self):
        """The calls that the dome's services have received since the log was cleared."""
        return [json.loads(line) for line in self.domectl("calls").splitlines()]

    def history(self, since=0):
        """The camera's history after that change: its entries, and the change to read on from."""
        entries = []
        while True:
            head, *lines = map(json.loads, self.domectl("history", "--since", since).splitlines())
            entries += lines
            since = head["change"]
            if not head["more"]:
                return entries, since

    def clear_calls(self):
        self.domectl("calls", "--clear")

    def end(self, name):
        """Ends one process by SIGTERM and returns its exit status."""
        process = self.processes.pop(name)
        if process.poll() is None:
            process.terminate()
        try:
            return process.wait(10 * SLOWNESS)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            raise AssertionError(f"the {name} does not end by itself")

    def close(self):
        """Ends the processes, the last started first, and removes the folder. Fails if one ended with an error."""
        faults = []
        for name in reversed(list(self.processes)):
            try:
                status = self.end(name)
                if status not in (0, -signal.SIGTERM):
                    faults.append(f"the {name} ended with status {status}")
            except AssertionError as fault:
                faults.append(str(fault))
        for file in sorted(self.state.glob("*.log")) + sorted(self.state.glob("*.out")):
            text = file.read_text(errors="replace")
            if "Sanitizer" in text or "runtime error:" in text:
                faults.append(f"{file.name}:\n{text}")
        shutil.rmtree(self.state)
        assert not faults, "\n".join(faults)

    def _launch(self, name, command, environment=None):
        with open(self.state / f"{name}.out", "wb"), open(self.state / f"{name}.log", "wb"):
            pass  # ignore what an earlier process wrote
        with open(self.state / f"{name}.out", "ab") as out, open(self.state / f"{name}.log", "ab") as log:
            self.processes[name] = subprocess.Popen(
                processes.ending_with_its_parent(list(map(str, command))),
                stdin=subprocess.DEVNULL, stdout=out, stderr=log, cwd=self.state,
                env=environment or self.environment, start_new_session=True)

    def _await(self, name, condition):
        def ready():
            assert self.alive(name), f"the {name} ended:\n{self.output(name)}\n{self.log(name)}"
            return condition()

        await_until(ready, f"the {name} is ready")


class UntracedDesk(Desk):
    """For measurements of the module alone."""

    traced = False


def answers(manager):
    try:
        return manager.get(SYS_UP_TIME).error_status == ber.NO_ERROR
    except (socket.timeout, ConnectionRefusedError):
        return False


class ManagerOf(ber.Manager):
    """A manager of a desk's agent, for a `with`."""

    def __init__(self, desk, timeout=5.0):
        super().__init__(desk.port, timeout * SLOWNESS)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
