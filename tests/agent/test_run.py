"""./run, started as a user starts it."""

import concurrent.futures
import contextlib
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.request

import pytest

import ber
from desk import ROOT, await_until, free_udp_port
from expected_tree import OID
from resting import check_rest

pytestmark = [pytest.mark.slow, pytest.mark.commands]
RUN = ROOT / "run"


class Started:
    """A state folder and a port for ./run; ends what a test started there."""

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
    # Output goes to files: with a pipe, this call would wait for a camera that keeps running.
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
    """What ./run prints, without the build's progress lines."""
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


def test_nothing_of_a_camera_wakes_up_at_rest(started):
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        started.console_port = free.getsockname()[1]
    assert started.run("--detach")[0] == 0
    assert started.model_name()
    check_rest(started.pids())


@pytest.mark.parametrize("where", ["the checkout", "the state's folder", "the root"])
def test_the_printed_commands_work_from_where_it_was_started(started, where):
    folder = {"the checkout": ROOT, "the state's folder": started.folder, "the root": "/"}[where]

    def shell(command):
        with tempfile.TemporaryFile("w+") as out:  # with a pipe, this call would wait for a camera that keeps running
            done = subprocess.run(["bash", "-c", command], cwd=folder, stdin=subprocess.DEVNULL, stdout=out,
                                  stderr=out, timeout=300)
            out.seek(0)
            return done.returncode, out.read()

    command = ["./" + os.path.relpath(RUN, folder), *map(str, started.words("--detach")[1:])]
    status, out = shell(shlex.join(command))
    assert status == 0, out
    (state,) = [line for line in out.splitlines() if "the camera's current state" in line]
    status, answer = shell(state)
    assert status == 0 and '"pan":' in answer, answer
    (wait,) = [line for line in out.splitlines() if "when the move has ended" in line]
    assert shell(wait) == (0, "")
    stop = out.splitlines()[-1].removesuffix(" ends it.")
    assert shell(stop) == (0, "")
    assert started.model_name() is None


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
        os.killpg(process.pid, signal.SIGINT)  # like a terminal: to the whole process group
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


def test_a_broken_settings_store_is_reported(started):
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


@pytest.mark.parametrize("words", [["--port", "161"], ["--console-port", "80"]], ids=" ".join)
def test_a_port_that_requires_root_is_refused_to_others_in_one_line(words):
    without = ["setpriv", "--bounding-set=-net_bind_service", "--inh-caps=-net_bind_service", "--"]
    done = subprocess.run([*without, RUN, *words], capture_output=True, text=True, timeout=20)
    assert (done.returncode, done.stdout, len(done.stderr.splitlines())) == (2, "", 1)
    assert f"{words[0]} {words[1]}: ports below" in done.stderr and "require root" in done.stderr


@pytest.mark.parametrize("program", ["run", "check", "bench/run"])
def test_help_and_version_are_answers(program):
    (version,) = re.findall(r"^project\(.* VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)
    for word, expected in [("--help", "--version"), ("-h", "--version"), ("--version", f"orvexsnmp {version}\n")]:
        done = subprocess.run([ROOT / program, word], capture_output=True, text=True, timeout=20)
        assert (done.returncode, done.stderr) == (0, "")
        assert expected in done.stdout


def test_a_wrong_word_is_named_with_what_was_expected():
    status, out, error = run("--colour")
    assert (status, out) == (2, "")
    assert error.startswith("run: unknown word '--colour', expected --detach --stop --state --port ")


def test_a_value_may_follow_an_equals_sign(started):
    words = [f"--state={started.state}", f"--port={started.port}", f"--trap-port={started.port - 1}", "--console-port=0"]
    status, _, error = run("--detach", *words)
    assert status == 0, error
    assert started.model_name()
    assert run("--stop", f"--state={started.state}")[0] == 0
    assert run(*words, "--port=")[0] == 2


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


def test_impossible_folders(started):
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


def at_once(*commands):
    """Starts ./run `count` times at once; returns each one's status, output and errors."""
    with concurrent.futures.ThreadPoolExecutor(len(commands)) as pool:
        return list(pool.map(lambda words: run(*words), commands))


def one_line(error):
    """The only line that a refused start prints, apart from the build's."""
    (line,) = message(error)
    return line


def prepare(state, port):
    build = ROOT / "build" / "desk"
    subprocess.run([ROOT / "scripts" / "prepare-state", build, state, str(port), str(port - 1)], check=True)


@pytest.mark.parametrize("more", [[], ["--fleet", "2"]], ids=["camera", "fleet"])
def test_of_two_starts_at_once_one_wins(started, neighbour, more):
    neighbour.state = started.state  # the same new folder, other ports
    outcomes = at_once(started.words("--detach", *more), neighbour.words("--detach", *more))
    assert sorted(status for status, _, _ in outcomes) == [0, 1], outcomes
    (refusal,) = [error for status, _, error in outcomes if status == 1]
    assert one_line(refusal) == f"run: a camera runs in {started.state} already"
    winner = (started, neighbour)[[status for status, _, _ in outcomes].index(0)]
    assert winner.model_name()
    neighbour.state = neighbour.folder / "state"


def test_of_two_starts_in_the_foreground_one_wins(started, neighbour):
    neighbour.state = started.state
    with open(started.folder / "error", "wb") as error, open(started.folder / "out", "wb") as out:
        processes = [subprocess.Popen([str(word) for word in camera.words()], stdin=subprocess.DEVNULL, stdout=out,
                                      stderr=error, start_new_session=True) for camera in (started, neighbour)]
    try:
        await_until(lambda: any(process.poll() is not None for process in processes), "one start fails", 60)
        await_until(lambda: started.model_name() or neighbour.model_name(), "the other answers", 60)
        assert sorted(process.poll() is None for process in processes) == [False, True]
        assert one_line((started.folder / "error").read_text()) == f"run: a camera runs in {started.state} already"
    finally:
        for process in processes:
            process.terminate()
            process.wait(20)
        neighbour.state = neighbour.folder / "state"


OPENED = ["lock", "pids", "ready", "run.log", "bus.out", "bus.log", "dome.out", "dome.log", "agent.out", "agent.log",
          "bus.conf", "snmpd.conf", "settings.db", "settings.db-wal", "settings.new", "etc/version", "sbin/restart.sh",
          "snmp/snmpd.conf", "snmp/snmpget.conf", "v3/snmp.conf", "etc", "v3"]


def test_what_is_no_regular_file_is_refused_before_it_is_opened(started):
    prepare(started.state, started.port)
    for name in OPENED:
        path, away = started.state / name, started.folder / "away"
        if path.exists():
            path.rename(away)
        os.mkfifo(path)
        begin = time.monotonic()
        status, _, error = started.run("--detach")
        assert time.monotonic() - begin < 5, name  # usually some milliseconds; a busy machine takes longer
        what = "folder" if name in ("etc", "v3") else "regular file"
        assert (status, one_line(error)) == (1, f"run: {path} is not a {what}; remove it and start again")
        path.unlink()
        if away.exists():
            away.rename(path)
    status, _, error = started.run("--detach")
    assert status == 0, error


def test_what_is_no_regular_file_in_a_fleet_is_refused(started):
    started.state.mkdir()
    for name in ("fleet", "lock", "2"):
        os.mkfifo(started.state / name)
        status, _, error = started.run("--detach", "--fleet", "2")
        what = "folder" if name == "2" else "regular file"
        path = started.state / name
        assert (status, one_line(error)) == (1, f"run: {path} is not a {what}; remove it and start again")
        (started.state / name).unlink()


@pytest.mark.parametrize("text", ["", "defVersion 3\n", "defAuthPassphrase long enough\ndefPrivPassphrase short\n"])
def test_missing_pass_phrases_are_named(started, text):
    prepare(started.state, started.port)
    phrases = started.state / "v3" / "snmp.conf"
    phrases.write_text(text)
    status, _, error = started.run("--detach")
    assert status == 1
    assert one_line(error) == (f"prepare-state: {phrases} has no defAuthPassphrase and defPrivPassphrase of 8 characters "
                               "or more; correct it, or remove it for new ones")
    assert phrases.read_text() == text


def test_a_start_that_was_cut_short_does_not_bar_the_next(started):
    started.state.mkdir()
    (started.state / "lock").touch()
    (started.state / "bus.conf.new").write_text("<!DOC")
    status, _, error = started.run("--detach")
    assert status == 0, error


def test_a_strangers_lock_is_left_alone(started):
    started.state.mkdir()
    (started.state / "lock").write_text("dear")
    (started.state / "letter").write_text("dear")
    status, _, error = started.run("--detach")
    assert status == 1 and "is not a camera's state folder" in one_line(error)
    assert (started.state / "lock").read_text() == "dear"


def test_a_copied_state_folder_is_not_the_running_cameras(started, neighbour):
    assert started.run("--detach")[0] == 0
    pids = started.pids()
    shutil.copytree(started.state, neighbour.state, ignore=shutil.ignore_patterns("bus.sock", "trace.sock"))
    status, _, error = neighbour.stop()
    assert not any(gone(pid) for pid in pids.values()), "the copied DIR/pids ended the first camera"
    status, _, error = neighbour.run("--detach")
    assert status == 0, error
    assert started.model_name() and neighbour.model_name()


def test_all_ends_when_the_state_folder_is_gone(started):
    with open(started.folder / "out", "wb") as out:
        process = subprocess.Popen(list(map(str, started.words())), stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                   start_new_session=True)
    try:
        await_until(lambda: "answers on" in (started.folder / "out").read_text(), "the camera answers", 300)
        pids = started.pids()
        shutil.rmtree(started.state)
        process.terminate()
        assert process.wait(20) == 0
    finally:
        process.kill()
    assert all(gone(pid) for pid in pids.values())


# Replaces the wall clock that the shell reads: an hour later at each reading, or always the same.
STEPPED_CLOCK = r"""
#define _GNU_SOURCE
#include <errno.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
static time_t step(void) {
    static time_t now = 1800000000;
    const char* name = program_invocation_short_name;
    return !strcmp(name, "bash") || !strcmp(name, "run") ? (now += STEP) : 0;
}
time_t time(time_t* result) {
    struct timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    time_t now = step();
    if (!now) now = real.tv_sec;
    if (result) *result = now;
    return now;
}
int gettimeofday(struct timeval* restrict result, void* restrict zone) {
    struct timespec real;
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &real);
    const time_t now = step();
    result->tv_sec = now ? now : real.tv_sec;
    result->tv_usec = real.tv_nsec / 1000;
    return 0;
}
"""


def stepped_clock(folder, step):
    source, library = folder / "clock.c", folder / f"clock{step}.so"
    source.write_text(STEPPED_CLOCK)
    subprocess.run(["cc", "-shared", "-fPIC", f"-DSTEP={step}", "-o", library, source], check=True)
    shell = ["bash", "-c", "a=$SECONDS; sleep 1.1; echo $((SECONDS - a))"]
    seen = subprocess.run(shell, env=dict(os.environ, LD_PRELOAD=str(library)), capture_output=True, text=True)
    assert int(seen.stdout) >= step if step else int(seen.stdout) == 0, f"the shell sees another clock: {seen}"
    return str(library)


@pytest.mark.parametrize("more", [[], ["--fleet", "2"]], ids=["camera", "fleet"])
def test_a_clock_that_is_set_ahead_does_not_end_a_start(started, monkeypatch, more):
    monkeypatch.setenv("LD_PRELOAD", stepped_clock(started.folder, 3600))
    status, _, error = started.run("--detach", *more)
    assert status == 0, error


def test_a_clock_that_is_set_back_does_not_prolong_a_start(started, monkeypatch):
    prepare(started.state, started.port)
    # The agent reads its default file first, and with this file it does not answer the test's community.
    (started.state / "snmp" / "snmpd.conf").write_text("com2sec nobody 127.0.0.1 public\n")
    monkeypatch.setenv("LD_PRELOAD", stepped_clock(started.folder, 0))
    begin = time.monotonic()
    process = subprocess.Popen(list(map(str, started.words("--detach"))), stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        error = process.communicate(timeout=60)[1]
        assert process.returncode == 1
        assert "the agent is not ready after 15 seconds" in error
        assert time.monotonic() - begin > 14, "it does not stop waiting too early"
    finally:
        process.terminate()
        process.wait(20)


def copied_checkout(folder):
    """A copy of the sources, with a desk build's records of where it was made."""
    checkout = folder / "checkout"
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    for name in filter(None, listed.split("\0")):
        if not (ROOT / name).exists():
            continue
        (checkout / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, checkout / name)
    (checkout / "build" / "desk").mkdir(parents=True)
    for name in ("CMakeCache.txt", "build.ninja", "CMakeFiles/rules.ninja"):
        (checkout / "build" / "desk" / name).parent.mkdir(exist_ok=True)
        shutil.copy2(ROOT / "build" / "desk" / name, checkout / "build" / "desk" / name)
    return checkout


def test_a_copied_checkout_builds_its_own_sources(tmp_path):
    checkout = copied_checkout(tmp_path)
    build = ["bash", "-c", 'set -e; root=$PWD; source scripts/common.sh; build_preset desk --target myname']
    done = subprocess.run(build, cwd=checkout, capture_output=True, text=True, timeout=600)
    assert done.returncode == 0, done.stdout + done.stderr
    assert f"was copied or moved here from {ROOT}: building anew" in done.stdout
    cache = (checkout / "build" / "desk" / "CMakeCache.txt").read_text()
    assert f"CMAKE_HOME_DIRECTORY:INTERNAL={checkout}\n" in cache
    program = checkout / "build" / "desk" / "bin" / "myname"
    loaded = subprocess.run(["ldd", program], capture_output=True, text=True, check=True).stdout
    assert f"{checkout}/build/desk/bin/../lib/libtavos" in loaded and f"{ROOT}/" not in loaded

    again = subprocess.run(build, cwd=checkout, capture_output=True, text=True, timeout=600)
    assert (again.returncode, again.stdout) == (0, ""), again.stderr


def test_a_copied_builds_programs_load_their_own_libraries(tmp_path):
    copy = tmp_path / "desk"
    for folder in ("bin", "lib"):
        shutil.copytree(ROOT / "build" / "desk" / folder, copy / folder, symlinks=True)
    for file in [*(copy / "bin").iterdir(), copy / "lib" / "orvexsnmp.so"]:
        loaded = subprocess.run(["ldd", file], capture_output=True, text=True).stdout
        assert f"{ROOT}/" not in loaded, file
    loaded = subprocess.run(["ldd", copy / "bin" / "orvex-dome"], capture_output=True, text=True, check=True).stdout
    assert f"{copy}/bin/../lib/libtavos" in loaded


@contextlib.contextmanager
def disk(folder, size):
    folder.mkdir()
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder], capture_output=True, text=True)
    if done.returncode != 0:
        pytest.skip(f"no file system can be mounted here: {done.stderr.strip()}")
    try:
        yield folder
    finally:
        subprocess.run(["umount", folder], check=True)


@pytest.mark.parametrize("pages", [0, 1, 2, 3, 5])
def test_a_full_disk_is_named_and_leaves_nothing_half_written(started, pages):
    with disk(started.folder / "disk", "64k") as folder:
        started.state = folder / "state"
        fill = folder / "fill"
        fill.write_bytes(bytes(4096 * (16 - pages)))
        status, _, error = started.run("--detach")
        assert status == 1
        (line,) = [line for line in error.splitlines() if "No space left on device" in line]
        assert str(started.state) in line
        for name in ("etc/version", "sbin/restart.sh", "v3/snmp.conf", "bus.conf", "snmpd.conf"):
            path = started.state / name
            assert not path.exists() or path.stat().st_size > 0, name

        fill.unlink()
        subprocess.run(["mount", "-o", "remount,size=8m", folder], check=True)
        status, _, error = started.run("--detach")
        assert status == 0, error
        assert started.model_name()
        assert started.stop()[0] == 0


def test_a_read_only_disk_is_named(started):
    with disk(started.folder / "disk", "64k") as folder:
        (folder / "state").mkdir()
        subprocess.run(["mount", "-o", "remount,ro", folder], check=True)
        for state in (folder / "state", folder / "new"):
            status, _, error = run("--detach", "--state", state)
            assert status == 1
            assert one_line(error).startswith(f"run: cannot make the camera's state folder {state}")
            assert one_line(error).endswith(": Read-only file system")


def test_two_stops_at_once(started):
    assert started.run("--detach")[0] == 0
    pids = started.pids()
    stop = ["--stop", "--state", started.state]
    outcomes = at_once(stop, stop)
    assert all(map(gone, pids.values()))
    assert 0 in [status for status, _, _ in outcomes]
    for status, _, error in outcomes:  # the later stop may run after everything has ended
        assert status == 0 or one_line(error) == f"run: no camera runs in {started.state}"
