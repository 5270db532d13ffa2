"""Where a desk camera's programs are: in a checkout's build folder, or where the packages installed them."""

from __future__ import annotations

import os
import pathlib
from typing import NamedTuple

from orvex_camera import shared
from orvex_camera.errors import CameraError


class MissingPrograms(CameraError):
    """There is no desk camera that could be started."""


class Programs(NamedTuple):
    prepare: pathlib.Path  # prepare-state
    build: pathlib.Path  # the folder that prepare-state takes
    commands: pathlib.Path  # the folder of orvex-dome and domectl
    agent_parts: pathlib.Path  # the list of the stock agent's parts
    agent: pathlib.Path  # snmpd

    @classmethod
    def find(cls) -> Programs:
        """The environment's ORVEX_BUILD names another build folder of a checkout, ORVEX_SNMPD another agent. Raises
        MissingPrograms."""
        found = cls._of_checkout() if shared.is_checkout() else cls._of_installation()
        needed = (found.prepare, found.commands / "orvex-dome", found.commands / "domectl", found.agent_parts, found.agent)
        for file in needed:
            if not file.is_file():
                raise MissingPrograms(f"no desk camera: {file} is missing; build it (./run does), or install orvex-dome")
        return found

    @classmethod
    def _of_checkout(cls) -> Programs:
        build = pathlib.Path(os.environ.get("ORVEX_BUILD", shared.CHECKOUT / "build" / "desk")).resolve()
        scripts = shared.CHECKOUT / "scripts"
        return cls(scripts / "prepare-state", build, build / "bin", scripts / "agent-parts", _agent())

    @classmethod
    def _of_installation(cls) -> Programs:
        scripts = shared.PREFIX / "share" / "orvex-dome" / "scripts"
        named = scripts / "build-folder"
        if not named.is_file():
            raise MissingPrograms(f"no desk camera: {named} is missing; install orvex-dome")
        build = pathlib.Path(named.read_text().strip())
        return cls(scripts / "prepare-state", build, shared.PREFIX / "bin", scripts / "agent-parts", _agent())

    def parts(self) -> str:
        """As the agent's option -I takes them."""
        lines = self.agent_parts.read_text().splitlines()
        return ",".join(line for line in lines if line and not line.startswith("#"))


def _agent() -> pathlib.Path:
    return pathlib.Path(os.environ.get("ORVEX_SNMPD", "/usr/sbin/snmpd"))
