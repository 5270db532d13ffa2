"""orvex-session: plays scenarios on a desk camera, records what its agent was asked, and repeats that elsewhere."""

from __future__ import annotations

import argparse
import os
import pathlib
import signal
import sys
from typing import Any, Dict, List, Optional, Sequence

from orvex_camera import shared
from orvex_camera.control import Control, ControlError
from orvex_camera.errors import CameraError
from orvex_camera.manager import connect
from orvex_camera.recording import Recording
from orvex_camera.replay import Roles, communities, differences, user
from orvex_camera.scenario import Event, Player, Scenario

SAME, DIFFERENT, UNUSABLE = 0, 1, 2
PHRASES = "ORVEX_SESSION"
MAX_PACE = 1000.0


class Help(argparse.Action):
    """The usage with that of every command, so that one --help shows all options."""

    commands: List[argparse.ArgumentParser] = []

    def __call__(self, parser: argparse.ArgumentParser, *_: Any) -> None:
        print(parser.format_help())
        print("\n".join(command.format_help() for command in self.commands), end="")
        parser.exit()


def positive(text: str) -> float:
    try:
        number = float(text)
    except ValueError:
        number = 0
    if not 0 < number <= MAX_PACE:
        raise argparse.ArgumentTypeError(f"requires a number above 0, at most {MAX_PACE:g}, not '{text}'")
    return number


def whole(low: int, high: int) -> Any:
    def read(text: str) -> int:
        if not text.isascii() or not text.isdigit() or not low <= int(text) <= high:
            raise argparse.ArgumentTypeError(f"requires a whole number from {low} to {high}, not '{text}'")
        return int(text)

    return read


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser(prog="orvex-session", description=__doc__, add_help=False, allow_abbrev=False)
    top.add_argument("-h", "--help", action=Help, nargs=0, help="print this text")
    top.add_argument("--version", action="version", version=f"orvex-session {shared.version()}")
    commands = top.add_subparsers(dest="command", required=True, metavar="play|record|replay")
    play = commands.add_parser("play", allow_abbrev=False, description="Plays a scenario on a running desk camera.")
    record = commands.add_parser("record", allow_abbrev=False,
                                 description="Writes the requests that the camera's agent received to a file.")
    repeat = commands.add_parser("replay", allow_abbrev=False,
                                 description="Sends a recording's requests to a camera and says which answers differ.")
    Help.commands = [play, record, repeat]

    play.add_argument("file", metavar="FILE", help="the scenario, TOML")
    play.add_argument("--pace", type=positive, metavar="X", help="the camera's seconds a second; all at once by default")
    record.add_argument("file", metavar="FILE", help="the recording, JSON lines")
    record.add_argument("--since", type=whole(0, 2**63 - 1), metavar="N",
                        help="only what came after the trace's record N; by default all that the agent still has")
    for command in (play, record):
        command.add_argument("--state", metavar="DIR", help="the camera's folder (default: $ORVEX_STATE, or else ./state)")
        command.add_argument("--bus", metavar="ADDRESS", help="the camera's bus (default: the one in DIR)")
        command.add_argument("--domectl", metavar="FILE", help="another domectl than the one beside this program")

    repeat.add_argument("file", metavar="FILE", help="the recording")
    repeat.add_argument("--host", required=True, help="the camera")
    repeat.add_argument("--port", type=whole(1, 65535), default=161, metavar="N", help="UDP port (default 161)")
    repeat.add_argument("--community", metavar="NAME", help="of the requests that read")
    repeat.add_argument("--write-community", metavar="NAME", help="of the SETs")
    repeat.add_argument("--user", metavar="NAME", help="of SNMPv3, for all requests; the pass phrases are in the "
                        f"environment: {PHRASES}_AUTHENTICATION, {PHRASES}_PRIVACY")
    repeat.add_argument("--authentication", choices=sorted(shared.usm.AUTHENTICATION), default="SHA",
                        help="the user's hash (default SHA)")
    repeat.add_argument("--ignore", action="append", default=[], metavar="OBJECT",
                        help="an object, by its name or OID, whose value may differ; may be repeated")
    repeat.add_argument("--pace", type=positive, metavar="X",
                        help="1 keeps the recorded pauses, 2 halves them; none by default")
    repeat.add_argument("--timeout", type=positive, default=5.0, metavar="S", help="seconds for each answer (default 5)")
    return top


def main(words: Optional[Sequence[str]] = None) -> int:
    options = parser().parse_args(words)
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # so that the camera's clock runs again
    commands = {"play": play, "record": record, "replay": repeat}
    try:
        return commands[options.command](options)
    except ControlError as error:
        return fail(str(error).removeprefix("domectl: "), error.status)
    except (CameraError, shared.Unusable, shared.link.Unreachable) as error:
        return fail(str(error), UNUSABLE)
    except KeyboardInterrupt:
        return fail("interrupted", UNUSABLE)


def fail(text: str, status: int) -> int:
    print(f"orvex-session: {text}", file=sys.stderr)
    return status


def control(options: argparse.Namespace) -> Control:
    state = options.state or os.environ.get("ORVEX_STATE") or "state"
    if not pathlib.Path(state).is_dir():
        raise CameraError(f"no camera's folder: there is no {state}; --state DIR or the environment's ORVEX_STATE names it")
    return Control(state, options.domectl, options.bus)


def play(options: argparse.Namespace) -> int:
    scenario = Scenario.read(options.file)

    def show(event: Event) -> None:
        print(event, flush=True)

    with Player(control(options), scenario, options.pace, show) as player:
        player.play()
    return SAME


def record(options: argparse.Namespace) -> int:
    recording = Recording.of(control(options).trace(since=options.since))
    recording.write(options.file)
    left_out = f", {recording.left_out} without an answer left out" if recording.left_out else ""
    print(f"{len(recording.requests)} requests{left_out}")
    if recording.lost:
        print(f"orvex-session: {recording.lost} records were overwritten before they could be read", file=sys.stderr)
    return SAME


def roles(options: argparse.Namespace, connection: Any) -> Dict[str, Roles]:
    if options.user is None:
        if options.community is None:
            raise CameraError("who asks? name a --community or a --user")
        return communities(options.community, options.write_community or options.community)
    phrases = (os.environ.get(f"{PHRASES}_AUTHENTICATION", ""), os.environ.get(f"{PHRASES}_PRIVACY", ""))
    if phrases[1] and not phrases[0]:
        raise CameraError(f"{PHRASES}_PRIVACY requires {PHRASES}_AUTHENTICATION")
    try:
        return user(connection, options.user, options.authentication, *phrases)
    except shared.link.Silent as silence:
        raise CameraError(f"{options.host} port {options.port} does not answer: {silence}") from None


def repeat(options: argparse.Namespace) -> int:
    recording = Recording.read(options.file)
    shared.only_one_host(options.host)
    connection = connect(options.host, options.port, options.timeout)
    differing = set()
    try:
        for difference in differences(recording, connection, roles(options, connection), options.ignore, options.pace):
            print(difference, flush=True)
            differing.add(difference.position)
    finally:
        connection.close()
    print(f"{len(recording.requests)} requests, {len(differing)} with differences")
    return DIFFERENT if differing else SAME
