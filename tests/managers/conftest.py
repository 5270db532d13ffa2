import pytest

import ber
from desk import ManagerOf
from expected_tree import OID
from managers import MANAGERS, manager


@pytest.fixture(scope="session")
def running(desk_class):
    """One running desk camera for the tests of all managers."""
    with desk_class() as desk:
        desk.start()
        desk.domectl("clock", "rate", 100)  # moves end at once
        yield desk


@pytest.fixture
def camera(running):
    """The running desk camera with its pan at rest, no pan command stored and an empty call log."""
    with ManagerOf(running) as plain:
        assert plain.set((OID["positionPan"], ber.OCTET_STRING, bytes(4))).error_status == ber.NO_ERROR
    running.domectl("set", "pan", 0)
    running.clear_calls()
    return running


@pytest.fixture(scope="module", params=MANAGERS, ids=[f"{name} v{version}" for name, version in MANAGERS])
def any_manager(request, running):
    """Each manager in each SNMP version that it supports, as (version, manager)."""
    name, version = request.param
    made = manager(running, name, version)
    yield version, made
    made.close()
