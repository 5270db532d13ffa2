"""The shared object as the agent's loader sees it."""

import subprocess

from desk import LDD, MODULE


def test_only_the_loaders_entries_are_exported():
    names = subprocess.run(["nm", "-D", "--defined-only", MODULE], capture_output=True, text=True, check=True).stdout
    exported = {line.split()[-1] for line in names.splitlines()}
    assert "init_orvexsnmp" in exported
    assert exported <= {"init_orvexsnmp", "deinit_orvexsnmp"}


def test_every_library_is_found():
    needed = subprocess.run([*LDD, MODULE], capture_output=True, text=True, check=True).stdout
    assert "not found" not in needed
