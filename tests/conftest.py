"""The fixtures of every folder of tests. A folder with desk cameras of its own has a `desk_class` of its own."""

import os
import pathlib
import sys

import pytest

HERE = pathlib.Path(__file__).parent
sys.path[:0] = [str(HERE / folder) for folder in ("agent", "conform", "console", "faults", "managers", "packaging")]
sys.path.insert(0, str(HERE.parent / "conform" / "oracle"))  # what is expected, shared with orvex-conform

from desk import Desk, ManagerOf  # noqa: E402
from tools import Tools  # noqa: E402


# Expensive, and they need engines for containers: tests/container/run runs them.
collect_ignore = [] if os.environ.get("ORVEX_CONTAINERS") else ["packaging/test_container.py", "packaging/test_deployment.py"]


def pytest_collection_modifyitems(items):
    """The files that take long first; otherwise the tests keep their order."""
    items.sort(key=lambda item: item.get_closest_marker("long") is None)


@pytest.fixture(scope="session")
def desk_class():
    return Desk


@pytest.fixture
def desk(desk_class):
    """A desk camera of this test, not started yet."""
    with desk_class() as desk:
        yield desk


@pytest.fixture(scope="module")
def running(desk_class):
    """One running desk camera for all tests of a file."""
    with desk_class() as desk:
        desk.start()
        yield desk


@pytest.fixture
def manager(running):
    with ManagerOf(running) as manager:
        yield manager


@pytest.fixture
def tools(running):
    return Tools(running)
