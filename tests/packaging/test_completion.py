"""Bash completes what each command's usage text names."""

import re
import shlex
import subprocess

import pytest

from desk import BUILD, ROOT
from field import ADD_USER
from test_man_pages import options, usage

FILE = ROOT / "packaging" / "completion" / "orvexsnmp.bash"
PROGRAMS = ["domectl", "myname", "orvex-conform", "orvex-dome", "orvex-session", "orvexsnmp-add-user", "tavos-settings"]
AXES = {"pan", "tilt", "zoom", "focus", "iris"}


def completed(*words, folder=ROOT):
    """What bash offers after these words; the last one is incomplete."""
    function = "_orvexsnmp_in_checkout" if words[0].endswith(("run", "check")) else "_orvexsnmp"
    script = (f"source {FILE}\n[[ $(complete -p {shlex.quote(words[0].split('/')[-1])}) == *' {function} '* ]] || exit 9\n"
              f"COMP_WORDS=({shlex.join(words)}) COMP_CWORD={len(words) - 1}\n"
              f"{function} {shlex.quote(words[0])}\nprintf '%s\\n' \"${{COMPREPLY[@]}}\"")
    done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, cwd=folder, timeout=20,
                          env={"PATH": f"{BUILD}/bin:{ADD_USER.parent}:{ROOT}/conform:/usr/bin:/bin"})
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return set(done.stdout.split())


@pytest.mark.parametrize("name", PROGRAMS)
def test_every_option_of_the_usage_is_completed(name):
    head = usage(name).partition("Commands:")[0]
    assert options(head) <= completed(name, "")
    assert completed(name, "--versi") == {"--version"}


@pytest.mark.parametrize("name", ["domectl", "tavos-settings"])
def test_every_command_of_the_usage_and_its_options_are_completed(name):
    commands = usage(name).partition("Commands:")[2]
    forms = re.split(r"^  (?=[a-z])", commands, flags=re.MULTILINE)[1:]
    names = {form.split()[0] for form in forms}
    assert len(names) > 5
    assert names <= completed(name, "")
    for form in forms:
        command = form.split()[0]
        assert options(form) <= completed(name, command, ""), command
        choices = re.match(r"[a-z-]+ ([a-z][a-z-]*(?:\|[a-z-]+)*)[ \n]", form)
        if choices:
            assert set(choices[1].split("|")) <= completed(name, command, ""), form


def test_services_axes_and_faults_are_completed():
    services = re.findall(r"SERVICE: ([a-z0-9\s]+)", usage("domectl"))[0].split()
    assert len(services) == 14
    assert completed("domectl", "fault", "") == set(services)
    assert completed("domectl", "--state", "somewhere", "fault", "pan", "") == {"ok", "fail", "hang", "gone"}
    assert completed("domectl", "wait", "") == AXES | {"--timeout"}
    assert completed("domectl", "wait", "pan", "--timeout", "5", "ti") == {"tilt"}
    assert completed("domectl", "wait", "--timeout", "") == set()
    assert completed("domectl", "set", "auto-focus", "") == {"0", "1"}
    assert completed("domectl", "set", "pan", "") == set()


def test_keys_and_sections_of_the_settings_are_completed():
    known = subprocess.run([BUILD / "bin" / "tavos-settings", "keys"], capture_output=True, text=True, timeout=20).stdout
    keys = {line.split()[0] for line in known.splitlines()}
    assert "[Imaging/Focus]Mode" in keys
    for command in ["get", "delete"]:
        assert completed("tavos-settings", command, "") == keys
    assert completed("tavos-settings", "set", "") == keys | {"--force"}
    assert completed("tavos-settings", "--store", "x", "set", "'[Im") == {"[Imaging/Focus]Mode"}
    assert "Device/ReadOnly" in completed("tavos-settings", "list", "")


def test_folders_and_files_are_completed(tmp_path):
    (tmp_path / "state").mkdir()
    (tmp_path / "state.ini").write_text("")
    assert completed("domectl", "--state", "st", folder=tmp_path) == {"state"}
    assert completed("domectl", "--state", "=", "st", folder=tmp_path) == {"state"}
    assert completed("tavos-settings", "import", "st", folder=tmp_path) == {"state", "state.ini"}
    assert completed("orvex-dome", "--config", "state.", folder=tmp_path) == {"state.ini"}


@pytest.mark.parametrize("script", ["./run", "./check", "bench/run"])
def test_the_checkouts_scripts_are_completed(script):
    done = subprocess.run([ROOT / script, "--help"], capture_output=True, text=True, timeout=20)
    assert options(done.stdout) <= completed(script, "-")


def test_a_script_of_another_project_is_never_started(tmp_path):
    (tmp_path / "run").write_text("#!/bin/sh\ntouch started\n")
    (tmp_path / "run").chmod(0o755)
    assert completed("./run", "", folder=tmp_path) == set()
    assert not (tmp_path / "started").exists()
