"""The short form of bench/soak."""

import subprocess

import pytest

from desk import ROOT


@pytest.mark.slow
@pytest.mark.alone
def test_the_agent_stays_as_it_is(undisturbed, figure):
    done = subprocess.run([ROOT / "bench" / "soak", "20000"], capture_output=True, text=True, timeout=300)
    figure(done.stdout)
    assert done.returncode == 0, done.stdout + done.stderr
