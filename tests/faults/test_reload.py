"""SIGHUP over and over under load, and an agent that makes itself a daemon."""

import os
import signal

import pytest

import ber
from desk import SNMPD, Desk, ManagerOf, await_until
from expected_tree import OID
from watching import SANITIZED, Asking, footprint, settled, times
from test_services import rows_without, tree
from traps import Sink


def reload(desk):
    """Returns when the agent has read its configuration again."""
    read = lambda: desk.log("agent").count("Reconfiguring daemon")  # noqa: E731
    before = read()
    with ManagerOf(desk, timeout=10) as manager:
        os.kill(desk.agent_pid(), signal.SIGHUP)
        # The stock agent sees a signal that comes while it is busy only when the next request or timer wakes it.
        await_until(lambda: manager.get(OID["modelName"]) and read() > before, "the agent reads its configuration")
        manager.get(OID["modelName"])


@pytest.mark.slow
@pytest.mark.parametrize("sinks", [0, 1])
def test_reloads_under_load(desk, figure, sinks):
    """The stock agent itself keeps one socket a trap sink and reload: none without a sink, and one a reload with it."""
    reloads = 100
    configuration = desk.state / "snmpd.conf"
    if not sinks:
        text = configuration.read_text()
        assert "trap2sink" in text
        configuration.write_text("".join(line for line in text.splitlines(True) if "trap2sink" not in line))
    desk.start()
    reload(desk)
    first = before = settled(desk)
    with Asking(desk, OID["temperature"]) as called, Asking(desk, OID["modelName"]) as model:
        for number in range(reloads):
            reload(desk)
            if number == reloads // 10:
                first = footprint(desk.agent_pid())  # what the first few cost is not what each one costs
    after = footprint(desk.agent_pid())
    for asking in (called, model):
        assert asking.statuses == {ber.NO_ERROR}
    each = (after.resident - first.resident) / (reloads - reloads // 10)
    figure(f"{reloads} reloads, {sinks} sinks; {len(called.answers) + len(model.answers)} requests meanwhile, none lost, "
           f"at most {max(called.taken() + model.taken()) * 1e3:.0f} ms; agent before {before}, after {after}; "
           f"{each:.1f} kB a reload")
    # The stock agent without the module grows by about 3 kB each time, and by 12 kB more for each trap sink.
    assert SANITIZED or each < (24 if sinks else 8)
    assert desk.alive("agent")
    assert after.threads == before.threads == 2
    expected = sorted([*before.descriptors, *["socket"] * (sinks * reloads)])
    assert sorted(after.descriptors) == expected
    assert tree(desk) == rows_without()


class Daemon(Desk):
    """An agent without -f: it loads the module, then it forks, and the child is the agent."""

    pid = 0

    def agent_command(self):
        return [SNMPD, "-C", "-c", self.state / "snmpd.conf", "-A", "-Lf", self.state / "agent.log", "-p",
                self.state / "agent.pid"]

    def start_agent(self):
        self.launch_agent()
        assert self.processes.pop("agent").wait(20) == 0
        with ManagerOf(self, timeout=1) as manager:
            await_until(lambda: self.answers(manager), "the daemon answers")
        self.pid = int((self.state / "agent.pid").read_text())

    @staticmethod
    def answers(manager):
        try:
            return manager.get(OID["modelName"]).error_status == ber.NO_ERROR
        except OSError:
            return False

    def agent_pid(self):
        return self.pid

    def alive(self, name):
        return os.path.exists(f"/proc/{self.pid}") if name == "agent" else super().alive(name)

    def stop_agent(self):
        os.kill(self.pid, signal.SIGTERM)
        with ManagerOf(self, timeout=0.1) as manager:  # as at a reload
            await_until(lambda: self.answers(manager) or not self.alive("agent"), "the daemon sees the signal")
            await_until(lambda: not self.alive("agent"), "the daemon ends")

    def close(self):
        if self.pid and self.alive("agent"):
            os.kill(self.pid, signal.SIGKILL)
        super().close()


@pytest.fixture
def daemon():
    desk = Daemon()
    try:
        desk.start()
        yield desk
        desk.stop_agent()
    finally:
        desk.close()


def test_a_daemons_events_become_traps(daemon):
    with Sink(daemon) as sink:
        sink.read()
        await_until(lambda: daemon.domectl("event", "voltage", 5) == "" and sink.values, "a trap")
        daemon.domectl("event", "voltage", 6)  # behind those that were told more than once
        await_until(lambda: sink.values[-1] == 6, "their last one")
        before = len(sink.values)
        daemon.domectl("event", "voltage", 10, "--count", 1000)
        await_until(lambda: len(sink.values) >= before + 1000, "all the traps")
        assert sink.values[before:] == list(range(10, 1010))
    assert tree(daemon) == rows_without()
    assert footprint(daemon.pid).threads == 2


def test_a_daemon_reads_its_configuration_again(daemon):
    before = footprint(daemon.pid)
    for _ in range(3):
        reload(daemon)
    # A daemon works in the root folder, and the desk's build looks for the version below where it works.
    versions = ["fwVersion", "swVersion", "moduleVersion"]
    assert [row for row in tree(daemon) if row in rows_without(*versions)] == rows_without(*versions)
    after = footprint(daemon.pid)
    assert after.threads == before.threads
    with Sink(daemon) as sink:
        sink.read()
        await_until(lambda: daemon.domectl("event", "voltage", 5) == "" and sink.values, "a trap")
