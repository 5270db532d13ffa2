"""prometheus-snmp-exporter with the shipped configuration, and how that is generated."""

import re
import socket
import subprocess
import urllib.error
import urllib.request

import pytest

import documentation
from desk import BUILD, SYS_UP_TIME, Desk, ManagerOf, await_until, free_tcp_port
from expected_tree import CCTV, OID, POINTS, ROWS, SUBTREES
from managers import user_of_3
from test_mibs import name_of

CONFIGURATION = BUILD / "packaging" / "prometheus" / "snmp.yml"
COMMAND = documentation.command("prometheus-snmp-exporter")
SENSORS = ["temperature", "power", "voltage"]


class Exporter:
    def __init__(self, desk, command=COMMAND):
        self._desk, self._port = desk, free_tcp_port()
        self._log = desk.state / "exporter.log"
        command = documentation.here(command, desk).replace(":9116", f":{self._port}").split()
        with open(self._log, "w") as log:
            self._process = subprocess.Popen(command, stdout=log, stderr=log)
        await_until(self._listens, "the exporter listens")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(10)

    def scrape(self, module="orvex", port=None):
        """(HTTP status, text), as Prometheus gets them."""
        return self.fetch(f"http://127.0.0.1:9116/snmp?module={module}&target=127.0.0.1:{port or self._desk.port}")

    def fetch(self, address):
        address = documentation.here(address, self._desk).replace(":9116", f":{self._port}")
        try:
            with urllib.request.urlopen(address, timeout=30) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()

    def metrics(self, module="orvex"):
        """Maps name and labels to the value, for all metrics of the camera."""
        status, text = self.scrape(module)
        assert status == 200, text
        line = re.compile(r"^(?!snmp_scrape_)(\w+)(?:\{(.*)\})? (\S+)$", re.MULTILINE)
        return {(name, frozenset(re.findall(r'(\w+)="([^"]*)"', labels))): float(value)
                for name, labels, value in line.findall(text)}

    def _listens(self):
        assert self._process.poll() is None, self._log.read_text()
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", self._port)) == 0


@pytest.fixture(scope="module")
def exporter(running):
    with Exporter(running) as exporter:
        yield exporter


@pytest.fixture(scope="module")
def fielded():
    """A camera as in the field. Its views hide the host's objects, so a walk continues directly with its next
    subtree."""
    with Desk() as desk:
        configuration = desk.state / "snmpd.conf"
        everything = "view readable included .1\n"
        text = configuration.read_text()
        assert everything in text
        shown = "".join(f"view readable included .{oid}\n" for oid in [SYS_UP_TIME, *SUBTREES])
        configuration.write_text(text.replace(everything, shown))
        desk.start()
        yield desk


def metric(row):
    """A row's metric: an octet string becomes a label of a constant 1."""
    name, labels, value = name_of(row), {}, row.value
    if name.startswith("orvexModule"):
        labels["orvexModuleNumber"] = "1"
    cell = re.fullmatch(r"(alarm|relay)State\.(\d+)", row.name)
    if cell:
        bank, number = POINTS[int(cell[2]) - 1]
        labels = {f"{cell[1]}Row": cell[2], f"{cell[1]}BankName": bank.decode(), f"{cell[1]}Number": str(number)}
    if isinstance(value, bytes):
        labels[name] = f"0x{value.hex().upper()}" if row.oid.startswith(CCTV) else value.decode()
        value = 1
    return (name, frozenset(labels.items())), value


# Banks and numbers are not metrics but labels of the states.
EVERYTHING = dict(metric(row) for row in ROWS if not re.fullmatch(r"(alarm|relay)(Bank|Number)\.\d+", row.name))
OF_SENSORS = {key: value for key, value in EVERYTHING.items() if key[0] in SENSORS}
OF_ALL_ELSE = {key: value for key, value in EVERYTHING.items() if key[0] not in SENSORS}


def test_it_reads_everything(camera, exporter):
    assert exporter.metrics() == OF_ALL_ELSE
    assert exporter.metrics("orvex_sensors") == OF_SENSORS


def test_it_sees_what_moves(camera, exporter):
    with ManagerOf(camera) as manager:
        manager.set_octets(OID["positionPan"], bytes.fromhex("02404650"))
    camera.domectl("set", "alarm", "BNK2", 1, 1)
    try:
        changed = exporter.metrics().items() - OF_ALL_ELSE.items()
    finally:
        camera.domectl("set", "alarm", "BNK2", 1, 0)
    assert {(name, dict(labels).get("orvexPositionPan", dict(labels).get("alarmNumber")), value)
            for (name, labels), value in changed} == {("orvexPositionPan", "0x02404650", 1), ("alarmState", "1", 1)}


@pytest.mark.parametrize("service", SENSORS)
def test_a_sensor_that_fails_costs_the_sensors_alone(fielded, service):
    with Exporter(fielded) as exporter:
        fielded.domectl("fault", service, "fail")
        status, text = exporter.scrape("orvex_sensors")
        assert status == 500
        assert "Error Status 5" in text  # genErr
        assert exporter.metrics() == OF_ALL_ELSE
        fielded.domectl("fault", service, "ok")
        assert exporter.metrics("orvex_sensors") == OF_SENSORS


def test_a_camera_that_is_not_there_is_an_error(camera, exporter):
    status, text = exporter.scrape(port=camera.trap_port)
    assert status == 500
    assert "error reading from socket" in text


def test_it_speaks_version_3(camera, tmp_path):
    user = user_of_3(camera)
    (text,) = documentation.blocks("Prometheus", "yaml")
    for word, part in [("AUTHENTICATION", "authentication"), ("PRIVACY", "privacy")]:
        assert text.count(word) == 1
        text = text.replace(word, user[part])
    shipped = CONFIGURATION.read_text()
    community = "  version: 2\n  auth:\n    community: public\n"
    assert community in shipped
    configuration = tmp_path / "snmp.yml"
    configuration.write_text(shipped.replace(community, text))
    command = COMMAND.replace("build/desk/packaging/prometheus/snmp.yml", str(configuration))
    with Exporter(camera, command) as exporter:
        assert exporter.metrics("orvex_sensors") == OF_SENSORS
        assert exporter.metrics() == OF_ALL_ELSE


def test_it_answers_as_documented(camera, exporter):
    (address,) = re.findall(r"<(http://[^>]+)>", documentation.TEXT)
    (lines,) = documentation.blocks("Prometheus", "text")
    status, text = exporter.fetch(address)
    assert status == 200
    assert [line for line in text.splitlines() if not line.startswith(("#", "snmp_scrape_"))] == lines.splitlines()


def test_the_configuration_is_what_the_generator_makes(running, tmp_path):
    command = documentation.here(documentation.command("packaging/prometheus/generate"), running).split()
    subprocess.run(command, cwd=tmp_path, check=True, capture_output=True, timeout=60)
    made, shipped = (path.read_text().splitlines()[1:] for path in (tmp_path / "snmp.yml", CONFIGURATION))
    assert made == shipped  # except for the line that says how it was generated
