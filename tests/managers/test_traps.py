"""snmptrapd and snmptt with the shipped configuration."""

import re
import shutil
import subprocess

import pytest

import documentation
from desk import ROOT, await_until
from expected_tree import OID

TEMPERATURE = OID["temperature"]


class Receiver:
    """snmptrapd, which starts one snmptt for each trap; their files lie in a temporary folder."""

    def __init__(self, desk, folder):
        self._folder = folder
        install, command = (self._ours(documentation.here(documentation.command(program), desk))
                            for program in ("install", "snmptrapd"))
        for name in ["etc", "log", "store"]:
            (folder / name).mkdir()
        subprocess.run(install.split(), check=True, timeout=20)
        self._change(folder / "etc" / "snmptt-orvex.ini")
        configuration = folder / "etc" / "snmptrapd.conf"
        shutil.copy(ROOT / "packaging" / "snmptt" / "snmptrapd.conf", configuration)
        self._change(configuration)
        command = [str(configuration) if word.endswith("/snmptrapd.conf") else word for word in command.split()]
        environment = dict(desk.environment, SNMP_PERSISTENT_DIR=str(folder / "store"))
        with open(folder / "complaints.log", "w") as complaints:
            self._process = subprocess.Popen([*command[:-1], "-p", str(folder / "pid"), command[-1]], env=environment,
                                             cwd=folder, stdout=complaints, stderr=complaints)
        await_until(lambda: "NET-SNMP version" in self.received, "snmptrapd listens")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(10)

    @property
    def logged(self):
        """(event's OID, severity, category, text) of each trap that snmptt recognised."""
        line = re.compile(r'^\w{3} \w{3} [\d :]+ \.([\d.]+) (\w+) "(\w+)" localhost - (.*)$')
        return [line.fullmatch(text).groups() for text in self._text("snmptt.log").splitlines()]

    @property
    def unknown(self):
        return re.findall(r"^Ent Value 0: \.([\d.]+)=(.*)$", self._text("snmpttunknown.log"), re.MULTILINE)

    @property
    def received(self):
        return self._text("snmptrapd.log")

    def _change(self, file):
        """A shipped file names only the paths of an installed system."""
        text = file.read_text()
        assert self._ours(text) != text
        file.write_text(self._ours(text))

    def _ours(self, text):
        return text.replace("/etc/snmp", f"{self._folder}/etc").replace("/var/log/snmptt", f"{self._folder}/log")

    def _text(self, name):
        file = self._folder / "log" / name
        return file.read_text() if file.exists() else ""


@pytest.fixture
def receiver(running, tmp_path):
    with Receiver(running, tmp_path) as receiver:
        yield receiver


def send(desk, community, kind, value):
    command = ["snmptrap", "-v2c", "-c", community, f"127.0.0.1:{desk.trap_port}", "", TEMPERATURE, TEMPERATURE, kind,
               value]
    subprocess.run(command, env=desk.environment, check=True, timeout=20)


def test_a_trap_becomes_the_documented_line(running, receiver):
    (command,) = re.findall(r"`(build/desk/bin/domectl [^`]+)`", documentation.TEXT)
    subprocess.run(documentation.here(command, running).split(), check=True, timeout=20)
    await_until(lambda: receiver.logged, "a trap")
    (line,) = documentation.blocks("snmptrapd and snmptt", "text")
    assert ['.{} {} "{}" localhost - {}\n'.format(*logged) for logged in receiver.logged] == [line]


def test_each_trap_becomes_a_line(running, receiver):
    events = [
        (("temperature", 0, 41), "Temperature at sensor 0: 41 degrees Celsius"),
        (("temperature", 0, -5), "Temperature at sensor 0: 4294967291 less 4294967296 degrees Celsius"),
        (("power", 2), "Status code of the power service: 2"),
        (("voltage", -1), "Status code of the voltage service: 4294967295"),
    ]
    for event, _ in events:
        running.domectl("event", *event)
    await_until(lambda: len(receiver.logged) == len(events), "four traps")
    assert receiver.logged == [(OID[event[0]], "Normal", "Sensors", text) for event, text in events]
    assert receiver.unknown == []


def test_a_trap_whose_value_is_no_reading_is_none_of_the_cameras(running, receiver):
    for value in ["41 and more", "$(id)", "-5", "99999999999"]:
        send(running, "public", "s", value)
    await_until(lambda: len(receiver.unknown) == 4, "four traps")
    assert {oid for oid, _ in receiver.unknown} == {TEMPERATURE}
    assert receiver.logged == []


def test_a_stranger_is_not_heard(running, receiver):
    send(running, "stranger", "u", "98")
    send(running, "public", "u", "41")
    await_until(lambda: receiver.logged, "the second trap")
    assert [text for *_, text in receiver.logged] == ["Temperature at sensor 0: 41 degrees Celsius"]
    assert " = Gauge32: 98" not in receiver.received
