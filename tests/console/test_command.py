"""Commands that the console sends to the agent by SNMP, and what it says of them."""

import http.client
import json
import os
import signal
import tomllib

import pytest

from desk import ROOT, await_until
from expected_tree import OID

PAN, TILT = OID["positionPan"], OID["positionTilt"]
RELAY_STATE = "1.3.6.1.4.1.32473.1.3.2.1.3"
PAN_COMMAND = {"oid": PAN, "type": "OCTET STRING", "value": "02 7f 0b b8"}
WRITER = {"user": "writer", "version": "2c"}


def send(camera, command, **user):
    answer = camera.post("/api/command", {**command, **(user or WRITER)})
    assert answer.status == 200, answer.body
    return answer.json


def listed(camera):
    return camera.get("/api/objects").json


def record_of(camera, sent):
    """What domectl's trace says of a command that was sent."""
    def find():
        return [r for r in camera.trace() if (r["pdu"], r["id"], r["peer"]) == ("SET", sent["id"], sent["peer"])]
    return await_until(find, "the record")[0]


def table():
    """The names of the writable scalars, from the one table of objects."""
    names = []
    for section in tomllib.loads((ROOT / "orvexsnmp" / "objects.toml").read_text()).values():
        shared = section.get("access", "read-only")
        names += [name for name, thing in section.items()
                  if isinstance(thing, dict) and thing.get("access", shared) == "read-write"]
    return names


def test_every_writable_object_is_listed(camera):
    writable = [thing for thing in listed(camera)["objects"] if thing["writable"]]
    assert [thing["name"] for thing in writable] == [*table(), "relayStatesTable state"]
    assert all(thing["oid"] == OID[thing["name"]] for thing in writable if not thing["column"])
    assert [(thing["oid"], thing["type"]) for thing in writable if thing["column"]] == [(RELAY_STATE, "INTEGER")]


def test_users_are_named_without_their_secrets(camera):
    answer = camera.get("/api/objects")
    assert answer.json["users"] == [
        *[{"name": name, "version": version, "level": "", "authentication": "", "privacy": ""}
          for version in ("2c", "1") for name in ("reader", "writer")],
        {"name": "desk", "version": "3", "level": "authPriv", "authentication": "SHA", "privacy": "AES"}]
    phrases = [line.split()[1] for line in (camera.state / "v3" / "snmp.conf").read_text().splitlines() if "Passphrase" in line]
    assert len(phrases) == 2
    sent = camera.post("/api/command", {**PAN_COMMAND, "user": "desk", "version": "3"}).body
    for secret in [*phrases, "private", "public"]:
        assert secret.encode() not in answer.body + sent


@pytest.mark.parametrize("user, version, who", [
    ("writer", "2c", "writer"), ("writer", "1", "writer"), ("desk", "3", "desk authPriv")])
def test_a_command_moves_the_camera_and_has_a_record(camera, user, version, who):
    sent = send(camera, PAN_COMMAND, user=user, version=version)
    assert (sent["outcome"], sent["error"], sent["index"], sent["effect"]) == ("answered", "noError", 0, "")
    assert [(b["name"], b["value"]) for b in sent["answer"]] == [("positionPan", "02 7f 0b b8")]
    assert sent["meaning"] == "go to 30.00° at 100 %, clockwise"
    record = record_of(camera, sent)
    assert (record["who"], record["version"], record["error"]) == (who, version, "noError")
    await_until(lambda: camera.dome_state()["pan"]["position"] == 30000, "the camera has moved", 30)


@pytest.mark.parametrize("user, version, error", [("reader", "2c", "noAccess"), ("reader", "1", "noSuchName")])
def test_a_user_who_may_not_is_refused(camera, user, version, error):
    sent = send(camera, PAN_COMMAND, user=user, version=version)
    assert (sent["outcome"], sent["error"], sent["index"]) == ("answered", error, 1)


@pytest.mark.parametrize("oid, kind, value, error, refused", [
    (PAN, "OCTET STRING", "02 40 8c a0", "genErr", "out of range: the position 36000 is above 35999"),
    (OID["timeoutPan"], "INTEGER", "5", "genErr", "timeouts refuse each SET: a move continues until it is stopped"),
    (OID["rangeTrueNorthOffset"], "INTEGER", "7", "wrongValue", "wrong value: takes 0 and 65535 only, not 7"),
    (OID["rangeTrueNorthOffset"], "OCTET STRING", "00", "wrongType",
     "wrong type: rangeTrueNorthOffset takes INTEGER, not OCTET STRING"),
    (OID["rangePanLeftLimit"], "INTEGER", "5", "notWritable", "not writable: rangePanLeftLimit is read-only"),
])
def test_a_refused_command_says_why(camera, oid, kind, value, error, refused):
    sent = send(camera, {"oid": oid, "type": kind, "value": value})
    assert (sent["error"], sent["refused"]) == (error, refused)
    record = record_of(camera, sent)
    assert (record["error"], record["reason"]) == (error, refused)


def test_every_writable_object_can_be_sent(camera):
    for thing in listed(camera)["objects"]:
        if not thing["writable"]:
            continue
        value = {"OCTET STRING": "00 00", "INTEGER": "1"}[thing["type"]]
        oid = thing["oid"] + (".2" if thing["column"] else "")
        sent = send(camera, {"oid": oid, "type": thing["type"], "value": value})
        assert sent["outcome"] == "answered", thing
        assert record_of(camera, sent)["bindings"][0]["name"].startswith(thing["name"])
    assert camera.dome_state()["relay"]["BNK1"] == [False, True, False, False]


@pytest.mark.parametrize("kind, value", [
    ("OCTET STRING", ""), ("OCTET STRING", "00 ff 80 41 42"), ("INTEGER", "-2147483648"), ("INTEGER", "2147483647"),
    ("Gauge32", "4294967295"), ("Counter32", "7"), ("TimeTicks", "12345"), ("IpAddress", "10.1.2.3"),
    ("OBJECT IDENTIFIER", "1.3.6.1.4.1.4294967295"), ("Counter64", "18446744073709551615")])
def test_every_type_arrives_as_it_was_given(camera, kind, value):
    sent = send(camera, {"oid": OID["presetGotoPosition"], "type": kind, "value": value})
    asked = record_of(camera, sent)["bindings"][0]
    assert (asked["type"], asked["value"]) == (kind, value)


@pytest.mark.parametrize("change", [
    {"oid": None}, {"oid": "positionPan"}, {"oid": "1"}, {"oid": "1.3..6"}, {"oid": "1.3.6."}, {"oid": "1.40.1"}, {"oid": "3.1"},
    {"oid": "1.3." + "1." * 127 + "1"}, {"oid": "1.3.4294967296"}, {"oid": ""}, {"type": "octets"}, {"type": 4}, {"value": 5},
    {"value": "0"}, {"value": "0g"}, {"value": "02 4"}, {"value": "-1"}, {"type": "INTEGER", "value": "2147483648"},
    {"type": "INTEGER", "value": "1.5"}, {"type": "INTEGER", "value": ""}, {"type": "Gauge32", "value": "-1"},
    {"type": "IpAddress", "value": "1.2.3"}, {"type": "OBJECT IDENTIFIER", "value": "x"}, {"version": "4"}, {"version": None}], ids=str)
def test_a_malformed_command_is_refused(camera, change):
    before = len(camera.trace())
    answer = camera.post("/api/command", {**PAN_COMMAND, **WRITER, **change})
    assert (answer.status, list(answer.json)) == (400, ["error"]), answer.body
    assert len(camera.trace()) == before, "nothing was sent"


@pytest.mark.parametrize("user", [{"user": "private", "version": "2c"}, {"user": "desk", "version": "2c"},
                                  {"user": "writer", "version": "3"}, {"user": "", "version": "1"}, {"version": "2c"}], ids=str)
def test_nobody_else_can_send(camera, user):
    answer = camera.post("/api/command", {**PAN_COMMAND, **user})
    assert answer.status == 422 and "no such user" in answer.json["error"]


def test_other_pages_cannot_send(camera):
    body = {**PAN_COMMAND, **WRITER}
    assert camera.post("/api/command", body, Origin="http://example.org").status == 403
    assert camera.post("/api/command", body, Sec_Fetch_Site="cross-site").status == 403
    assert camera.post("/api/command", body, Host="example.org").status == 403
    assert camera.post("/api/command", body, Content_Type="text/plain").status == 415
    assert camera.dome_state()["pan"]["target"] is None and camera.calls() == []


def test_an_agent_that_does_not_answer_is_silent(camera):
    os.kill(camera.agent_pid(), signal.SIGSTOP)
    try:
        sent = send(camera, PAN_COMMAND)
        assert (sent["outcome"], "error" in sent) == ("silent", False)
        sent = send(camera, PAN_COMMAND, user="desk", version="3")
        assert sent["outcome"] == "failed" and sent["reason"]
    finally:
        os.kill(camera.agent_pid(), signal.SIGCONT)
    assert send(camera, PAN_COMMAND)["outcome"] == "answered", "the next one is sent"


def leave_during(camera, command, **user):
    """Posts the command; returns the connection, on which no answer has been read."""
    connection = http.client.HTTPConnection("127.0.0.1", camera.console_port, timeout=20)
    connection.request("POST", "/api/command", json.dumps({**command, **user}), {"Content-Type": "application/json"})
    return connection


def test_stale_commands_are_not_sent(camera):
    """The agent takes two seconds of silence for each of the first two."""
    before = len(camera.trace())
    commands = [{**PAN_COMMAND, "value": f"02 7f 00 0{i}"} for i in range(4)]
    os.kill(camera.agent_pid(), signal.SIGSTOP)
    try:
        connections = [leave_during(camera, command, **WRITER) for command in commands]
        connections[1].close()
        answers = [json.loads(connections[i].getresponse().read()) for i in (0, 2, 3)]
    finally:
        os.kill(camera.agent_pid(), signal.SIGCONT)
    assert [answer["outcome"] for answer in answers] == ["silent", "silent", "unsent"]
    assert answers[2]["reason"] == "it waited longer than 3 s for the agent"
    def values():
        return [r["bindings"][0]["value"] for r in camera.trace()[before:] if r["pdu"] == "SET"]
    await_until(lambda: values() == [commands[0]["value"], commands[2]["value"]], "those of the others have not been sent")


def test_sending_makes_no_folder_and_prints_nothing(desk):
    desk.start_bus()
    desk.start_agent()
    kept = desk.environment["SNMP_PERSISTENT_DIR"]
    missing = desk.state / "missing"
    desk.environment["SNMP_PERSISTENT_DIR"] = str(missing)
    desk.start_dome()
    desk.environment["SNMP_PERSISTENT_DIR"] = kept
    for user, version in (("writer", "2c"), ("desk", "3")):
        assert send(desk, PAN_COMMAND, user=user, version=version)["outcome"] == "answered"
    assert not missing.exists()
    assert "irectory" not in desk.output("dome") + desk.log("dome")


def test_without_the_agents_port_nothing_is_sent(desk):
    desk.dome_options = desk.dome_options[:2]
    desk.start_bus()
    desk.start_dome()
    assert listed(desk)["users"] == []
    answer = desk.post("/api/command", {**PAN_COMMAND, **WRITER})
    assert answer.status == 422 and "--agent-port" in answer.json["error"]


@pytest.mark.parametrize("name, kind, value, words", [
    ("positionPan", "OCTET STRING", "02 40 46 50", {"meaning": "go to 180.00° at 50 %, clockwise"}),
    ("positionPan", "INTEGER", "2", {"oddity": "the INTEGER is read as octets: positionPan takes an OCTET STRING of 4 octets"}),
    ("presetGotoPosition", "INTEGER", "3",
     {"meaning": "go to preset 3", "effect": "presets are not stored: nothing moves"}),
    ("systemLensFeatureControl", "OCTET STRING", "c0 80", {"meaning": "auto iris and auto focus on"}),
    ("outputControl", "OCTET STRING", "01 80", {"meaning": "energise relay 0 of BNK2"}),
    ("rebootDevice", "INTEGER", "1", {"meaning": "restart the camera in 3 s"}),
    ("timeoutZoom", "INTEGER", "9", {"refused": "timeouts refuse each SET: a move continues until it is stopped"}),
])
def test_words_of_a_command(camera, name, kind, value, words):
    answer = camera.post("/api/words", {"oid": OID[name], "type": kind, "value": value})
    said = answer.json
    assert answer.status == 200 and {key: said[key] for key in words} == words
    assert not [key for key in ("refused", "effect", "oddity") if said[key] and key not in words]


def test_malformed_words_are_refused(camera):
    assert camera.post("/api/words", {"oid": PAN, "type": "INTEGER", "value": "x"}).status == 400
    assert camera.post("/api/words", []).status == 400
