"""Each manager reads everything, moves the camera and reports refusals."""

import subprocess

import pytest

import ber
from commands import calls
from desk import BUILD, ROOT, Desk, await_until
from expected_tree import OID, ORVEX, ROWS, SUBTREES
from managers import MANAGERS, manager, user_of_3

TYPES = {ber.INTEGER: "INTEGER", ber.GAUGE32: "Gauge32", ber.OCTET_STRING: "OCTET STRING"}
EVERYTHING = [(row.oid, TYPES[row.tag], row.value.hex() if isinstance(row.value, bytes) else row.value) for row in ROWS]
PAN = OID["positionPan"]


def test_it_reads_everything(camera, any_manager):
    _, manager = any_manager
    replies = [manager.walk(subtree) for subtree in SUBTREES]
    assert [reply.error for reply in replies] == ["", ""]
    assert [value for reply in replies for value in reply.values] == EVERYTHING


def test_it_moves_the_camera(camera, any_manager):
    _, manager = any_manager
    reply = manager.set(PAN, "OCTET STRING", "02404650")
    assert reply == ([(PAN, "OCTET STRING", "02404650")], "")
    assert calls(camera) == ["pan SetPositionAtSpeed 180000 0.503937 300"]
    await_until(lambda: camera.dome_state()["pan"]["position"] == 180000, "the pan is at 180 degrees")
    assert manager.get(PAN).values == [(PAN, "OCTET STRING", "02404650")]


@pytest.mark.parametrize(
    ("name", "kind", "value", "error", "error_of_1"),
    [
        ("rangePanLeftLimit", "INTEGER", 1, "notWritable", "noSuchName"),
        ("timeoutPan", "INTEGER", 1, "genErr", "genErr"),
        ("positionPan", "OCTET STRING", "00010000", "genErr", "genErr"),
    ],
)
def test_it_gets_the_error_of_a_set(camera, any_manager, name, kind, value, error, error_of_1):
    version, manager = any_manager
    reply = manager.set(OID[name], kind, value)
    assert reply.values is None
    assert says(reply, error_of_1 if version == "1" else error)
    assert calls(camera) == []


@pytest.mark.parametrize(("oid", "absent"), [(f"{PAN}.0", "noSuchInstance"), (f"{PAN[:-1]}7", "noSuchObject")])
def test_it_gets_the_exception_of_a_missing_object(camera, any_manager, oid, absent):
    version, manager = any_manager
    reply = manager.get(oid)
    if version == "1":
        assert reply.values is None
        assert says(reply, "noSuchName")
    else:
        assert reply == ([(oid, absent, None)], "")


def test_a_walk_ends_at_a_sensor_that_fails(camera, any_manager):
    _, manager = any_manager
    camera.domectl("fault", "power", "fail")
    try:
        reply = manager.walk(ORVEX)
    finally:
        camera.domectl("fault", "power", "ok")
    if manager.name == "ruby-snmp":
        before = [value for value in EVERYTHING if value[0].startswith(f"{ORVEX}.")][:7]
        assert reply == (before, "")  # the manager reports nothing
    else:
        assert reply.values is None
        assert says(reply, "genErr")


def test_managers_of_version_3_find_a_restarted_agent(camera):
    """The agent keeps its engine ID and increments its boot count. Net::SNMP requires a second try to see the new
    count."""
    oid = OID["modelName"]
    managers = [manager(camera, name, version) for name, version in MANAGERS if version == "3"]
    try:
        before = [each.get(oid) for each in managers]
        assert [reply.error for reply in before] == [""] * len(managers)
        camera.end("agent")
        camera.start_agent()
        first = [each.get(oid) for each in managers]
        again = [each.get(oid) for each in managers]
    finally:
        for each in managers:
            each.close()
    assert [each.name for each, reply in zip(managers, first) if reply.error] == ["Net::SNMP"]
    assert again == before


def test_the_user_of_version_3_comes_with_privacy_only(camera):
    """A manager with wrong pass phrases gets no value."""
    file = camera.state / "v3" / "snmp.conf"
    assert file.stat().st_mode & 0o777 == 0o600
    for options, complaint in [(["-l", "noAuthNoPriv"], "authorizationError"),
                               (["-l", "authNoPriv"], "authorizationError"),
                               (["-A", "a wrong pass phrase"], "Authentication failure")]:
        done = subprocess.run(["snmpget", *options, "-r", "0", f"127.0.0.1:{camera.port}", OID["modelName"]],
                              env=dict(camera.environment, SNMPCONFPATH=str(file.parent)), capture_output=True, text=True,
                              timeout=20)
        assert done.returncode != 0
        assert complaint in done.stderr


def test_pass_phrases_are_a_cameras_own_and_stay(camera):
    desk = Desk()
    try:
        first = user_of_3(desk)
        others = user_of_3(camera)
        subprocess.run([ROOT / "scripts" / "prepare-state", BUILD, desk.state, str(desk.port), str(desk.trap_port)],
                       check=True, timeout=20)
        assert user_of_3(desk) == first
    finally:
        desk.close()
    phrases = [user[part] for user in (first, others) for part in ("authentication", "privacy")]
    assert len(set(phrases)) == 4
    assert all(len(phrase) == 32 for phrase in phrases)


def says(reply, error):
    """Each manager writes an error's name differently: genErr, genError, GeneralError."""
    said = reply.error.lower().replace(" ", "").replace("generalerror", "generror")
    return error.lower() in said
