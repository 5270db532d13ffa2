"""The camera's history: from a manager's SET over the service's call to the end of the motion."""

import subprocess

import pytest

import ber
from expected_tree import OID

PAN, TILT = OID["positionPan"], OID["positionTilt"]


class History:
    """What is new in a desk camera's history since this object was made."""

    def __init__(self, desk):
        self.desk = desk
        _, self.change = desk.history()

    def entries(self, kind):
        entries, _ = self.desk.history(self.change)
        return [entry for entry in entries if entry["kind"] == kind]

    def call(self, operation):
        """The last call of that name."""
        return [entry for entry in self.entries("call") if entry["call"] == operation][-1]

    def motions(self, axis):
        return [entry for entry in self.entries("motion") if entry["axis"] == axis]


@pytest.fixture
def history(camera):
    """The clock stands, so that each test steps it from the same positions."""
    camera.domectl("clock", "pause")
    camera.domectl("set", "auto-focus", 0)
    for axis in ("pan", "tilt"):
        camera.domectl("set", axis, 0)
    yield History(camera)
    camera.domectl("clock", "run")


def command(manager, oid, octets):
    assert manager.set_octets(oid, bytes.fromhex(octets)).error_status == ber.NO_ERROR


def cause(call):
    return {"sender": call["sender"], "serial": call["serial"]}


def process_of(desk, sender):
    """The process behind a unique name of the desk's bus."""
    told = subprocess.run(
        ["dbus-send", f"--bus={desk.environment['TAVOS_BUS_ADDRESS']}", "--print-reply=literal",
         "--dest=org.freedesktop.DBus", "/", "org.freedesktop.DBus.GetConnectionUnixProcessID", f"string:{sender}"],
        capture_output=True, text=True, check=True)
    return int(told.stdout.split()[-1])


def test_a_set_is_followed_until_the_axis_arrives(camera, manager, history):
    command(manager, PAN, "02404650")
    call = history.call("SetPositionAtSpeed")
    assert process_of(camera, call["sender"]) == camera.agent_pid()
    assert call["serial"] > 0
    assert (call["service"], call["args"][0], call["outcome"]) == ("pan", 180000, "ok")
    (motion,) = history.motions("pan")
    assert motion["cause"] == cause(call)
    assert (motion["from"], motion["target"], motion["ended"]) == (0, 180000, None)
    assert motion["speed"] == pytest.approx(64 / 127)
    assert call["change"] < motion["change"] and call["time"] <= motion["time"]
    camera.domectl("clock", "step", 1)
    assert history.motions("pan") == [motion], "still on its way"
    camera.domectl("clock", "step", 10)
    (arrived,) = history.motions("pan")
    assert arrived["ended"]["how"] == "arrived" and arrived["ended"]["position"] == 180000
    # 180 degrees at 120 degrees a second times 64 / 127, and the time to speed up and to brake.
    assert arrived["ended"]["clock"] - arrived["clock"] == pytest.approx(180 / (120 * 64 / 127) + 0.1, abs=0.05)


def test_a_second_set_replaces_the_first(camera, manager, history):
    command(manager, PAN, "02404650")
    first = history.call("SetPositionAtSpeed")
    camera.domectl("clock", "step", 1)
    command(manager, PAN, "02402328")
    second = history.call("SetPositionAtSpeed")
    assert first["sender"] == second["sender"] and first["serial"] < second["serial"]
    replaced, motion = history.motions("pan")
    assert replaced["ended"]["how"] == "replaced" and replaced["ended"]["motion"] == motion["number"]
    assert (replaced["cause"], replaced["ended"]["by"]) == (cause(first), cause(second))
    assert motion["cause"] == cause(second) and motion["from"] == replaced["ended"]["position"] > 0


def test_a_continuous_tilt_ends_at_the_limit(camera, manager, history):
    command(manager, TILT, "03200000")
    (motion,) = history.motions("tilt")
    assert (motion["target"], motion["ended"]) == (None, None)
    camera.domectl("clock", "step", 60)
    (motion,) = history.motions("tilt")
    assert motion["ended"]["how"] == "limit" and abs(motion["ended"]["position"]) == 90000
    command(manager, TILT, "03200000")
    again = history.motions("tilt")[-1]
    assert again["number"] == motion["number"] + 1
    assert again["ended"]["how"] == "limit", "at once: it stands at the limit"
    assert (again["ended"]["clock"], again["ended"]["position"]) == (again["clock"], again["from"])


def test_a_stop_ends_a_continuous_move_where_the_axis_comes_to_rest(camera, manager, history):
    command(manager, PAN, "03200000")
    camera.domectl("clock", "step", 1)
    command(manager, PAN, "00000000")
    assert history.motions("pan")[0]["ended"] is None, "it brakes"
    stop = history.call("SetRelativeVelocity")
    camera.domectl("clock", "step", 1)
    (motion,) = history.motions("pan")
    assert motion["ended"]["how"] == "stopped" and motion["ended"]["by"] == cause(stop) != motion["cause"]
    assert motion["ended"]["position"] == camera.dome_state()["pan"]["position"]


def test_a_continuous_move_ends_at_its_time_limit(camera, manager, history):
    command(manager, PAN, "03200000")
    assert history.call("SetRelativeVelocity")["args"][1] == 300
    camera.domectl("clock", "step", 301)
    (motion,) = history.motions("pan")
    assert motion["ended"]["how"] == "time"
    assert motion["ended"]["clock"] - motion["clock"] == pytest.approx(300, abs=0.1)


def test_a_service_that_hangs_hears_the_call_and_moves_nothing(camera, manager, history):
    camera.domectl("fault", "tilt", "hang")
    command(manager, TILT, "02002328")
    camera.domectl("fault", "tilt", "ok")
    call = history.call("SetPositionAtSpeed")
    assert (call["service"], call["outcome"]) == ("tilt", "hang")
    assert history.motions("tilt") == []
    assert [action["words"] for action in history.entries("action")] == [
        ["fault", "tilt", "hang"], ["fault", "tilt", "ok"]]


def test_events_are_numbered_in_order_and_name_their_action(camera, history):
    camera.domectl("event", "temperature", 1, 30, "--count", 3)
    (action,) = history.entries("action")
    events = history.entries("event")
    assert [(event["sensor"], event["value"], event["cause"]) for event in events] == [
        (1, value, {"action": action["number"]}) for value in (30, 31, 32)]
    assert [event["number"] - events[0]["number"] for event in events] == [0, 1, 2]


def test_a_refused_action_says_why(camera, history):
    assert camera.try_domectl("set", "pan", 360000).returncode == 1
    (action,) = history.entries("action")
    assert (action["by"], action["words"]) == ("domectl", ["set", "pan", "360000"])
    assert action["refused"] == "pan 360000 outside 0 to 359999"
