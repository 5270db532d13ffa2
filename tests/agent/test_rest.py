"""A desk camera at rest: nothing wakes up."""

import pathlib
import socket

import pytest

import ber
from desk import SNMPD, SYS_UP_TIME, Desk, ManagerOf, await_until, free_tcp_port, has_wrappers
from resting import check_rest
from test_sockets import reload


def test_a_desk_camera_at_rest_does_not_wake_up():
    with Desk() as desk:
        desk.dome_options = ["--console-port", free_tcp_port(), "--agent-port", desk.port]
        desk.start()
        pids = {name: process.pid for name, process in desk.processes.items()}
        # After work, and after a change of the settings, which the camera must still see.
        desk.domectl("set", "temperature", 30)
        desk.settings("set", "[Imaging/Focus]Mode", "Manual")
        await_until(lambda: desk.dome_state()["focus"]["auto"] is False, "the camera has seen the setting")
        check_rest(pids)


class RefusingDesk(Desk):
    """A desk whose agent sees another file in place of one of the machine's, in a mount namespace of its own."""

    def __init__(self, name, text):
        super().__init__()
        self._name = name
        self._file = self.state / "refuses"
        self._file.write_text(text)

    def _launch(self, name, command, environment=None):
        if name == "agent":
            mount = f'mount --bind "{self._file}" "{self._name}" && exec "$@"'
            command = ["unshare", "--mount", "--", "sh", "-c", mount, "sh", *command]
        super()._launch(name, command, environment)

    def start_agent(self):
        self.launch_agent()
        self._await("agent", lambda: "NET-SNMP version" in self.log("agent"))


TABLES = [("/etc/hosts.allow", "ALL: ALL: deny\n"), ("/etc/hosts.deny", "ALL: ALL\n")]


@pytest.fixture(params=TABLES, ids=["hosts.allow", "hosts.deny"])
def refusing_desk(request):
    name, text = request.param
    if not has_wrappers():
        pytest.skip(f"{SNMPD} has no TCP wrappers")
    if not pathlib.Path(name).exists():
        pytest.skip(f"this machine has no {name} to replace")
    with RefusingDesk(name, text) as desk:
        yield desk


def answers(desk):
    """True for an answer to one of three requests; a refusing agent stays silent."""
    with ManagerOf(desk, timeout=1) as manager:
        for _ in range(3):
            try:
                return manager.get(SYS_UP_TIME).error_status == ber.NO_ERROR
            except socket.timeout:
                continue
    return False


def test_the_desks_agent_reads_neither_table_of_tcp_wrappers(refusing_desk):
    desk = refusing_desk
    desk.start()
    assert answers(desk), desk.log("agent")
    reload(desk.agent_pid(), lambda: desk.log("agent"))
    assert answers(desk), desk.log("agent")
    assert "REFUSED" not in desk.log("agent")


def test_an_agent_without_the_module_reads_both(refusing_desk):
    desk = refusing_desk
    desk.leave_out("orvexnowrap")
    desk.start()
    assert not answers(desk)
    assert "REFUSED" in desk.log("agent")


def test_a_reload_without_the_module_restores_tcp_wrappers(refusing_desk):
    desk = refusing_desk
    desk.start()
    assert answers(desk)
    desk.leave_out("orvexnowrap")
    reload(desk.agent_pid(), lambda: desk.log("agent"))
    assert not answers(desk)
    assert desk.alive("agent")
    assert "REFUSED" in desk.log("agent")
