"""Every object's value or error while every service of the camera refuses, or is gone."""

import pytest

import ber
from expected_tree import OID, ROWS

SERVICES = ["pan", "tilt", "zoom", "focus", "focus2", "iris", "presets", "presets2", "alarm", "relay", "temperature",
            "voltage", "power", "fan"]
SENSORS = ["temperature", "power", "voltage"]
POSITIONS = ["positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens"]


@pytest.fixture(scope="module", params=["fail", "gone"])
def broken(request, running):
    for service in SERVICES:
        running.domectl("fault", service, request.param)
    yield running
    for service in SERVICES:
        running.domectl("fault", service, "ok")


@pytest.mark.parametrize("row", ROWS, ids=lambda row: row.name)
def test_each_object_without_services(broken, manager, row):
    answer = manager.get(row.oid)
    if row.name in SENSORS:
        assert answer.error_status == ber.GEN_ERR
        return
    # Auto focus is read from the settings store, auto iris from its service.
    expected = b"\x40" if row.name == "systemLensFeatureStatus" else row.value
    assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, expected)


@pytest.mark.parametrize("name", POSITIONS)
@pytest.mark.parametrize("command", ["00000000", "010A0064", "02000064", "030A0000"])
def test_a_position_is_taken_without_its_service(broken, manager, name, command):
    assert manager.set_octets(OID[name], bytes.fromhex(command)).error_status == ber.NO_ERROR
    assert manager.get(OID[name]).bindings[0].octets == bytes.fromhex(command)
    manager.set_octets(OID[name], bytes(4))


def test_lens_features_are_taken_without_their_services(broken, manager):
    control = OID["systemLensFeatureControl"]
    assert manager.set_octets(control, b"\xc0\x80").error_status == ber.NO_ERROR
    manager.set_octets(control, bytes(2))


def test_an_output_that_cannot_be_driven_fails_the_set(broken, manager):
    assert manager.set_octets(OID["outputControl"], b"\x01\x80").error_status == ber.GEN_ERR
    manager.set_octets(OID["outputControl"], bytes(2))


@pytest.mark.parametrize("kind", ["fail", "gone"])
def test_a_table_that_cannot_be_read_fails_a_set_and_forgets_its_rows(camera, manager, kind):
    """Until the service answers again, SETs of the rows that the agent still has fail and reach no relay."""
    state = OID["relayState.1"]
    assert manager.get(state).bindings[0].value == 0
    camera.domectl("fault", "relay", kind)
    assert manager.set_integer(state, 1).error_status == ber.GEN_ERR
    assert manager.set_integer(state, 1).error_status == ber.NO_CREATION
    camera.domectl("fault", "relay", "ok")
    assert camera.dome_state()["relay"]["BNK1"] == [False] * 4
    assert manager.set_integer(state, 1).error_status == ber.NO_ERROR
    assert camera.dome_state()["relay"]["BNK1"] == [True, False, False, False]
    manager.set_integer(state, 0)
