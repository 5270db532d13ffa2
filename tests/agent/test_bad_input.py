"""SETs that no manager should send, to every writable object: the stated answer, or none, and an agent that lives."""

import pytest

import ber
from expected_tree import OID, RW, ROWS

TAGS = [*range(0x01, 0x0B), 0x24, 0x30, *range(0x40, 0x49), 0x78, 0x79, *range(0x80, 0x84)]
LENGTHS = [0, 1, 3, 4, 5, 600]
WRITABLE = [row for row in ROWS if row.access == RW and row.name != "rebootDevice"]

# Objects that look at the type: what they answer to the wrong one.
INTEGERS = ["rangeTrueNorthOffset"] + [row.name for row in WRITABLE if row.name.startswith("relay")]
OCTETS = ["outputControl", "systemCameraFeatureControl", "systemCameraEquipped"]


def answer_to(manager, *bindings):
    """The error status, or None for a message that the agent does not answer (its parser drops it)."""
    message = ber.encode(ber.SET, list(bindings), "private")
    manager._socket.send(message)
    # A request behind it: its answer shows that the first one has been dealt with.
    probe = manager.get(OID["globalMaxModules"])
    assert probe.bindings[0].value == 1


@pytest.mark.parametrize("row", WRITABLE, ids=lambda row: row.name)
def test_no_type_and_no_length_harms_the_agent(camera, manager, row):
    for tag in TAGS:
        for length in LENGTHS:
            answer_to(manager, (row.oid, tag, b"\x01" * length))
    assert camera.alive("agent")
    (binding,) = manager.get(row.oid).bindings
    assert binding.tag == row.tag


def test_only_integers_restart_the_camera_whatever_the_length(camera, manager):
    oid = OID["rebootDevice"]
    for tag in TAGS:
        if tag != ber.INTEGER:
            for length in LENGTHS:
                answer_to(manager, (oid, tag, b"\x01" * length))
    assert not (camera.state / "restart.log").exists()
    assert manager.get(oid).bindings[0].value == 0


@pytest.mark.parametrize("name", INTEGERS)
@pytest.mark.parametrize("length", [0, 1, 3, 4, 5, 600])
def test_octets_for_an_integer_are_the_wrong_type(manager, name, length):
    assert manager.set_octets(OID[name], b"\x01" * length).error_status == ber.WRONG_TYPE


@pytest.mark.parametrize("name", OCTETS)
def test_integers_for_octets_are_the_wrong_type(manager, name):
    assert manager.set_integer(OID[name], 1).error_status == ber.WRONG_TYPE


def test_the_same_object_twice_the_last_counts(camera, manager):
    pan = OID["positionPan"]
    first, second = bytes.fromhex("02000064"), bytes.fromhex("020000C8")
    answer = manager.set((pan, ber.OCTET_STRING, first), (pan, ber.OCTET_STRING, second))
    assert answer.error_status == ber.NO_ERROR
    assert manager.get(pan).bindings[0].octets == second
    assert camera.alive("agent")


def test_several_objects_in_one_pdu_all_move(camera, manager):
    names = ["positionPan", "positionTilt", "positionZoomLens", "positionFocusLens", "positionIrisLens"]
    command = bytes.fromhex("00000000")
    answer = manager.set(*[(OID[name], ber.OCTET_STRING, command) for name in names])
    assert answer.error_status == ber.NO_ERROR
    stops = {(call["service"], call["call"]) for call in camera.calls()}
    assert {("pan", "SetRelativeVelocity"), ("tilt", "SetRelativeVelocity"), ("zoom", "ZoomRelative"),
            ("focus2", "SetPosition"), ("iris", "MoveIris")} <= stops


def test_a_second_binding_that_is_refused_keeps_the_first_from_acting(camera, manager):
    zoom, equipped = OID["positionZoomLens"], OID["systemCameraEquipped"]
    answer = manager.set((zoom, ber.OCTET_STRING, bytes.fromhex("02008000")), (equipped, ber.INTEGER, b"\x01"))
    assert (answer.error_status, answer.error_index) == (ber.WRONG_TYPE, 2)
    assert not any(call["call"] == "SetMagnificationThousandthsX" for call in camera.calls())
