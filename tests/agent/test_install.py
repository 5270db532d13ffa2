"""The install step of the two commands, with stand-ins for the package tools."""

import os
import subprocess

import pytest

from desk import ROOT

INSTALL = f"root={ROOT}; source {ROOT}/scripts/common.sh; install_packages run"


def packages(*groups):
    lines = (line.split() for line in (ROOT / "scripts" / "packages.txt").read_text().splitlines())
    return [words[1] for words in lines if words and words[0] in groups]


@pytest.fixture
def install(tmp_path):
    """Runs the install step on a machine with the given packages; returns its result and apt-get's arguments."""
    asked = tmp_path / "asked"

    def run(installed, apt_status=0):
        tools = {
            "dpkg-query": "".join(f"echo installed {name}\n" for name in installed) + "echo config-files snmpd\n",
            "apt-get": f'echo "$DEBIAN_FRONTEND $*" >>{asked}\nexit {apt_status}\n',
            "sudo": 'exec "$@"\n',
        }
        for name, body in tools.items():
            (tmp_path / name).write_text("#!/bin/sh\n" + body)
            (tmp_path / name).chmod(0o755)
        environment = dict(os.environ, PATH=f"{tmp_path}:{os.environ['PATH']}")
        done = subprocess.run(["bash", "-c", INSTALL], env=environment, capture_output=True, text=True, timeout=60)
        return done, asked.read_text().splitlines() if asked.exists() else []

    return run


def test_nothing_is_asked_of_apt_when_nothing_is_missing(install):
    done, asked = install(packages("run"))
    assert (done.returncode, done.stdout, done.stderr, asked) == (0, "", "", [])


def test_what_is_missing_is_installed(install):
    done, asked = install([name for name in packages("run") if name not in ("snmpd", "g++")])
    assert done.returncode == 0, done.stderr
    update, add = asked
    assert update.startswith("noninteractive update")
    assert add.startswith("noninteractive install -y")
    assert add.endswith(" g++ snmpd")


def test_a_failing_apt_is_reported_in_one_line(install):
    done, _ = install([], apt_status=100)
    assert (done.returncode, len(done.stderr.splitlines())) == (1, 1)
    assert "apt-get update failed" in done.stderr
