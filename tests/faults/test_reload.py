"""Repeated SIGHUP under load, reloads that fail in part, and an agent that runs as a daemon."""

import os
import pathlib
import re
import signal
import sqlite3
import subprocess

import pytest

import ber
from desk import AGENT, AGENT_PARTS, SNMPD, Desk, ManagerOf, await_until
from expected_tree import OID
from watching import SANITIZED, Asking, footprint, settled, times
from test_services import rows_without, tree
from traps import Sink


def reload(desk):
    """Sends SIGHUP and returns when the agent has read its configuration again."""
    read = lambda: desk.log("agent").count("Reconfiguring daemon")  # noqa: E731
    before = read()
    with ManagerOf(desk, timeout=10) as manager:
        os.kill(desk.agent_pid(), signal.SIGHUP)
        # The stock agent handles a signal that arrives while it is busy only at the next request or timer.
        await_until(lambda: manager.get(OID["modelName"]) and read() > before, "the agent reads its configuration")
        manager.get(OID["modelName"])


@pytest.mark.slow
@pytest.mark.parametrize("sinks", [0, 1])
def test_reloads_under_load(desk, figure, sinks):
    """The stock agent leaks sockets: one per trap sink and reload; without a sink none, with one sink one per
    reload."""
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
                first = footprint(desk.agent_pid())  # the first reloads take more memory than later ones
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


# --- what a reload keeps ---

COMMANDS = ["positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens"]
CONTROLS = ["systemCameraFeatureControl", "systemLensFeatureControl", "outputControl"]


def test_what_the_agent_remembers_outlives_a_reload(started):
    with ManagerOf(started) as manager:
        octets = {OID[name]: bytes([1, 5, 0, number]) for number, name in enumerate(COMMANDS)}
        octets.update({OID[name]: bytes([0, number]) for number, name in enumerate(CONTROLS)})
        octets[OID["systemLensEquipped"]] = b"\0"
        numbers = {OID["rangeTrueNorthOffset"]: 0, OID["rebootDevice"]: 7}
        for oid, value in octets.items():
            assert manager.set_octets(oid, value).error_status == ber.NO_ERROR, oid
        for oid, value in numbers.items():
            assert manager.set_integer(oid, value).error_status == ber.NO_ERROR, oid
        for _ in range(2):
            reload(started)
            for oid, value in {**octets, **numbers}.items():
                assert manager.get(oid).bindings[0].value == value, oid


def test_an_agent_without_the_modules_line_serves_nothing_of_it_until_the_line_is_back(desk):
    desk.start()
    configuration = desk.state / "snmpd.conf"
    text = configuration.read_text()
    with ManagerOf(desk) as manager:
        manager.set_octets(OID["positionIrisLens"], b"\1\0\0\7")
        configuration.write_text("".join(line for line in text.splitlines(True) if not line.startswith("dlmod ")))
        os.kill(desk.agent_pid(), signal.SIGHUP)
        await_until(lambda: manager.get(OID["modelName"]).bindings[0].tag == ber.NO_SUCH_OBJECT, "the module is gone")
        assert tree(desk) == []
        configuration.write_text(text)
        os.kill(desk.agent_pid(), signal.SIGHUP)
        await_until(lambda: manager.get(OID["modelName"]).bindings[0].tag == ber.OCTET_STRING, "the module is back")
        assert manager.get(OID["positionIrisLens"]).bindings[0].value == b"\1\0\0\7"


def test_identity_that_cannot_be_read_again_stays(desk):
    desk.start()
    (desk.state / "etc" / "version").unlink()
    (desk.state / "settings.db").unlink()  # the desk's identity command reads it, too
    reload(desk)
    assert rows_that_need_no_store(desk) == rows_without(STORED)


# --- settings that a reload cannot apply ---

def set_level(desk, value):
    desk.settings("set", "[Applications/OrvexSnmp]log.level", value)


def damage(store):
    for file in store.parent.glob(store.name + "*"):
        file.unlink()
    store.write_bytes(b"no database at all" * 100)


HINDRANCES = {
    "a level that is no number": (lambda desk: set_level(desk, "loud\nand more"),
                                  r'log\.level is not a number: "loud\\nand more"'),
    "a log file in no folder": (lambda desk: desk.settings("set", "[Applications/OrvexSnmp]log.file", "/no/such/file"),
                                r"log\.file /no/such/file: No such file or directory"),
    "a damaged store": (lambda desk: damage(desk.state / "settings.db"), r"settings\.db: file is not a database"),
    "no store": (lambda desk: (desk.state / "settings.db").unlink(),
                 r"settings\.db: unable to open database file \(No such file or directory\)"),
}


@pytest.mark.parametrize("what", HINDRANCES)
def test_a_reload_that_cannot_apply_the_settings_says_why_in_one_line_and_serves_everything(desk, what):
    hinder, reason = HINDRANCES[what]
    desk.start()
    saved = desk.settings("export")
    hinder(desk)
    for _ in range(2):
        before = len(lines_of_module(desk))
        reload(desk)
        said = lines_of_module(desk)[before:]
        assert len(said) == 1, said
        assert re.fullmatch(r".* OrvexSnmp Error OrvexSnmpDevice: the configuration stays as it was: .*" + reason, said[0])
        assert rows_that_need_no_store(desk) == rows_without(STORED)

    for file in desk.state.glob("settings.db*"):
        file.unlink()
    desk.settings("import", "-", text=saved)
    before = len(lines_of_module(desk))
    reload(desk)
    assert lines_of_module(desk)[before:] == []
    assert tree(desk) == rows_without()


STORED = "systemLensFeatureStatus"  # reads the settings store at each request


def rows_that_need_no_store(desk):
    return [row for row in tree(desk) if row[0] != OID[STORED]]


def lines_of_module(desk):
    return [line for line in desk.output("agent").splitlines() if " OrvexSnmp " in line]


def test_a_locked_store_holds_a_reload_up_for_a_moment_only(started):
    store = sqlite3.connect(started.state / "settings.db", isolation_level=None)
    store.execute("PRAGMA locking_mode = EXCLUSIVE")
    store.execute("BEGIN EXCLUSIVE")
    try:
        reload(started)
    finally:
        store.close()
    assert tree(started) == rows_without()


def test_a_start_that_cannot_apply_the_settings_says_why_before_it_ends(desk):
    desk.start_bus()
    desk.start_dome()
    set_level(desk, "loud")
    desk.launch_agent()
    assert desk.processes.pop("agent").wait(20) != 0
    assert "OrvexSnmp Error Error reloading, invalid configuration" in desk.output("agent")
    assert 'orvexsnmp: invalid configuration: log.level is not a number: "loud"' in desk.log("agent")


# --- out of descriptors ---

class FewDescriptors(Desk):
    def agent_command(self):
        return ["prlimit", "--nofile=36:4096", *map(str, super().agent_command())]


@pytest.mark.skipif(SANITIZED, reason="UndefinedBehaviorSanitizer opens pipes to look at an object's type")
def test_an_agent_that_has_run_out_of_descriptors_serves_everything_and_recovers(figure):
    """The stock agent keeps a socket for each trap sink and reload."""
    with FewDescriptors() as desk:
        desk.start()
        with ManagerOf(desk) as manager:
            manager.set_octets(OID["positionIrisLens"], bytes([1, 0, 0, 0]))
        expected = [(oid, tag, bytes([1, 0, 0, 0]) if oid == OID["positionIrisLens"] else value)
                    for oid, tag, value in rows_without()]
        reloads = 0
        while not lines_of_module(desk):  # stops when it cannot open the version file
            assert reloads < 40
            reload(desk)
            reloads += 1
        for _ in range(5):
            reload(desk)
            # Each request for this object opens the settings store.
            assert rows_that_need_no_store(desk) == [row for row in expected if row[0] != OID[STORED]]
        subprocess.run(["prlimit", "--pid", str(desk.agent_pid()), "--nofile=4096:4096"], check=True)
        before = len(lines_of_module(desk))
        reload(desk)
        assert lines_of_module(desk)[before:] == []
        assert tree(desk) == expected
        with Sink(desk) as sink:
            sink.read()
            await_until(lambda: desk.domectl("event", "voltage", 5) == "" and sink.values, "a trap")
        figure(f"no descriptor was left after {reloads} reloads; five more with none, everything served")


# --- restart scripts ---

def test_every_restart_script_is_collected_also_over_a_reload(started):
    sets = times(30, 300)
    with ManagerOf(started) as manager:
        for number in range(sets):
            assert manager.set_integer(OID["rebootDevice"], 1).error_status == ber.NO_ERROR
            if number == sets // 2:
                reload(started)
    children = pathlib.Path(f"/proc/{started.agent_pid()}/task/{started.agent_pid()}/children")
    await_until(lambda: children.read_text() == "", "no child is left", 15)
    assert len((started.state / "restart.log").read_text().splitlines()) == sets


class Daemon(Desk):
    """An agent without -f: it loads the module, then forks, and the child becomes the agent."""

    pid = 0

    def agent_command(self):
        return [SNMPD, "-C", "-c", self.state / "snmpd.conf", *AGENT_PARTS, "-A", "-Lf", self.state / "agent.log", "-p",
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


# A daemon works in the root folder: from its start (before 5.9), or from its first reload on. The desk's build reads
# the versions below from files in the working folder.
VERSIONS = ["fwVersion", "swVersion", "moduleVersion"]


def tree_without(daemon, *names):
    oids = [OID[name] for name in names]
    return [row for row in tree(daemon) if row[0] not in oids]


def test_a_daemons_events_become_traps(daemon):
    with Sink(daemon) as sink:
        sink.read()
        await_until(lambda: daemon.domectl("event", "voltage", 5) == "" and sink.values, "a trap")
        daemon.domectl("event", "voltage", 6)  # arrives after the repeated events
        await_until(lambda: sink.values[-1] == 6, "their last one")
        before = len(sink.values)
        daemon.domectl("event", "voltage", 10, "--count", 1000)
        await_until(lambda: len(sink.values) >= before + 1000, "all the traps")
        assert sink.values[before:] == list(range(10, 1010))
    versions = VERSIONS if AGENT < (5, 9) else []
    assert tree_without(daemon, *versions) == rows_without(*versions)
    assert footprint(daemon.pid).threads == 2


def test_a_daemon_reads_its_configuration_again(daemon):
    before = footprint(daemon.pid)
    for _ in range(3):
        reload(daemon)
    assert tree_without(daemon, *VERSIONS) == rows_without(*VERSIONS)
    after = footprint(daemon.pid)
    assert after.threads == before.threads
    with Sink(daemon) as sink:
        sink.read()
        await_until(lambda: daemon.domectl("event", "voltage", 5) == "" and sink.values, "a trap")
