"""The console's API: state, actions, and the log of both."""

import json
import re
import shlex
import xml.etree.ElementTree

import pytest

from desk import ROOT, await_until


def activities(camera):
    return camera.get("/api/activities").json


def last_activity(camera):
    found = activities(camera)[-1]
    return found["source"], found["service"], found["call"], found["args"], found["outcome"]


def test_the_state_is_domectls(camera):
    answer = camera.get("/api/state")
    assert (answer.status, answer.headers["content-type"]) == (200, "application/json")
    assert answer.headers["cache-control"] == "no-store"
    assert answer.json == camera.dome_state()


@pytest.mark.parametrize(
    "words, key, value",
    [
        (["set", "alarm", "BNK2", 0, 1], "alarm", {"BNK1": [False] * 4, "BNK2": [True, False]}),
        (["set", "relay", "BNK1", 3, 1], "relay", {"BNK1": [False] * 3 + [True], "BNK2": [False] * 2}),
        (["set", "temperature", 1, -7], "temperature", [25, -7]),
        (["set", "voltage", 2], "voltage", 2),
        (["set", "power", 1], "power", 1),
        (["banks", "alarm", "X=1"], "alarm", {"X": [False]}),
    ],
    ids=lambda value: " ".join(map(str, value)) if isinstance(value, list) else None,
)
def test_control_does_what_domectl_does(camera, words, key, value):
    assert camera.control(*words).json == {"outcome": "ok"}
    assert camera.dome_state()[key] == value


def test_the_clock_is_controlled(camera):
    camera.control("clock", "pause")
    camera.call("pan", "SetRelativeVelocity", 1, 300)
    assert camera.console_state()["pan"] == dict(camera.console_state()["pan"], position=0, moving=True)
    camera.control("clock", "step", 1)
    assert camera.console_state()["pan"]["position"] > 100000


def test_the_state_says_how_the_clock_runs(camera):
    assert camera.console_state()["clock"] == {"mode": "run", "rate": 1}
    camera.control("clock", "pause")
    camera.control("clock", "rate", 2.5)
    assert camera.console_state()["clock"] == {"mode": "pause", "rate": 2.5}


@pytest.mark.parametrize("fault", ["fail", "hang", "gone", "ok"])
def test_a_fault_is_switched(camera, fault):
    camera.control("fault", "tilt", fault)
    assert camera.dome_state()["faults"]["tilt"] == fault


@pytest.mark.parametrize(
    "words", [["set", "pan", "north"], ["set", "pan", "999999"], ["event", "temperature", "7", "30"],
              ["set", "alarm", "BNK9", "0", "1"], ["fault", "pan", "late"], ["set"], ["banks", "relay"]], ids=" ".join)
def test_what_domectl_refuses_is_refused(camera, words):
    before = camera.dome_state()
    answer = camera.post("/api/control", {"words": words})
    assert answer.status == 422
    done = camera.try_domectl(*words)
    # domectl itself refuses a command with too few words.
    assert answer.json["error"] in done.stderr or (done.returncode, words) in [(2, ["set"]), (2, ["banks", "relay"])]
    assert camera.dome_state() == camera.console_state() == before


def test_a_call_moves_the_camera(camera):
    assert camera.call("pan", "SetPositionAtSpeed", 40000, 1, 300).json == {"outcome": "ok"}
    await_until(lambda: camera.console_state()["pan"]["position"] == 40000, "the axis is at 40 degrees")
    assert last_activity(camera) == ("console", "pan", "SetPositionAtSpeed", ["40000", "1", "300"], "ok")
    assert camera.calls() == [], "the call log has only calls from the bus"


@pytest.mark.parametrize(
    "service, operation, arguments, key, value",
    [
        ("iris", "SetAutoIris", [False], ("iris", "auto"), False),
        ("focus", "SetAutoFocus", [False], ("focus", "auto"), False),
        ("relay", "SetRelay", ["BNK2", 1, 1], ("relay", "BNK2"), [False, True]),
        ("zoom", "SetMaxMagnificationThousandthsX", [40000], ("zoom", "maximum"), 40000),
    ],
)
def test_calls_of_every_kind_of_argument(camera, service, operation, arguments, key, value):
    assert camera.call(service, operation, *arguments).status == 200
    assert camera.console_state()[key[0]][key[1]] == value


@pytest.mark.parametrize(
    "service, operation, arguments",
    [
        ("pan", "SetRelativeVelocity", [1.5, 300]),
        ("pan", "SetRelativeVelocity", [0.5, -1]),
        ("pan", "SetRelativeVelocity", [0.5]),
        ("pan", "SetRelativeVelocity", [0.5, 1, 1]),
        ("pan", "SetRelativeVelocity", ["0.5", 1]),
        ("pan", "SetPosition", [0.5, 1]),
        ("pan", "SetPosition", [2147483648, 1]),
        ("pan", "SetPosition", [-2147483649, 1]),
        ("pan", "SetPosition", [18446744073709551615, 1]),
        ("pan", "SetPosition", [None, 1]),
        ("pan", "SetPosition", [True, 1]),
        ("zoom", "SetMagnificationThousandthsX", [-1, 1]),
        ("iris", "SetAutoIris", [1]),
        ("relay", "SetRelay", [2, 1, 1]),
        ("relay", "SetRelay", ["BNK2", 9, 1]),
    ],
    ids=str,
)
def test_wrong_arguments_are_refused(camera, service, operation, arguments):
    before = camera.console_state()
    answer = camera.call(service, operation, *arguments)
    assert (answer.status, list(answer.json)) == (422, ["error"])
    assert last_activity(camera)[-1] == "refused"
    assert camera.console_state() == before


WHOLE = "a whole number from -2147483648 to 2147483647"


@pytest.mark.parametrize(
    "service, operation, arguments, error",
    [
        ("pan", "SetPosition", [0.5, 1], f"pan SetPosition: argument position must be {WHOLE}, not 0.5"),
        ("pan", "SetPosition", [1], f"pan SetPosition: argument timeLimit ({WHOLE}) is missing"),
        ("pan", "SetPosition", [], f"pan SetPosition: argument position ({WHOLE}) is missing"),
        ("tilt", "SetPosition", [1, 2, 3],
         f"tilt SetPosition: 3 arguments, but it takes only position ({WHOLE}), timeLimit ({WHOLE})"),
        ("zoom", "SetMagnificationThousandthsX", [4294967296, 1],
         "zoom SetMagnificationThousandthsX: argument magnification must be a whole number from 0 to 4294967295, "
         "not 4294967296"),
        ("focus2", "RelativeFocus", [True], "focus2 RelativeFocus: argument translation must be a number, not true"),
        ("iris", "SetAutoIris", ["true"], 'iris SetAutoIris: argument enabled must be true or false, not "true"'),
        ("relay", "ClearRelay", [None, 1, 1], "relay ClearRelay: argument bank must be a text, not null"),
    ],
    ids=str,
)
def test_the_error_names_operation_argument_and_type(camera, service, operation, arguments, error):
    assert camera.call(service, operation, *arguments).json == {"error": error}


def test_the_console_calls_what_the_page_lists_and_nothing_else(camera):
    descriptions = {}
    for file in (ROOT / "tavos" / "interfaces").glob("*.xml"):
        for method in xml.etree.ElementTree.parse(file).iter("method"):
            arguments = [(argument.get("name"), argument.get("direction")) for argument in method.iter("arg")]
            names = ", ".join(name for name, direction in arguments if direction == "in")
            if method.get("name") != "OpenLane":  # the bus library's, no operation of the camera
                descriptions[file.stem, method.get("name")] = names, ("result", "out") in arguments
    services = {"pan": "Pan1", "tilt": "Axis1", "zoom": "Zoom1", "focus": "Focus1", "focus2": "Focus2",
                "iris": "Iris1", "relay": "Relay3"}
    page = (ROOT / "docs" / "console.md").read_text()
    for service, interface in services.items():
        for (owner, operation), (names, is_reading) in descriptions.items():
            if owner != interface:
                continue
            answer = camera.call(service, operation, *["?"] * 8)
            assert answer.status == (400 if is_reading else 422), (service, operation)
            assert is_reading or f"`{operation}({names})`" in page
    listed = [(owner, operation) for (owner, operation), (_, is_reading) in descriptions.items() if not is_reading]
    assert {owner for owner, _ in listed} == set(services.values())


@pytest.mark.parametrize("fault", ["fail", "hang", "gone"])
def test_a_fault_affects_the_console_too(camera, fault):
    camera.control("fault", "pan", fault)
    assert camera.call("pan", "SetRelativeVelocity", 1, 300).json == {"outcome": fault}
    assert not camera.console_state()["pan"]["moving"]
    assert last_activity(camera)[-1] == fault


def test_what_the_page_does_is_in_the_history(camera):
    _, before = camera.history()
    camera.control("fault", "tilt", "hang")
    camera.post("/api/control", {"words": ["set", "pan", "north"]})
    camera.call("tilt", "SetPosition", 1000, 300)
    camera.call("pan", "SetPosition", 0.5, 300)
    camera.call("pan", "SetPosition", 90000, 300)
    history, _ = camera.history(before)
    actions = [entry for entry in history if entry["kind"] == "action"]
    assert [action["by"] for action in actions] == ["page"] * 5
    assert [(action["words"], action["refused"]) for action in actions[:3]] == [
        (["fault", "tilt", "hang"], None),
        (["set", "pan", "north"], "pan: not a whole number: north"),
        (["call", "tilt", "SetPosition", "1000", "300"], "tilt is set to hang")]
    assert "0.5" in actions[3]["refused"] and actions[4]["refused"] is None
    (motion,) = [entry for entry in history if entry["kind"] == "motion" and entry["axis"] == "pan"]
    assert (motion["target"], motion["cause"]) == (90000, {"action": actions[4]["number"]})


def test_calls_and_events_are_logged(camera, tools):
    assert tools.set("1.3.6.1.4.1.1206.4.2.7.4.1.0", "x", "02404650").status == 0
    found = activities(camera)[-1]
    assert (found["source"], found["call"], found["outcome"]) == ("bus", "SetPositionAtSpeed", "ok")
    assert [float(text) for text in found["args"]] == [180000, pytest.approx(64 / 127), 300]
    camera.control("set", "temperature", 31)
    assert last_activity(camera) == ("event", "temperature", "OnTemperatureChange", ["0", "31"], "")
    numbers = [activity["number"] for activity in activities(camera)]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))


def test_a_long_series_of_events_continues_after_the_answer(camera):
    def is_emitted(number):
        return any(activity["args"] == [str(number)] for activity in activities(camera))

    camera.control("event", "power", 1, "--count", 100000)
    assert not is_emitted(100000), "other requests get their turn meanwhile"
    camera.control("set", "pan", 4000)
    assert camera.console_state()["pan"]["position"] == 4000 and not is_emitted(100000)
    await_until(lambda: is_emitted(100000), "all events are emitted", 60)


def test_the_list_is_bounded(camera):
    camera.domectl("event", "power", 5, "--count", 2000)
    found = activities(camera)
    assert len(found) == 500
    assert found[-1]["args"] == ["2004"]


@pytest.mark.parametrize(
    "path, body",
    [
        ("/api/control", b""),
        ("/api/control", b"{"),
        ("/api/control", b"[]"),
        ("/api/control", b"{}"),
        ("/api/control", b'{"words":[]}'),
        ("/api/control", b'{"words":"set pan 1"}'),
        ("/api/control", b'{"words":["set","pan",1]}'),
        ("/api/control", b'{"words":["calls"]}'),
        ("/api/control", b'{"words":["state"]}'),
        ("/api/control", b'{"words":["set","pan","\xff"]}'),
        ("/api/control", json.dumps({"words": ["set"] * 129}).encode()),
        ("/api/control", b"[" * 60000),
        ("/api/call", b'{"service":"pan"}'),
        ("/api/call", b'{"service":"pan","operation":"Explode"}'),
        ("/api/call", b'{"service":7,"operation":"SetPosition"}'),
        ("/api/call", b'{"service":"pan","operation":"SetPosition","args":{}}'),
        ("/api/call", b'{"service":"pan","operation":"SetPosition","args":[[1],1]}'),
        ("/api/call", b'{"service":"pan","operation":"SetPosition","args":[1,1,1,1,1,1,1,1,1]}'),
    ],
    ids=lambda value: value[:40].decode(errors="replace") if isinstance(value, bytes) else value,
)
def test_bad_bodies(camera, path, body):
    answer = camera.post(path, body)
    assert (answer.status, list(answer.json)) == (400, ["error"])


def test_many_points_are_shortened(camera):
    camera.domectl("banks", "relay", "A=500", "B=521", "C=3")
    state = camera.console_state()
    assert [len(bank) for bank in state["relay"].values()] == [500, 12, 0]
    assert state["shortened"] is True
    assert len(camera.dome_state()["relay"]["B"]) == 521


def test_512_points_are_not_shortened(camera):
    camera.domectl("banks", "relay", "A=500", "B=12")
    state = camera.console_state()
    assert [len(bank) for bank in state["relay"].values()] == [500, 12]
    assert "shortened" not in state
    camera.domectl("banks", "relay", "A=500", "B=13")
    state = camera.console_state()
    assert [len(bank) for bank in state["relay"].values()] == [500, 12]
    assert state["shortened"] is True


def test_a_name_with_special_characters_harms_nothing(camera):
    camera.domectl("banks", "alarm", "<b>\"'&=1")
    assert camera.console_state()["alarm"] == {"<b>\"'&": [False]}


def test_the_documented_line_is_understood(camera):
    (line,) = re.findall(r"^    (curl .*)$", (ROOT / "docs" / "console.md").read_text(), re.MULTILINE)
    curl, silent, h, header, d, body, url = shlex.split(line)
    assert [curl, silent, h, d] == ["curl", "-s", "-H", "-d"]
    (path,) = re.findall(r"^http://127\.0\.0\.1:8205(/.*)$", url)
    name, _, value = header.partition(": ")
    answer = camera.request("POST", path, body.encode(), **{name.replace("-", "_"): value})
    assert (answer.status, answer.json) == (200, {"outcome": "ok"})
    assert camera.dome_state()["faults"]["tilt"] == "hang"
