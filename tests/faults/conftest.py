import os

import pytest

from watching import use_lanes


@pytest.fixture
def undisturbed():
    """Runs the test and its children at a higher priority where allowed, so that other work does not disturb the
    figures."""
    before = os.getpriority(os.PRIO_PROCESS, 0)
    try:
        os.setpriority(os.PRIO_PROCESS, 0, -15)
    except PermissionError:
        yield
        return
    yield
    os.setpriority(os.PRIO_PROCESS, 0, before)


@pytest.fixture
def started(desk):
    """A running desk camera of this test."""
    desk.start()
    return desk


@pytest.fixture(params=["lanes", "bus"])
def transport(request, desk):
    """A running desk camera of this test; all calls of its agent take lanes, or all take the bus."""
    desk.environment["TAVOS_BUS_LANES"] = {"lanes": "on", "bus": "off"}[request.param]
    desk.start()
    if request.param == "lanes":
        use_lanes(desk)
    return request.param


@pytest.fixture
def figure(request, capsys):
    """Prints a test's figures; with ORVEX_FULL=1 at once."""

    def show(text):
        line = f"{request.node.name}: {text}"
        if os.environ.get("ORVEX_FULL") == "1":
            with capsys.disabled():
                print(f"\n  {line}")
        else:
            print(line)

    return show
