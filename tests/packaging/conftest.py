"""The image and the engine that runs it, made once for all tests of containers."""

import subprocess

import pytest

from containers import CONTAINER, Engine


@pytest.fixture(scope="session")
def engine():
    engine = Engine()
    yield engine
    engine.close()


@pytest.fixture(scope="session")
def packages_folder():
    from test_packages import build_packages  # not needed by the other tests of this folder
    return build_packages()[0].parent


@pytest.fixture(scope="session")
def image(engine, packages_folder):
    tag = "localhost/orvex-camera:test"
    done = subprocess.run([CONTAINER / "build", "--packages", packages_folder, "--tag", tag], env=engine.environment,
                          capture_output=True, text=True, timeout=1500)
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    assert done.stdout.splitlines()[-1] == tag
    return tag
