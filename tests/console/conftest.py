import pathlib
import sys

import pytest

sys.path[:0] = [str(pathlib.Path(__file__).parents[1] / "agent"), str(pathlib.Path(__file__).parent)]

import browser as browsers  # noqa: E402
from consoles import ConsoleDesk  # noqa: E402
from tools import Tools  # noqa: E402


@pytest.fixture(scope="module")
def running():
    """One running desk camera with a console and an agent, for all tests of a file."""
    with ConsoleDesk() as desk:
        desk.start()
        yield desk


@pytest.fixture
def camera(running):
    """The file's running desk camera, reset."""
    running.make_new()
    return running


@pytest.fixture
def desk():
    """A desk camera of this test, not started yet."""
    with ConsoleDesk() as desk:
        yield desk


@pytest.fixture
def tools(running):
    return Tools(running)


@pytest.fixture(scope="module")
def browser():
    with browsers.Browser() as browser:
        yield browser
