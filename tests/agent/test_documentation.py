"""docs/objects.md names exactly the served objects; the commands in README.md and docs/dome.md work as shown."""

import re
import shutil
import subprocess
import sys

import pytest

from desk import BUILD, ROOT, await_until
from expected_tree import ORVEX, ROWS
from pages import agrees, commands_of
from test_tree import NAMES_OF_TAGS

PAGE = ROOT / "docs" / "objects.md"
TYPES = {tag: "OCTET STRING" if name == "Hex-STRING" else name for tag, name in NAMES_OF_TAGS.items()}


def is_cell(row):
    return row.oid.startswith(f"{ORVEX}.1.3.")


def documented():
    line = re.compile(r"^\| `([^`]+)` \| `([^`]+)` \| ([\w ]+) \| (read-\w+) \| (.+) \|$", re.MULTILINE)
    return [(match[1], match[2].replace("orvexEnterprise", ORVEX), match[3], match[4], match[5])
            for match in line.finditer(PAGE.read_text())]


def test_every_object_is_documented_with_its_type_and_access():
    scalars = {(oid, kind, access) for _, oid, kind, access, _ in documented() if not oid.endswith(".ROW")}
    assert scalars == {(row.oid, TYPES[row.tag], row.access) for row in ROWS if not is_cell(row)}


def test_every_column_is_documented_with_its_type_and_access():
    columns = {(oid, kind, access) for _, oid, kind, access, _ in documented() if oid.endswith(".ROW")}
    assert columns == {(f"{row.oid.rpartition('.')[0]}.ROW", TYPES[row.tag], row.access) for row in ROWS if is_cell(row)}


def test_names_are_the_objects_own():
    names = {name for name, oid, *_ in documented() if not oid.endswith(".ROW")}
    assert names == {row.name for row in ROWS if not is_cell(row)}


def test_rows_are_what_the_table_of_objects_makes(tmp_path):
    made = tmp_path / "objects.md"
    shutil.copy(PAGE, made)
    subprocess.run([sys.executable, ROOT / "orvexsnmp" / "objects.py", "page", made], check=True)
    stale = set(made.read_text().splitlines()) ^ set(PAGE.read_text().splitlines())
    assert made.read_text() == PAGE.read_text(), f"run orvexsnmp/objects.py page docs/objects.md: {stale}"


@pytest.mark.parametrize(("page", "count"), [("README.md", 5), ("docs/dome.md", 7), ("docs/trace.md", 2), ("docs/why.md", 12),
                                               ("docs/conform.md", 1)])
def test_what_a_page_shows_is_what_happens(desk, page, count):
    desk.start()
    desk.domectl("clock", "rate", 100)  # a reader of the page gives a move time to end
    environment = dict(desk.environment, ORVEX_STATE=str(desk.state))  # a reader's camera is in ./state
    commands = commands_of((ROOT / page).read_text())
    assert len(commands) == count
    for command, shown in commands:
        for theirs, ours in [("127.0.0.1:1161", f"127.0.0.1:{desk.port}"), ("--state state", f"--state {desk.state}"),
                             ("build/desk/", f"{BUILD}/"), ("--port 1161", f"--port {desk.port}"),
                             ("conform/orvex-conform", f"{ROOT}/conform/orvex-conform")]:
            command = command.replace(theirs, ours)

        def as_shown():
            done = subprocess.run(["bash", "-c", command], env=environment, capture_output=True, text=True, timeout=20)
            assert (done.returncode, done.stderr) == (0, ""), command
            return not shown or agrees(done.stdout, shown)

        await_until(as_shown, f"{command}: {shown}")


def test_the_readmes_trap_is_what_its_receiver_prints(desk, tmp_path):
    desk.start()
    lines = (ROOT / "README.md").read_text().splitlines()
    (receiver,) = [line.strip() for line in lines if line.startswith("    snmptrapd ")]
    shown = lines[lines.index("After `build/desk/bin/domectl event temperature 0 41` it prints"):][2:5]
    receiver = receiver.replace("udp:127.0.0.1:1162", f"udp:127.0.0.1:{desk.trap_port}")
    # Its persistent folder is not the system's.
    environment = dict(desk.environment, SNMP_PERSISTENT_DIR=str(tmp_path))
    with open(tmp_path / "out", "w") as out:
        process = subprocess.Popen(["bash", "-c", f"exec {receiver}"], env=environment, stdout=out, stderr=out)
    try:
        await_until(lambda: "NET-SNMP version" in (tmp_path / "out").read_text(), "the receiver listens")
        desk.domectl("event", "temperature", 0, 41)
        await_until(lambda: " = Gauge32: 41" in (tmp_path / "out").read_text(), "the trap has arrived")
    finally:
        process.terminate()
        process.wait(20)
    printed = [line for line in (tmp_path / "out").read_text().splitlines() if line.startswith(".1.3")]
    assert printed[1:3] == [line.strip() for line in shown[1:]]
    assert printed[0].startswith(shown[0].strip().partition("(")[0])


def known_keys():
    done = subprocess.run([BUILD / "bin" / "tavos-settings", "keys"], capture_output=True, text=True, timeout=20)
    return dict(line.split(maxsplit=1) for line in done.stdout.splitlines())


def test_the_settings_page_lists_the_known_keys():
    rows = re.findall(r"^\| `(\[[^`]+)` \| (.+) \|$", (ROOT / "docs" / "settings.md").read_text(), re.MULTILINE)
    assert len(rows) > 10
    assert dict(rows) == known_keys()


def test_every_key_in_the_code_and_in_a_new_desks_settings_is_known():
    sources = [file for folder in ("orvexsnmp", "dome") for file in (ROOT / folder).rglob("*")
               if file.suffix in (".h", ".cpp")]
    used = {key for file in sources for key in re.findall(r'"(\[\w+/\w+\][\w.]+)"', file.read_text())}
    assert "[Imaging/Focus]Mode" in used
    section = ""
    for line in (ROOT / "dome" / "desk.ini").read_text().splitlines():
        if line.startswith("["):
            section = line
        elif "=" in line:
            used.add(section + line.partition("=")[0].strip())
    assert used - set(known_keys()) == set()
