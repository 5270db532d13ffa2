"""The stream says whether the camera's agent answers."""

import os
import signal
import time

import pytest

from desk import ManagerOf, await_until
from expected_tree import OID
from sockets import sockets_of

PACKETS_READ = "1.3.6.1.2.1.11.1.0"  # snmpInPkts


def probes(desk):
    return [text for text in sockets_of(desk.processes["dome"].pid) if text.startswith("udp")]


def test_an_agent_that_answers(camera):
    assert probes(camera) == []
    before = camera.get("/api/activities").json
    with camera.events() as events:
        assert events.next("hello")["agentWatched"] is True
        assert events.next("agent") == {"answers": True}
        (probe,) = probes(camera)
        assert probe.startswith("udp 127.0.0.1:") and probe.endswith(f" to 127.0.0.1:{camera.port}")
        with camera.events() as second:
            assert second.next("agent") == {"answers": True}, "a later watcher gets it, too"
    await_until(lambda: probes(camera) == [], "the socket is closed when nobody watches")
    assert camera.calls() == [] and camera.get("/api/activities").json == before, "a probe causes no call of the camera"


class Packets:
    """Counts the requests that the agent has received from others since the last call."""

    def __init__(self, manager):
        self._manager, self._read = manager, 0
        self.of_others()

    def of_others(self):
        before, self._read = self._read, self._manager.get(PACKETS_READ).bindings[0].value
        return self._read - before - 1


def test_an_agent_is_probed_only_while_somebody_watches(camera):
    with ManagerOf(camera) as manager:
        packets = Packets(manager)
        with camera.events() as events:
            events.next("agent")
            assert packets.of_others() == 1
            await_until(packets.of_others, "it is probed again")
        await_until(lambda: probes(camera) == [], "the socket is closed")
        packets.of_others()
        time.sleep(1.5)  # one and a half polling intervals
        assert packets.of_others() == 0


@pytest.mark.slow
def test_an_agent_that_ends_and_comes_back(desk):
    desk.start_bus()
    desk.start_dome()
    with desk.events() as events:
        assert events.next("agent") == {"answers": False}
        desk.start_agent()
        assert events.next("agent") == {"answers": True}
        desk.end("agent")
        assert events.next("agent") == {"answers": False}


@pytest.mark.slow
def test_an_agent_that_hangs(camera):
    with camera.events() as events:
        assert events.next("agent") == {"answers": True}
        os.kill(camera.agent_pid(), signal.SIGSTOP)
        try:
            assert events.next("agent") == {"answers": False}
            camera.control("set", "pan", 5000)  # the camera does not wait for the agent
        finally:
            os.kill(camera.agent_pid(), signal.SIGCONT)
        assert events.next("agent") == {"answers": True}


def test_without_the_agents_port_nothing_is_probed(desk):
    desk.dome_options = desk.dome_options[:2]
    desk.start()
    with desk.events() as events:
        hello = events.next("hello")
        assert (hello["agentWatched"], hello["agentPort"]) == (False, 1161)
        time.sleep(1.5)  # a probed agent would have answered by then
        assert probes(desk) == []
        desk.control("set", "power", 1)
        assert next(name for name, _ in events if name in ("agent", "activity")) == "activity"


PAN, FOCUS = OID["positionPan"], OID["positionFocusLens"]


def commands_of(events, wanted):
    """The next commands that are those."""
    while True:
        found = {binding["name"]: binding["value"] for binding in events.next("commands")}
        if wanted(found):
            return found


def test_the_last_commands_are_streamed(camera, tools):
    with camera.events() as events:
        events.next("commands")
        tools.set(PAN, "x", "02000064")
        assert commands_of(events, lambda found: found.get("positionPan") == "02 00 00 64")
        assert tools.set(PAN, "x", "02008ca0").status != 0
        assert commands_of(events, lambda found: found.get("positionPan") == "02 00 8c a0"), "a refused one, too"
        with camera.events() as second:
            assert {b["name"]: b["meaning"] for b in second.next("commands")}["positionPan"].startswith("last command: ")


def focus_reads(camera):
    return [call for call in camera.calls() if (call["service"], call["call"]) == ("focus2", "GetPosition")]


def test_the_focus_is_asked_only_after_somebody_else(camera, tools):
    with camera.events() as events:
        first = events.next("commands")
        assert camera.calls() == []
        tools.set(FOCUS, "x", "02008000")
        commands_of(events, lambda found: found.get("positionFocusLens") == "02 00 80 00")
        reads = len(focus_reads(camera))
        time.sleep(2.5)  # two and a half polling intervals
        assert len(focus_reads(camera)) == reads
    assert "positionIrisLens" in [binding["name"] for binding in first]


def test_a_silent_agent_has_no_last_commands(camera, tools):
    with camera.events() as events:
        commands_of(events, lambda found: "positionPan" in found)
        os.kill(camera.agent_pid(), signal.SIGSTOP)
        try:
            assert commands_of(events, lambda found: not found) == {}
        finally:
            os.kill(camera.agent_pid(), signal.SIGCONT)
        assert commands_of(events, lambda found: "positionPan" in found)


def test_an_agent_without_these_objects_answers_all_the_same(desk):
    configuration = desk.state / "snmpd.conf"
    configuration.write_text(configuration.read_text().replace("view readable included .1\n", "view readable included .1.3.6.1.2.1\n"))
    desk.start()
    with desk.events() as events:
        assert events.next("agent") == {"answers": True}
        assert events.next("commands") == []
