"""domectl trace: what real managers asked, what the agent and the camera made of it, and why nothing happened."""

import ipaddress
import json
import os
import random
import re
import signal
import socket
import struct
import subprocess
import threading
import time

import pytest

import ber
from desk import AGENT, BUILD, ManagerOf, await_until
from expected_tree import OID, ORVEX

MEMBERS = ["number", "time", "peer", "version", "who", "pdu", "id", "bindings", "error", "index", "reason", "answer",
           "microseconds", "calls", "motions", "traps", "failed"]
PAN, TILT, ZOOM, IRIS = (OID[name] for name in ("positionPan", "positionTilt", "positionZoomLens", "positionIrisLens"))
STOP_PAN = "00000000"


def trace(desk, *options):
    """All entries, or those that the options select."""
    return [json.loads(line) for line in desk.domectl("trace", "--json", *options).splitlines()]


def last_number(desk):
    return max((entry["number"] or 0 for entry in trace(desk)), default=0)


def run_tool(desk, tool, *words, community="public", version="2c", security=()):
    who = security or ("-c", community)
    command = [tool, f"-v{version}", *who, "-t", "2", "-r", "0", "-On", f"127.0.0.1:{desk.port}", *words]
    environment = dict(desk.environment, SNMPCONFPATH=str(desk.state / "snmp"))
    return subprocess.run(command, env=environment, capture_output=True, text=True, timeout=30)


class Asking:
    """Asks by the tools; the entries that came of it."""

    def __init__(self, desk):
        self.desk, self.since = desk, last_number(desk)

    def entries(self):
        return trace(self.desk, "--since", self.since)

    def requests(self):
        return [entry for entry in self.entries() if entry["pdu"] not in ("trap", "domectl", "page")]

    def one(self):
        requests = await_until(self.requests, "a record")
        assert len(requests) == 1, requests
        return requests[0]

    def tool(self, *words, **options):
        """The one record of what this tool asks."""
        run_tool(self.desk, *words, **options)
        return self.one()

    def set(self, *words, **options):
        return self.tool("snmpset", *words, community="private", **options)


@pytest.fixture
def asking(camera):
    camera.domectl("clock", "run")
    camera.domectl("clock", "rate", 1)
    return Asking(camera)


@pytest.fixture
def fault(camera):
    changed = []

    def change(service, treatment):
        changed.append(service)
        camera.domectl("fault", service, treatment)

    yield change
    for service in changed:
        camera.domectl("fault", service, "ok")
        await_until(lambda: answers_again(camera), "the service answers")


def answers_again(desk):
    """Asks the focus, pan and temperature services until none is silent."""
    since = last_number(desk)
    run_tool(desk, "snmpget", OID["temperature"], OID["positionFocusLens"])
    run_tool(desk, "snmpset", PAN, "x", STOP_PAN, community="private")
    calls = [call for entry in trace(desk, "--since", since) for call in entry["calls"]]
    return calls and all(call["outcome"] == "answered" for call in calls)


def test_every_entry_has_all_members_in_their_order(camera, asking):
    run_tool(camera, "snmpget", OID["modelName"])
    camera.domectl("set", "pan", 1000)
    entries = asking.entries()
    assert {entry["pdu"] for entry in entries} == {"GET", "domectl"}
    for entry in entries:
        assert [member for member in entry if member not in ("lost", "cut", "words")] == MEMBERS
        assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z", entry["time"])


def test_a_get_is_reported_from_the_wire_to_the_answer(asking):
    entry = asking.tool("snmpget", OID["modelName"])
    assert (entry["pdu"], entry["version"], entry["who"], entry["error"], entry["index"]) == ("GET", "2c", "reader", "noError", 0)
    assert entry["peer"].startswith("127.0.0.1:") and entry["id"] > 0 and entry["microseconds"] > 0
    assert entry["bindings"] == [{"oid": OID["modelName"], "name": "modelName", "type": "NULL", "value": "", "meaning": ""}]
    assert entry["answer"] == [{"oid": OID["modelName"], "name": "modelName", "type": "OCTET STRING",
                                "value": "Orvex Dome D20", "meaning": ""}]
    assert (entry["reason"], entry["failed"], entry["calls"], entry["motions"]) == ("", False, [], [])


def test_a_set_of_version_1_is_shown_as_such(asking):
    entry = asking.set(PAN, "x", STOP_PAN, version="1")
    assert (entry["version"], entry["who"], entry["bindings"][0]["meaning"]) == ("1", "writer", "stop")


# The daily question: each was refused or did nothing.

REFUSED = [
    ("a position out of range", (PAN, "x", "02408ca0"), "genErr", "out of range: the position 36000 is above 35999"),
    ("an unknown mode", (PAN, "x", "07000000"), "genErr", "unknown mode 7"),
    ("a stop with a speed", (PAN, "x", "00050000"), "genErr", "out of range: a stop has the speed 0, not 5"),
    ("a lens speed of -128", (ZOOM, "x", "03800000"), "genErr", "out of range: the speed -128 is below -127"),
    ("a read-only object", (OID["modelName"], "s", "x"), "notWritable", "not writable: modelName is read-only"),
    ("a timeout", (OID["timeoutPan"], "i", "5"), "genErr", "timeouts refuse each SET"),
    ("another type", (OID["rebootDevice"], "s", "x"), "wrongType", "wrong type: rebootDevice takes INTEGER, not OCTET STRING"),
    ("another value", (OID["rangeTrueNorthOffset"], "i", "5"), "wrongValue", "wrong value: takes 0 and 65535 only, not 5"),
    ("a feature that is not equipped", (OID["systemLensEquipped"], "x", "ff"), "genErr", "wrong value: takes 40"),
    ("what is always refused", (OID["systemCameraEquipped"], "x", "01"), "genErr", "each SET is refused"),
    ("an unknown OID", (f"{ORVEX}.99.1.0", "i", "1"), "notWritable", f"no such object: the agent serves nothing at {ORVEX}.99.1.0"),
    ("another instance", (f"{PAN}.0", "x", STOP_PAN), "noCreation", "no such instance: positionPan.0.0"),
    ("a relay's row that is not there", (f"{ORVEX}.1.3.2.1.3.99", "i", "1"), "noCreation", "no such instance: relayStatesTable state 99"),
    ("an object outside the view", ("1.3.6.1.2.1.1.5.0", "s", "x"), "noAccess", "refused by the view: writer may not write sysName"),
]


@pytest.mark.parametrize(("words", "error", "reason"), [row[1:] for row in REFUSED], ids=[row[0] for row in REFUSED])
def test_a_set_that_is_refused_says_why(asking, words, error, reason):
    entry = asking.set(*words)
    assert (entry["error"], entry["failed"]) == (error, True)
    assert reason in entry["reason"]


WITHOUT_EFFECT = [
    ("a preset that is stored", (OID["presetStorePosition"], "i", "3"), "presets are not stored"),
    ("a preset that is gone to", (OID["presetGotoPosition"], "i", "3"), "presets are not stored: nothing moves"),
    ("a speed of -128", (PAN, "x", "03800000"), "out of range: the speed -128 is below -127, nothing moves"),
    ("an iris position", (IRIS, "x", "02400000"), "delta and absolute commands move nothing"),
    ("true north", (OID["rangeTrueNorthOffset"], "i", "0"), "only stored"),
    ("a camera feature", (OID["systemCameraFeatureControl"], "x", "8080"), "only stored: this camera drives no such feature"),
    ("no lens feature", (OID["systemLensFeatureControl"], "x", "0080"), "no feature is selected"),
    ("no relay", (OID["outputControl"], "x", "0080"), "no relay is selected"),
]


@pytest.mark.parametrize(("words", "reason"), [row[1:] for row in WITHOUT_EFFECT], ids=[row[0] for row in WITHOUT_EFFECT])
def test_a_set_that_succeeds_without_effect_says_why(asking, words, reason):
    entry = asking.set(*words)
    assert (entry["error"], entry["failed"]) == ("noError", True)
    assert reason in entry["reason"]


def test_a_short_value_is_taken_and_explained(asking):
    entry = asking.set(PAN, "x", "00")
    assert (entry["failed"], entry["reason"]) == (False, "only 1 octets: missing ones count as 0")


def test_of_two_bindings_the_refused_one_is_named(asking):
    entry = asking.set(OID["presetGotoPosition"], "i", "1", PAN, "x", "09000000")
    assert (entry["error"], entry["index"]) == ("genErr", 0)
    assert entry["reason"].startswith("positionPan: unknown mode 9")
    assert "the other bindings have acted" in entry["reason"]


READ = [
    ("an unknown OID", f"{ORVEX}.99.1.0", "noSuchObject", "no such object"),
    ("another instance", f"{ORVEX}.1.1.2.1", "noSuchObject", "no such instance: modelName.1"),
    ("an object outside the view", "1.3.6.1.4.1.2021.13.14.2.1.2.1", "noSuchObject", "refused by the view: reader may not read"),
]


@pytest.mark.parametrize(("oid", "type_", "reason"), [row[1:] for row in READ], ids=[row[0] for row in READ])
def test_a_get_of_nothing_says_why(asking, oid, type_, reason):
    entry = asking.tool("snmpget", oid)
    assert reason in entry["reason"] and entry["failed"]
    assert entry["answer"][0]["type"] == type_


def test_a_get_of_version_1_of_nothing_says_why(asking):
    entry = asking.tool("snmpget", f"{ORVEX}.99.1.0", version="1")
    assert (entry["error"], entry["failed"]) == ("noSuchName", True)
    assert "no such object" in entry["reason"]


def test_a_wrong_community_is_shown_as_it_was_and_dropped(asking):
    entry = asking.tool("snmpget", OID["modelName"], community="guess")
    assert (entry["who"], entry["error"], entry["answer"], entry["failed"]) == ("guess", None, None, True)
    assert entry["reason"] == "wrong community"


def test_a_right_community_is_never_shown(camera, asking):
    run_tool(camera, "snmpget", OID["modelName"])
    run_tool(camera, "snmpset", PAN, "x", STOP_PAN, community="private")
    await_until(lambda: len(asking.requests()) == 2, "both")
    for options in ["--json"], ["--details"]:
        said = camera.domectl("trace", *options, "--since", asking.since)
        assert "reader" in said and "writer" in said
        assert "public" not in said and "private" not in said


def test_the_readers_community_may_not_write(asking):
    entry = asking.tool("snmpset", PAN, "x", STOP_PAN)
    assert (entry["who"], entry["error"]) == ("reader", "noAccess")
    assert entry["reason"] == "refused by the view: reader may not write positionPan"


def test_the_end_of_the_view_is_no_failure(asking):
    entry = asking.tool("snmpgetnext", "1.3.9")
    assert (entry["reason"], entry["failed"]) == ("end of view", False)


def test_a_broken_message_says_what_is_wrong(camera, asking):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.sendto(ber.encode(ber.GET, [(PAN, ber.NULL, b"")])[:-4], ("127.0.0.1", camera.port))
    entry = asking.one()
    assert (entry["error"], entry["failed"]) == (None, True)
    assert re.match(r"broken message: the message has a length of \d+ octets, but \d+ are left", entry["reason"])


# SNMPv3


def user(desk, name="desk", **changed):
    phrases = dict(line.split(" ", 1) for line in (desk.state / "v3" / "snmp.conf").read_text().splitlines())
    phrases.update(changed)
    return ("-u", name, "-l", "authPriv", "-a", "SHA", "-A", phrases["defAuthPassphrase"], "-x", "AES", "-X",
            phrases["defPrivPassphrase"])


def test_an_encrypted_request_is_shown_in_plain_words(camera, asking):
    run_tool(camera, "snmpset", PAN, "x", "02404650", version="3", security=user(camera))
    requests = await_until(asking.requests, "records")
    assert all("discovery" in entry["reason"] and not entry["failed"] for entry in requests[:-1])
    entry = requests[-1]
    assert (entry["version"], entry["who"], entry["pdu"], entry["error"]) == ("3", "desk authPriv", "SET", "noError")
    assert entry["bindings"][0]["meaning"] == "go to 180.00° at 50 %, clockwise"
    assert entry["answer"][0]["value"] == "02 40 46 50"


V3_REFUSED = [
    ("a wrong key", "desk", {"defAuthPassphrase": "wrongwrong"}, "usmStatsWrongDigests", "wrong key: the authentication pass phrase"),
    ("a wrong privacy key", "desk", {"defPrivPassphrase": "wrongwrong"}, None, "wrong key: it could not be decrypted"),
    ("an unknown user", "nobody", {}, "usmStatsUnknownUserNames", "unknown user: the agent has no user \"nobody\""),
]


@pytest.mark.parametrize(("name", "changed", "error", "reason"), [row[1:] for row in V3_REFUSED],
                         ids=[row[0] for row in V3_REFUSED])
def test_a_refused_user_says_why(camera, asking, name, changed, error, reason):
    run_tool(camera, "snmpget", OID["modelName"], version="3", security=user(camera, name, **changed))
    entry = await_until(lambda: [entry for entry in asking.requests() if entry["failed"]], "a failed record")[-1]
    assert reason in entry["reason"]
    assert entry["error"] == error


def test_a_user_below_its_level_is_refused(camera, asking):
    security = ("-u", "desk", "-l", "noAuthNoPriv")
    run_tool(camera, "snmpget", OID["modelName"], version="3", security=security)
    entry = await_until(asking.requests, "records")[-1]
    assert (entry["who"], entry["error"], entry["failed"]) == ("desk noAuthNoPriv", "authorizationError", True)
    assert "refused by the view: no access rule for desk noAuthNoPriv" in entry["reason"]


# The camera's services


def test_a_service_that_hangs_and_its_silent_followers(camera, asking, fault):
    fault("pan", "hang")
    first = asking.set(PAN, "x", "02404650")
    assert (first["error"], first["failed"]) == ("noError", True)
    assert first["reason"] == "the pan service gave no answer within 500 ms: nothing moved"
    call = first["calls"][-1]
    assert (call["service"], call["operation"], call["outcome"]) == ("pan", "SetPositionAtSpeed", "failed")
    assert call["microseconds"] > 400_000 and call["arguments"][0] == 180000
    second = Asking(camera).set(PAN, "x", "02404650")
    assert second["error"] == "noError" and second["failed"] and second["calls"][-1]["outcome"] == "not made"
    assert re.fullmatch(rf"not called: the pan service is silent since [\d:.]+ \(record {first['number']}\): nothing moved",
                        second["reason"])


@pytest.mark.parametrize(("treatment", "reason"), [("fail", "the pan service failed: "), ("gone", "the pan service is missing")])
def test_a_service_that_fails_says_so(asking, fault, treatment, reason):
    fault("pan", treatment)
    entry = asking.set(PAN, "x", "02404650")
    assert (entry["error"], entry["failed"]) == ("noError", True)
    assert entry["reason"].startswith(reason) and entry["reason"].endswith(": nothing moved")


def test_a_reading_that_fails_says_so(asking, fault):
    fault("temperature", "fail")
    entry = asking.tool("snmpget", OID["temperature"])
    assert (entry["error"], entry["failed"]) == ("genErr", True)
    assert entry["reason"].startswith("the temperature service failed: ")


# Motions


def ended(asking, number=0):
    """The request's entry, once all its motions have ended."""

    def done():
        entry = asking.requests()[number]
        return entry if entry["motions"] and all(m["end"] != "moving" for m in entry["motions"]) else None

    return await_until(done, "the motions end")


def test_a_set_is_followed_until_it_arrives(camera, asking):
    camera.domectl("set", "pan", 90000)
    camera.domectl("clock", "rate", 100)
    entry = asking.set(PAN, "x", "02404650")
    assert entry["bindings"][0]["meaning"] == "go to 180.00° at 50 %, clockwise"
    assert entry["calls"][-1]["operation"] == "SetPositionAtSpeed" and entry["calls"][-1]["outcome"] == "answered"
    (motion,) = ended(asking)["motions"]
    assert (motion["axis"], motion["from"], motion["target"], motion["end"], motion["position"]) == (
        "pan", 90000, 180000, "arrived", 180000)
    assert motion["seconds"] > 0 and motion["words"].startswith("pan from 90.00° to 180.00°: arrived at 180.00° after ")


def test_a_set_that_is_replaced_names_the_request_that_replaced_it(camera, asking):
    camera.domectl("set", "pan", 0)
    run_tool(camera, "snmpset", PAN, "x", "03100000", community="private")
    run_tool(camera, "snmpset", PAN, "x", "02404650", community="private")
    (motion,) = ended(asking, 0)["motions"]
    assert (motion["end"], motion["by"]) == ("replaced", {"request": asking.requests()[1]["number"]})
    assert not asking.requests()[0]["failed"]


def test_a_set_that_is_stopped_names_the_request_that_stopped_it(camera, asking):
    run_tool(camera, "snmpset", PAN, "x", "03100000", community="private")
    run_tool(camera, "snmpset", PAN, "x", STOP_PAN, community="private")
    (motion,) = ended(asking, 0)["motions"]
    assert (motion["end"], motion["by"]) == ("stopped", {"request": asking.requests()[1]["number"]})


def test_a_motion_ends_at_its_limit(camera, asking):
    camera.domectl("set", "tilt", 0)
    camera.domectl("clock", "rate", 100)
    asking.set(TILT, "x", "037f0000")
    entry = ended(asking)
    assert entry["motions"][0]["end"] == "limit" and not entry["failed"]
    again = Asking(camera)
    again.set(TILT, "x", "037f0000")
    entry = ended(again)
    assert (entry["reason"], entry["failed"]) == ("it is at its limit already: nothing moved", True)


def test_a_move_to_where_it_is_moves_nothing(camera, asking):
    camera.domectl("set", "pan", 180000)
    asking.set(PAN, "x", "02404650")
    entry = ended(asking)
    assert (entry["error"], entry["reason"], entry["failed"]) == ("noError", "it is there already: nothing moved", True)


def test_a_delta_from_below_the_horizon_says_why_nothing_moved(camera, asking):
    camera.domectl("set", "tilt", -20000)
    entry = asking.set(TILT, "x", "01400064")
    assert entry["error"] == "noError" and entry["failed"]
    assert "a delta from below the horizon" in entry["reason"]


def test_what_domectl_did_stands_in_the_list(camera, asking):
    run_tool(camera, "snmpset", PAN, "x", "03100000", community="private")
    camera.domectl("set", "pan", 5000)
    entries = asking.entries()[-2:]
    assert [entry["pdu"] for entry in entries] == ["SET", "domectl"]
    assert entries[1]["words"] == "set pan 5000" and not entries[1]["failed"]
    assert entries[0]["motions"][0]["end"] == "jumped"
    assert entries[0]["motions"][0]["by"] == {"action": entries[1]["id"]}


# Traps


def test_an_event_is_followed_to_its_trap(camera, asking):
    camera.domectl("event", "temperature", 0, 61)
    trap = await_until(lambda: [entry for entry in asking.entries() if entry["pdu"] == "trap"], "the trap")[-1]
    assert [binding["name"] for binding in trap["bindings"]][-2:] == ["snmpTrapOID", "temperature"]
    assert (trap["bindings"][-1]["value"], trap["bindings"][-1]["meaning"]) == ("61", "61 °C")
    (told,) = trap["traps"]
    assert told["receivers"] == [{"peer": f"127.0.0.1:{camera.trap_port}", "sent": True}]
    assert (told["trap"], told["event"]["event"], told["event"]["value"]) == ("temperature", "temperature", 61)
    action = [entry for entry in asking.entries() if entry["pdu"] == "domectl"][-1]
    assert told["event"]["cause"] == {"action": action["id"]}


# Many


def test_a_walk_has_one_record_a_request(camera, asking):
    walked = run_tool(camera, "snmpwalk", "1.3.6.1.4.1.1206.4.2").stdout.splitlines()
    assert len(walked) > 40
    requests = asking.requests()
    assert len(requests) == len(walked) + 1
    assert not [entry for entry in requests if entry["failed"]]
    numbers = [entry["number"] for entry in requests]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))


def test_a_flood_of_rubbish_is_reported_message_by_message(camera, asking):
    dice = random.Random(13)
    good = ber.encode(ber.SET, [(PAN, ber.OCTET_STRING, bytes(4))], "guess")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.connect(("127.0.0.1", camera.port))
        for number in range(500):
            octets = bytearray(good)
            for _ in range(dice.randint(1, 4)):
                octets[dice.randrange(len(octets))] = dice.randrange(256)
            sender.send(bytes(octets[:dice.randint(1, len(octets))]))
            if number % 20 == 0:
                with ManagerOf(camera) as manager:  # lets the agent keep up
                    manager.get(OID["modelName"])
    requests = asking.requests()
    rubbish = [entry for entry in requests if entry["who"] != "reader"]
    assert len(rubbish) == 500 and not [entry for entry in requests if "lost" in entry]
    assert all(entry["failed"] and entry["reason"] for entry in rubbish)


def test_five_pollers_with_200_requests_a_second_lose_nothing(camera, asking):
    pollers, each, interval = 5, 200, 0.025

    def poll():
        with ManagerOf(camera) as manager:
            started = time.monotonic()
            for number in range(each):  # each at its time, so that a slow answer does not lower the rate
                time.sleep(max(0, started + number * interval - time.monotonic()))
                manager.get(OID["modelName"])

    follower = subprocess.Popen([BUILD / "bin" / "domectl", "--state", camera.state, "trace", "--follow", "--json"],
                                env=camera.environment, stdout=subprocess.PIPE, text=True)
    try:
        wait_for_follower(camera, follower)
        threads = [threading.Thread(target=poll) for _ in range(pollers)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        run_tool(camera, "snmpget", OID["hwVersion"])
        names = {name: 0 for name in ("modelName", "hwVersion")}
        while not names["hwVersion"]:
            entry = json.loads(follower.stdout.readline())
            assert "lost" not in entry
            name = entry["bindings"][0]["name"] if entry["bindings"] else None
            if name in names:
                names[name] += 1
    finally:
        follower.kill()
        follower.wait()
        follower.stdout.close()
    assert names["modelName"] == pollers * each


# Options


def wait_for_follower(desk, follower):
    """Asks for sysUpTime until the follower shows it."""
    os.set_blocking(follower.stdout.fileno(), False)

    def shown():
        run_tool(desk, "snmpget", "1.3.6.1.2.1.1.3.0")
        return follower.stdout.readline()

    await_until(shown, "the follower shows a record")
    os.set_blocking(follower.stdout.fileno(), True)


def test_options_select(camera, asking):
    run_tool(camera, "snmpget", OID["modelName"])
    run_tool(camera, "snmpset", PAN, "x", "09000000", community="private")
    await_until(lambda: len(asking.requests()) == 2, "both")
    since = ("--since", asking.since)
    assert [entry["pdu"] for entry in trace(camera, *since, "--failed")] == ["SET"]
    assert [entry["pdu"] for entry in trace(camera, *since, "--object", "MODEL")] == ["GET"]
    assert [entry["pdu"] for entry in trace(camera, *since, "--object", "1.3.6.1.4.1.1206")] == ["SET"]
    assert len(trace(camera, *since, "--peer", "127.0.0.1")) == 2
    assert len(trace(camera, *since, "--peer", asking.requests()[0]["peer"])) == 1
    assert trace(camera, *since, "--peer", "192.0.2.1") == []


@pytest.mark.parametrize(("words", "message"), [(["--fast"], "trace: unknown word '--fast', expected --follow, "),
                                                (["--since"], "trace --since: its value is missing"),
                                                (["--since", "x"], "trace --since: not a record's number: x"),
                                                (["now"], "trace: unknown word 'now', expected --follow, ")])
def test_a_wrong_option_is_named(camera, words, message):
    done = camera.try_domectl("trace", *words)
    assert done.returncode == 2 and message in done.stderr and done.stdout == ""


def test_plain_lines_are_at_most_120_columns_wide(camera, asking):
    run_tool(camera, "snmpget", *[OID[name] for name in ("modelName", "moduleVersion", "serialNumber")])
    run_tool(camera, "snmpset", PAN, "x", "02408ca0", OID["presetGotoPosition"], "i", "1", community="private")
    run_tool(camera, "snmpget", OID["modelName"], community="x" * 200)
    await_until(lambda: len(asking.requests()) == 3, "all")
    for options in [], ["--details"]:
        lines = camera.domectl("trace", "--since", asking.since, "--peer", "127.0.0.1", *options).splitlines()
        assert max(map(len, lines)) <= 120
        assert len([line for line in lines if not line.startswith("             ")]) == 3
    assert "why: positionPan: out of range" in camera.domectl("trace", "--since", asking.since)


IS_OWN_PORT_UNKNOWN = AGENT <= (5, 4, 2)  # this agent's transports do not name it


def packets(octets):
    """(source port, destination port, payload) of each packet of a capture of raw IPv4."""
    magic, *_, link = struct.unpack("=IHHiIII", octets[:24])
    assert (magic, link) == (0xA1B2C3D4, 101)
    octets, found = octets[24:], []
    while octets:
        _, micros, length, original = struct.unpack("=IIII", octets[:16])
        packet, octets = octets[16:16 + length], octets[16 + length:]
        assert micros < 1_000_000 and length == original == len(packet)
        assert packet[0] == 0x45 and packet[9] == 17 and struct.unpack("!H", packet[2:4])[0] == length
        assert checksum(packet[:20]) == 0
        assert checksum(packet[12:20] + b"\0\x11" + packet[24:26] + packet[20:]) == 0
        hosts = {str(ipaddress.ip_address(host)) for host in (packet[12:16], packet[16:20])}
        assert hosts == {"127.0.0.1"}
        source, target, size, _ = struct.unpack("!HHHH", packet[20:28])
        assert size == length - 20
        found.append((source, target, packet[28:]))
    return found


def checksum(octets):
    total = sum(struct.unpack(f"!{(len(octets) + 1) // 2}H", octets + b"\0" * (len(octets) % 2)))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def test_a_capture_has_both_directions_and_traps_as_on_the_wire(camera, asking, tmp_path):
    message = ber.encode(ber.GET, [(OID["modelName"], ber.NULL, b"")])
    with ManagerOf(camera) as manager:
        manager.exchange(message)
        port = manager._socket.getsockname()[1]
    camera.domectl("event", "voltage", 3)
    await_until(lambda: [entry for entry in asking.entries() if entry["pdu"] == "trap"], "the trap")
    camera.domectl("trace", "--since", asking.since, "--pcap", tmp_path / "all.pcap")
    asked, answered, trapped = packets((tmp_path / "all.pcap").read_bytes())
    own_port = 0 if IS_OWN_PORT_UNKNOWN else camera.port
    assert asked == (port, own_port, message)
    assert answered[:2] == (own_port, port) and ber.Message(answered[2]).bindings[0].octets == b"Orvex Dome D20"
    assert trapped[1] == camera.trap_port and ber.Message(trapped[2]).pdu == ber.TRAP2


def test_a_capture_that_cannot_be_written_is_an_error(camera):
    done = camera.try_domectl("trace", "--pcap", "/nowhere/all.pcap")
    assert (done.returncode, done.stderr) == (1, "domectl: /nowhere/all.pcap cannot be written\n")


def test_following_shows_a_motion_again_when_it_has_ended_and_the_next_agent(desk):
    desk.start()
    follower = subprocess.Popen([BUILD / "bin" / "domectl", "--state", desk.state, "trace", "--follow", "--json"],
                                env=desk.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def next_of(name):
        while True:
            entry = json.loads(follower.stdout.readline())
            if entry["bindings"] and entry["bindings"][0]["name"] == name:
                return entry

    try:
        wait_for_follower(desk, follower)
        run_tool(desk, "snmpset", PAN, "x", "02400bb8", community="private")
        first, second = next_of("positionPan"), next_of("positionPan")
        assert first["number"] == second["number"]
        assert [first["motions"][0]["end"], second["motions"][0]["end"]] == ["moving", "arrived"]
        desk.end("agent")
        desk.start_agent()
        run_tool(desk, "snmpget", OID["hwVersion"])
        assert next_of("hwVersion")["number"] < first["number"] + 100
    finally:
        follower.send_signal(signal.SIGTERM)
        _, said = follower.communicate(timeout=10)
    assert "the agent has ended" in said


def test_without_the_camera_the_agents_part_is_shown(desk):
    desk.start()
    desk.end("dome")
    since = last_number_without_camera(desk)
    run_tool(desk, "snmpget", OID["modelName"])
    done = desk.try_domectl("trace", "--json", "--since", since)
    assert done.returncode == 0 and "modelName" in done.stdout
    assert "no answer from the camera" in done.stderr


def last_number_without_camera(desk):
    lines = desk.try_domectl("trace", "--json").stdout.splitlines()
    return max(json.loads(line)["number"] or 0 for line in lines)


def test_a_notification_of_the_agent_is_shown_by_its_name(desk):
    desk.start()
    lines = desk.domectl("trace").splitlines()
    assert [line for line in lines if " trap " in line and "sent" in line and "coldStart" in line]


def test_a_camera_that_has_done_nothing_is_shown_without_an_agent(desk):
    desk.start_bus()
    desk.start_dome()
    done = desk.try_domectl("trace")
    assert done.returncode == 0 and "trace.sock" in done.stderr and done.stdout == ""


def test_records_that_are_gone_are_counted_for_the_first_one(desk):
    desk.environment["ORVEX_TRACE_KIB"] = "256"
    desk.start()
    with ManagerOf(desk) as manager:
        for _ in range(1500):
            manager.get(OID["modelName"])
    entries = trace(desk)
    assert entries[0]["lost"] == entries[0]["number"] - 1 > 0
    assert "lost" not in trace(desk, "--since", entries[0]["number"])[0]


def test_without_agent_and_camera_it_fails(desk):
    desk.start_bus()
    done = desk.try_domectl("trace")
    assert done.returncode == 1 and "trace.sock" in done.stderr and done.stdout == ""
