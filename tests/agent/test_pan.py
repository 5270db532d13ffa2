"""The pan objects, from the manager's SET to the dome's axis and back."""

import contextlib

import pytest

import ber
from desk import await_until
from expected_tree import OID

PAN = OID["positionPan"]
NORTH = OID["rangeTrueNorthOffset"]
TIMEOUT = OID["timeoutPan"]


def stored(manager):
    (binding,) = manager.get(PAN).bindings
    assert binding.tag == ber.OCTET_STRING
    return binding.octets


def pan_calls(desk):
    return [(call["call"], call["args"]) for call in desk.calls() if call["service"] == "pan"]


@contextlib.contextmanager
def fault(desk, service, kind):
    desk.domectl("fault", service, kind)
    try:
        yield
    finally:
        desk.domectl("fault", service, "ok")


@pytest.fixture(autouse=True)
def stand_still(manager):
    """Waits until the axis is at rest, before the next test begins."""
    yield
    manager.set_octets(PAN, bytes(4))


def test_absolute_move(camera, manager):
    command = bytes.fromhex("02404650")  # absolute, speed +64, 18000 hundredths of a degree
    answer = manager.set_octets(PAN, command)
    assert (answer.error_status, answer.bindings[0].octets) == (ber.NO_ERROR, command)
    assert stored(manager) == command
    ((call, (position, speed, limit)),) = pan_calls(camera)
    assert (call, int(position), int(limit)) == ("SetPositionAtSpeed", 180000, 300)
    assert float(speed) == pytest.approx(64 / 127, abs=1e-9)
    await_until(lambda: camera.dome_state()["pan"]["position"] == 180000, "the axis is at 180 degrees", 30)


def test_continuous_move_and_stop(camera, manager):
    assert manager.set_octets(PAN, bytes.fromhex("03200000")).error_status == ber.NO_ERROR
    assert manager.set_octets(PAN, bytes.fromhex("00000000")).error_status == ber.NO_ERROR
    (go, (velocity, _)), (stop, (zero, _)) = pan_calls(camera)
    assert (go, stop) == ("SetRelativeVelocity", "SetRelativeVelocity")
    assert float(velocity) == pytest.approx(32 / 127, abs=1e-9)
    assert float(zero) == 0


@pytest.mark.parametrize(
    "command",
    ["02108CA0", "09FE0000", "FF000000", "00010000", "00FF0000"],
    ids=["beyond the turn", "unknown mode", "mode 255", "stop at speed 1", "stop at speed -1"],
)
def test_refused_command_is_remembered_all_the_same(camera, manager, command):
    answer = manager.set_octets(PAN, bytes.fromhex(command))
    assert answer.error_status == ber.GEN_ERR
    assert stored(manager) == bytes.fromhex(command)
    assert pan_calls(camera) == []


def test_speed_minus_128_calls_nothing(camera, manager):
    assert manager.set_octets(PAN, bytes.fromhex("03800000")).error_status == ber.NO_ERROR
    assert stored(manager) == bytes.fromhex("03800000")
    assert pan_calls(camera) == []


def test_an_integer_is_taken_as_its_first_four_octets(camera, manager):
    assert manager.set_integer(PAN, 0x00002003).error_status == ber.NO_ERROR
    assert stored(manager) == bytes.fromhex("03200000")
    ((call, (velocity, _)),) = pan_calls(camera)
    assert call == "SetRelativeVelocity"
    assert float(velocity) == pytest.approx(32 / 127, abs=1e-9)


@pytest.mark.parametrize("length", [0, 1, 2, 3, 4, 5, 600])
def test_missing_octets_count_as_zero(manager, length):
    value = (bytes.fromhex("03010203") + bytes([0xEE]) * 596)[:length]
    # Sets a long value first: the next value must not show its rest in the agent's buffers.
    manager.set_octets(PAN, b"\x03" + b"\x55" * 599)
    assert manager.set_octets(PAN, value).error_status == ber.NO_ERROR
    assert stored(manager) == (value + bytes(4))[:4]


@pytest.mark.parametrize("length", [0, 1, 3, 4, 5, 600])
@pytest.mark.parametrize("tag", [*range(0x01, 0x0B), 0x24, 0x30, *range(0x40, 0x49), 0x78, 0x79, *range(0x80, 0x84)])
def test_no_value_harms_the_agent(camera, manager, tag, length):
    """The agent's parser drops some of these without an answer; the agent must keep running."""
    message = ber.encode(ber.SET, [(PAN, tag, b"\x01" * length)], "private")
    manager._socket.send(message)
    assert len(stored(manager)) == 4
    assert camera.alive("agent")


@pytest.mark.parametrize("kind", ["fail", "hang", "gone"])
def test_a_service_that_does_not_serve_fails_no_command(camera, manager, kind):
    command = bytes.fromhex("02002328")
    with fault(camera, "pan", kind):
        assert manager.set_octets(PAN, command).error_status == ber.NO_ERROR
        assert stored(manager) == command
    camera.clear_calls()
    # The client calls a service that hung again only after it answered a ping.
    await_until(lambda: manager.set_octets(PAN, command).error_status == ber.NO_ERROR and pan_calls(camera), "a call")
    assert [call for call, _ in pan_calls(camera)] == ["SetPositionAtSpeed"]


@pytest.mark.parametrize("value", [0, 65535])
def test_true_north_offset_is_remembered(manager, value):
    assert manager.set_integer(NORTH, value).error_status == ber.NO_ERROR
    assert manager.get(NORTH).bindings[0].value == value


@pytest.mark.parametrize("value", [1, -1, 65534, 65536])
def test_other_true_north_offsets_are_wrong_values(manager, value):
    before = manager.get(NORTH).bindings[0].value
    answer = manager.set_integer(NORTH, value)
    assert (answer.error_status, answer.error_index) == (ber.WRONG_VALUE, 1)
    assert manager.get(NORTH).bindings[0].value == before


def test_true_north_offset_requires_an_integer(manager):
    answer = manager.set_octets(NORTH, bytes(4))
    assert (answer.error_status, answer.error_index) == (ber.WRONG_TYPE, 1)


@pytest.mark.parametrize("value", [0, 5])
def test_the_timeout_cannot_be_set(manager, value):
    assert manager.set_integer(TIMEOUT, value).error_status == ber.GEN_ERR
    assert manager.get(TIMEOUT).bindings[0].value == 0


def test_a_refused_binding_keeps_the_others_from_the_axis(camera, manager):
    answer = manager.set((PAN, ber.OCTET_STRING, bytes.fromhex("02002328")), (NORTH, ber.INTEGER, b"\x01"))
    assert (answer.error_status, answer.error_index) == (ber.WRONG_VALUE, 2)
    assert pan_calls(camera) == []


def test_snmpset_moves_the_axis(camera, tools):
    done = tools.set(PAN, "x", "02404650")
    assert done.status == 0, done.error
    assert done.triples == [(PAN, "Hex-STRING", bytes.fromhex("02404650"))]
    assert [call for call, _ in pan_calls(camera)] == ["SetPositionAtSpeed"]
