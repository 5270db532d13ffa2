"""How the processes of a desk camera in a state folder are started. The project's own tests start theirs so, too."""

from __future__ import annotations

import os
import pathlib
import random
import socket
from typing import Dict, List

CERTIFICATES = "cert_indexes"  # a folder; otherwise a tool of an older net-snmp creates it and prints a message


def free_port(kind: int = socket.SOCK_DGRAM) -> int:
    """A free port, below the range from which the kernel gives ports to clients."""
    while True:
        port = random.randint(20000, 32000)
        with socket.socket(socket.AF_INET, kind) as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue


def environment(state: pathlib.Path, commands: pathlib.Path) -> Dict[str, str]:
    """Of all processes. `commands`: the folder of the camera's programs."""
    return dict(os.environ, TAVOS_BUS_ADDRESS=f"unix:path={state}/bus.sock", TAVOS_SETTINGS_STORE=f"{state}/settings.db",
                ORVEX_TRACE_SOCKET=f"{state}/trace.sock", PATH=f"{commands}:{os.environ.get('PATH', '/usr/bin:/bin')}",
                MIBS="", SNMP_PERSISTENT_DIR=f"{state}/snmp")


def bus(state: pathlib.Path) -> List[str]:
    """The bus's command; its first line of output is its address, when it is ready."""
    return ["dbus-daemon", f"--config-file={state}/bus.conf", "--nofork", "--nopidfile", "--print-address"]


def dome(state: pathlib.Path, commands: pathlib.Path) -> List[str]:
    """The dome's command, without options; it prints "ready"."""
    return [str(commands / "orvex-dome"), "--state", str(state)]


def agent(state: pathlib.Path, program: str, parts: str) -> List[str]:
    """The agent's command. `parts`: those of the stock agent, as its option -I takes them."""
    return [program, "-f", "-C", "-c", f"{state}/snmpd.conf", "-I", parts, "-A", "-Lf", f"{state}/agent.log"]


def ending_with_its_parent(command: List[str]) -> List[str]:
    """The command of a process that is killed when the thread ends that started it."""
    return ["setpriv", "--pdeathsig", "KILL", *command]
