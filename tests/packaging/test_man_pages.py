"""The man pages and the commands' usage texts name the same options and commands."""

import re
import subprocess

import pytest

from desk import BUILD, ROOT
from field import ADD_USER, PACKAGING

PROGRAMS = {name: BUILD / "bin" / name for name in ["orvex-dome", "domectl", "myname", "tavos-settings"]}
PROGRAMS["orvexsnmp-add-user"] = ADD_USER
PROGRAMS["orvex-conform"] = ROOT / "conform" / "orvex-conform"
PROGRAMS["orvex-session"] = ROOT / "clients" / "python" / "orvex-session"


def usage(name):
    done = subprocess.run([PROGRAMS[name], "--help"], capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=20)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def page(name):
    """The page as a reader sees it, without hyphenation."""
    (source,) = (PACKAGING / "man").glob(f"{name}.[18]")
    done = subprocess.run(["man", "--local-file", "--no-hyphenation", "--no-justification", source], capture_output=True,
                          text=True, env={"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "MANWIDTH": "200"}, timeout=20)
    assert (done.returncode, done.stderr) == (0, "")
    return re.sub(".\b", "", done.stdout)


def options(text):
    return set(re.findall(r"(?<![\w-])--[a-z]+(?:-[a-z]+)*", text))


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_options_are_those_of_the_command(name):
    assert options(usage(name)) == options(page(name))


def test_domectls_commands_are_all_there():
    command = r"^ +((?:state|calls|history|trace|wait|play|set|banks|clock|event|fault)\b[^ ]*(?: [a-z][a-z0-9|-]*)?)"
    listed = set(re.findall(command, usage("domectl"), re.MULTILINE))
    assert len(listed) > 15
    written = " ".join(page("domectl").split())
    assert [words for words in sorted(listed) if words not in written] == []
    (faults,) = re.findall(r"fault SERVICE (\S+)", usage("domectl"))
    assert f"fault SERVICE {faults} " in written


def test_tavos_settings_commands_are_all_there():
    for command in ["get KEY", "set [--force] KEY VALUE", "delete KEY", "keys", "list [PATH]", "import FILE", "export [FILE]"]:
        assert command in " ".join(usage("tavos-settings").split())
        assert command in " ".join(page("tavos-settings").split())


@pytest.mark.parametrize("name", PROGRAMS)
def test_every_command_says_its_version(name):
    (version,) = re.findall(r"^project\(.* VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)
    done = subprocess.run([PROGRAMS[name], "--version"], capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=20)
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{name} {version}\n", "")


def test_mynames_options_are_all_there():
    words = re.findall(r"^  (-[a-z]) ", usage("myname"), re.MULTILINE)
    assert words == ["-m", "-s", "-w"]
    assert re.findall(r"^ +(-[a-z]) ", page("myname"), re.MULTILINE) == words
