import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import desk as desks  # noqa: E402
from tools import Tools  # noqa: E402


@pytest.fixture
def desk():
    """A desk camera of this test, not started yet."""
    with desks.Desk() as desk:
        yield desk


@pytest.fixture(scope="module")
def running():
    """One running desk camera for all tests of a file."""
    with desks.Desk() as desk:
        desk.start()
        yield desk


@pytest.fixture
def camera(running):
    """The file's running desk camera with an empty call log."""
    running.clear_calls()
    return running


@pytest.fixture
def manager(running):
    with desks.ManagerOf(running) as manager:
        yield manager


@pytest.fixture
def tools(running):
    return Tools(running)
