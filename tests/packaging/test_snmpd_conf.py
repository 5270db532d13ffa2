"""The configuration for cameras in the field: every user and every stranger on each object."""

import os
import re
import subprocess

import pytest

from desk import AGENT_PARTS, BUILD, await_until
from expected_tree import CCTV, INTEGER, OID, ORVEX, ROWS, RW
from field import NO_SUCH_OBJECT, READY, ROLES, FieldDesk, authentication, privacy, replace_once
from sockets import sockets_of

RELAYS = [OID["outputControl"], *(row.oid for row in ROWS if row.name.startswith("relayState."))]
REBOOT = OID["rebootDevice"]

# Through these objects a writer could change the agent, its users or its views, or see what else runs on the host. An
# agent without views answers all of them.
KEPT = {
    "UCD-DLMOD-MIB dlmodNextIndex": "1.3.6.1.4.1.2021.13.14.1.0",
    "UCD-SNMP-MIB memTotalReal": "1.3.6.1.4.1.2021.4.5.0",
    "UCD-SNMP-MIB versionClearCache": "1.3.6.1.4.1.2021.100.10.0",
    "UCD-SNMP-MIB versionRestartAgent": "1.3.6.1.4.1.2021.100.11.0",
    "NET-SNMP-AGENT-MIB nsDebugEnabled": "1.3.6.1.4.1.8072.1.7.1.1.0",
    "NET-SNMP-AGENT-MIB nsCacheTimeout": "1.3.6.1.4.1.8072.1.5.1.0",
    "NET-SNMP-EXTEND-MIB nsExtendNumEntries": "1.3.6.1.4.1.8072.1.3.2.1.0",
    "SNMP-USER-BASED-SM-MIB usmUserSpinLock": "1.3.6.1.6.3.15.1.2.1.0",
    "SNMP-VIEW-BASED-ACM-MIB vacmViewSpinLock": "1.3.6.1.6.3.16.1.5.1.0",
    "SNMP-TARGET-MIB snmpTargetSpinLock": "1.3.6.1.6.3.12.1.1.0",
    "HOST-RESOURCES-MIB hrSystemProcesses": "1.3.6.1.2.1.25.1.6.0",
    "IF-MIB ifNumber": "1.3.6.1.2.1.2.1.0",
}

# A value that the object accepts and that moves nothing.
HARMLESS = {
    "rangeTrueNorthOffset": ("i", "0"),
    "systemCameraFeatureControl": ("x", "0000"),
    "systemCameraEquipped": ("x", "00"),
    "systemLensFeatureControl": ("x", "0000"),
    "systemLensEquipped": ("x", "40"),
    "outputControl": ("x", "0000"),
}


@pytest.fixture(scope="module")
def camera():
    with FieldDesk() as desk:
        desk.add_users(*ROLES)
        desk.start()
        yield desk


def harmless_value(row):
    if row.name.startswith("position"):
        return "x", "00000000"  # stop
    return HARMLESS.get(row.name, ("i", "0") if row.tag == INTEGER else ("x", "00"))


def may_write(user, row):
    """True when the views let the user's SET through to the object."""
    if user == "administrator":
        return True
    return user == "operator" and row.oid.startswith(f"{CCTV}.") and row.oid not in RELAYS


def reason(answer):
    """The reason why a SET was refused, or None."""
    match = re.search(r"^Reason: (\w+)", answer.error, re.MULTILINE)
    return match[1] if match else None


def restarts(camera):
    log = camera.state / "restart.log"
    return log.read_text().splitlines() if log.exists() else []


@pytest.mark.parametrize("user", ROLES)
def test_each_user_reads_every_object(camera, user):
    answer = camera.ask(user, "snmpget", *(row.oid for row in ROWS))
    assert answer.status == 0, answer.error
    assert [oid for oid, _, _ in answer.triples] == [row.oid for row in ROWS]
    assert [oid for oid, kind, _ in answer.triples if kind is None] == []


@pytest.mark.parametrize("user", ROLES)
def test_each_user_writes_just_what_is_theirs(camera, user):
    camera.clear_calls()
    let_through, refused_otherwise = [], {}
    for row in ROWS:
        why = reason(camera.ask(user, "snmpset", row.oid, *harmless_value(row)))
        if why != "noAccess":
            let_through.append(row.name)
            if row.access != RW:
                refused_otherwise[row.name] = why
    assert let_through == [row.name for row in ROWS if may_write(user, row)]
    # The object itself refuses what the views pass and is read-only.
    assert {name for name, why in refused_otherwise.items() if why not in ("notWritable", "wrongType")} == set()
    driven = [call["call"] for call in camera.calls() if call["service"] == "relay" and "Get" not in call["call"]]
    assert set(driven) == ({"ClearRelay"} if user == "administrator" else set())
    if "rebootDevice" in let_through:
        await_until(lambda: restarts(camera), "the restart that was asked for")


def test_only_the_administrator_restarts_the_camera(camera):
    before = len(restarts(camera))
    for user in ["reader", "operator"]:
        assert reason(camera.ask(user, "snmpset", REBOOT, "i", "1")) == "noAccess"
    answer = camera.ask("administrator", "snmpset", REBOOT, "i", "1")
    assert answer.status == 0, answer.error
    await_until(lambda: len(restarts(camera)) > before, "the restart script ran")
    assert len(restarts(camera)) == before + 1


@pytest.mark.parametrize("user", ROLES)
@pytest.mark.parametrize("tool", ["snmpget", "snmpgetnext"])
def test_the_agents_own_objects_are_there_for_nobody(camera, user, tool):
    names = list(KEPT.values())
    answer = camera.ask(user, tool, *names)
    assert answer.status == 0, answer.error
    if tool == "snmpget":
        assert answer.triples == [(oid, None, NO_SUCH_OBJECT) for oid in names]
    else:
        seen = [oid for oid, _, _ in answer.triples]
        allowed = ("1.3.6.1.2.1.1.", "1.3.6.1.2.1.11.", "1.3.6.1.6.3.10.2.1.", "1.3.6.1.4.1.1206.4.2.", f"{ORVEX}.")
        assert [oid for oid, (_, kind, value) in zip(seen, answer.triples)
                if not oid.startswith(allowed) and "No more variables" not in str(value)] == []


def test_what_is_kept_from_everybody_answers_where_there_are_no_views(camera):
    """Without this check the test above would also pass for misspelled objects."""
    open_desk = FieldDesk()
    try:
        text = open_desk.configuration.read_text().replace("view reads included .1.3.6.1.2.1.1\n",
                                                           "view reads included .1\n")
        open_desk.configuration.write_text(text)
        open_desk.add_users("reader")
        open_desk.start_agent()
        answer = open_desk.ask("reader", "snmpget", *KEPT.values())
        assert [oid for oid, kind, _ in answer.triples if kind is None] == []
    finally:
        open_desk.close()


@pytest.mark.parametrize("user", ROLES)
def test_nobody_loads_code(camera, user):
    """Row 1 of UCD-DLMOD-MIB's table: a name, a path, and the status that loads the module."""
    column = "1.3.6.1.4.1.2021.13.14.2.1"
    for binding in [(f"{column}.2.1", "s", "evil"), (f"{column}.3.1", "s", "/tmp/evil.so"), (f"{column}.4.1", "i", "6")]:
        assert reason(camera.ask(user, "snmpset", *binding)) == "noAccess"


@pytest.mark.parametrize("user", ROLES)
def test_nobody_writes_what_else_the_agent_has(camera, user):
    writable = {
        "sysContact": ("1.3.6.1.2.1.1.4.0", "s", "me"),
        "snmpEnableAuthenTraps": ("1.3.6.1.2.1.11.30.0", "i", "2"),
        "versionRestartAgent": ("1.3.6.1.4.1.2021.100.11.0", "i", "1"),
        "nsExtendStatus": ("1.3.6.1.4.1.8072.1.3.2.2.1.21.1.97", "i", "4"),
        "usmUserStatus": ("1.3.6.1.6.3.15.1.2.2.1.13.1.97.1.98", "i", "5"),
        "vacmAccessStatus": ("1.3.6.1.6.3.16.1.4.1.9.1.97.0.3.3", "i", "4"),
    }
    refused = {name: reason(camera.ask(user, "snmpset", *words)) for name, words in writable.items()}
    assert refused == dict.fromkeys(writable, "noAccess")


@pytest.mark.parametrize("user", ROLES)
@pytest.mark.parametrize(
    ("other", "error"),
    [
        ({"A": "a wrong pass phrase"}, "Authentication failure"),
        ({"a": "SHA"}, "Authentication failure"),
        ({"X": "a wrong pass phrase"}, "Timeout: No Response"),
        ({"l": "authNoPriv"}, "authorizationError"),
        ({"l": "noAuthNoPriv"}, "authorizationError"),
    ],
    ids=["pass phrase", "digest", "privacy", "no privacy", "no authentication"],
)
def test_who_does_not_prove_to_be_the_user_gets_nothing(camera, user, other, error):
    for words in [("snmpget", OID["modelName"]), ("snmpset", OID["positionPan"], "x", "00000000")]:
        answer = camera.ask(user, *words, timeout="0.5", **other)
        assert answer.status != 0
        assert answer.triples == []
        assert re.search(error, answer.error), answer.error


def test_a_users_pass_phrases_are_nobody_elses(camera):
    for words in [{"A": authentication("reader")}, {"A": authentication("reader"), "X": privacy("reader")}]:
        assert "Authentication failure" in camera.ask("administrator", "snmpget", READY, **words).error


def test_other_users_are_unknown(camera):
    for user in ["root", "admin", "authPrivUser", "notifier"]:
        assert "Unknown user name" in camera.ask(user, "snmpget", READY).error


@pytest.mark.parametrize("version", ["1", "2c"])
@pytest.mark.parametrize("community", ["public", "private", "reader", "administrator"])
def test_no_community_gets_an_answer(camera, version, community):
    for words in [("snmpget", READY), ("snmpset", OID["positionPan"], "x", "00000000")]:
        answer = camera.ask_community(version, community, *words)
        assert answer.triples == []
        assert "Timeout: No Response" in answer.error


def test_there_is_no_secret_in_the_configuration(camera):
    text = camera.configuration.read_text()
    code = [line for line in text.splitlines() if line and not line.startswith("#")]
    assert not [line for line in code if re.match(r"\s*(createUser|rocommunity|rwcommunity|com2sec|community)", line, re.I)]
    assert not [line for line in code if " -A " in line or " -X " in line]


def test_it_listens_for_managers_only(camera):
    assert set(sockets_of(camera.agent_pid())) == {f"udp 127.0.0.1:{camera.port}", "netlink", "unix connected"}


def test_traps_go_to_whoever_knows_the_notifiers_pass_phrases():
    """Enables the line that is a comment in the configuration, and starts a stock receiver that accepts only
    authenticated traps."""
    desk = FieldDesk()
    receiver = None
    try:
        text = replace_once(desk.configuration.read_text(), r"^#trapsess (.*) udp:192.0.2.20:162$",
                            f"trapsess -v 3 -u notifier -l authPriv udp:127.0.0.1:{desk.trap_port}")
        desk.configuration.write_text(text)
        desk.add_users("reader", "notifier")
        desk.start()
        ((_, _, engine),) = desk.ask("reader", "snmpget", "1.3.6.1.6.3.10.2.1.1.0").triples
        traps = desk.state / "traps.txt"
        (desk.state / "snmptrapd.conf").write_text(
            f'createUser -e 0x{engine.hex()} notifier SHA-256 "{authentication("notifier")}" AES "{privacy("notifier")}"\n'
            "authUser log notifier priv\n")
        with open(traps, "w") as lines:
            receiver = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "snmptrapd", "-f", "-C", "-c", desk.state / "snmptrapd.conf", "-On",
                 "-Lo", "-F", "%v\n", f"udp:127.0.0.1:{desk.trap_port}"],
                stdin=subprocess.DEVNULL, stdout=lines, stderr=lines,
                env=dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=f"{desk.state}/receiver"))
        await_until(lambda: "NET-SNMP version" in traps.read_text(), "snmptrapd listens")
        desk.domectl("event", "temperature", 0, 31)
        await_until(lambda: f".{OID['temperature']} = Gauge32: 31" in traps.read_text(), "the trap has arrived")
    finally:
        if receiver:
            receiver.terminate()
            receiver.wait(10)
        desk.close()


class LeanFieldDesk(FieldDesk):
    """With both choices of an operator: only the parts that a camera needs, and no TCP wrappers."""

    def __init__(self):
        super().__init__()
        text = self.configuration.read_text()
        text = replace_once(text, r"^#dlmod orvexnowrap .*$", f"dlmod orvexnowrap {BUILD}/lib/orvexnowrap.so")
        self.configuration.write_text(replace_once(text, r"^doNotRetainNotificationLogs yes\n", ""))

    def agent_command(self):
        command = super().agent_command()
        command[command.index("-I") + 1] = AGENT_PARTS[1]
        return command


def test_a_camera_with_few_parts_and_without_wrappers_serves_the_same():
    with LeanFieldDesk() as desk:
        desk.add_users(*ROLES)
        desk.start()
        for user in ROLES:
            answer = desk.ask(user, "snmpget", *(row.oid for row in ROWS))
            assert (answer.status, [oid for oid, kind, _ in answer.triples if kind is None]) == (0, []), answer.error
        assert reason(desk.ask("operator", "snmpset", REBOOT, "i", "1")) == "noAccess"
        for part in ["1.3.6.1.2.1.1", "1.3.6.1.2.1.11", "1.3.6.1.6.3.10.2.1"]:
            assert len(desk.ask("reader", "snmpwalk", part).triples) > 3
        assert desk.ask_community("2c", "public", "snmpget", READY).triples == []
        complaints = [line for line in desk.log("agent").splitlines() if "nknown" in line or "rror" in line]
        assert complaints == []
