"""A desk camera of this program's own: bus, dome and agent in a temporary folder, on free ports."""

from __future__ import annotations

import atexit
import pathlib
import subprocess
import tempfile
import time
from types import TracebackType
from typing import Callable, ContextManager, Dict, List, Mapping, Optional, Type, Union

from orvex_camera import processes
from orvex_camera.control import Control
from orvex_camera.errors import CameraError
from orvex_camera.manager import Manager, Value
from orvex_camera.programs import Programs
from orvex_camera.recording import Recorder
from orvex_camera.scenario import Player, Scenario

_START_TIMEOUT = 15.0  # seconds, for each process
_END_TIMEOUT = 10.0  # seconds, before a process is killed
_ATTEMPTS = 3  # another program may take a free port before the agent does
_TAKEN = "Error opening specified endpoint"
_OPEN = "NET-SNMP version"  # the agent's log when its port is open; before, another program may answer there


class StartFailed(CameraError):
    """A process of the camera ended, or was not ready in time; the text has its last lines."""


class DeskCamera(Control):
    """`with DeskCamera() as camera:` starts one, and ends it, also after an exception or Ctrl-C.

    Its processes end with the thread that started it, even if that one is killed. Not for use by several threads at
    once."""

    def __init__(self, config: Union[str, pathlib.Path, None] = None, programs: Optional[Programs] = None,
                 agent_environment: Optional[Mapping[str, str]] = None) -> None:
        """`config`: a TOML file of the camera's properties (dome/desk.toml has every key). `agent_environment`:
        variables for the agent and its module, TAVOS_LOG_LEVEL for example. Nothing is started yet."""
        self._programs = programs or Programs.find()
        self._config = pathlib.Path(config).resolve() if config else None
        self._agent_environment = dict(agent_environment or {})
        self._folder: Optional[tempfile.TemporaryDirectory[str]] = None
        self._processes: Dict[str, subprocess.Popen[bytes]] = {}
        self._manager: Optional[Manager] = None
        self.host, self.port, self.trap_port = "127.0.0.1", 0, 0

    def __enter__(self) -> DeskCamera:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def start(self) -> None:
        """Raises StartFailed; then nothing is left behind."""
        if self._folder is not None:
            raise CameraError("this camera runs already")
        atexit.register(self.close)
        try:
            self._folder = tempfile.TemporaryDirectory(prefix="orvex-")
            super().__init__(self._folder.name, self._programs.commands / "domectl")
            self._start()
        except BaseException:
            self.close()
            raise

    def domectl(self, *words: object, timeout: float = 60.0) -> str:
        """See Control.domectl."""
        self._check_runs()
        return super().domectl(*words, timeout=timeout)

    def _check_runs(self) -> None:
        if self._folder is None:
            raise CameraError("the camera does not run")

    def _start(self) -> None:
        for attempt in range(1, _ATTEMPTS + 1):
            self.port, self.trap_port = processes.free_port(), processes.free_port()
            self._prepare()
            try:
                self._start_processes()
                return
            except StartFailed as failure:
                self._end_processes()
                if attempt == _ATTEMPTS or _TAKEN not in str(failure):
                    raise

    def close(self) -> None:
        """Ends the processes and removes the folder. Does nothing the second time."""
        atexit.unregister(self.close)
        try:
            self._end_processes()
        finally:
            if self._manager:
                self._manager.close()
                self._manager = None
            if self._folder is not None:
                self._folder.cleanup()
                self._folder = None

    # --- over SNMP ---

    @property
    def manager(self) -> Manager:
        """A manager of this camera that may read and write."""
        if self._manager is None:
            raise CameraError("the camera does not run")
        return self._manager

    def get(self, name: str) -> Value:
        """See Manager.get."""
        return self.manager.get(name)

    def set(self, name: str, value: Value) -> None:
        """See Manager.set."""
        self.manager.set(name, value)

    # --- sessions ---

    def scenario(self, scenario: Union[str, pathlib.Path, Scenario]) -> Player:
        """A player of the scenario, for a `with`; see Player."""
        return Player(self, scenario if isinstance(scenario, Scenario) else Scenario.read(scenario))

    def play(self, scenario: Union[str, pathlib.Path, Scenario]) -> None:
        """Plays the whole scenario at once. The camera's clock then is as it was: paused or running."""
        with self.scenario(scenario) as player:
            player.play()

    def recording(self, file: Union[str, pathlib.Path, None] = None) -> ContextManager[Recorder]:
        """`with camera.recording("session.jsonl"):` records the requests that arrive meanwhile."""
        return Recorder(self, file)

    # --- processes ---

    def log(self, name: str) -> str:
        """What a process ("bus", "dome", "agent") wrote to its standard output, its standard error and its log."""
        self._check_runs()
        files = [self.state_folder / f"{name}.{kind}" for kind in ("out", "log")]
        return "".join(file.read_text(errors="replace") for file in files if file.exists())

    def _prepare(self) -> None:
        command = [str(self._programs.prepare), str(self._programs.build), str(self.state_folder), str(self.port),
                   str(self.trap_port)]
        try:
            done = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=_START_TIMEOUT)
        except subprocess.TimeoutExpired:
            raise StartFailed(f"{self._programs.prepare} was not ready within {_START_TIMEOUT:g} s") from None
        if done.returncode != 0:
            raise StartFailed(done.stderr.strip() or f"{self._programs.prepare} failed")
        (self.state_folder / "snmp" / processes.CERTIFICATES).mkdir(exist_ok=True)

    def _start_processes(self) -> None:
        state, programs = self.state_folder, self._programs
        environment = processes.environment(state, programs.commands)
        self._launch("bus", processes.bus(state), environment)
        self._await("bus", lambda: (state / "bus.out").stat().st_size > 0)
        config = ["--config", str(self._config)] if self._config else []
        self._launch("dome", [*processes.dome(state, programs.commands), *config], environment)
        self._await("dome", lambda: "ready" in (state / "dome.out").read_text(errors="replace").splitlines())
        self._launch("agent", processes.agent(state, str(programs.agent), programs.parts()),
                     {**environment, **self._agent_environment})
        probe = Manager(self.host, self.port)
        try:
            self._await("agent", lambda: _OPEN in self.log("agent") and probe.answers(timeout=0.2))
        except BaseException:
            probe.close()
            raise
        self._manager = probe

    def _launch(self, name: str, command: List[str], environment: Mapping[str, str]) -> None:
        # Its own session, so that the terminal's Ctrl-C does not reach it and it ends in order.
        try:
            with open(self.state_folder / f"{name}.out", "wb") as out, open(self.state_folder / f"{name}.log", "wb") as log:
                self._processes[name] = subprocess.Popen(
                    processes.ending_with_its_parent(command), stdin=subprocess.DEVNULL, stdout=out, stderr=log,
                    cwd=self.state_folder, env=environment, start_new_session=True)
        except OSError as error:
            raise StartFailed(f"cannot start the {name}: {error}") from None

    def _await(self, name: str, is_ready: Callable[[], bool]) -> None:
        deadline = time.monotonic() + _START_TIMEOUT
        while not is_ready():
            status = self._processes[name].poll()
            if status is not None:
                raise StartFailed(f"the {name} ended with status {status}:\n{self.log(name)[-2000:]}")
            if time.monotonic() > deadline:
                raise StartFailed(f"the {name} was not ready within {_START_TIMEOUT:g} s:\n{self.log(name)[-2000:]}")
            time.sleep(0.02)

    def _end_processes(self) -> None:
        """The last started first. A second Ctrl-C meanwhile kills the rest."""
        try:
            for process in reversed(list(self._processes.values())):
                process.terminate()
                try:
                    process.wait(_END_TIMEOUT)
                except subprocess.TimeoutExpired:
                    pass  # killed below
        finally:
            for process in self._processes.values():
                process.kill()
                process.wait()
            self._processes = {}
