"""The users that may own and call the camera's services. Real processes of three users try it on the camera's private
bus, and on Debian's system bus with the same policy."""

import contextlib
import os
import pathlib
import pwd
import socket
import subprocess
import time
import xml.etree.ElementTree as xml

import pytest

import ber
from desk import BUILD, ROOT, ManagerOf, await_until
from expected_tree import OID, ROWS
from traps import Sink
from users import AGENT, DOME, STRANGER, PolicedDesk, as_user

pytestmark = pytest.mark.skipif(os.getuid() != 0, reason="only root can run processes as other users")

CONTROL = "org.tavos.dome.Control1"
INTERFACES = [xml.parse(file).find("interface") for file in sorted((ROOT / "tavos" / "interfaces").glob("*.xml"))]
EVENTS = sorted(interface.get("name") for interface in INTERFACES if interface.findall("signal"))


def service(interface):
    """The service name of the interface; a tilt is an axis of that name."""
    return f"{interface}.tilt" if interface == "org.tavos.Axis1" else interface


SERVICES = [service(interface.get("name")) for interface in INTERFACES]


@pytest.fixture(scope="module", params=["own", "system"])
def camera(request):
    with PolicedDesk(request.param) as desk:
        desk.start()
        yield desk


def refused(done):
    return done.returncode != 0 and "AccessDenied" in done.stderr


def refused_to_stranger(camera, done):
    """On the camera's private bus a stranger gets no connection. On the system bus every call of a stranger is
    refused."""
    if camera.kind == "own":
        return done.returncode != 0 and "Did not receive a reply" in done.stderr  # the bus hangs up
    return refused(done)


def test_the_policy_names_each_service_once(camera):
    policy = xml.parse(BUILD / "packaging" / "bus" / "org.tavos.conf")
    rules = {part.get("user"): part for part in policy.findall("policy")}
    owned = [rule.get("own") for rule in rules["orvex-dome"].iter("allow") if rule.get("own")]
    assert sorted(owned) == sorted([*SERVICES, CONTROL])
    called = [(rule.get("send_destination"), rule.get("send_interface"))
              for rule in rules["Debian-snmp"].iter("allow") if rule.get("send_destination")]
    assert sorted(called) == sorted((service(i.get("name")), i.get("name")) for i in INTERFACES)
    heard = [rule.get("receive_interface") for rule in rules["Debian-snmp"].iter("allow") if rule.get("receive_interface")]
    assert sorted(heard) == EVENTS


def test_the_processes_are_what_they_should_be(camera):
    for name, user in [("dome", DOME), ("agent", AGENT)]:
        status = pathlib.Path(f"/proc/{camera.processes[name].pid}/status").read_text().splitlines()
        (uids,) = [line.split()[1:] for line in status if line.startswith("Uid:")]
        assert set(uids) == {str(pwd.getpwnam(user).pw_uid)}


def test_the_agent_serves_every_object(camera):
    with ManagerOf(camera) as manager:
        for row in ROWS:
            (binding,) = manager.get(row.oid).bindings
            # The agent's user can read the firmware version's file and all its other files.
            assert (binding.tag, binding.octets) == (row.tag, row.content), row.name


def test_the_agent_moves_the_camera_and_drives_its_relays(camera):
    with ManagerOf(camera) as manager:
        assert manager.set_octets(OID["positionPan"], bytes.fromhex("027f2328")).error_status == ber.NO_ERROR
        assert manager.set_integer(OID["relayState.5"], 1).error_status == ber.NO_ERROR
        assert manager.get(OID["relayState.5"]).bindings[0].value == 1
        manager.set_integer(OID["relayState.5"], 0)
        # The dome's user has just stored the relay, and left its log beside the store. The agent's user must be able to
        # store, too.
        assert manager.set_octets(OID["systemLensFeatureControl"], b"\x40\0").error_status == ber.NO_ERROR
        assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        await_until(lambda: camera.dome_state()["pan"]["position"] == 90000, "the pan is at 90 degrees")


def test_events_become_traps(camera):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sink:
        sink.bind(("127.0.0.1", camera.trap_port))
        sink.settimeout(10)
        for words in [("temperature", 0, 31), ("voltage", 3), ("power", 2)]:
            camera.domectl("event", *words)
            trap = ber.Message(sink.recv(65536))
            assert trap.bindings[-1].value == words[-1]


def test_a_burst_of_events_passes_the_bus(camera):
    count = 20000
    with Sink(camera) as sink:
        sink.read()
        camera.domectl("event", "voltage", 1, "--count", count)
        await_until(lambda: len(sink.values) >= count, "the last trap", 60)
    assert sink.values == list(range(1, count + 1))


@pytest.mark.parametrize("name", [*SERVICES, CONTROL, "org.tavos", "org.tavos.Other1"])
def test_only_the_dome_owns_a_service(camera, name):
    assert refused(camera.own(AGENT, name))
    assert refused_to_stranger(camera, camera.own(STRANGER, name))
    done = camera.own(DOME, name)
    if name in SERVICES or name == CONTROL:
        assert (done.returncode, done.stdout.split()[-1]) == (0, "3")  # the name exists: the running dome owns it
    else:
        assert refused(done)


@pytest.mark.parametrize("interface", INTERFACES, ids=lambda interface: interface.get("name"))
def test_only_the_agent_calls_a_service(camera, interface):
    questions = [method.get("name") for method in interface.findall("method") if not method.findall("arg[@direction='in']")]
    name = service(interface.get("name"))
    operation = f"{interface.get('name')}.{questions[0] if questions else 'Nothing'}"
    done = camera.call(AGENT, name, operation)
    assert not refused(done), done.stderr
    assert done.returncode == 0 or not questions
    assert refused(camera.call(DOME, name, operation))
    assert refused_to_stranger(camera, camera.call(STRANGER, name, operation))


def test_who_may_call_a_service_may_open_a_lane_to_it(camera):
    pan, control = "org.tavos.Pan1", CONTROL
    assert camera.call(AGENT, pan, f"{pan}.OpenLane").returncode == 0
    assert refused(camera.call(DOME, pan, f"{pan}.OpenLane"))
    assert refused_to_stranger(camera, camera.call(STRANGER, pan, f"{pan}.OpenLane"))
    assert "UnknownMethod" in camera.call("root", control, f"{control}.OpenLane").stderr


def test_the_agent_asks_whether_a_service_is_there(camera):
    assert camera.call(AGENT, "org.tavos.Pan1", "org.freedesktop.DBus.Peer.Ping").returncode == 0
    assert refused_to_stranger(camera, camera.call(STRANGER, "org.tavos.Pan1", "org.freedesktop.DBus.Peer.Ping"))


@pytest.mark.parametrize("name", ["org.tavos.Pan1", CONTROL])
@pytest.mark.parametrize("interface", [CONTROL, "org.freedesktop.DBus.Properties"])
def test_the_agent_calls_nothing_else(camera, name, interface):
    """One connection owns all names, so a permitted name must not give access to the interfaces of the others."""
    operation = f"{interface}.{'Execute' if interface == CONTROL else 'GetAll'}"
    assert refused(camera.call(AGENT, name, operation))


def test_a_call_by_the_connections_own_name_is_refused_too(camera):
    done = camera.bus(AGENT, "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                      "org.freedesktop.DBus.GetNameOwner", f"string:{CONTROL}")
    unique = done.stdout.split()[-1]
    assert unique.startswith(":")
    call = [f"--dest={unique}", "/" + CONTROL.replace(".", "/"), f"{CONTROL}.Execute", "array:string:state"]
    assert refused(camera.bus(AGENT, *call))
    assert refused_to_stranger(camera, camera.bus(STRANGER, *call))
    assert camera.bus("root", *call).returncode == 0


def test_domectl_is_roots_and_the_domes(camera):
    for user, may in [("root", True), (DOME, True), (AGENT, False), (STRANGER, False)]:
        done = camera.bus(user, f"--dest={CONTROL}", "/" + CONTROL.replace(".", "/"), f"{CONTROL}.Execute",
                          "array:string:state")
        assert (done.returncode == 0) == may, user


@contextlib.contextmanager
def watcher(camera, user, interface):
    """Starts a watcher of that user that subscribes to every signal of the interface; returns a function with its
    output."""
    command = ["dbus-monitor", "--address", f"unix:path={camera.state}/bus.sock",
               f"type='signal',interface='{interface}'"]
    seen = camera.state / f"seen by {user}.txt"
    with open(seen, "w") as lines:
        process = subprocess.Popen(as_user(user, *command), stdout=lines, stderr=subprocess.DEVNULL, cwd="/")
    try:
        await_until(lambda: "NameAcquired" in seen.read_text() or process.poll() is not None, "connected or refused")
        yield seen.read_text
    finally:
        process.kill()
        process.wait()


def emit(camera, user, event, value):
    kind = event.split(".")[-1][:-1]
    arguments = ["int32:0", f"int32:{value}"] if kind == "Temperature" else [f"int32:{value}"]
    command = ["dbus-send", f"--bus=unix:path={camera.state}/bus.sock", "/" + event.replace(".", "/"),
               f"{event}.{kind}Change", *arguments]
    subprocess.run(as_user(user, *command), capture_output=True, timeout=20, cwd="/")


@pytest.mark.parametrize("event", EVENTS)
def test_nobody_else_emits_a_services_event(camera, event):
    """The module accepts events only from the service's owner; the policy also protects less careful clients."""
    with watcher(camera, AGENT, event) as seen:
        def heard(value):
            emit(camera, DOME, event, value)
            return f"int32 {value}" in seen()

        await_until(lambda: heard(1), "the dome's user is heard")
        for user in [AGENT, STRANGER, "root"]:
            emit(camera, user, event, 99)
        await_until(lambda: heard(2), "the dome's user is heard once more")
        assert "int32 99" not in seen()


def test_strangers_hear_no_event(camera):
    event = "org.tavos.Temperature2"
    with watcher(camera, AGENT, event) as agent:
        def heard():
            camera.domectl("event", "temperature", 0, 40)
            return "int32 40" in agent()

        await_until(heard, "the agent's user hears it")
    with watcher(camera, STRANGER, event) as stranger:
        time.sleep(0.3)  # the watcher subscribes after it has its name, and nothing shows when
        camera.domectl("event", "temperature", 0, 41)
        with watcher(camera, AGENT, "org.freedesktop.DBus"):
            pass  # one more exchange with the bus
        assert "TemperatureChange" not in stranger()
