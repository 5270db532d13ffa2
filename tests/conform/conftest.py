import pytest


@pytest.fixture
def camera(running):
    """The file's running desk camera with an empty call log."""
    running.clear_calls()
    return running


@pytest.fixture
def quick(camera):
    """The camera's clock runs faster, so that its moves end sooner."""
    camera.domectl("clock", "rate", 4)
    yield camera
    camera.domectl("clock", "rate", 1)
