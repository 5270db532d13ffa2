"""Scenarios: what a file says happens at its times on the camera's clock, and again exactly so."""

import re
import subprocess
import time

import pytest

from desk import BUILD, ROOT
from orvex_camera import ControlError, DeskCamera, Player, Scenario, ScenarioError, continuous

(TEXT,) = re.findall(r"^```toml\n(.*?)^```$", (ROOT / "docs" / "python.md").read_text(), re.MULTILINE | re.DOTALL)


@pytest.fixture
def camera(shared_desk_camera):
    return shared_desk_camera


def shown(scenario):
    return [str(event) for event in scenario.events]


def test_a_ramp_becomes_an_event_for_each_new_whole_number():
    ramp = "[[ramp]]\nat = 1\nuntil = 2\nevery = 0.2\ndo = 'set temperature 1'\nfrom = 10\nto = 8\n"
    assert shown(Scenario.parse(ramp)) == ["1.00 set temperature 1 10", "1.40 set temperature 1 9",
                                           "1.80 set temperature 1 8"]


def test_events_are_in_the_order_of_their_times_then_of_the_file():
    text = "".join(f"[[event]]\nat = {at}\ndo = 'set light {light}'\n" for at, light in [(2, 1), (0.1, 2), (2, 3)])
    assert shown(Scenario.parse(text)) == ["0.10 set light 2", "2.00 set light 1", "2.00 set light 3"]


@pytest.mark.parametrize(("text", "reason"), [
    ("[[event]]\nat = 1\nto = 2\ndo = 'set light 1'", "event 1: unknown key 'to'"),
    ("[[event]]\nat = 1", "event 1: 'do' is missing"),
    ("[[event]]\nat = -1\ndo = 'set light 1'", "event 1, at: requires 0 to 86400 seconds"),
    ("[[event]]\nat = 0.01\ndo = 'set light 1'", "a multiple of 0.02"),
    ("[[event]]\nat = nan\ndo = 'set light 1'", "requires a number"),
    ("[[event]]\nat = true\ndo = 'set light 1'", "requires a number"),
    ("[[event]]\nat = 1\ndo = 'clock run'", "event 1, do: requires domectl's words"),
    ("[[event]]\nat = 1\ndo = 7", "event 1, do: requires domectl's words"),
    ("[[event]]\nat = 1\ndo = \"set 'x\"", "No closing quotation"),
    ("length = 1\n[[event]]\nat = 2\ndo = 'set light 1'", "length: 1 s end before the last event"),
    ("[[ramp]]\nat = 2\nuntil = 2\nevery = 1\ndo = 'set light'\nfrom = 1\nto = 2", "requires 'until' after 'at'"),
    ("[[ramp]]\nat = 0\nuntil = 86400\nevery = 0.02\ndo = 'set light'\nfrom = 1\nto = 2", "more than 100000 events"),
    ("[[ramp]]\nat = 0\nuntil = 2\nevery = 1\ndo = 'set light'\nfrom = 1e30\nto = 2",
     "ramp 1, from: requires a number from"),
    pytest.param(f"length = {'1' * 5000}", "limit", id="5000 digits"),
    ("length = 1e9999999999999999999", "exponent is too large"),
    ("event = 1", "requires tables [[event]]"),
    ("[event]]", "line 1"),
])
def test_a_wrong_scenario_is_refused_with_its_reason(text, reason, tmp_path):
    file = tmp_path / "wrong.toml"
    file.write_text(text)
    with pytest.raises(ScenarioError) as caught:
        Scenario.read(file)
    assert str(caught.value).startswith(f"{file}: ")
    assert reason in str(caught.value)


def played(options):
    """A new camera's motions, actions and events after the scenario, on its own clock; its pan moves. When the agent
    calls the services after an event is the agent's affair."""
    with DeskCamera(**options) as camera:
        camera.clock("pause")
        begin = camera.state()["clock"]["time"]
        camera.set("positionPan", continuous(64))
        camera.play(Scenario.parse(TEXT))
        state = camera.state()
        history = [(one["kind"], round(one["clock"] - begin, 6), one.get("words"), one.get("value"), one.get("speed"))
                   for one in camera.history() if one["kind"] != "call"]
        assert state["clock"]["mode"] == "pause"  # as it was
        return [one for one in history if one[2] != ["clock", "pause"]], state["pan"], state["faults"]["tilt"]


def test_a_scenario_repeats_exactly_on_another_camera(desk_camera_options):
    first, second = played(desk_camera_options), played(desk_camera_options)
    assert first == second
    history, pan, fault = first
    assert fault == "hang"
    assert pan["moving"] and pan["position"] not in (0, 359999)
    events = [(at, value) for kind, at, _, value, _ in history if kind == "event"]
    assert events == [(6.5, 26), (7.5, 27), (8.5, 28), (9.5, 29), (12.34, 1), (12.34, 2)]


def test_a_test_asks_between_two_moments_of_a_scenario(camera):
    with camera.scenario(Scenario.parse("length = 9\n[[event]]\nat = 4\ndo = 'set light 90'")) as player:
        player.play_until(3.98)
        assert camera.state()["iris"]["light"] == 50
        before = camera.state()["clock"]["time"]
        player.play_until(4)
        assert camera.state()["iris"]["light"] == 90
        with pytest.raises(ScenarioError, match="are over"):
            player.play_until(3)
        player.play()
        clock = camera.state()["clock"]
        assert clock["time"] - before == pytest.approx(5.02, abs=1e-6)
    assert camera.state()["clock"]["mode"] == "run"


def test_words_that_the_camera_refuses_end_the_scenario_and_its_clock_runs_again(camera):
    with pytest.raises(ControlError, match="at 0.50 set light 101: "):
        camera.play(Scenario.parse("[[event]]\nat = 0.5\ndo = 'set light 101'"))
    assert camera.state()["clock"]["mode"] == "run"


def test_a_pace_takes_its_time(camera):
    start = time.monotonic()
    with Player(camera, Scenario.parse("length = 1"), pace=2) as player:
        player.play()
    assert time.monotonic() - start >= 0.5


def domectl(camera, *words):
    return subprocess.run([BUILD / "bin" / "domectl", "--state", camera.state_folder, *words], capture_output=True,
                          text=True, timeout=30)


def test_domectl_plays_a_scenario(camera, tmp_path):
    file = tmp_path / "a.toml"
    file.write_text("[[event]]\nat = 2\ndo = 'set light 30'\n")
    before = camera.state()["clock"]["time"]
    done = domectl(camera, "play", "--pace", "1000", str(file))
    assert (done.returncode, done.stdout, done.stderr) == (0, "2.00 set light 30\n", "")
    state = camera.state()
    assert state["iris"]["light"] == 30
    assert state["clock"]["time"] - before >= 2
    assert state["clock"]["mode"] == "run"


@pytest.mark.parametrize(("text", "status", "reason"), [
    ("[[event]]\nat = 2\ndo = 'set light 101'\n", 1, "at 2.00 set light 101: "),
    ("[[event]]\nat = 2\ndo = 'set lihgt 10'\n", 2, "at 2.00 set lihgt 10: "),
    ("[[event]]\nat = 2\n", 2, "event 1: 'do' is missing")])
def test_domectl_says_why_a_scenario_cannot_be_played(camera, tmp_path, text, status, reason):
    file = tmp_path / "a.toml"
    file.write_text(text)
    done = domectl(camera, "play", str(file))
    assert (done.returncode, done.stdout) == (status, "")
    assert reason in done.stderr
    assert len(done.stderr.splitlines()) == 1
