"""pytest's fixture of a desk camera: `-p orvex_camera.pytest_plugin`, or `pytest_plugins` in a conftest.py."""

from __future__ import annotations

from typing import Any, Dict, Iterator

import pytest

from orvex_camera import DeskCamera


@pytest.fixture(scope="session")
def desk_camera_options() -> Dict[str, Any]:
    """DeskCamera's arguments; a conftest.py may have its own, {"config": "quick.toml"} for example."""
    return {}


@pytest.fixture
def desk_camera(desk_camera_options: Dict[str, Any]) -> Iterator[DeskCamera]:
    """A running desk camera of this test alone."""
    with DeskCamera(**desk_camera_options) as camera:
        yield camera


@pytest.fixture(scope="module")
def shared_desk_camera(desk_camera_options: Dict[str, Any]) -> Iterator[DeskCamera]:
    """One running desk camera for all tests of a file; what a test changes, the next one sees."""
    with DeskCamera(**desk_camera_options) as camera:
        yield camera
