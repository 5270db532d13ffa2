"""Steers a running desk camera, through domectl."""

from __future__ import annotations

import json
import os
import pathlib
import subprocess
from typing import Any, Dict, List, Optional, Union

from orvex_camera.errors import CameraError
from orvex_camera.programs import Programs

Json = Dict[str, Any]


class ControlError(CameraError):
    """domectl refused its words, or the camera did not answer. `status` is domectl's exit status."""

    def __init__(self, status: int, text: str) -> None:
        super().__init__(text)
        self.status = status


class Control:
    """The camera of a state folder."""

    def __init__(self, state: Union[str, pathlib.Path], domectl: Union[str, pathlib.Path, None] = None,
                 bus: Optional[str] = None) -> None:
        """`bus`: the address of the camera's bus, unless it is the one in the folder."""
        self.state_folder = pathlib.Path(state)
        self._command = [str(domectl or Programs.find().commands / "domectl"), "--state", str(state)]
        self._command += ["--bus", bus] if bus else []

    def domectl(self, *words: object, timeout: float = 60.0) -> str:
        """Runs domectl with these words and returns its output. Raises ControlError."""
        command = [*self._command, *map(str, words)]
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=timeout, stdin=subprocess.DEVNULL,
                                  env=dict(os.environ, MIBS=""))
        except subprocess.TimeoutExpired:
            raise ControlError(1, f"domectl {' '.join(map(str, words))}: no answer within {timeout:g} s") from None
        except OSError as error:
            raise ControlError(1, f"cannot start {self._command[0]}: {error.strerror}") from None
        if done.returncode != 0:
            raise ControlError(done.returncode, done.stderr.strip())
        return done.stdout

    def state(self) -> Json:
        """The whole camera, as `domectl state` prints it."""
        state: Json = json.loads(self.domectl("state"))
        return state

    def fault(self, service: str, kind: str) -> None:
        """Makes a service "fail", "hang" or be "gone", or work again: "ok"."""
        self.domectl("fault", service, kind)

    def event(self, *words: object) -> None:
        """Emits an event: ("temperature", 0, 41), ("power", 1)."""
        self.domectl("event", *words)

    def clock(self, *words: object) -> None:
        """("pause"), ("run"), ("step", 1.5) or ("rate", 10)."""
        self.domectl("clock", *words)

    def wait_at_rest(self, *axes: str, timeout: float = 60.0) -> None:
        """Returns when none of the axes (all of them without names) moves. Raises ControlError at the timeout, in
        seconds."""
        self.domectl("wait", *axes, "--timeout", f"{timeout:g}", timeout=timeout + 30)

    def calls(self) -> List[Json]:
        """The calls of the camera's services."""
        return [json.loads(line) for line in self.domectl("calls").splitlines()]

    def history(self) -> List[Json]:
        """The camera's calls, motions, actions and events, in order."""
        entries: List[Json] = []
        since = 0
        while True:
            head, *lines = map(json.loads, self.domectl("history", "--since", since).splitlines())
            entries += lines
            since = head["change"]
            if not head["more"]:
                return entries

    def trace(self, object: Optional[str] = None, failed: bool = False, since: Optional[int] = None) -> List[Json]:
        """The requests that the agent received and what became of them, as `domectl trace --json` prints them:
        docs/trace.md lists the members."""
        words = ["trace", "--json"]
        words += ["--object", object] if object is not None else []
        words += ["--failed"] if failed else []
        words += ["--since", str(since)] if since is not None else []
        return [json.loads(line) for line in self.domectl(*words).splitlines()]
