"""SETs of several bindings, some of which no manager should send."""

import pytest

import ber
from expected_tree import OID


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


@pytest.mark.parametrize("refused_first", [False, True])
def test_a_command_that_is_refused_keeps_no_other_from_acting(camera, manager, refused_first):
    """The agent checks a command only when it carries it out. The answer does not name the refused one."""
    refused, moved = (OID["positionPan"], "07000000"), (OID["positionZoomLens"], "02004000")
    pair = [refused, moved] if refused_first else [moved, refused]
    answer = manager.set(*[(name, ber.OCTET_STRING, bytes.fromhex(command)) for name, command in pair])
    assert (answer.error_status, answer.error_index) == (ber.GEN_ERR, 0)
    assert [call["call"] for call in camera.calls() if call["call"].startswith("Set")] == ["SetMagnificationThousandthsX"]
