"""The image: built from the packages, run hardened by podman, asked from outside. Not a part of ./check; run
tests/container/run."""

import json
import os
import pathlib
import re
import shutil
import signal
import socket
import tempfile
import urllib.error
import urllib.request

import pytest

from containers import CONTAINER, OUTSIDE, STATE, Container, community, shell, user
from desk import await_until
from expected_tree import OID

SERIAL = OID["serialNumber"]
PAN = OID["positionPan"]
TURN = (PAN, "x", "027f2328")  # 90 degrees


@pytest.fixture(scope="module")
def camera(engine, image):
    """One container for the tests that leave it as it is: the defaults, and a debugging log."""
    with Container(engine, image, "--env=TAVOS_LOG_LEVEL=7") as camera:
        yield camera


def answered(done):
    return done.returncode == 0 and " = " in done.stdout and "No Such" not in done.stdout


def test_the_image_is_an_oci_image_that_names_a_user_by_number(engine, image):
    found = json.loads(engine.podman("image", "inspect", image))[0]
    assert found["ManifestType"] == "application/vnd.oci.image.manifest.v1+json"
    assert found["Config"]["User"] == "961:961"
    assert found["Config"]["Entrypoint"] == ["/usr/bin/tini", "--", "/usr/bin/orvex-camera"]
    assert list(found["Config"]["Volumes"]) == [str(STATE)]


def test_in_the_docker_format_the_image_has_its_health_check(engine, image, packages_folder):
    tag = f"{image}-docker"
    shell(CONTAINER / "build", "--packages", packages_folder, "--format", "docker", "--tag", tag, env=engine.environment)
    found = json.loads(engine.podman("image", "inspect", tag))[0]
    assert found["Healthcheck"]["Test"] == ["CMD", "/usr/bin/orvex-camera-health"]


def test_a_changed_package_is_in_the_next_image(engine, image, packages_folder, tmp_path):
    for package in packages_folder.glob("*.deb"):
        shutil.copy(package, tmp_path)
    (changed,) = tmp_path.glob("tavos_*.deb")
    shell("dpkg-deb", "-R", changed, tmp_path / "contents")
    (tmp_path / "contents" / "usr" / "share" / "tavos" / "changed").touch()
    shell("dpkg-deb", "-b", tmp_path / "contents", changed)
    tag = f"{image}-changed"
    try:
        shell(CONTAINER / "build", "--packages", tmp_path, "--tag", tag, env=engine.environment)
        engine.podman("run", "--rm", "--network=host", "--entrypoint=/usr/bin/test", tag, "-e", "/usr/share/tavos/changed")
    finally:
        engine.run("podman", "image", "rm", "--force", tag)


def test_no_process_is_roots_or_has_a_capability(camera):
    processes = camera.processes()
    assert set(processes) == {"tini", "orvex-camera", "dbus-daemon", "orvex-dome", "snmpd"}
    for name, pid in processes.items():
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        assert re.search(r"^Uid:\t961\t961\t961\t961$", status, re.MULTILINE), name
        assert re.search(r"^CapEff:\t0+$", status, re.MULTILINE), name
        assert re.search(r"^NoNewPrivs:\t1$", status, re.MULTILINE), name


def test_only_the_volume_can_be_written(camera):
    for folder in ["/", "/tmp", "/run", "/var/tmp", "/etc", "/usr/bin"]:
        assert "Read-only file system" in camera.exec("touch", f"{folder}/x").stderr, folder
    assert camera.exec("touch", STATE / "x").returncode == 0


def test_logs_of_all_processes_are_on_standard_output(camera):
    answered(camera.ask("snmpget", user(*camera.phrases()), OID["temperature"]))
    logs = camera.logs()  # fails if standard error has a line
    assert re.search(r"^ready$", logs, re.MULTILINE), "the dome's"
    assert re.search(r"GetTemperature|temperature", logs), "the module's"
    assert camera.inspect()["HostConfig"]["LogConfig"]["Type"] == "k8s-file"


def test_without_a_word_only_the_user_is_heard_from_outside(camera):
    for name in ["public", "private"]:
        assert "Timeout" in camera.ask("snmpget", community(name), SERIAL).stderr
    assert "Timeout" in camera.ask("snmpset", community("private"), *TURN, source="127.0.0.1").stderr
    assert "Timeout" not in camera.ask("snmpset", community("public"), *TURN, source="127.0.0.1").stderr
    assert '"position":0' in camera.domectl("state")
    assert answered(camera.ask("snmpget", user(*camera.phrases()), SERIAL))
    assert answered(camera.ask("snmpset", user(*camera.phrases()), *TURN))
    await_until(lambda: '"position":90000' in camera.domectl("state"), "the pan is at 90 degrees")
    assert not answered(camera.ask("snmpget", user("wrong phrase", "wrong phrase"), SERIAL))


def page(address, port):
    """The status of the page's answer there, None without an answer."""
    try:
        return urllib.request.urlopen(f"http://{address}:{port}/", timeout=5).status
    except urllib.error.HTTPError as error:
        return error.code
    except OSError:
        return None


def test_the_page_is_on_loopback_unless_asked_for(engine, image, camera):
    assert (page("127.0.0.1", camera.console_port), page(OUTSIDE, camera.console_port)) == (200, None)
    with Container(engine, image, CONSOLE_ADDRESS="0.0.0.0") as open_camera:
        assert page(OUTSIDE, open_camera.console_port) == 200
        assert f"page on 0.0.0.0, TCP port {open_camera.console_port}: WHOEVER REACHES IT" in open_camera.logs()
    with Container(engine, image, "--env=ORVEX_CONSOLE_PORT=0") as closed:
        assert page("127.0.0.1", closed.console_port) is None
        assert "page on" not in closed.logs()


def test_a_community_works_from_its_networks_only(engine, image):
    variables = {"READ_COMMUNITY": "see", "WRITE_COMMUNITY": "move", "ALLOW": "127.0.0.2 127.0.3.0/24"}
    with Container(engine, image, **variables) as camera:
        assert "127.0.0.2, 127.0.3.0/24: the read community reads; the write community READS AND WRITES" in camera.logs()
        assert "move" not in camera.logs()  # a community is a password
        for source, heard in [(OUTSIDE, True), ("127.0.3.9", True), ("127.0.4.1", False)]:
            assert answered(camera.ask("snmpget", community("see"), SERIAL, source=source)) == heard, source
            assert answered(camera.ask("snmpset", community("move"), *TURN, source=source)) == heard, source
        assert not answered(camera.ask("snmpset", community("see"), *TURN))


def test_0_0_0_0_0_is_any_network(engine, image):
    with Container(engine, image, READ_COMMUNITY="see", ALLOW="0.0.0.0/0") as camera:
        assert answered(camera.ask("snmpget", community("see"), SERIAL, source="127.9.9.9"))


def test_an_address_of_its_own_leaves_the_health_check_on_loopback(engine, image):
    with Container(engine, image, ADDRESS="127.0.0.5", READ_COMMUNITY="see", ALLOW="127.0.0.0/8") as camera:
        assert camera.is_healthy()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("127.0.0.6", camera.port))  # nobody has it


@pytest.mark.parametrize(("variables", "complaint"), [
    ({"WRITE_COMMUNITY": "move"}, "a community requires ORVEX_ALLOW, the networks that may use it (0.0.0.0/0: any)"),
    ({"READ_COMMUNITY": "see\ndlmod x /tmp/x", "ALLOW": "127.0.0.1"}, "ORVEX_READ_COMMUNITY requires 1 to 32 letters"),
    ({"ALLOW": "everybody"}, "ORVEX_ALLOW requires IPv4 addresses and networks"),
    ({"ADDRESS": "localhost"}, "ORVEX_ADDRESS requires an IPv4 address, not 'localhost'"),
    ({"TRAP_TO": "a:b"}, "ORVEX_TRAP_TO requires HOST:PORT"),
    ({"CAMERAS": "201"}, "ORVEX_CAMERAS requires a number from 1 to 200, not '201'"),
    ({"AGENT_PORT": "65535", "CAMERAS": "2"}, "ORVEX_AGENT_PORT 65535 leaves no room for 2 cameras"),
    ({"POD_NAME": "camera"}, "ORVEX_POD_NAME requires a name that ends with a hyphen"),
    ({"CONFIG": "/none"}, "ORVEX_CONFIG requires a readable file, not '/none'"),
])
def test_a_wrong_variable_ends_the_container_with_a_reason(engine, image, variables, complaint):
    camera = Container(engine, image, **variables)
    try:
        camera.create()
        assert camera.await_end() == 2
        assert f"orvex-camera: {complaint}" in camera.logs()
    finally:
        camera.__exit__()


def test_a_second_container_on_a_volume_is_refused(engine, image, camera):
    second = Container(engine, image, volume=camera.volume)
    try:
        second.create()
        assert second.await_end() == 1
        assert "another container uses the volume" in second.logs()
    finally:
        second.__exit__()
    assert camera.is_healthy()


def test_health_follows_the_agent(engine, image):
    with Container(engine, image) as camera:
        status = lambda: camera.inspect()["State"]["Health"]["Status"]  # noqa: E731
        assert camera.is_healthy()
        assert status() == "healthy"
        agent = camera.processes()["snmpd"]
        os.kill(agent, signal.SIGSTOP)
        try:
            assert not camera.is_healthy()
            assert status() == "unhealthy"
        finally:
            os.kill(agent, signal.SIGCONT)
        await_until(camera.is_healthy, "the container is healthy again")
        # A fault that somebody sets on purpose is no reason to end the container.
        for service in ["temperature", "pan"]:
            camera.domectl("fault", service, "hang")
        assert camera.is_healthy()


@pytest.mark.parametrize(("program", "name"), [("snmpd", "agent"), ("orvex-dome", "dome"), ("dbus-daemon", "bus")])
def test_a_killed_process_ends_the_container(engine, image, program, name):
    with Container(engine, image) as camera:
        os.kill(camera.processes()[program], signal.SIGKILL)
        assert camera.await_end() == 1
        assert re.search(rf"^orvex-camera: the {name} of camera 1 ended by itself \(status 137\)$", camera.logs(), re.MULTILINE)
        assert not camera.is_healthy()


def test_it_stops_soon_and_its_state_survives(engine, image):
    with Container(engine, image) as camera:
        phrases = camera.phrases()
        engine_id = lambda: re.findall(r"^oldEngineID (\S+)$", camera.file("1", "snmp", "snmpd.conf"), re.MULTILINE)  # noqa: E731
        relay = OID["outputControl"]
        assert answered(camera.ask("snmpset", user(*phrases), relay, "x", "0101"))
        relays = json.loads(camera.domectl("state"))["relay"]
        took = camera.stop()
        print(f"stopped in {took:.2f} s")
        assert took < 5
        assert camera.inspect()["State"]["ExitCode"] == 0
        camera.start_again()
        known = engine_id()
        assert camera.phrases() == phrases
        assert answered(camera.ask("snmpget", user(*phrases), SERIAL))
        assert json.loads(camera.domectl("state"))["relay"] == relays
        # A kill is survived, too: sockets and locks of the old processes are no obstacle.
        engine.podman("kill", camera.name)
        camera.await_end()
        camera.start_again()
        assert engine_id() == known
        assert answered(camera.ask("snmpget", user(*phrases), SERIAL))


@pytest.fixture
def secrets():
    """A folder that others may enter."""
    with tempfile.TemporaryDirectory(prefix="orvex-secrets-") as folder:
        pathlib.Path(folder).chmod(0o755)
        yield pathlib.Path(folder)


def mounted(folder):
    return [f"--volume={folder}:/run/secrets/orvex:ro", "--env=ORVEX_PHRASES=/run/secrets/orvex/phrases"]


def test_without_the_file_of_phrases_they_are_generated(engine, image, secrets):
    with Container(engine, image, *mounted(secrets)) as camera:
        assert "are generated, in /var/lib/orvex-dome/N/v3/snmp.conf (there is no /run/secrets/orvex/phrases)" in camera.logs()
        assert answered(camera.ask("snmpget", user(*camera.phrases()), SERIAL))


@pytest.mark.parametrize(("mode_of_folder", "mode_of_file"), [(0o700, 0o644), (0o755, 0o600)])
def test_a_hidden_file_of_phrases_is_no_missing_one(engine, image, secrets, mode_of_folder, mode_of_file):
    (secrets / "phrases").write_text("some-phrase\nother-phrase\n")
    (secrets / "phrases").chmod(mode_of_file)
    secrets.chmod(mode_of_folder)
    camera = Container(engine, image, *mounted(secrets))
    try:
        camera.create()
        assert camera.await_end() in (1, 2)
        assert re.search("user 961 (may enter|cannot read)|that user 961 may enter", camera.logs())
    finally:
        camera.__exit__()


def test_phrases_of_a_mounted_file_replace_the_old_ones(engine, image, secrets):
    file = secrets / "phrases"
    file.write_text("first-authentication\nfirst-privacy\n")
    with Container(engine, image, *mounted(secrets)) as camera:
        assert "its pass phrases are those of /run/secrets/orvex/phrases" in camera.logs()
        first, second = ("first-authentication", "first-privacy"), ("second/phrase=1", "second:phrase%2")
        assert answered(camera.ask("snmpget", user(*first), SERIAL))
        camera.stop()
        file.write_text("\n".join(second))
        camera.start_again()
        assert answered(camera.ask("snmpget", user(*second), SERIAL))
        assert not answered(camera.ask("snmpget", user(*first), SERIAL))
        assert camera.phrases() == second
        camera.stop()
        file.write_text("short\nshort\n")
        camera.engine.podman("start", camera.name)
        assert camera.await_end() == 1
        assert "requires pass phrases of 8 to 64" in camera.logs()


def test_traps_go_to_the_receivers(engine, image):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as one, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as two:
        for sink, address in [(one, "127.0.0.1"), (two, OUTSIDE)]:
            sink.bind((address, 0))
            sink.settimeout(10)
        targets = [f"{address}:{port}" for address, port in (one.getsockname(), two.getsockname())]
        with Container(engine, image, TRAP_TO=" ".join(targets), TRAP_COMMUNITY="alarms") as camera:
            camera.domectl("event", "power", "1")
            for sink in (one, two):
                message = sink.recv(4096)
                while b"alarms" not in message:
                    message = sink.recv(4096)


def test_a_fleet_in_a_container_is_numbered_by_its_pods_ordinal(engine, image):
    with Container(engine, image, cameras=3, POD_NAME="fleet-2", READ_COMMUNITY="see", ALLOW=OUTSIDE) as fleet:
        answers = [fleet.ask("snmpget", [*community("see"), "-Ov"], SERIAL, port=fleet.port + n).stdout for n in range(3)]
        assert [bytes.fromhex(answer.strip(' "\n')) for answer in answers] == [b"OD20-000007", b"OD20-000008", b"OD20-000009"]
        assert [page("127.0.0.1", fleet.console_port + n) for n in range(3)] == [200] * 3
        for number in (7, 8, 9):
            assert f"camera {number}: ready\n" in fleet.logs()
        assert fleet.is_healthy()
        agent_of_second = fleet.agents()[1]
        os.kill(agent_of_second, signal.SIGSTOP)
        assert "camera 2: Timeout" in fleet.exec("orvex-camera-health").stdout
        os.kill(agent_of_second, signal.SIGCONT)
        took = fleet.stop()
        assert took < 5
        assert fleet.inspect()["State"]["ExitCode"] == 0
