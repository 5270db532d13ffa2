"""The settings store: writers killed at any moment, a full disk, a read-only disk, and damage."""

import contextlib
import json
import os
import random
import shutil
import signal
import subprocess
import threading
import time

import pytest

import ber
from desk import BUILD, ManagerOf, await_until
from expected_tree import OID
from watching import times
from test_banks import RELAYS, cell
from test_services import rows_without, tree

KEYS = 40
FOCUS_MODE = "[Imaging/Focus]Mode"
RELAY_STATE = cell(RELAYS, 3, 2)


def settings(store, *words, **options):
    command = [BUILD / "bin" / "tavos-settings", "--store", store, *words]
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=20, **options)


def value(store, key):
    done = settings(store, "get", key)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


def kill(process):
    process.send_signal(signal.SIGKILL)
    return process.wait()


def all_values(number):
    return "[Kill/Test]\n" + "".join(f"k{key} = {number} {'x' * 100}\n" for key in range(KEYS))


@pytest.mark.slow
def test_writers_killed_at_any_moment(tmp_path, figure):
    """Each writer stores forty values as one. An acknowledged write is there. A write interrupted by the kill is there
    as a whole or not at all."""
    kills = times(60, 1000)
    store, text = tmp_path / "settings.db", tmp_path / "values.ini"
    text.write_text(all_values(0))
    start = time.monotonic()
    assert settings(store, "import", text).returncode == 0
    max_delay = (time.monotonic() - start) * 1.5
    kept, cut_short, all_gone = 0, 0, 0
    for number in range(1, kills + 1):
        text.write_text(all_values(number))
        command = [BUILD / "bin" / "tavos-settings", "--store", store, "import", text]
        writer = subprocess.Popen(list(map(str, command)))
        time.sleep(random.uniform(0, max_delay))
        stored = kill(writer) == 0
        listed = settings(store, "list", "Kill/Test")
        assert listed.returncode == 0, listed.stderr
        numbers = {line.split(" = ")[1].split()[0] for line in listed.stdout.splitlines()}
        assert len(listed.stdout.splitlines()) == KEYS
        assert numbers == {str(number)} or (not stored and numbers == {str(kept)}), (numbers, number, kept, stored)
        cut_short += not stored
        all_gone += numbers != {str(number)}
        kept = int(numbers.pop())
    figure(f"{kills} kills, {cut_short} of them before the end, {all_gone} of these before the values were stored")
    assert cut_short > kills / 10


def relays(states):
    return json.dumps({"BNK1": states[:4], "BNK2": states[4:]}, separators=(",", ":"))


class Switching:
    """Switches relays in turn, in a `with`, until the camera is gone."""

    def __init__(self, desk, states):
        self.desk = desk
        self.acknowledged = self.asked = states
        self.count = 0
        self.ended = False
        self.thread = threading.Thread(target=self.run)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended = True
        self.thread.join()

    def run(self):
        while not self.ended:
            point = random.randrange(6)
            new = "10"[int(self.acknowledged[point])]
            self.asked = self.acknowledged[:point] + new + self.acknowledged[point + 1:]
            bank, relay = ("BNK1", point) if point < 4 else ("BNK2", point - 4)
            if self.desk.try_domectl("set", "relay", bank, relay, new).returncode != 0:
                return
            self.acknowledged = self.asked
            self.count += 1


@pytest.mark.slow
def test_the_camera_killed_at_any_moment(desk, figure):
    """The camera is killed while its relays switch and another process stores settings. The store opens each time;
    every acknowledged setting and relay is as it was."""
    kills, switched, asked_last = times(12, 1000), 0, 0
    store = desk.state / "settings.db"
    desk.start_bus()
    acknowledged = asked = "000000"
    for number in range(kills):
        desk.start_dome()
        state = desk.dome_state()["relay"]
        restored = "".join("01"[on] for bank in ("BNK1", "BNK2") for on in state[bank])
        assert restored in (acknowledged, asked), (number, restored, acknowledged, asked)
        asked_last += restored != acknowledged
        with Switching(desk, restored) as switching:
            assert settings(store, "set", "--force", "[Kill/Test]Number", str(number)).returncode == 0
            time.sleep(random.uniform(0, 0.3) if number % 10 else 1.2)  # once a second the camera checks its store
            kill(desk.processes.pop("dome"))
        acknowledged, asked, switched = switching.acknowledged, switching.asked, switched + switching.count
        assert value(store, "[Kill/Test]Number") == str(number)
        assert settings(store, "list").returncode == 0
    figure(f"{kills} kills, {switched} relays switched before, {asked_last} more that were not acknowledged any more")
    assert switched > kills


def test_a_relay_that_a_manager_has_switched_survives_a_kill(desk):
    desk.start()
    with ManagerOf(desk) as manager:
        for state in (1, 0, 1):
            assert manager.set_integer(RELAY_STATE, state).error_status == ber.NO_ERROR
            kill(desk.processes.pop("dome"))
            desk.start_dome()
            await_until(lambda: manager.get(RELAY_STATE).bindings[0].value == state, "the relay is as it was", 5)


@contextlib.contextmanager
def small_disk(desk):
    """The desk's store on a separate disk."""
    folder = desk.state / "disk"
    folder.mkdir()
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m,mode=755", "tmpfs", folder], capture_output=True,
                          text=True)
    if done.returncode != 0:
        pytest.skip(f"no file system can be mounted here: {done.stderr.strip()}")
    store = folder / "settings.db"
    shutil.copy(desk.state / "settings.db", store)
    desk.environment["TAVOS_SETTINGS_STORE"] = str(store)
    try:
        yield store
    finally:
        for name in reversed(list(desk.processes)):
            desk.end(name)
        subprocess.run(["umount", folder], check=True)


def fill(store):
    with contextlib.suppress(OSError), open(store.parent / "fill", "wb", buffering=0) as file:
        while True:
            file.write(bytes(4096))
    assert os.statvfs(store.parent).f_bavail == 0


def free(store):
    (store.parent / "fill").unlink()


def make_unwritable(store):
    subprocess.run(["mount", "-o", "remount,ro", store.parent], check=True)


def make_writable(store):
    subprocess.run(["mount", "-o", "remount,rw", store.parent], check=True)


TROUBLES = {"full": (fill, free, "No space left on device"),
            "read-only": (make_unwritable, make_writable, "Read-only file system")}


@pytest.mark.slow
@pytest.mark.parametrize("what", TROUBLES)
def test_nothing_can_be_written(desk, what):
    begin, end, reason = TROUBLES[what]
    with small_disk(desk) as store:
        begin(store)
        # All of them start with this store, and read it.
        desk.start()
        assert tree(desk) == rows_without()
        assert value(store, FOCUS_MODE) == "Auto"
        done = settings(store, "set", "--force", "[a]b", "1")
        assert done.returncode == 1
        assert done.stderr.startswith(f"tavos-settings: settings store {store}: ")
        assert done.stderr.endswith(f"({reason})\n") and done.stderr.count("\n") == 1

        with ManagerOf(desk) as manager:
            features = OID["systemLensFeatureControl"]
            manager.set_octets(features, b"\x40\x00")
            assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
            await_until(lambda: f"settings store {store}: " in desk.output("agent") and reason in desk.output("agent"),
                        "the agent logs it")
            desk.domectl("set", "relay", "BNK1", 2, 1)
            await_until(lambda: reason in desk.output("dome") + desk.log("dome"), "the camera logs it")

            end(store)
            assert manager.set_octets(features, b"\x40\x00").error_status == ber.NO_ERROR
            assert value(store, FOCUS_MODE) == "Manual"
        if what == "full":  # after a failed write the camera does not access the store for ten seconds
            await_until(lambda: settings(store, "get", "[Dome/State]Relays").stdout.strip() == relays("001000"),
                        "the camera stores its relays again", 20)


def test_a_folder_of_somebody_elses(desk):
    """Read access to the store's folder is enough to read the store."""
    store = desk.state / "public" / "settings.db"
    store.parent.mkdir(mode=0o755)
    shutil.copy(desk.state / "settings.db", store)
    store.chmod(0o644)
    desk.state.chmod(0o755)
    command = ["setpriv", "--reuid", "65534", "--clear-groups", BUILD / "bin" / "tavos-settings", "--store", store]

    def as_nobody(*words):
        return subprocess.run([*map(str, command), *words], capture_output=True, text=True, timeout=20)

    if os.getuid() != 0:
        pytest.skip("only root can change its user")
    assert as_nobody("get", FOCUS_MODE).stdout == "Auto\n"
    refused = as_nobody("set", "--force", "[a]b", "1")
    assert (refused.returncode, refused.stderr.count("\n")) == (1, 1)
    assert "Permission denied" in refused.stderr


@pytest.mark.parametrize("damage", ["no database", "cut short", "empty", "missing"])
def test_a_store_damaged_while_they_run(started, damage):
    store = started.state / "settings.db"
    whole = store.read_bytes()
    status = OID["systemLensFeatureStatus"]
    with ManagerOf(started) as manager:
        assert manager.get(status).bindings[0].value == b"\xc0"
        if damage == "missing":
            store.unlink()
        else:
            store.write_bytes({"empty": b"", "no database": b"camera" * 1000, "cut short": whole[:1500]}[damage])
        assert manager.get(status).bindings[0].value == b"\x80"  # focus mode unreadable: counts as off
        assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        lines = [line for line in started.output("agent").splitlines() if str(store) in line]
        assert len(lines) == 1
        assert manager.set_octets(OID["positionPan"], bytes.fromhex("02000064")).error_status == ber.NO_ERROR
        assert settings(store, "get", FOCUS_MODE).returncode == 1

        for leftover in started.state.glob("settings.db-*"):
            leftover.unlink()
        store.write_bytes(whole)
        assert manager.get(status).bindings[0].value == b"\xc0"
    assert started.alive("dome")


@pytest.mark.parametrize("suffix", ["", "-wal", "-shm", "-journal"])
def test_a_fifo_instead_of_one_of_the_stores_files(started, suffix):
    """Opening a FIFO waits without a deadline. Agent, camera and command refuse it, and continue when the store is
    back."""
    store = started.state / "settings.db"
    path = started.state / f"settings.db{suffix}"
    away = started.state / "away"
    reason = f"settings store {store}: " + (f"{path} is no regular file" if suffix else "it is no regular file")
    status, features = OID["systemLensFeatureStatus"], OID["systemLensFeatureControl"]
    with ManagerOf(started, timeout=1) as manager:
        assert manager.get(status).bindings[0].value == b"\xc0"
        if not suffix:
            path.rename(away)
        os.mkfifo(path)
        assert manager.get(status).bindings[0].value == b"\x80"  # focus mode unreadable: counts as off
        manager.set_octets(features, b"\x40\x00")
        assert manager.get(OID["modelName"]).bindings[0].value == b"Orvex Dome D20"
        assert manager.set_octets(OID["positionPan"], bytes.fromhex("02000064")).error_status == ber.NO_ERROR
        assert manager.set_integer(RELAY_STATE, 1).error_status == ber.NO_ERROR  # the camera stores it
        lines = [line for line in started.output("agent").splitlines() if reason in line]
        assert 1 <= len(lines) <= 2, lines  # one for reading, one for writing
        assert reason in started.output("dome") + started.log("dome")
        done = settings(store, "get", FOCUS_MODE)
        assert (done.returncode, done.stderr.count("\n")) == (1, 1)
        assert reason in done.stderr

        path.unlink()
        if not suffix:
            away.rename(path)
        assert manager.get(status).bindings[0].value == b"\xc0"
        assert manager.set_octets(features, b"\x40\x00").error_status == ber.NO_ERROR
        assert value(store, FOCUS_MODE) == "Manual"
    assert started.alive("dome")
