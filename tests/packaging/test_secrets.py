"""Pass phrases: their input, and that they appear nowhere else."""

import os
import pathlib
import re
import stat
import subprocess

import pytest

from desk import ROOT, await_until
from expected_tree import OID
from field import ADD_USER, READY, ROLES, FieldDesk, add_user, authentication, privacy

SECRETS = [phrase(user).encode() for user in [*ROLES, "notifier"] for phrase in (authentication, privacy)]


def mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


@pytest.fixture
def store(tmp_path):
    folder = tmp_path / "store"
    folder.mkdir(mode=0o700)
    return folder


@pytest.fixture
def field():
    with FieldDesk() as desk:
        yield desk


def test_the_state_folder_is_its_users_alone(field):
    field.add_users("reader")
    field.start()
    assert mode(field.state) == 0o700
    assert os.stat(field.state).st_uid == os.getuid()
    assert mode(field.state / "settings.db") == 0o600


@pytest.mark.parametrize("umask", [0o000, 0o022])
def test_the_agents_store_is_private_whatever_the_umask(store, umask):
    before = os.umask(umask)
    try:
        assert add_user(store, "reader").returncode == 0
        (store / "snmpd.conf").chmod(0o644)
        assert add_user(store, "operator").returncode == 0
    finally:
        os.umask(before)
    assert {path.name: mode(path) for path in store.iterdir()} == {"snmpd.conf": 0o600}


@pytest.mark.skipif(os.getuid() != 0, reason="only root can give files away")
def test_the_store_stays_its_owners(store):
    os.chown(store, 65534, 65534)
    assert add_user(store, "reader").returncode == 0
    status = os.stat(store / "snmpd.conf")
    assert (status.st_uid, status.st_gid) == (65534, 65534)


@pytest.mark.parametrize(
    ("phrases", "complaint"),
    [
        ("", "no authentication pass phrase"),
        ("authentic 1\n", "no privacy pass phrase"),
        ("short\nprivate 2\n", "the authentication pass phrase has less than 8 characters"),
        ("authentic 1\nshort\n", "the privacy pass phrase has less than 8 characters"),
        ("the same one\nthe same one\n", "the two pass phrases are the same"),
        ('authentic" 1\nprivate 2\n', "a quotation mark, a backslash or a control character"),
        ("authentic\\ 1\nprivate 2\n", "a quotation mark, a backslash or a control character"),
        ("authentic\t 1\nprivate 2\n", "a quotation mark, a backslash or a control character"),
    ],
)
def test_unfit_pass_phrases_are_refused_and_not_repeated(store, phrases, complaint):
    done = add_user(store, "reader", phrases)
    assert (done.returncode, done.stdout) == (1, "")
    assert complaint in done.stderr
    assert not [line for line in phrases.splitlines() if line in done.stderr]
    assert list(store.iterdir()) == []


@pytest.mark.parametrize("words", [[], ["two", "names"], ["-ro", "reader"], ["a\nb"], ['a"b'], ["a" * 33], ["--store"]])
def test_a_bad_command_line_is_refused(store, words):
    done = subprocess.run([ADD_USER, "--store", store, *words], input="authentic 1\nprivate 2\n", capture_output=True,
                          text=True, timeout=20)
    assert (done.returncode, done.stdout) == (2, "")
    assert list(store.iterdir()) == []


def test_new_pass_phrases_replace_the_old_ones(field):
    field.add_users("reader", "operator")
    field.start_agent()
    field.end("agent")
    assert add_user(field.state / "snmp", "reader", "another one\nyet another\n").returncode == 0
    field.launch_agent()
    new = {"A": "another one", "X": "yet another"}
    await_until(lambda: field.ask("reader", "snmpget", READY, timeout="0.2", **new).status == 0, "the agent answers")
    assert "Authentication failure" in field.ask("reader", "snmpget", READY).error
    assert field.ask("operator", "snmpget", READY).status == 0


def test_a_running_agents_store_is_left_alone(field):
    field.add_users("reader")
    field.start_agent()
    before = (field.state / "snmp" / "snmpd.conf").read_bytes()
    done = add_user(field.state / "snmp", "operator")
    assert done.returncode == 1
    assert f"the agent is running (process {field.processes['agent'].pid})" in done.stderr
    assert (field.state / "snmp" / "snmpd.conf").read_bytes() == before


def test_a_pass_phrase_shows_nowhere(field):
    """A run with every part of a camera and its most detailed log. After the agent's start no file, environment,
    command line or memory-backed file holds a pass phrase. Before it, only the agent's private store does."""
    field.environment["TAVOS_LOG_LEVEL"] = "8"
    field.configuration.write_text(field.configuration.read_text() +
                                   f"trapsess -v 3 -u notifier -l authPriv udp:127.0.0.1:{field.trap_port}\n")
    field.add_users(*ROLES, "notifier")
    assert holders(field.state) == {field.state / "snmp" / "snmpd.conf": 0o600}

    field.start()
    for user in ROLES:
        assert field.ask(user, "snmpget", OID["modelName"]).status == 0
    field.domectl("event", "temperature", 0, 31)
    field.ask("reader", "snmpget", READY, A="wrong, but long enough")
    for name, process in field.processes.items():
        proc = pathlib.Path("/proc") / str(process.pid)
        for file in ["environ", "cmdline"]:
            assert not [secret for secret in SECRETS if secret in (proc / file).read_bytes()], f"{name}'s {file}"
    assert holders(field.state) == {}
    for name in list(field.processes)[::-1]:
        field.end(name)
    assert holders(field.state) == {}


def holders(folder):
    """The files below the folder that hold a pass phrase, with their modes."""
    files = [path for path in folder.rglob("*") if path.is_file()]
    return {path: mode(path) for path in files if any(secret in path.read_bytes() for secret in SECRETS)}


def test_the_agents_keys_are_in_no_file_that_others_can_read(field):
    """The store holds keys. For this one agent a key is worth as much as a pass phrase."""
    field.add_users(*ROLES)
    field.start_agent()
    keys = [line.split()[8] for line in (field.state / "snmp" / "snmpd.conf").read_text().splitlines()
            if line.startswith("usmUser ")]
    assert len(keys) == len(ROLES)
    for path in field.state.rglob("*"):
        if path.is_file() and mode(path) & 0o077:
            assert not [key for key in keys if key[2:].encode() in path.read_bytes()], path


def test_nothing_that_is_shipped_holds_a_secret():
    shipped = [path for path in (ROOT / "packaging").rglob("*") if path.is_file()]
    assert shipped
    for path in shipped:
        for line in path.read_text().splitlines():
            if not line.lstrip().startswith("#") and "printf" not in line:
                assert not re.search(r"\b(createUser|r[ow]community6?) [^$]*$", line), f"{path}: {line}"
