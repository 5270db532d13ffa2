"""orvex-conform fails exactly at the objects of a service that fails, hangs or is gone."""

import pytest

from conforming import READER, WRITER, conform, state
from desk import ManagerOf, await_until
from expected_tree import OID

pytestmark = pytest.mark.judging

SERVICES_OF_AXES = {"pan": "positionPan", "tilt": "positionTilt", "zoom": "positionZoomLens",
                    "focus2": "positionFocusLens", "iris": "positionIrisLens"}


def restored(desk, service, oid):
    """Ends the fault; waits until the module calls the service again."""
    desk.domectl("fault", service, "ok")
    desk.domectl("calls", "--clear")
    with ManagerOf(desk) as manager:
        await_until(lambda: manager.get(oid) and any(call["service"] == service for call in desk.calls()),
                    "it is asked again")


POINTS = {"alarm": ["alarmStatus", "inputStatus"], "relay": ["outputStatus"]}


@pytest.mark.parametrize(("service", "kind"),
                         [("alarm", "fail"), ("alarm", "hang"), ("alarm", "gone"), ("relay", "fail")])
def test_a_faulty_bank_fails_exactly_its_own_objects(camera, service, kind):
    points = [("BNK1", number) for number in range(4)] + [("BNK2", number) for number in range(2)]
    camera.domectl("fault", service, kind)
    try:
        for point in points:
            camera.domectl("set", service, *point, 1)
        done = conform(camera, *READER, *state(camera))
    finally:
        for point in points:
            camera.domectl("set", service, *point, 0)
        restored(camera, service, OID[f"{service}State.1"])
    assert done.status == 1
    expected = POINTS[service] + [f"{service}State.{row}" for row in range(1, 7)]
    assert done.findings == dict.fromkeys(expected, {"platform"}), done.summary()


@pytest.mark.parametrize(("service", "kind"), [("temperature", "fail"), ("power", "hang"), ("voltage", "gone")])
def test_a_faulty_sensor_fails_exactly_its_object(camera, service, kind):
    camera.domectl("fault", service, kind)
    try:
        done = conform(camera, *READER)
    finally:
        restored(camera, service, OID[service])
    assert done.status == 1
    assert done.findings == {service: {"order", "answer"}}, done.summary()


@pytest.mark.parametrize(
    "faults", [{"pan": "fail"}, {"tilt": "hang", "zoom": "gone", "focus2": "fail", "iris": "fail"}],
    ids=["pan", "the others"])
def test_a_faulty_axis_fails_exactly_its_object(quick, faults):
    for service, kind in faults.items():
        quick.domectl("fault", service, kind)
    try:
        done = conform(quick, *WRITER, "--move", "motion", *state(quick))
    finally:
        for service in faults:
            quick.domectl("fault", service, "ok")
    expected = {SERVICES_OF_AXES[service]: {"motion"} for service in faults}
    if "iris" in faults:
        expected["systemLensFeatureStatus"] = {"platform"}  # whether the iris is automatic
    assert done.findings == expected, done.summary()
    with ManagerOf(quick) as manager:  # until a service that hung is called again
        def work():
            for service in faults:
                manager.set_octets(OID[SERVICES_OF_AXES[service]], bytes(4))
            return set(faults) <= {call["service"] for call in quick.calls() if call["outcome"] == "ok"}

        await_until(work, "they work again")


def test_faults_that_no_object_shows_are_no_findings(camera):
    services = {"presets": "fail", "presets2": "gone", "fan": "hang", "focus": "fail"}
    for service, kind in services.items():
        camera.domectl("fault", service, kind)
    try:
        done = conform(camera, *READER, *state(camera))
    finally:
        for service in services:
            camera.domectl("fault", service, "ok")
    assert (done.status, done.findings) == (0, {}), done.summary()
