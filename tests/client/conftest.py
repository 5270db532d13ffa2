"""Desk cameras of the Python client, of the build that is tested."""

import os

import pytest

import desk
from orvex_camera.pytest_plugin import desk_camera, shared_desk_camera  # noqa: F401


@pytest.fixture(scope="session")
def desk_camera_options():
    """For a build with sanitizers."""
    for name, value in desk.SANITIZERS.items():
        os.environ.setdefault(name, value)
    return {"agent_environment": {"LD_PRELOAD": desk.preloaded()}}
