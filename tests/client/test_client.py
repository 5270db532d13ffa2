"""A desk camera from Python: objects by name, faults, waiting, the trace; and nothing is left of it."""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import textwrap

import pytest

from desk import BUILD, ROOT, await_until
from orvex_camera import (CameraError, ControlError, DeskCamera, Manager, MissingPrograms, NoAnswer, NotServed,
                          Recording, SnmpError, StartFailed, absolute, continuous, replay, stop)
from orvex_camera import processes

CLIENT = ROOT / "clients" / "python"


@pytest.fixture
def camera(shared_desk_camera):
    return shared_desk_camera


def test_values_have_the_objects_types(camera):
    assert camera.get("modelName") == "Orvex Dome D20"
    assert camera.get("moduleDeviceNode") == "1.3.6.1.4.1.1206.4.2.7"
    assert camera.get("temperature") == 25
    assert camera.get("systemLensEquipped") == b"\x40"
    assert camera.get("alarmBank.6") == "BNK2"
    assert camera.get("1.3.6.1.4.1.32473.1.1.7.0") == 25


def test_a_set_moves_the_camera_and_the_wait_ends_at_its_target(camera):
    camera.clock("rate", 20)
    try:
        camera.set("positionPan", absolute(9000, speed=100))
        camera.wait_at_rest("pan")
        assert camera.get("positionPan") == bytes([2, 100]) + (9000).to_bytes(2, "big")
        assert camera.state()["pan"]["position"] == 90000
    finally:
        camera.clock("rate", 1)


def test_a_wait_fails_at_its_timeout_and_names_what_moves(camera):
    camera.set("positionPan", continuous(-5))
    try:
        with pytest.raises(ControlError, match="pan") as caught:
            camera.wait_at_rest(timeout=0.1)
        assert caught.value.status == 1
    finally:
        camera.set("positionPan", stop())
        camera.wait_at_rest()


@pytest.mark.parametrize(("name", "value", "error"), [("positionPan", absolute(36000), "genErr"),
                                                      ("serialNumber", "OD20-7", "notWritable"),
                                                      ("rangeTrueNorthOffset", 7, "wrongValue")])
def test_an_error_of_the_agent_has_its_name(camera, name, value, error):
    with pytest.raises(SnmpError, match=f"SET {name} = .*: {error}") as caught:
        camera.set(name, value)
    assert caught.value.name == error


def test_what_no_camera_serves_is_said(camera):
    with pytest.raises(NotServed, match="positionPam"):
        camera.get("positionPam")
    with pytest.raises(NotServed, match="no such object"):
        camera.get("1.3.6.1.4.1.1206.4.2.7.99.0")
    with pytest.raises(NotServed, match="no such"):
        camera.get("alarmState.7")


@pytest.mark.parametrize(("name", "value"), [("positionPan", 9000), ("positionPan", "90"), ("timeoutPan", b"\1")])
def test_a_value_that_the_objects_type_cannot_have_is_never_sent(camera, name, value):
    with pytest.raises(TypeError, match=name):
        camera.set(name, value)


def test_an_agent_that_does_not_answer_is_said_in_time():
    manager = Manager("127.0.0.1", processes.free_port(), timeout=0.1)
    try:
        with pytest.raises(NoAnswer, match="GET modelName"):
            manager.get("modelName")
    finally:
        manager.close()


@pytest.mark.parametrize("host", ["nohost.invalid", "255.255.255.255"])
def test_a_host_that_cannot_be_reached_is_an_error_of_this_package(host):
    with pytest.raises(NoAnswer, match=host):
        Manager(host, 161)
    with pytest.raises(NoAnswer, match=host):
        replay(Recording([]), host, 161)


def test_a_camera_that_was_not_started_says_so():
    for ask in (DeskCamera.state, DeskCamera.calls, lambda camera: camera.log("agent"), lambda camera: camera.manager):
        with pytest.raises(CameraError, match="does not run"):
            ask(DeskCamera())


def test_a_fault_shows_in_the_trace(camera):
    camera.set("positionTilt", stop())  # which succeeds
    camera.fault("tilt", "fail")
    try:
        camera.set("positionTilt", absolute(1000))
        (request,) = camera.trace(object="positionTilt", failed=True)
        assert [call["outcome"] for call in request["calls"]] == ["failed"]
    finally:
        camera.fault("tilt", "ok")


def test_words_that_domectl_refuses_are_an_error_with_its_reason(camera):
    with pytest.raises(ControlError, match="hung") as caught:
        camera.fault("tilt", "hung")
    assert caught.value.status == 2


def processes_in(folder):
    """The ids of the processes that work in that folder."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if os.readlink(process / "cwd").removesuffix(" (deleted)") == str(folder):
                found.append(int(process.name))
        except OSError:
            continue
    return found


def test_nothing_is_left_after_an_exception(desk_camera_options):
    with pytest.raises(ZeroDivisionError):
        with DeskCamera(**desk_camera_options) as camera:
            folder = camera.state_folder
            assert len(processes_in(folder)) == 3
            with pytest.raises(CameraError, match="^this camera runs already$"):
                camera.start()
            1 / 0
    assert not folder.exists()
    assert processes_in(folder) == []
    with pytest.raises(CameraError, match="does not run"):
        camera.get("modelName")


# What the program does at Ctrl-C: while it waits in a test, and while its camera starts.
PROGRAMS = {"running": "with DeskCamera(**options) as camera:\n    print('now', flush=True)\n    time.sleep(60)",
            "starting": "DeskCamera._start_processes = slow\nwith DeskCamera(**options): pass"}


@pytest.mark.parametrize("moment", PROGRAMS)
def test_nothing_is_left_after_ctrl_c(moment, tmp_path, desk_camera_options):
    text = textwrap.dedent(f"""\
        import sys, time
        sys.path.insert(0, {str(CLIENT)!r})
        from orvex_camera import DeskCamera
        options = {desk_camera_options!r}
        start = DeskCamera._start_processes

        def slow(camera):
            start(camera)
            print("now", flush=True)
            time.sleep(60)
        """) + PROGRAMS[moment]
    # A folder for temporary files of its own shows what is left.
    # A background job ignores Ctrl-C, and what it starts would, too.
    program = subprocess.Popen(["env", "--default-signal=INT", sys.executable, "-B", "-c", text], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, env=dict(os.environ, TMPDIR=str(tmp_path)))
    try:
        assert program.stdout.readline() == "now\n", program.stderr.read()
        (folder,) = tmp_path.iterdir()
        assert len(processes_in(folder)) == 3
        program.send_signal(signal.SIGINT)
        _, errors = program.communicate(timeout=30)
    finally:
        program.kill()
        program.wait()
    assert errors.rstrip().endswith("KeyboardInterrupt"), errors
    assert list(tmp_path.iterdir()) == []
    assert processes_in(folder) == []


def test_the_processes_end_with_a_program_that_is_killed(tmp_path, desk_camera_options):
    text = (f"import sys, time\nsys.path.insert(0, {str(CLIENT)!r})\nfrom orvex_camera import DeskCamera\n"
            f"options = {desk_camera_options!r}\n{PROGRAMS['running']}")
    program = subprocess.Popen([sys.executable, "-B", "-c", text], stdout=subprocess.PIPE, text=True,
                               env=dict(os.environ, TMPDIR=str(tmp_path)))
    try:
        assert program.stdout.readline() == "now\n"
    finally:
        program.kill()
        program.communicate()
    (folder,) = tmp_path.iterdir()
    await_until(lambda: processes_in(folder) == [], "the processes have ended")


def test_a_camera_without_its_programs_says_which_is_missing(tmp_path, monkeypatch):
    monkeypatch.setenv("ORVEX_BUILD", str(tmp_path))
    with pytest.raises(MissingPrograms, match=f"^no desk camera: {tmp_path}/bin/orvex-dome is missing; build it "):
        DeskCamera()


def test_domectl_names_the_package_that_plays(tmp_path):
    """Where the Python client is not installed beside it."""
    alone = tmp_path / "domectl"
    shutil.copy(BUILD / "bin" / "domectl", alone)
    done = subprocess.run([alone, "--state", tmp_path, "play", "heat.toml"], capture_output=True, text=True, timeout=20,
                          env=dict(os.environ, LD_LIBRARY_PATH=str(BUILD / "lib")))
    assert (done.returncode, done.stderr) == (1, f"domectl: play: {tmp_path}/orvex-session cannot be started: No such "
                                                 "file or directory; the package python3-orvex-camera has it\n")


def test_a_start_that_fails_says_why_and_leaves_nothing(tmp_path, monkeypatch, desk_camera_options):
    monkeypatch.setattr("tempfile.tempdir", str(tmp_path))
    config = tmp_path / "wrong.toml"
    config.write_text("wings = 2\n")
    with pytest.raises(StartFailed, match="wrong.toml:1: wings"):
        DeskCamera(config, **desk_camera_options).start()
    assert list(tmp_path.iterdir()) == [config]


def test_a_port_that_another_program_takes_first_is_replaced(monkeypatch, shared_desk_camera, desk_camera_options):
    ports = [shared_desk_camera.port]
    free = processes.free_port
    monkeypatch.setattr(processes, "free_port", lambda: ports.pop() if ports else free())
    with DeskCamera(**desk_camera_options) as second:
        assert ports == []
        assert second.port != shared_desk_camera.port
        assert second.get("modelName") == "Orvex Dome D20"


@pytest.fixture
def short_path():
    """Beside the test's folder, whose name is too long for a bus's socket below it."""
    with tempfile.TemporaryDirectory() as folder:
        yield pathlib.Path(folder)


def test_the_fixture_gives_each_test_a_new_camera(tmp_path, short_path, desk_camera_options):
    test = tmp_path / "test_it.py"
    test.write_text("import pytest\n\n@pytest.mark.parametrize('turn', [1, 2])\ndef test_it(desk_camera, turn):\n"
                    "    assert desk_camera.state()['pan']['position'] == 0\n"
                    "    desk_camera.domectl('set', 'pan', 9000)\n")
    (tmp_path / "conftest.py").write_text("import pytest\n\n@pytest.fixture(scope='session')\ndef desk_camera_options():\n"
                                          f"    return {desk_camera_options!r}\n")
    done = subprocess.run([sys.executable, "-B", "-m", "pytest", "-q", "-p", "orvex_camera.pytest_plugin", "-p",
                           "no:cacheprovider", test], cwd=tmp_path, capture_output=True, text=True, timeout=60,
                          env=dict(os.environ, PYTHONPATH=str(CLIENT), ORVEX_BUILD=str(BUILD),
                                   TMPDIR=str(short_path)))
    assert "2 passed" in done.stdout, done.stdout + done.stderr
    assert list(short_path.iterdir()) == []
