"""The MIBs match what the agent serves, in both directions, and the tools can read them."""

import functools
import re
import subprocess

import pytest

import ber
import desk as desks
import mibs
from desk import BUILD, ROOT, await_until
from expected_tree import CCTV, GLOBAL, OID, ORVEX, ROWS, RW, SUBTREES
from pages import commands_of

TYPES = {"OctetString": ber.OCTET_STRING, "Integer32": ber.INTEGER, "Enumeration": ber.INTEGER, "Gauge32": ber.GAUGE32}
CELLS = {"Bank": "BankName", "Number": "Number", "State": "State"}  # the tables' columns, by the tests' names for them
REBOOT = OID["rebootDevice"]  # a SET of it has a side effect, so most tests leave it out


def object_of(instance):
    """The object of the MIBs to which an instance belongs, or None."""
    for thing in mibs.accessible():
        if thing.is_scalar and instance == f"{thing.oid}.0":
            return thing
        if not thing.is_scalar and re.fullmatch(re.escape(thing.oid) + r"\.\d+", instance):
            return thing
    return None


def name_of(row):
    """The name of a row's object in the MIBs."""
    if row.oid.startswith((GLOBAL, CCTV)):
        return "orvex" + row.name[0].upper() + row.name[1:]
    cell = re.fullmatch(r"(alarm|relay)(Bank|Number|State)\.\d+", row.name)
    return cell[1] + CELLS[cell[2]] if cell else row.name


def walk(manager):
    for subtree in SUBTREES:
        oid = subtree
        for _ in range(1000):
            (binding,) = manager.get_next(oid).bindings
            oid = binding.oid
            if not oid.startswith(subtree + ".") or binding.tag == ber.END_OF_MIB_VIEW:
                break
            yield binding


def run(environment, *command):
    done = subprocess.run([str(word) for word in command], env=environment, capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, ""), f"{command}: {done.stderr}"
    return done.stdout


# Served objects and described objects


def test_every_served_instance_is_described_with_its_name_type_and_access(manager):
    rows = {row.oid: row for row in ROWS}
    served = list(walk(manager))
    assert [binding.oid for binding in served] == list(rows)
    for binding in served:
        thing, row = object_of(binding.oid), rows[binding.oid]
        assert thing is not None, f"no object for {binding.oid} ({row.name})"
        assert (thing.name, thing.access, TYPES[thing.base]) == (name_of(row), row.access, binding.tag)
        number = binding.value if isinstance(binding.value, int) else len(binding.value)
        assert thing.allows(number), f"{thing.name} does not allow {binding.value!r}"


def test_every_described_object_is_served(manager):
    served = {object_of(binding.oid) for binding in walk(manager)}
    assert [thing.name for thing in mibs.accessible() if thing not in served] == []


def test_what_is_not_accessible_is_not_served(manager):
    hidden = [thing for thing in mibs.objects() if thing not in mibs.accessible()]
    assert [thing.name for thing in hidden] == ["alarmRow", "relayRow"]
    served = [binding.oid for binding in walk(manager)]
    assert [oid for oid in served for thing in hidden if oid.startswith(thing.oid + ".")] == []


def test_module_table_has_exactly_the_row_that_its_index_allows(manager):
    columns = [thing for thing in mibs.objects() if thing.oid.startswith(f"{GLOBAL}.3.1.")]
    index = next(thing for thing in columns if thing.name == "orvexModuleNumber")
    assert index.ranges == ((1, 1),)
    for thing in columns:
        tags = [binding.tag for binding in manager.get(*(f"{thing.oid}.{row}" for row in (0, 1, 2))).bindings]
        assert [tag in (ber.NO_SUCH_OBJECT, ber.NO_SUCH_INSTANCE) for tag in tags] == [True, False, True], thing.name


# Capabilities


@functools.cache
def capabilities():
    """(module, its groups, {object: its clauses}) for each module that the agent supports."""
    text = (mibs.FOLDER / "ORVEX-CAPABILITIES-MIB.txt").read_text()
    supported = []
    for module, groups, body in re.findall(r"SUPPORTS (\S+)\s+INCLUDES \{([^}]*)\}(.*?)(?=SUPPORTS|::= \{ orvexCap)",
                                           text.split("AGENT-CAPABILITIES", 2)[2], re.DOTALL):
        varied = re.findall(r"VARIATION (\w+)\s+(.*?)(?=VARIATION|\Z)", body, re.DOTALL)
        supported.append((module, re.findall(r"\w+", groups), dict(varied)))
    return supported


def variations():
    return {name: clauses for _, _, varied in capabilities() for name, clauses in varied.items()}


def test_capabilities_name_what_the_modules_have():
    assert [module for module, *_ in capabilities()] == mibs.OBJECT_MODULES
    for module, groups, varied in capabilities():
        members = mibs.groups(module)
        assert groups == [name for name in members if not name.endswith("Compliance")]
        assert set(varied) <= {name for group in members.values() for name in group}


@pytest.fixture
def instances(manager):
    """For every object, its first instance in a walk and that instance's value."""
    first = {}
    for binding in walk(manager):
        first.setdefault(object_of(binding.oid), binding)
    return first


def test_writing_is_taken_and_refused_as_the_capabilities_say(manager, instances):
    answers = {}
    for thing, binding in instances.items():
        if thing.access == RW and binding.oid != REBOOT:
            write = manager.set_octets if isinstance(binding.value, bytes) else manager.set_integer
            answers[thing.name] = write(binding.oid, binding.value).error_status
    assert len(answers) == 19
    refused = [name for name, clauses in variations().items() if "ACCESS read-only" in clauses]
    assert answers == {name: ber.GEN_ERR if name in refused else ber.NO_ERROR for name in answers}


def test_constants_are_what_the_capabilities_say_and_stay(manager, instances):
    by_name = {thing.name: (thing, binding) for thing, binding in instances.items()}
    constants = {name: int(value) for name, clauses in variations().items() if '"Constant.' in clauses
                 for value in re.findall(r"^SYNTAX (?:Integer32 |INTEGER \{ software)\((\d+)\)", clauses)}
    assert len(constants) == sum('"Constant.' in clauses for clauses in variations().values())
    for name, value in constants.items():
        thing, binding = by_name[name]
        if thing.access == RW:
            manager.set_integer(binding.oid, 3)
        assert manager.get(binding.oid).bindings[0].value == value, name


def test_true_north_takes_what_the_capabilities_say(manager):
    assert "WRITE-SYNTAX Integer32 (0 | 65535)" in variations()["orvexRangeTrueNorthOffset"]
    oid = OID["rangeTrueNorthOffset"]
    statuses = [manager.set_integer(oid, value).error_status for value in (0, 1, 65534, 65536, 65535)]
    assert statuses == [ber.NO_ERROR, ber.WRONG_VALUE, ber.WRONG_VALUE, ber.WRONG_VALUE, ber.NO_ERROR]


@pytest.mark.parametrize("column", ["relayBankName", "relayNumber"])
def test_relay_columns_refuse_as_the_capabilities_say(manager, column):
    assert "Refuses a type other than INTEGER with wrongType, not notWritable." in variations()[column]
    (oid,) = [f"{thing.oid}.1" for thing in mibs.objects() if thing.name == column]
    assert manager.set_integer(oid, 5).error_status == ber.NOT_WRITABLE
    assert manager.set_octets(oid, b"5").error_status == ber.WRONG_TYPE


# The tools


TRAPS = ("temperatureChange", "powerChange", "voltageChange")
FINDINGS = {
    "ORVEX-MIB": [],
    "ORVEX-NTCIP-CCTV-MIB": [],
    "ORVEX-CAPABILITIES-MIB": [],
    # The camera also answers the index.
    "ORVEX-NTCIP-GLOBAL-MIB": [(5, "index-element-accessible")],
    # The OID that it sends cannot name a notification in SMIv2.
    "ORVEX-TRAP-MIB": [(2, "parent-notification"), (5, "notification-not-reversible"), (1, "last-subid-zero")] * 3,
}


@pytest.mark.parametrize("module", mibs.MODULES)
def test_smilint_finds_what_is_known_and_no_more(module):
    found = mibs.findings(module)
    assert [(level, tag) for level, tag, _ in found] == FINDINGS[module], found


def test_known_findings_are_documented():
    documented = re.findall(r"^\| `(ORVEX-[\w-]+)` \| (\d), \w+ \| `([\w-]+)`, (once|once a trap) \|",
                            DOCUMENTATION, re.MULTILINE)
    times = {"once": 1, "once a trap": len(TRAPS)}
    listed = sorted((module, int(level), tag) for module, level, tag, often in documented for _ in range(times[often]))
    assert listed == sorted((module, *finding) for module, found in FINDINGS.items() for finding in found)


@pytest.mark.parametrize("module", mibs.MODULES)
def test_net_snmp_reads_a_module_without_a_message(running, module):
    command = ["snmptranslate", "-Pw", "-On", "ORVEX-MIB::orvexEnterprise"]
    done = subprocess.run(command, env=mibs.naming(running.environment, module), capture_output=True, text=True,
                          timeout=60)
    words = [line for line in done.stderr.splitlines() if not line.endswith("parsed and ignored).")]
    assert (done.stdout, words) == (f".{ORVEX}\n", [])


def test_snmptranslate_knows_every_instance_by_name_and_by_number(running):
    environment = mibs.naming(running.environment, *mibs.OBJECT_MODULES)
    numbers = [f".{row.oid}" for row in ROWS]
    names = [f"{object_of(row.oid).module}::{name_of(row)}.{row.oid.rpartition('.')[2]}" for row in ROWS]
    assert run(environment, "snmptranslate", *numbers).split() == names
    assert run(environment, "snmptranslate", "-On", *names).split() == numbers


DOCUMENTATION = (ROOT / "docs" / "mibs.md").read_text()


def test_documented_commands_answer_as_documented(desk):
    desk.start()
    environment, exports, tools = dict(desk.environment, SNMPCONFPATH="/etc/snmp"), [], set()
    for command, answer in commands_of(DOCUMENTATION):
        command = command.replace("$PWD/build/desk", str(BUILD)).replace("127.0.0.1:1161", f"127.0.0.1:{desk.port}")
        if command.startswith("export "):
            exports.append(command)
            continue
        tools.add(command.split()[0])
        shown = run(environment, "bash", "-c", "; ".join([*exports, command]))
        assert [line for line in shown.splitlines() if line] == answer, command
    assert len(exports) == 2
    assert tools == {"snmpget", "snmpset", "snmptable", "snmptranslate", "snmpwalk"}


@pytest.mark.parametrize(("module", "shown"), [("ORVEX-TRAP-MIB", "ORVEX-TRAP-MIB::{}Change"),
                                               ("ORVEX-MIB", "ORVEX-MIB::{}.0")])
def test_traps_are_shown_by_name(running, module, shown):
    (command,) = re.findall(r"^    (snmptrapd .*)$", DOCUMENTATION, re.MULTILINE)
    command = command.replace(":1162", f":{running.trap_port}").split()
    received = running.state / "named-traps.txt"
    with open(received, "w") as lines:
        process = subprocess.Popen(command, stdout=lines, stderr=subprocess.STDOUT, cwd=running.state,
                                   env=mibs.naming(running.environment, module))
        try:
            await_until(lambda: "NET-SNMP version" in received.read_text(), "snmptrapd listens")
            for event in (("temperature", 0, 41), ("power", 2), ("voltage", 3)):
                running.domectl("event", *event)
            await_until(lambda: received.read_text().count("Gauge32") == 3, "three traps")
        finally:
            process.terminate()
            process.wait(10)
    text = received.read_text()
    pairs = re.findall(r"= OID: (\S+)\t(\S+) = (?:Wrong Type \(should be INTEGER\): )?Gauge32: (\d+)", text)
    assert text.count("Wrong Type") == (2 if module == "ORVEX-MIB" else 0)  # power and voltage
    names = [shown.format(sensor) for sensor in ("temperature", "power", "voltage")]
    assert pairs == [(name, name, value) for name, value in zip(names, ("41", "2", "3"))]


def test_traps_are_described_where_they_are_sent(running):
    environment = mibs.naming(running.environment, "ORVEX-TRAP-MIB")
    names = [f"ORVEX-TRAP-MIB::{name}" for name in TRAPS]
    sent = [f".{OID[name.removesuffix('Change')]}" for name in TRAPS]
    assert run(environment, "snmptranslate", "-On", *names).split() == sent


# The build


def test_another_enterprise_number_gives_mibs_of_its_own(running, tmp_path):
    number, build, root = 99999, tmp_path / "build", tmp_path / "root"
    cmake = ["cmake", "-S", ROOT, "-B", build, "-G", "Ninja", f"-DORVEX_ENTERPRISE_NUMBER={number}",
             "-DORVEX_TESTS=OFF", "-DORVEX_DOME=OFF"]
    subprocess.run([str(word) for word in cmake], check=True, capture_output=True, timeout=300)
    # The module's compile options.
    assert f"-DORVEX_ENTERPRISE_NUMBER={number} " in (build / "compile_commands.json").read_text()

    (install,) = re.findall(r"`(cmake --install \S+ --component mibs --prefix )/usr`", DOCUMENTATION)
    install = [*install.replace("build/camera", str(build)).split(), str(root)]
    subprocess.run(install, check=True, capture_output=True, timeout=60)
    own, stand_ins = root / "share/snmp/mibs", root / "share/orvexsnmp/smi"
    installed = {str(file.relative_to(root)) for file in root.rglob("*") if file.is_file()}
    installed = {name for name in installed if not name.startswith("share/doc/")}  # a package's documents
    assert installed == {f"share/snmp/mibs/{module}.txt" for module in mibs.MODULES} | {
        f"share/orvexsnmp/smi/{module}.txt" for module in ("SNMPv2-SMI", "SNMPv2-TC", "SNMPv2-CONF")}
    assert not [file for file in own.iterdir() if re.search(r"32473|@", file.read_text())]

    environment = dict(mibs.naming(running.environment, *mibs.MODULES), MIBDIRS=f"{stand_ins}:{own}")
    names = ["ORVEX-MIB::relayState.5", "ORVEX-TRAP-MIB::powerChange", "ORVEX-NTCIP-CCTV-MIB::orvexNtcipCctvMIB",
             "ORVEX-NTCIP-CCTV-MIB::orvexPositionPan.0"]
    arc = f".1.3.6.1.4.1.{number}"
    assert run(environment, "snmptranslate", "-On", *names).split() == [
        f"{arc}.1.3.2.1.3.5", f"{arc}.1.1.8.0", f"{arc}.2.3", f".{CCTV}.4.1.0"]
    for module in mibs.MODULES:
        found = [(level, tag) for level, tag, _ in mibs.findings(module, build / "mibs")]
        assert found == FINDINGS[module]
