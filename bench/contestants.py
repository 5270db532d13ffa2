"""What bench/run compares: the module in its desk camera, and other agents that serve a copy of its objects with the
same calls of the same camera's services behind them."""

import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests" / "agent"), str(ROOT / "conform" / "oracle")]

import ber  # noqa: E402
from desk import BUILD, MODULE, SNMPD, ManagerOf, await_until, free_udp_port, preloaded  # noqa: E402
from desk import UntracedDesk as Desk  # noqa: E402
from expected_tree import CCTV, GLOBAL, OID, ORVEX  # noqa: E402

PEERS = pathlib.Path(__file__).resolve().parent / "peers"
NPM = ROOT / "build" / "bench" / "npm"
NO_LANES = "no lanes"
ALARM_TABLE, RELAY_TABLE = f"{ORVEX}.1.3.1.1", f"{ORVEX}.1.3.2.1"
SUBTREES = ["1.3.6.1.4.1.1206.4.2", ORVEX]

# object: (the calls behind it, how the last answer becomes the value); see peers/objects.h
LIVE = {
    "temperature": ("Temperature2 GetTemperatureDegreesCelsius i:0", "number"),
    "power": ("Power2 GetPowerStatus", "number"),
    "voltage": ("Voltage2 GetVoltageStatus", "number"),
    "positionFocusLens": ("Focus2 GetPosition", "keep"),
    "systemLensFeatureStatus": ("Iris1 GetAutoIris", "keep"),
    "alarmStatus": ("Alarm3 GetAlarmState s:BNK2 i:0", "bit:16"),
    "inputStatus": ("Alarm3 GetAlarmState s:BNK2 i:0", "bit:1"),
    "outputStatus": ("Relay3 GetRelayState s:BNK2 i:0", "bit:1"),
}
COMMANDS = {"positionPan": "position", "outputControl": "control"}
TYPES = {ber.INTEGER: "i", ber.GAUGE32: "g", ber.OCTET_STRING: "s"}


def without_modules(configuration):
    """The lines of a desk's snmpd.conf except the camera's objects and the trace."""
    return [line for line in configuration.splitlines() if not line.startswith(("dlmod orvexsnmp", "dlmod orvextrace"))]


class Unavailable(Exception):
    """The reason why a contestant cannot run here."""


def walked(manager):
    """Every (oid, tag, octets, value) that the agent serves below the subtrees."""
    rows = []
    for subtree in SUBTREES:
        oid = subtree
        while True:
            binding = manager.get_next(oid).bindings[0]
            oid = binding.oid
            if not oid.startswith(subtree + ".") or binding.tag == ber.END_OF_MIB_VIEW:
                break
            rows.append((oid, binding.tag, binding.octets, binding.value))
    return rows


def with_children(pids):
    """The processes and all their descendants."""
    found = []
    for pid in pids:
        found.append(pid)
        for children in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
            found += with_children([int(child) for child in children.read_text().split()])
    return found


def sockets(pids):
    """How many descriptors of the processes are sockets. Each lane is one."""
    links = (os.readlink(file) for pid in pids for file in pathlib.Path(f"/proc/{pid}/fd").iterdir())
    return sum(link.startswith("socket:") for link in links)


def processor_microseconds(pids):
    """The processor time that the processes have used so far, all of their threads together."""
    files = (file for pid in pids for file in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat"))
    return sum(int(file.read_text().split()[0]) for file in files) / 1000


def _behind_cell(oid, table, service, kind, values):
    """The calls of a table's cell: the table compares its number of rows with the service at every request."""
    column, row = oid[len(table) + 1 :].split(".")
    if column != "3":
        return f"{service} Get{kind}Count", "keep"
    bank, number = values[f"{table}.1.{row}"].decode(), values[f"{table}.2.{row}"]
    return f"{service} Get{kind}Count;{service} Get{kind}State s:{bank} i:{number}", "number"


def write_objects(path, rows):
    """The copy of the walked objects that the peers serve."""
    names = {oid: name for name, oid in OID.items()}
    values = {oid: value for oid, _, _, value in rows}
    with open(path, "w", encoding="ascii") as file:
        for oid, tag, octets, value in rows:
            name = names.get(oid, "")
            calls, result = LIVE.get(name, ("-", "keep"))
            if oid.startswith(ALARM_TABLE + "."):
                calls, result = _behind_cell(oid, ALARM_TABLE, "Alarm3", "Alarm", values)
            elif oid.startswith(RELAY_TABLE + "."):
                calls, result = _behind_cell(oid, RELAY_TABLE, "Relay3", "Relay", values)
            text = octets.hex() if tag == ber.OCTET_STRING else str(value)
            file.write("\t".join([oid, TYPES[tag], text, calls, result, COMMANDS.get(name, "-")]) + "\n")


def camera_pids(desk):
    return [desk.processes[name].pid for name in ("bus", "dome")]


def module_pids(desk):
    return [desk.processes["agent"].pid, *camera_pids(desk)]


class Peer:
    """An agent in a folder of its own, for the objects of a running desk camera."""

    name = title = ""
    needs = []  # programs and files
    parts = ["pass_persist"]  # of the stock agent, besides the desk's
    environment = {}
    identity = []  # options of setpriv

    def __init__(self, desk, objects):
        for needed in self.needs:
            if not (shutil.which(str(needed)) or pathlib.Path(needed).exists()):
                raise Unavailable(f"{pathlib.Path(needed).name} is not installed")
        self.desk, self.objects = desk, objects
        self.port = free_udp_port()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvex-bench-"))
        self.processes = []

    def start(self):
        self.launch()
        with ManagerOf(self, timeout=0.3) as manager:
            await_until(lambda: self._answers(manager), f"{self.name} answers", 20)

    def _answers(self, manager):
        for process in self.processes:
            if process.poll() is not None:
                raise Unavailable(f"{self.name} ended: {self._log()}")
        try:
            answer = manager.get(OID["modelName"])
            return answer.error_status == 0 and answer.bindings[0].tag == ber.OCTET_STRING
        except (socket.timeout, ConnectionRefusedError):
            return False

    def _log(self):
        return (self.folder / "log").read_text(errors="replace").strip().replace("\n", "; ")[-300:]

    def run(self, command):
        environment = dict(self.desk.environment, SNMP_PERSISTENT_DIR=str(self.folder),
                           NODE_PATH=str(NPM / "node_modules"), **self.environment)
        with open(self.folder / "log", "ab") as log:
            self.processes.append(subprocess.Popen(
                ["setpriv", *self.identity, "--pdeathsig", "KILL", *map(str, command)], stdin=subprocess.DEVNULL,
                stdout=log, stderr=log, cwd=self.folder, env=environment, start_new_session=True))

    def run_snmpd(self, *lines):
        """A stock agent with the desk camera's configuration and parts, with these lines instead of the module's."""
        text = (self.desk.state / "snmpd.conf").read_text().replace(str(self.desk.port), str(self.port))
        kept = [line for line in without_modules(text) if not line.startswith("trap2sink")]
        configuration = self.folder / "snmpd.conf"
        configuration.write_text("\n".join([*kept, *lines]) + "\n")
        parts = ",".join([*self.desk.parts, *self.parts])
        self.run([SNMPD, "-f", "-C", "-c", configuration, "-I", parts, "-A", "-Lf", self.folder / "agent.log"])

    def pids(self):
        """The processes that work for a request, including the camera's services."""
        return self.own_pids() + camera_pids(self.desk)

    def own_pids(self):
        return with_children([process.pid for process in self.processes])

    def launch(self):
        raise NotImplementedError

    def close(self):
        for process in reversed(self.processes):
            process.terminate()
        for process in self.processes:
            try:
                process.wait(3)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


class WithoutLanes(Peer):
    """The module itself in a second agent of the same camera; its calls take the bus. Both send the camera's traps."""

    name, title = NO_LANES, "this module without lanes"
    parts = []

    def launch(self):
        self.environment = {"TAVOS_BUS_LANES": "off", "LD_PRELOAD": preloaded()}
        self.run_snmpd(f"dlmod orvexsnmp {MODULE}", f"trap2sink 127.0.0.1:{self.desk.trap_port} public")


class Agentx(Peer):
    name, title = "agentx", "AgentX program in C"

    def launch(self):
        path = self.folder / "agentx.sock"
        self.run_snmpd("master agentx", f"agentXSocket unix:{path}")
        await_until(path.exists, "the agent's AgentX socket")
        self.run([BUILD / "bin" / "bench-agentx", f"unix:{path}", self.objects])


class PassPersist(Peer):
    name, title = "pass-c", "pass_persist in C"

    def program(self):
        return f"{BUILD}/bin/bench-pass-persist"

    def launch(self):
        self.run_snmpd(*(f"pass_persist .{subtree} {self.program()} {self.objects}" for subtree in SUBTREES))


class PassPersistPerl(PassPersist):
    name, title = "pass-perl", "pass_persist in Perl"
    needs = ["perl"]

    def __init__(self, desk, objects):
        if subprocess.run(["perl", "-MNet::DBus", "-e", "1"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
            raise Unavailable("Perl's Net::DBus is not installed")
        super().__init__(desk, objects)

    def program(self):
        return f"/usr/bin/perl {PEERS}/pass_persist.pl"


class Snmpsim(Peer):
    name, title = "snmpsim", "snmpsim"
    needs = ["snmpsimd"]
    # It must not run as root. If it changed its user itself, it would outlive a killed run.
    identity = ["--reuid=nobody", "--regid=nogroup", "--clear-groups"] if os.geteuid() == 0 else []

    def launch(self):
        data, cache = self.folder / "data", self.folder / "cache"
        data.mkdir()
        cache.mkdir()
        lines = []
        for line in self.objects.read_text().splitlines():
            oid, kind, value, _, _, command = line.split("\t")
            tag = {"i": "2", "g": "66", "s": "4x"}[kind]
            if command != "-":
                lines.append(f"{oid}|4:writecache|hexvalue={value}")
            else:
                lines.append(f"{oid}|{tag}|{value}")
        for community in ("public", "private"):
            (data / f"{community}.snmprec").write_text("\n".join(lines) + "\n")
        for path in (self.folder, data, cache):
            path.chmod(0o777)
        self.run(["snmpsimd", f"--data-dir={data}", f"--cache-dir={cache}",
                  f"--agent-udpv4-endpoint=127.0.0.1:{self.port}", "--logging-method=null"])


class NpmAgent(Peer):
    name, title = "npm", "npm package net-snmp"
    needs = ["node", NPM / "node_modules" / "net-snmp", NPM / "node_modules" / "dbus-next"]

    def launch(self):
        self.run(["node", PEERS / "agent.js", self.port, self.objects])


PEER_CLASSES = [Agentx, PassPersist, PassPersistPerl, Snmpsim, NpmAgent]
