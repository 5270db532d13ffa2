import os

import pytest

import desk

pytest_plugins = ["orvex_camera.pytest_plugin"]
SANITIZERS = "detect_leaks=0:abort_on_error=1:log_path=stderr"  # as tests/agent/desk.py has them


@pytest.fixture(scope="session")
def desk_camera_options():
    """For a build with sanitizers."""
    os.environ.setdefault("ASAN_OPTIONS", SANITIZERS)
    runtime = desk.sanitizer_runtime()
    return {"agent_environment": {"LD_PRELOAD": runtime} if runtime else {}}
