"""The units as systemd reads them. test_packages.py runs them in its clean root."""

import pathlib
import re
import shutil
import subprocess

import pytest

from desk import AGENT_PARTS, BUILD, ROOT

UNITS = BUILD / "packaging" / "systemd"
STOCK_AGENT = pathlib.Path("/lib/systemd/system/snmpd.service")
DROP_IN = UNITS / "snmpd.service.d-orvexsnmp.conf"
SERVICES = ["orvex-bus.service", "orvex-dome.service", "snmpd.service",
            "orvex-bus@.service", "orvex-dome@.service", "orvex-agent@.service"]
MAX_EXPOSURE = 3.0


@pytest.fixture(scope="module")
def units(tmp_path_factory):
    """All units in one folder, the stock agent's with the drop-in; the programs that they start exist."""
    folder = tmp_path_factory.mktemp("units")
    programs = folder / "programs"
    for unit in [*UNITS.glob("orvex-*"), *(pathlib.Path(__file__).parents[2] / "packaging/systemd").glob("*.target")]:
        text = unit.read_text().replace("/sbin/restart.sh", f"{programs}/restart.sh")
        for program in re.findall(r"^Exec\w+=[-+]?(/\S+)", text, re.MULTILINE):
            if not program.startswith(("/bin/", "/sbin/", "/usr/bin/", "/usr/sbin/")):
                stand_in = programs / pathlib.Path(program).name
                stand_in.parent.mkdir(exist_ok=True)
                shutil.copy("/bin/true", stand_in)
                text = text.replace(program, str(stand_in))
        (folder / unit.name).write_text(text)
    shutil.copy(STOCK_AGENT, folder)
    drop_ins = folder / "snmpd.service.d"
    drop_ins.mkdir()
    shutil.copy(DROP_IN, drop_ins / "orvexsnmp.conf")
    return folder


def exposure(unit):
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", unit], capture_output=True,
                          text=True, timeout=60)
    (figure,) = re.findall(r"Overall exposure level for \S+: ([\d.]+) ", done.stdout)
    return float(figure)


CHOICES = {"parts.conf": UNITS / "snmpd.service.d-parts.conf",
           "without-wrappers.conf": ROOT / "packaging" / "systemd" / "snmpd.service.d-without-wrappers.conf"}


@pytest.mark.parametrize("service", SERVICES)
def test_a_service_has_few_rights(units, service, record_property):
    figure = exposure(units / service)
    record_property("exposure", figure)
    print(f"{service}: exposure {figure}")
    assert figure <= MAX_EXPOSURE


def test_the_stock_agent_alone_has_many_rights(tmp_path):
    """Shows that the figure above comes from the drop-in."""
    shutil.copy(STOCK_AGENT, tmp_path)
    assert exposure(tmp_path / "snmpd.service") > MAX_EXPOSURE


def test_systemd_has_nothing_to_say_against_them(units):
    names = [path.name for path in units.iterdir() if path.is_file()]
    assert len(names) == 9
    instances = [units / name.replace("@.", "@7.") for name in names]
    for name in names:
        if "@." in name:
            (units / name.replace("@.", "@7.")).symlink_to(name)
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", "--recursive-errors=yes", *instances],
                          capture_output=True, text=True, timeout=60)
    complaints = [line for line in done.stderr.splitlines() if str(units) in line or "orvex" in line]
    assert complaints == []


def with_choices(units, folder):
    """The camera's agent with the drop-in and both choices."""
    shutil.copytree(units, folder, symlinks=True)
    for name, file in CHOICES.items():
        shutil.copy(file, folder / "snmpd.service.d" / name)
    return folder / "snmpd.service"


def test_the_choices_for_a_cameras_agent_are_sound_and_add_no_rights(units, tmp_path):
    unit = with_choices(units, tmp_path / "units")
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", "--recursive-errors=no", unit], capture_output=True,
                          text=True, timeout=60)
    assert [line for line in done.stderr.splitlines() if ".conf" in line or "snmpd" in line] == []
    assert exposure(unit) <= exposure(units / "snmpd.service")


def test_the_choice_of_parts_replaces_nothing_else_of_the_agents_start():
    started = [value.split() for name, value in settings(DROP_IN) if name == "ExecStart" and value]
    chosen = [value for name, value in settings(CHOICES["parts.conf"]) if name == "ExecStart"]
    assert chosen[0] == "", "systemd would refuse a second ExecStart"
    assert min(CHOICES) > "orvexsnmp.conf", "systemd reads drop-ins in the order of their names, whatever their folder"
    assert [[AGENT_PARTS[1] if "mteTrigger" in word else word for word in command] for command in started] == [
        command.split() for command in chosen[1:]]


def test_the_choice_without_wrappers_refuses_all_but_the_named_hosts():
    values = settings(CHOICES["without-wrappers.conf"])
    assert values == [["IPAddressDeny", "any"], ["IPAddressAllow", "localhost"], ["IPAddressAllow", "192.0.2.0/24"]]


def settings(unit):
    return [line.split("=", 1) for line in unit.read_text().splitlines() if "=" in line and not line.startswith("#")]


@pytest.mark.parametrize("service", SERVICES)
def test_no_service_is_roots(units, service):
    values = dict(settings(DROP_IN if service == "snmpd.service" else units / service))
    assert values["User"] not in ("", "root")
    assert values["NoNewPrivileges"] == "yes"


def test_only_the_agent_has_a_capability_and_only_one(units):
    held = {service: [value for name, value in settings(DROP_IN if service == "snmpd.service" else units / service)
                      if name in ("CapabilityBoundingSet", "AmbientCapabilities") and value]
            for service in SERVICES}
    assert {service: values for service, values in held.items() if values} == {
        "snmpd.service": ["CAP_NET_BIND_SERVICE", "CAP_NET_BIND_SERVICE"]}


def test_no_secret_is_in_an_environment(units):
    for unit in [*units.glob("*.service"), DROP_IN]:
        for name, value in settings(unit):
            assert name != "Environment" or not re.search("pass|phrase|secret|key|community", value, re.IGNORECASE)
