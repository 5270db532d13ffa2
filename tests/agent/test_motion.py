"""Tilt, zoom, focus and iris, from the manager's SET to the call of the camera's service."""

import pytest

import ber
from commands import calls
from desk import await_until
from expected_tree import OID

TILT, ZOOM = OID["positionTilt"], OID["positionZoomLens"]
FOCUS, IRIS = OID["positionFocusLens"], OID["positionIrisLens"]
POSITIONS = [OID["positionPan"], TILT, ZOOM, FOCUS, IRIS]


@pytest.fixture(autouse=True)
def home(camera):
    """Every test begins with a camera at rest, in the same position."""
    for thing, value in (("tilt", 0), ("zoom-max", 20000), ("zoom", 1000), ("focus", 50)):
        camera.domectl("set", thing, value)
    camera.clear_calls()


def moves(camera, manager, oid, command):
    """The answer's error and the calls that do more than read."""
    answer = manager.set_octets(oid, bytes.fromhex(command))
    return answer.error_status, [call for call in calls(camera) if " Get" not in call]


@pytest.mark.parametrize(
    ("command", "error", "call"),
    [
        ("027F57E4", 0, "tilt SetPositionAtSpeed -45000 1 300"),
        ("02002328", 0, "tilt SetPositionAtSpeed 0 0 300"),
        ("027F34BC", 0, "tilt SetPositionAtSpeed 45000 1 300"),
        ("02008CA0", 5, None),
        ("02008C9F", 0, "tilt SetPositionAtSpeed -10 0 300"),
        ("03E00000", 0, "tilt SetRelativeVelocity -0.251969 300"),
        ("00000000", 0, "tilt SetRelativeVelocity 0 300"),
        ("00010000", 5, None),
        ("07000000", 5, None),
        ("03800000", 0, None),
    ],
)
def test_tilt_commands(camera, manager, command, error, call):
    assert moves(camera, manager, TILT, command) == (error, [call] if call else [])


def test_tilt_delta_steps_from_where_the_axis_is(camera, manager):
    camera.domectl("set", "tilt", 45000)
    assert moves(camera, manager, TILT, "010501F4") == (0, ["tilt SetPositionAtSpeed 50000 0.0393701 300"])


def test_tilt_delta_below_the_horizon_is_taken_and_moves_nothing(camera, manager):
    camera.domectl("set", "tilt", -45000)
    assert moves(camera, manager, TILT, "010501F4") == (0, [])


@pytest.mark.parametrize(
    ("command", "error", "call"),
    [
        ("02000000", 0, "zoom SetMagnificationThousandthsX 1000 300"),
        ("0200FFFF", 0, "zoom SetMagnificationThousandthsX 20000 300"),
        ("02008000", 0, "zoom SetMagnificationThousandthsX 10500 300"),
        ("010103E8", 0, "zoom SetMagnificationThousandthsX 1289 300"),
        ("01FF03E8", 0, "zoom SetMagnificationThousandthsX 1000 300"),
        ("03000000", 0, "zoom ZoomRelative 1 300"),
        ("03FF0000", 0, "zoom ZoomRelative -1 300"),
        ("03800000", 5, None),
        ("00000000", 0, "zoom ZoomRelative 0 300"),
        ("00050000", 5, None),
        ("07090000", 5, None),
    ],
)
def test_zoom_commands(camera, manager, command, error, call):
    assert moves(camera, manager, ZOOM, command) == (error, [call] if call else [])


@pytest.mark.parametrize(
    ("command", "error", "call"),
    [
        ("0200FFFF", 0, "focus2 SetPosition 100"),
        ("02000000", 0, "focus2 SetPosition 0"),
        ("02008000", 0, "focus2 SetPosition 50.0008"),
        ("010A199A", 0, "focus2 SetPosition 60.0008"),
        ("01F6199A", 0, "focus2 SetPosition 39.9992"),
        ("010AFFFF", 0, "focus2 SetPosition 100"),
        ("030A0000", 0, "focus2 SetPosition 0"),
        ("03F60000", 0, "focus2 SetPosition 100"),
        ("03800000", 5, None),
        ("00000000", 0, "focus2 SetPosition 50"),
        ("00010000", 5, None),
        ("04000000", 5, None),
    ],
)
def test_focus_commands(camera, manager, command, error, call):
    assert moves(camera, manager, FOCUS, command) == (error, [call] if call else [])


@pytest.mark.parametrize(
    ("command", "error", "call"),
    [
        ("03140000", 0, "iris MoveIris -1"),
        ("03EC0000", 0, "iris MoveIris 1"),
        ("03000000", 0, "iris MoveIris -1"),
        ("03800000", 5, None),
        ("01140000", 0, None),
        ("02140000", 0, None),
        ("00000000", 0, "iris MoveIris 0"),
        ("00030000", 5, None),
        ("FF030000", 5, None),
    ],
)
def test_iris_commands(camera, manager, command, error, call):
    assert moves(camera, manager, IRIS, command) == (error, [call] if call else [])


@pytest.mark.parametrize("oid", POSITIONS)
@pytest.mark.parametrize("command", ["0300FFFF", "09FE1234", "00050000"])
def test_the_last_command_is_answered_refused_or_not(manager, oid, command):
    manager.set_octets(oid, bytes.fromhex(command))
    assert manager.get(oid).bindings[0].octets == bytes.fromhex(command)
    manager.set_octets(oid, bytes(4))


def test_a_tilt_and_a_zoom_arrive(camera, manager):
    manager.set((TILT, ber.OCTET_STRING, bytes.fromhex("027F0BB8")), (ZOOM, ber.OCTET_STRING, bytes.fromhex("02008000")))
    await_until(lambda: camera.dome_state()["tilt"]["position"] == 30000, "the tilt is at 30 degrees", 30)
    await_until(lambda: camera.dome_state()["zoom"]["position"] == 10500, "the zoom is at 10.5x", 30)


@pytest.mark.parametrize(
    ("oid", "reads"),
    [
        (OID["positionPan"], []),
        (TILT, []),
        (ZOOM, []),
        (FOCUS, ["focus2 GetPosition"]),
        (IRIS, []),
        (OID["rangeTiltUpLimit"], []),
        (OID["rangeZoomLimit"], []),
        (OID["timeoutIris"], []),
        (OID["rangeMaximumPreset"], []),
        (OID["presetGotoPosition"], []),
        (OID["systemCameraFeatureControl"], []),
        (OID["systemLensFeatureControl"], []),
        (OID["systemLensEquipped"], []),
        (OID["outputControl"], []),
        (OID["rebootDevice"], []),
        (OID["moduleMake"], []),
    ],
)
def test_a_get_calls_only_what_it_requires(camera, manager, oid, reads):
    manager.get(oid)
    assert calls(camera) == reads
