"""Desk cameras for tests: start one, ask it over SNMP, break its services, play scenarios, repeat recorded sessions."""

from orvex_camera.camera import DeskCamera, StartFailed
from orvex_camera.control import Control, ControlError
from orvex_camera.errors import CameraError, NoAnswer, NotServed, SnmpError
from orvex_camera.manager import Manager
from orvex_camera.positions import absolute, continuous, delta, stop
from orvex_camera.programs import MissingPrograms, Programs
from orvex_camera.recording import Recording, RecordingError
from orvex_camera.replay import Difference, replay
from orvex_camera.scenario import Player, Scenario, ScenarioError

__all__ = ["CameraError", "Control", "ControlError", "DeskCamera", "Difference", "Manager", "MissingPrograms", "NoAnswer",
           "NotServed", "Player", "Programs", "Recording", "RecordingError", "Scenario", "ScenarioError", "SnmpError",
           "StartFailed", "absolute", "continuous", "delta", "replay", "stop"]
