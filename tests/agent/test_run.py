"""./run as a person uses it."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import urllib.request

import pytest

import ber
from desk import ROOT, await_until, free_udp_port
from expected_tree import OID

pytestmark = [pytest.mark.slow, pytest.mark.commands]
RUN = ROOT / "run"


class Started:
    """A state folder and a port for ./run, and whatever was started there."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orvex-run-"))
        self.state = self.folder / "state"
        self.port = free_udp_port()
        self.console_port = 0

    def words(self, *more):
        return [RUN, *more, "--state", self.state, "--port", str(self.port), "--trap-port", str(self.port - 1),
                "--console-port", str(self.console_port)]

    def run(self, *more):
        return run(*self.words(*more))

    def stop(self):
        return run("--stop", "--state", self.state)

    def pids(self):
        lines = [line.split() for line in (self.state / "pids").read_text().splitlines()]
        return {name: int(pid) for name, pid, _ in lines}

    def model_name(self):
        manager = ber.Manager(self.port, timeout=2)
        try:
            return manager.get(OID["modelName"]).bindings[0].value
        except (socket.timeout, ConnectionRefusedError):
            return None
        finally:
            manager.close()


def run(*words):
    words = [str(word) for word in words]
    command = words if words[:1] == [str(RUN)] else [str(RUN), *words]
    # Output goes to files, not pipes: a camera that stays behind must not keep this call waiting.
    with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as error:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=out, stderr=error, timeout=300)
        out.seek(0)
        error.seek(0)
        return done.returncode, out.read(), error.read()


def gone(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] == "Z"
    except OSError:
        return True


def message(error):
    """What ./run says beside the build's own progress lines."""
    return [line for line in error.splitlines() if line.startswith(("run: ", "prepare-state: "))]


@pytest.fixture
def started():
    started = Started()
    yield started
    started.stop()
    shutil.rmtree(started.folder)


@pytest.fixture
def neighbour():
    neighbour = Started()
    yield neighbour
    neighbour.stop()
    shutil.rmtree(neighbour.folder)


def test_the_console_is_served_where_it_was_asked_for(started):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        started.console_port = taken.getsockname()[1]
        status, _, error = started.run("--detach")
        assert status == 1
        assert error.strip().splitlines()[-1].startswith(f"run: TCP port {started.console_port} is taken")
    status, out, error = started.run("--detach")
    assert status == 0, error
    assert f"http://127.0.0.1:{started.console_port}" in out
    with urllib.request.urlopen(f"http://127.0.0.1:{started.console_port}/", timeout=10) as page:
        assert b"<title>" in page.read()
    assert started.stop()[0] == 0


def test_detached_camera_answers_until_it_is_stopped(started):
    status, out, error = started.run("--detach")
    assert status == 0, error
    assert f"127.0.0.1:{started.port}" in out
    pids = started.pids()
    assert set(pids) == {"run", "bus", "dome", "agent"}
    assert started.model_name()
    assert (started.state.stat().st_mode & 0o777) == 0o700

    status, _, error = started.run("--detach")
    assert (status, len(message(error))) == (1, 1)
    assert "runs in" in error
    assert started.model_name(), "the refused start harmed the running camera"

    status, _, error = started.stop()
    assert status == 0, error
    assert all(gone(pid) for pid in pids.values())
    assert started.model_name() is None

    status, _, error = started.stop()
    assert (status, len(message(error))) == (1, 1)


def test_a_stopped_camera_keeps_its_settings(started):
    assert started.run("--detach")[0] == 0
    (started.state / "etc" / "version").write_text("9.9-20270101x\n")
    assert started.stop()[0] == 0
    before = (started.state / "settings.db").stat().st_ino
    assert started.run("--detach")[0] == 0
    assert (started.state / "settings.db").stat().st_ino == before
    manager = ber.Manager(started.port)
    assert manager.get(OID["fwVersion"]).bindings[0].value == b"9.9-20270101x"
    manager.close()


def test_two_cameras_side_by_side(started, neighbour):
    assert started.run("--detach")[0] == 0
    assert neighbour.run("--detach")[0] == 0
    assert started.stop()[0] == 0
    assert neighbour.model_name()


def test_ctrl_c_ends_everything(started):
    with open(started.folder / "out", "wb") as out:
        process = subprocess.Popen(started.words(), stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                   start_new_session=True,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    try:
        await_until(lambda: "answers on" in (started.folder / "out").read_text(), "the camera answers", 300)
        pids = started.pids()
        os.killpg(process.pid, signal.SIGINT)  # as a terminal does: to the whole group
        assert process.wait(20) == 0
    finally:
        process.kill()
    assert all(gone(pid) for pid in pids.values())


@pytest.mark.parametrize("name", ["bus", "dome", "agent"])
def test_a_part_that_dies_is_named(started, name):
    assert started.run("--detach")[0] == 0
    pids = started.pids()
    os.kill(pids[name], signal.SIGKILL)
    await_until(lambda: all(gone(pid) for pid in pids.values()), "the rest ends")
    assert f"the {name} ended (status 137)" in (started.state / "run.log").read_text()


def test_a_killed_run_leaves_nothing(started):
    assert started.run("--detach")[0] == 0
    pids = started.pids()
    os.kill(pids["run"], signal.SIGKILL)
    await_until(lambda: all(gone(pid) for pid in pids.values()), "its children end")
    status, _, error = started.run("--detach")
    assert status == 0, error


def test_a_stop_never_ends_a_stranger(started):
    assert started.run("--detach")[0] == 0
    assert started.stop()[0] == 0
    stranger = subprocess.Popen(["sleep", "60"])
    try:
        (started.state / "pids").write_text(f"run {stranger.pid} 1\nagent {stranger.pid} 1\n")
        started.stop()
        assert stranger.poll() is None
    finally:
        stranger.kill()
        stranger.wait()


def test_a_broken_settings_store_is_told(started):
    assert started.run("--detach")[0] == 0
    assert started.stop()[0] == 0
    (started.state / "settings.db").write_bytes(b"camera" * 1000)
    status, _, error = started.run("--detach")
    assert status == 1
    assert "the agent ended" in error or "the dome ended" in error


@pytest.mark.parametrize("address", ["127.0.0.1", "0.0.0.0"])
def test_taken_port(started, address):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
        holder.bind((address, started.port))
        status, _, error = started.run("--detach")
    assert (status, message(error)) == (1, [f"run: UDP port {started.port} is taken"])


@pytest.mark.parametrize(
    "words",
    [["--colour"], ["--port"], ["--port", "0"], ["--port", "65536"], ["--trap-port", "many"], ["--console-port", "-1"],
     ["--config", "/nowhere.toml"]],
    ids=" ".join,
)
def test_wrong_options(words):
    status, out, error = run(*words)
    assert (status, out, len(error.splitlines())) == (2, "", 1)


def test_the_camera_is_as_configured(started):
    (started.folder / "camera.toml").write_text("presets = 9\n")
    status, _, error = started.run("--detach", "--config", os.path.relpath(started.folder / "camera.toml"))
    assert status == 0, error
    domectl = ROOT / "build" / "desk" / "bin" / "domectl"
    state = subprocess.run([domectl, "--state", started.state, "state"], capture_output=True, text=True, timeout=20)
    assert '"presets":9,' in state.stdout

    assert started.stop()[0] == 0
    (started.folder / "camera.toml").write_text("wiper = 9\n")
    status, _, error = started.run("--detach", "--config", started.folder / "camera.toml")
    assert status == 1
    assert f"{started.folder}/camera.toml:1: wiper is not known" in error


def test_folders_that_cannot_be(started):
    long_name = started.folder / ("x" * 100)
    status, _, error = run("--detach", "--state", long_name)
    assert (status, len(message(error))) == (1, 1)
    assert "too long" in error

    file = started.folder / "file"
    file.write_text("")
    status, _, error = run("--detach", "--state", file)
    assert (status, len(message(error))) == (1, 1)

    somebody = started.folder / "somebody"
    somebody.mkdir()
    (somebody / "letter").write_text("dear")
    status, _, error = run("--detach", "--state", somebody)
    assert (status, len(message(error))) == (1, 1)
    assert (somebody / "letter").read_text() == "dear"
    assert os.listdir(somebody) == ["letter"]


def test_stop_without_a_camera(started):
    status, _, error = started.stop()
    assert (status, len(message(error))) == (1, 1)
