"""Listens for the camera's traps and judges each that arrives; commands can cause some."""

import shlex
import socket
import subprocess
import time

import ber
import promises
from orvex_conform.reads import shown, type_name

CHECK = "trap"
SNMP3 = 3
COMMAND_TIMEOUT = 30  # seconds
MAX_TRAPS = 10000  # that are judged; a camera can send more


class Listener:
    """Bound before the checks begin, so that nothing that they cause is missed. Only the camera's traps count."""

    def __init__(self, address, port, peer):
        """`address`: this machine's, on which the camera is reached. Raises OSError."""
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._socket = socket.socket(family, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self._socket.bind((address, port))
        self._peer = peer

    def close(self):
        self._socket.close()

    def receive(self, seconds):
        """The octets of the camera's next message, or None after that time."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0 or seconds == 0:
            self._socket.settimeout(max(left, 0.001))
            try:
                octets, peer = self._socket.recvfrom(65536)
            except socket.timeout:
                return None
            if peer[0] == self._peer:
                return octets
        return None


def check(run, listener):
    if listener is None:
        for name in promises.SENSORS:
            run.verdicts.skipped(name, CHECK, "not listened to: there is no --trap-port")
        return
    seen = 0
    for _ in range(MAX_TRAPS):
        octets = listener.receive(0)
        if octets is None:
            break
        seen += judge(run, octets) is not None
    for name in promises.SENSORS:
        line = run.options.trap_commands.get(name)
        if line is None:
            run.verdicts.skipped(name, CHECK, "not caused: there is no --trap-command for it")
        elif name not in run.unreadable:
            cause(run, listener, name, line)


def cause(run, listener, name, line):
    """Runs a command that changes a reading, and requires its trap."""
    try:
        subprocess.run(shlex.split(line), capture_output=True, text=True, timeout=COMMAND_TIMEOUT, check=True)
    except (OSError, ValueError, subprocess.SubprocessError) as error:
        run.verdicts.skipped(name, CHECK, f"--trap-command: {error}")
        return
    deadline, traps = time.monotonic() + run.options.trap_wait, []
    while (left := deadline - time.monotonic()) > 0 and name not in [one[0] for one in traps if one]:
        octets = listener.receive(left)
        if octets is not None:
            traps.append(judge(run, octets))
    mine = [one for one in traps if one and one[0] == name]
    if not run.verdicts.judge(name, CHECK, mine, f"no trap within {run.options.trap_wait:g} s of its change", line):
        return
    answer = run.link.get(run.reader, run.tree.oid(name))
    if answer.error == 0:
        now = answer.binding.value % 2**32
        run.verdicts.judge(name, CHECK, mine[-1][1] == now, f"the trap has {mine[-1][1]}, a GET answers {now}", line)


def version_of(octets):
    """The version in a message, or None."""
    try:
        ((_, message),) = ber.split(octets)
        return int.from_bytes(ber.split(message)[0][1], "big")
    except (ValueError, IndexError):
        return None


def judge(run, octets):
    """(object, value) of a trap as promised; None, with a finding, otherwise."""
    verdicts = run.verdicts
    if version_of(octets) == SNMP3:
        verdicts.note("traps of SNMPv3 arrived, and were not judged")
        return None
    try:
        trap = ber.Message(octets)
        names = [binding.oid for binding in trap.bindings]
        about = trap.bindings[1].value if names[:2] == [promises.UP_TIME, promises.TRAP_OID] else None
    except (ValueError, IndexError):
        verdicts.failed("traps", CHECK, f"a message that is no trap: {shown(octets)}")
        return None
    sensors = {run.tree.oid(name): name for name in promises.SENSORS}
    if trap.pdu != ber.TRAP2:
        verdicts.failed("traps", CHECK, f"a PDU of type {trap.pdu:#x}, not an SNMPv2 trap")
        return None
    if about not in sensors:
        standard = isinstance(about, str) and about.startswith(("1.3.6.1.6.3.1.1.5.", "1.3.6.1.4.1.8072.4.0."))
        if not standard:  # the agent's own: its start and its end
            verdicts.failed("traps", CHECK, f"a trap {about} that is not promised, of {names}")
        return None
    name = sensors[about]
    if not verdicts.judge(name, CHECK, names[2:] == [about], f"its trap is about {names[2:]}, not {[about]}"):
        return None
    binding = trap.bindings[2]
    if not verdicts.judge(name, CHECK, binding.tag == ber.GAUGE32,
                          f"its trap has {type_name(binding.tag)}, not Gauge32"):
        return None
    return name, int.from_bytes(binding.octets, "big")
