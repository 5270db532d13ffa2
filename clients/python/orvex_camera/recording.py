"""Records the requests that a camera's agent received, from its trace, as JSON lines. A recording has no community and
no pass phrase: it says who asked only by the name in the agent's configuration."""

from __future__ import annotations

import datetime
import json
import pathlib
from types import TracebackType
from typing import Any, Dict, List, Optional, Type, Union

from orvex_camera.control import Control
from orvex_camera.errors import CameraError

FORMAT = 1
CONSOLE_ID = 1147499371  # of the request by which a page of the console asks whether the agent answers
_REQUESTS = ("GET", "GETNEXT", "GETBULK", "SET")
_MEMBERS = ("number", "version", "who", "pdu", "nonRepeaters", "maxRepetitions", "error", "index")
_BINDING = ("oid", "name", "type", "value")


class RecordingError(CameraError):
    """A file that is no recording, or a session of which a part is lost."""


class Recording:
    """The requests of a session, each with its answer, in order."""

    def __init__(self, requests: List[Dict[str, Any]], left_out: int = 0, lost: int = 0) -> None:
        """`left_out`: requests without an answer. `lost`: records that the agent overwrote before they were read."""
        self.requests, self.left_out, self.lost = requests, left_out, lost

    @classmethod
    def of(cls, trace: List[Dict[str, Any]]) -> Recording:
        """From the objects of `domectl trace --json`."""
        asked = [one for one in trace if one["pdu"] in _REQUESTS and one["id"] != CONSOLE_ID]
        whole = [one for one in asked if one["answer"] is not None and "cut" not in one]
        start = _time(whole[0]) if whole else 0.0
        requests = []
        for one in whole:
            request: Dict[str, Any] = {"after": round(_time(one) - start, 6)}
            request.update((member, one[member]) for member in _MEMBERS if member in one)
            for side in ("bindings", "answer"):
                request[side] = [{member: binding[member] for member in _BINDING} for binding in one[side]]
            requests.append(request)
        return cls(requests, len(asked) - len(whole), sum(one.get("lost", 0) for one in trace))

    @classmethod
    def read(cls, file: Union[str, pathlib.Path]) -> Recording:
        """Raises RecordingError."""
        try:
            head, *requests = map(json.loads, pathlib.Path(file).read_text(encoding="utf-8").splitlines())
            if head["session"] != FORMAT:
                raise RecordingError(f"{file}: a recording of the format {head['session']}, not {FORMAT}")
            for number, request in enumerate(requests, 2):
                if not _is_request(request):
                    raise RecordingError(f"{file}:{number}: not a recorded request")
            return cls(requests, int(head["leftOut"]), int(head["lost"]))
        except OSError as error:
            raise RecordingError(f"cannot read {file}: {error.strerror}") from None
        except (ValueError, KeyError, TypeError, AttributeError):
            raise RecordingError(f"{file} is not a recording") from None

    def write(self, file: Union[str, pathlib.Path]) -> None:
        """Raises RecordingError."""
        head = {"session": FORMAT, "leftOut": self.left_out, "lost": self.lost}
        text = "".join(json.dumps(line, ensure_ascii=False) + "\n" for line in [head, *self.requests])
        try:
            pathlib.Path(file).write_text(text, encoding="utf-8")
        except OSError as error:
            raise RecordingError(f"cannot write {file}: {error.strerror}") from None


def _is_request(one: Any) -> bool:
    """Whether the object has all that a replay reads. Raises KeyError or TypeError for some that have not."""
    counts = (one.get("nonRepeaters", 0), one.get("maxRepetitions", 0), one["index"])
    bindings = one["bindings"] + one["answer"]
    return (one["pdu"] in _REQUESTS and isinstance(one["after"], (int, float)) and isinstance(one["error"], str)
            and all(isinstance(count, int) for count in counts)
            and all(isinstance(binding[member], str) for binding in bindings for member in _BINDING))


def _time(entry: Dict[str, Any]) -> float:
    return datetime.datetime.fromisoformat(entry["time"].replace("Z", "+00:00")).timestamp()


class Recorder:
    """For a `with`: records what the agent receives meanwhile."""

    def __init__(self, camera: Control, file: Union[str, pathlib.Path, None] = None) -> None:
        """`file` is written at the end, also after an exception."""
        self._camera, self._file = camera, file
        self._since = 0
        self._recording: Optional[Recording] = None

    @property
    def recording(self) -> Recording:
        """After the `with`."""
        if self._recording is None:
            raise RecordingError("the recording has not ended")
        return self._recording

    def __enter__(self) -> Recorder:
        numbers = [one["number"] for one in self._camera.trace() if one["number"] is not None]
        self._since = max(numbers, default=0)
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self._recording = Recording.of(self._camera.trace(since=self._since))
        if self._file is not None:
            self._recording.write(self._file)
