"""A session's requests are recorded from the trace and repeated against another camera, with the differences reported."""

import json
import os
import re
import subprocess

import pytest

import ber
from desk import BUILD, ROOT, free_udp_port
from expected_tree import CCTV, OID
from orvex_camera import DeskCamera, NoAnswer, NotServed, Recording, RecordingError, SnmpError, absolute, replay

SESSION = ROOT / "clients" / "python" / "orvex-session"


@pytest.fixture(scope="module")
def recorded(shared_desk_camera, tmp_path_factory):
    """A file with a session of each kind of request, and of each kind of value."""
    camera = shared_desk_camera
    link, reader, writer = camera.manager.link, camera.manager.reader, camera.manager.writer
    file = tmp_path_factory.mktemp("recorded") / "session.jsonl"
    with camera.recording(file):
        camera.set("positionPan", absolute(18000))
        with pytest.raises(SnmpError):
            camera.set("positionPan", absolute(36000))
        with pytest.raises(NotServed):
            camera.get(f"{CCTV}.99.0")
        with pytest.raises(SnmpError):
            camera.set("serialNumber", "61 62")  # a text that looks like octets
        camera.get("serialNumber")
        camera.get("temperature")
        camera.get("1.3.6.1.2.1.1.3.0")  # sysUpTime, which differs
        link.get_bulk(reader, 3, CCTV)
        link.get_next(reader, OID["alarmBank.6"])
        link.set(writer, (OID["relayState.1"], ber.INTEGER, b"\1"), (OID["positionTilt"], ber.IP_ADDRESS, bytes(4)))
    return file


def session(*words, **environment):
    return subprocess.run([SESSION, *map(str, words)], capture_output=True, text=True, timeout=60,
                          env=dict(os.environ, **environment))


@pytest.fixture(scope="module")
def another(desk_camera_options):
    with DeskCamera(**desk_camera_options) as camera:
        yield camera


def test_a_recording_has_every_request_with_its_answer_and_no_community(recorded):
    head, *requests = map(json.loads, recorded.read_text().splitlines())
    assert head == {"session": 1, "leftOut": 0, "lost": 0}
    assert [one["pdu"] for one in requests] == ["SET", "SET", "GET", "SET", "GET", "GET", "GET", "GETBULK", "GETNEXT", "SET"]
    assert requests[1]["error"] == "genErr"
    assert requests[7]["maxRepetitions"] == 3
    assert requests[0]["bindings"][0]["value"] == "02 7f 46 50"
    assert "private" not in recorded.read_text() and "public" not in recorded.read_text()


def test_another_camera_gets_the_same_octets_and_answers_alike(recorded, another):
    with another.recording() as repeated:
        assert replay(Recording.read(recorded), another.host, another.port) == []
    was, now = Recording.read(recorded).requests, repeated.recording.requests
    assert [one["bindings"] for one in now] == [one["bindings"] for one in was]


def test_each_answer_that_differs_is_reported(recorded, another):
    another.domectl("set", "temperature", 31)
    found = [str(one) for one in replay(Recording.read(recorded), another.host, another.port)]
    another.domectl("set", "temperature", 25)
    assert found == ["request 6 (GET temperature): temperature is 31, was 25"]


@pytest.mark.parametrize(("change", "text"), [
    (("error", "noError"), "request 2 (SET positionPan = 02 7f 8c a0): error genErr, was noError"),
    (("index", 1), "request 2 (SET positionPan = 02 7f 8c a0): genErr of binding 0, was 1"),
    (("answer", []), "request 2 (SET positionPan = 02 7f 8c a0): 1 bindings, were 0")])
def test_errors_and_bindings_are_compared(recorded, another, change, text):
    recording = Recording.read(recorded)
    recording.requests[1][change[0]] = change[1]
    assert [str(one) for one in replay(recording, another.host, another.port)] == [text]


def test_types_and_names_are_compared(recorded, another):
    recording = Recording.read(recorded)
    recording.requests[5]["answer"][0]["type"] = "INTEGER"
    recording.requests[8]["answer"][0]["oid"] += ".1"
    found = [one.text for one in replay(recording, another.host, another.port)]
    assert found[0] == "temperature has type Gauge32, was INTEGER"
    assert re.fullmatch(r"[\d.]+, was [\d.]+\.1", found[1])
    assert len(found) == 2


def test_the_command_records_and_replays_with_an_exit_status(shared_desk_camera, another, recorded, tmp_path):
    camera = shared_desk_camera
    file = tmp_path / "all.jsonl"
    done = session("record", "--state", camera.state_folder, "--domectl", BUILD / "bin" / "domectl", file)
    assert (done.returncode, done.stderr) == (0, "")
    count = len(Recording.read(file).requests)
    assert done.stdout == f"{count} requests\n" and count > 10

    words = ["replay", "--host", "127.0.0.1", "--port", another.port, "--community", "public", "--write-community", "private"]
    done = session(*words, recorded)
    assert (done.returncode, done.stdout, done.stderr) == (0, "10 requests, 0 with differences\n", "")
    another.domectl("set", "temperature", 31)
    done = session(*words, recorded)
    assert (done.returncode, done.stdout) == (1, "request 6 (GET temperature): temperature is 31, was 25\n"
                                                 "10 requests, 1 with differences\n")
    done = session(*words, "--ignore", "temperature", recorded)
    assert (done.returncode, done.stdout) == (0, "10 requests, 0 with differences\n")
    another.domectl("set", "temperature", 25)


def test_a_camera_that_stops_answering_ends_a_replay(recorded):
    port = free_udp_port()
    done = session("replay", "--host", "127.0.0.1", "--port", port, "--community", "public", "--timeout", "0.1", recorded)
    assert done.returncode == 2
    assert [line.partition(" (")[0] for line in done.stdout.splitlines()] == ["request 1", "request 2", "request 3"]
    assert done.stderr == f"orvex-session: 127.0.0.1 port {port}: 4 requests in a row were not answered\n"
    with pytest.raises(NoAnswer, match="4 requests in a row"):
        replay(Recording.read(recorded), "127.0.0.1", port, timeout=0.1)


def test_a_user_of_snmpv3_repeats_it_too(another, recorded):
    phrases = dict(line.split(maxsplit=1) for line in (another.state_folder / "v3" / "snmp.conf").read_text().splitlines())
    done = session("replay", "--host", "127.0.0.1", "--port", another.port, "--user", "desk", recorded,
                   ORVEX_SESSION_AUTHENTICATION=phrases["defAuthPassphrase"],
                   ORVEX_SESSION_PRIVACY=phrases["defPrivPassphrase"])
    assert (done.returncode, done.stdout, done.stderr) == (0, "10 requests, 0 with differences\n", "")


@pytest.mark.parametrize(("words", "reason"), [
    (["replay", "--host", "224.0.0.1", "--community", "public", "FILE"], "224.0.0.1 is not one host's address"),
    (["replay", "--host", "127.0.0.1", "FILE"], "who asks?"),
    (["replay", "--host", "127.0.0.1", "--community", "public", "missing.jsonl"], "cannot read missing.jsonl"),
    (["record", "--state", "/nowhere", "x"], "there is no /nowhere"),
    (["play", "--pace", "0", "x"], "--pace: requires a number above 0"),
])
def test_wrong_words_are_status_2_and_one_reason(words, reason, recorded):
    done = session(*(str(recorded) if word == "FILE" else word for word in words))
    assert (done.returncode, done.stdout) == (2, "")
    assert reason in done.stderr.splitlines()[-1]


HEAD = '{"session": 1, "leftOut": 0, "lost": 0}'
REQUEST = '{"after": 0, "pdu": "%s", "error": "noError", "index": 0, "bindings": [%s], "answer": []}'


@pytest.mark.parametrize(("text", "reason"), [
    ("", " is not a recording"),
    ("{}", " is not a recording"),
    ("[1]", " is not a recording"),
    ("\x00", " is not a recording"),
    (HEAD.replace("1", "2"), ": a recording of the format 2, not 1"),
    (HEAD + '\n{"pdu": "GET"}', " is not a recording"),
    (HEAD + "\n" + REQUEST % ("GET", '{"oid": 7}'), ":2: not a recorded request"),
    (HEAD + "\n" + REQUEST % ("MOVE", ""), ":2: not a recorded request")])
def test_a_file_that_is_no_recording_is_refused(text, reason, tmp_path):
    file = tmp_path / "odd.jsonl"
    file.write_text(text)
    with pytest.raises(RecordingError) as caught:
        Recording.read(file)
    assert str(caught.value) == f"{file}{reason}"
