"""A state folder that an earlier release left is opened by this build, and what this build leaves has the form that the
release reads. The folders in tests/fixtures were written by the releases that they are named after."""

import json
import shutil
import sqlite3
import subprocess

import pytest

from desk import AGENT, BUILD, ROOT, Desk, await_until, processes

FOLDERS = sorted((ROOT / "tests" / "fixtures").glob("state-*"))


def engine_id(folder):
    lines = (folder / "snmp" / "snmpd.conf").read_text().splitlines()
    return next(line for line in lines if line.startswith("oldEngineID"))


# A desk camera starts the agent with -C, and 5.4.2 does not read its engine ID then.
KEEPS_ENGINE_ID = AGENT > (5, 4, 2)


@pytest.fixture(params=FOLDERS, ids=lambda folder: folder.name)
def upgraded(request):
    """This build's desk camera in a copy of the folder, not started yet."""
    with Desk() as desk:
        shutil.rmtree(desk.state)
        shutil.copytree(request.param, desk.state)
        (desk.state / "snmp" / processes.CERTIFICATES).mkdir()
        command = [ROOT / "scripts" / "prepare-state", BUILD, desk.state, str(desk.port), str(desk.trap_port)]
        subprocess.run(command, check=True)
        (desk.state / "camera.toml").write_text("keep_position = true\n")
        desk.dome_options = ["--config", desk.state / "camera.toml"]
        desk.released = request.param
        yield desk


def test_there_is_a_folder_of_the_first_release():
    assert "state-0.1.0" in [folder.name for folder in FOLDERS]


def test_what_a_release_left_is_kept(upgraded):
    upgraded.start()
    state = upgraded.dome_state()
    assert (state["pan"]["position"], state["focus"]["position"]) == (123450, 33)
    assert state["focus"]["auto"] is False
    assert state["relay"]["BNK2"] == [True, False]
    serial = subprocess.run(["myname", "-s"], env=upgraded.environment, capture_output=True, text=True, timeout=20)
    assert serial.stdout == "OD20-000042\n"
    # The user's keys are those of the phrases that the release made, for the same engine.
    command = ["snmpget", "-v3", "-On", f"127.0.0.1:{upgraded.port}", "1.3.6.1.2.1.1.5.0"]
    environment = dict(upgraded.environment, SNMPCONFPATH=str(upgraded.state / "v3"))
    answer = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=20)
    assert answer.stdout == '.1.3.6.1.2.1.1.5.0 = STRING: "OD20-000042"\n', answer.stderr
    assert not KEEPS_ENGINE_ID or engine_id(upgraded.state) == engine_id(upgraded.released)


def form(store):
    """The store's tables and pragmas, and its keys; of a value in JSON, its keys and their types."""
    def kind(value):
        try:
            parsed = json.loads(value)
        except ValueError:
            return "text"
        return {key: type(one).__name__ for key, one in parsed.items()} if isinstance(parsed, dict) else "text"

    database = sqlite3.connect(store)
    try:
        pragmas = [database.execute(f"PRAGMA {name}").fetchone()
                   for name in ("user_version", "application_id", "journal_mode", "encoding")]
        tables = database.execute("SELECT name, sql FROM sqlite_schema").fetchall()
        rows = database.execute("SELECT section, key, value FROM settings").fetchall()
    finally:
        database.close()
    return pragmas, tables, {(section, key): kind(value) for section, key, value in rows}


def test_what_this_build_leaves_has_the_releases_form(upgraded, tmp_path):
    shutil.copy(upgraded.released / "settings.db", tmp_path)
    upgraded.start()
    upgraded.domectl("set", "pan", 5000)
    upgraded.domectl("set", "relay", "BNK1", 3, 1)
    upgraded.settings("set", "[Device/ReadOnly]SerialNumber", "OD20-000043")

    def is_stored():
        export = upgraded.settings("export")
        return '"pan":5000.0' in export and '"BNK1":"0001"' in export

    await_until(is_stored, "the camera has stored its state")
    upgraded.end("agent")
    upgraded.end("dome")
    assert form(upgraded.state / "settings.db") == form(tmp_path / "settings.db")
    assert not KEEPS_ENGINE_ID or engine_id(upgraded.state) == engine_id(upgraded.released)
