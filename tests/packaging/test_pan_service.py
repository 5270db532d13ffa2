"""examples/pan-service, in C++ and in Python: built against the installed platform, with its own user and its bus
policy, it replaces the desk camera's pan for the agent."""

import os
import shutil
import signal
import subprocess

import pytest

import ber
from desk import BUILD, ROOT, ManagerOf, await_until
from expected_tree import OID
from users import AGENT, STRANGER, PolicedDesk, as_user

pytestmark = [
    pytest.mark.commands,  # only a build without sanitizers can be linked
    pytest.mark.skipif(os.getuid() != 0, reason="only root can run processes as other users"),
]

EXAMPLE = ROOT / "examples" / "pan-service"
USER = STRANGER  # instead of pan-service; without the example's policy it may not even connect


def run(*command):
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, f"{command}: {done.stdout[-3000:]}{done.stderr[-3000:]}"


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    """The folder into which the platform, with its development files, and the example are installed."""
    prefix = tmp_path_factory.mktemp("installed")
    for component in ("platform", "dev"):
        run("cmake", "--install", BUILD, "--prefix", prefix, "--component", component)
    build = prefix / "build"
    run("cmake", "-S", EXAMPLE, "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_INSTALL_PREFIX={prefix}",
        "-DCMAKE_CXX_FLAGS=-Werror", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    run("cmake", "--build", build)
    run("cmake", "--install", build)
    return prefix


class PanDesk(PolicedDesk):
    """A desk camera whose pan is the example's."""

    def __init__(self, installed):
        super().__init__("own")
        self.command = []
        policy = (installed / "share/tavos/bus.d/pan-service.conf").read_text().replace('"pan-service"', f'"{USER}"')
        (self.state / "pan-service.conf").write_text(policy)
        configuration = (self.state / "bus.conf").read_text()
        (self.state / "bus.conf").write_text(
            configuration.replace("</busconfig>", f"<include>{self.state}/pan-service.conf</include></busconfig>"))
        for file in (installed / "bin/pan-service", EXAMPLE / "pan_service.py"):
            shutil.copy(file, self.state / "programs" / "bin")  # other users have no access to the original's folder

    def start_pan(self):
        program = self.state / "programs" / "bin" / self.command[-1]
        self._launch("pan", as_user(USER, *self.command[:-1], program))
        self._await("pan", lambda: "ready" in self.output("pan"))

    def position(self):
        done = self.call(AGENT, "org.tavos.Pan1", "org.tavos.Pan1.GetPosition")
        return int(done.stdout.split()[-1]) if done.returncode == 0 else None


COMMANDS = {"C++": ["pan-service"], "Python": ["/usr/bin/python3", "-B", "pan_service.py"]}


@pytest.fixture(scope="module")
def desk(installed):
    with PanDesk(installed) as desk:
        desk.start()
        desk.domectl("fault", "pan", "gone")
        yield desk


@pytest.fixture(params=COMMANDS)
def camera(desk, request):
    desk.command = COMMANDS[request.param]
    desk.start_pan()
    yield desk
    assert desk.end("pan") in (0, -signal.SIGTERM)


def octets(mode, speed, position):
    return bytes([mode, speed & 0xFF]) + position.to_bytes(2, "big")


def command(camera, *words):
    with ManagerOf(camera) as manager:
        assert manager.set_octets(OID["positionPan"], octets(*words)).error_status == ber.NO_ERROR
        assert manager.get(OID["positionPan"]).bindings[0].value == octets(*words)


def test_the_agent_steers_it_also_after_it_was_killed(camera):
    assert camera.position() == 0
    command(camera, 2, 127, 35900)
    await_until(lambda: camera.position() == 359000, "the pan is at 359 degrees, by the shorter direction", seconds=3)
    command(camera, 1, -127, 1000)  # speeds of positioned moves may be negative
    await_until(lambda: camera.position() == 349000, "the pan is 10 degrees further left")
    command(camera, 3, 64, 0)
    await_until(lambda: 0 < camera.position() < 180000, "the pan turns over north")
    command(camera, 0, 0, 0)
    assert camera.position() == camera.position()

    camera.processes["pan"].kill()
    camera.processes.pop("pan").wait()
    command(camera, 2, 127, 1000)  # the SET succeeds, and the next GET answers it
    assert camera.position() is None
    camera.start_pan()

    def moved():
        command(camera, 2, 127, 2000)
        return camera.position() == 20000

    await_until(moved, "the agent calls the new process")


def test_it_refuses_what_the_contract_does_not_allow(camera):
    def refused(operation, *arguments):
        done = camera.bus(AGENT, "--dest=org.tavos.Pan1", "/org/tavos/Pan1", f"org.tavos.Pan1.{operation}", *arguments)
        return done.returncode != 0 and "Failed" in done.stderr

    assert refused("SetPositionAtSpeed", "int32:0", "double:1.1", "int32:300")
    assert refused("SetPositionAtSpeed", "int32:0", "double:nan", "int32:300")
    assert refused("SetRelativeVelocity", "double:0.5", "int32:-1")
    assert not refused("SetPositionAtSpeed", "int32:-370000", "double:-1", "int32:0")
    assert camera.position() == 0  # the time limit was over at once


def test_a_second_process_gives_up_at_once(camera):
    program = camera.state / "programs" / "bin" / camera.command[-1]
    done = subprocess.run(as_user(USER, *camera.command[:-1], program), env=camera.environment, capture_output=True,
                          text=True, timeout=20, cwd="/")
    assert done.returncode == 1
    assert "org.tavos.Pan1" in done.stderr.splitlines()[-1]
