import pytest


@pytest.fixture
def camera(running):
    """The file's running desk camera with an empty call log."""
    running.clear_calls()
    return running
