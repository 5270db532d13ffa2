"""What can go wrong. Every error of this package is a CameraError."""

from __future__ import annotations


class CameraError(Exception):
    """The camera, or what was asked of it, failed."""


class NoAnswer(CameraError):
    """The agent did not answer in time, or its host cannot be reached."""


class NotServed(CameraError):
    """The agent serves no such object."""


class SnmpError(CameraError):
    """The agent answered with an error. `name` is the error's name, `index` the binding that it names, from 1."""

    def __init__(self, request: str, name: str, index: int) -> None:
        super().__init__(f"{request}: {name}")
        self.name, self.index = name, index
