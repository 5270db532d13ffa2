import pytest

import browser as browsers
from consoles import ConsoleDesk


@pytest.fixture(scope="session")
def desk_class():
    """With a console."""
    return ConsoleDesk


@pytest.fixture
def camera(running):
    """The file's running desk camera, reset."""
    running.make_new()
    return running


@pytest.fixture(scope="module")
def browser():
    with browsers.Browser() as browser:
        yield browser
