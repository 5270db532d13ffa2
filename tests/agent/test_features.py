"""Presets, camera features and lens features."""

import subprocess

import pytest

import ber
from commands import calls
from desk import BUILD
from expected_tree import OID

CONTROL, STATUS, EQUIPPED = (OID[f"systemLens{name}"] for name in ("FeatureControl", "FeatureStatus", "Equipped"))
CAMERA_CONTROL, CAMERA_EQUIPPED = OID["systemCameraFeatureControl"], OID["systemCameraEquipped"]


def octets(manager, oid):
    return manager.get(oid).bindings[0].octets


def focus_mode(desk):
    command = [BUILD / "bin" / "tavos-settings", "--store", desk.state / "settings.db", "get", "[Imaging/Focus]Mode"]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


@pytest.mark.parametrize(
    ("command", "expected", "mode"),
    [
        ("4000", ["focus SetAutoFocus false"], "Manual"),
        ("4080", ["focus SetAutoFocus true", "focus2 AutoFocus true"], "Auto"),
        ("8000", ["iris SetAutoIris false"], None),
        ("C080", ["focus SetAutoFocus true", "focus2 AutoFocus true", "iris SetAutoIris true"], "Auto"),
        ("0080", [], None),
    ],
)
def test_lens_feature_control(camera, manager, command, expected, mode):
    before = focus_mode(camera)
    assert manager.set_octets(CONTROL, bytes.fromhex(command)).error_status == ber.NO_ERROR
    assert calls(camera) == expected
    assert octets(manager, CONTROL) == bytes.fromhex(command)
    assert focus_mode(camera) == (mode or before)


@pytest.mark.parametrize(("features", "status"), [("4000", 0x80), ("8000", 0x40), ("C000", 0x00), ("C080", 0xC0)])
def test_lens_feature_status_follows_the_features(manager, features, status):
    manager.set_octets(CONTROL, bytes.fromhex("C080"))
    manager.set_octets(CONTROL, bytes.fromhex(features))
    assert octets(manager, STATUS) == bytes([status])
    manager.set_octets(CONTROL, bytes.fromhex("C080"))


def test_a_lens_feature_that_cannot_be_read_counts_as_off(camera, manager):
    camera.domectl("fault", "iris", "fail")
    assert octets(manager, STATUS) == b"\x40"
    camera.domectl("fault", "iris", "ok")
    assert octets(manager, STATUS) == b"\xc0"


@pytest.mark.parametrize(("value", "error"), [("40", 0), ("00", 0), ("80", 5), ("41", 5)])
def test_lens_equipped_takes_only_auto_focus(manager, value, error):
    before = octets(manager, EQUIPPED)
    assert manager.set_octets(EQUIPPED, bytes.fromhex(value)).error_status == error
    assert octets(manager, EQUIPPED) == (before if error else bytes.fromhex(value))


def test_camera_features_are_remembered_and_drive_nothing(camera, manager):
    assert manager.set_octets(CAMERA_CONTROL, b"\x01\x00").error_status == ber.NO_ERROR
    assert octets(manager, CAMERA_CONTROL) == b"\x01\x00"
    assert manager.set_integer(CAMERA_CONTROL, 1).error_status == ber.WRONG_TYPE
    assert octets(manager, CAMERA_CONTROL) == b"\x01\x00"
    assert octets(manager, OID["systemCameraFeatureStatus"]) == b"\x00"
    assert calls(camera) == []


def test_camera_equipped_is_stored_although_the_set_fails(manager):
    assert manager.set_octets(CAMERA_EQUIPPED, b"\x01").error_status == ber.GEN_ERR
    assert octets(manager, CAMERA_EQUIPPED) == b"\x01"
    assert manager.set_integer(CAMERA_EQUIPPED, 2).error_status == ber.WRONG_TYPE
    assert octets(manager, CAMERA_EQUIPPED) == b"\x01"


@pytest.mark.parametrize("name", ["presetGotoPosition", "presetStorePosition"])
def test_presets_take_everything_and_answer_0(camera, manager, name):
    answer = manager.set_integer(OID[name], 3)
    assert (answer.error_status, answer.bindings[0].value) == (ber.NO_ERROR, 0)
    assert manager.get(OID[name]).bindings[0].value == 0
    assert calls(camera) == []
