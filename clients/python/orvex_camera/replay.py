"""Sends a recording's requests to another camera and compares its answers with the recorded ones."""

from __future__ import annotations

import re
import time
from typing import Any, Collection, Dict, Iterator, List, NamedTuple, Optional

from orvex_camera.errors import CameraError, NoAnswer
from orvex_camera.manager import connect, is_text
from orvex_camera.recording import Recording
from orvex_camera.shared import TYPES, ber, error_name, expected_tree, link, type_name, usm

_PDUS = {"GET": ber.GET, "GETNEXT": ber.GETNEXT, "GETBULK": ber.GETBULK, "SET": ber.SET}
_TAGS = {name: tag for tag, name in TYPES.items()}
_NUMBERS = (ber.INTEGER, ber.COUNTER32, ber.GAUGE32, ber.TIMETICKS, ber.COUNTER64)
_HEXADECIMAL = re.compile(r"[0-9a-f]{2}( [0-9a-f]{2})*")


class CannotRepeat(CameraError):
    """A request with a type that has no name."""


class Difference(NamedTuple):
    position: int  # the request's, in the recording, from 1
    number: Optional[int]  # of its record in the trace
    request: str
    text: str  # what is, and what was

    def __str__(self) -> str:
        return f"request {self.position} ({self.request}): {self.text}"


class Roles(NamedTuple):
    """Who asks: the first one reads, the other one sends the SETs."""

    reader: Any  # orvex_conform.link.Access
    writer: Any


def communities(read: str, write: str) -> Dict[str, Roles]:
    """The roles of each recorded version. What a user asked in SNMPv3 is repeated in SNMPv2c."""
    both = {version: Roles(link.Access(version, read), link.Access(version, write)) for version in (link.V1, link.V2C)}
    return {**both, link.V3: both[link.V2C]}


def user(connection: Any, name: str, authentication: str, authentication_phrase: str,
         privacy_phrase: str) -> Dict[str, Roles]:
    """One SNMPv3 user in all roles; what was asked in another version is repeated in SNMPv3. Raises link.Silent."""
    access = link.Access(link.V3, user=usm.User(name, authentication, authentication_phrase, privacy_phrase))
    connection.discover(access.user)
    return dict.fromkeys((link.V1, link.V2C, link.V3), Roles(access, access))


def replay(recording: Recording, host: str, port: int, community: str = "public", write_community: str = "private",
           ignore: Collection[str] = (), pace: Optional[float] = None, timeout: float = 5.0) -> List[Difference]:
    """The differences of another camera's answers. `ignore`: names or OIDs of objects whose values may differ. `pace`:
    1 waits between requests as long as the recorded manager did, 2 half as long; without, each is sent at once. Raises
    NoAnswer for a host that cannot be reached, or that leaves several requests in a row unanswered."""
    connection = connect(host, port, timeout)
    try:
        return list(differences(recording, connection, communities(community, write_community), ignore, pace))
    finally:
        connection.close()


def differences(recording: Recording, connection: Any, roles: Dict[str, Roles], ignore: Collection[str] = (),
                pace: Optional[float] = None) -> Iterator[Difference]:
    """Raises NoAnswer for a host that cannot be reached, or that leaves several requests in a row unanswered."""
    start = time.monotonic()
    for position, request in enumerate(recording.requests, 1):
        if pace is not None:
            time.sleep(max(0.0, start + request["after"] / pace - time.monotonic()))
        for text in _repeat(request, connection, roles, ignore):
            yield Difference(position, request.get("number"), _shown(request), text)


def _shown(request: Dict[str, Any]) -> str:
    is_set = request["pdu"] == "SET"
    names = [_name(one) + (f" = {one['value']}" if is_set else "") for one in request["bindings"]]
    return f"{request['pdu']} {', '.join(names)}"


def _name(binding: Dict[str, Any]) -> str:
    return str(binding["name"] or binding["oid"])


def _repeat(request: Dict[str, Any], connection: Any, roles: Dict[str, Roles], ignore: Collection[str]) -> Iterator[str]:
    pair = roles.get(request.get("version") or link.V2C, roles[link.V2C])
    access = pair.writer if request["pdu"] == "SET" else pair.reader
    try:
        bindings = [(one["oid"], *_encoded(one)) for one in request["bindings"]]
    except CannotRepeat as reason:
        yield f"not repeated: {reason}"
        return
    try:
        answer = connection.ask(access, _PDUS[request["pdu"]], bindings, request.get("nonRepeaters", 0),
                                request.get("maxRepetitions", 0))
    except link.Silent as silence:
        yield f"{silence}, was {request['error']}"
        return
    except (link.Gone, link.Unreachable) as silence:
        raise NoAnswer(f"{connection.host} port {connection.port}: {silence}") from None
    if answer.pdu == usm.REPORT:
        yield f"refused by a report ({', '.join(usm.REPORTS.get(one.oid, one.oid) for one in answer.bindings)})"
        return
    yield from _compare(request, answer, ignore)


def _compare(request: Dict[str, Any], answer: Any, ignore: Collection[str]) -> Iterator[str]:
    error = error_name(answer.error)
    if error != request["error"]:
        yield f"error {error}, was {request['error']}"
    elif answer.index != request["index"]:
        yield f"{error} of binding {answer.index}, was {request['index']}"
    if len(answer.bindings) != len(request["answer"]):
        yield f"{len(answer.bindings)} bindings, were {len(request['answer'])}"
    for now, then in zip(answer.bindings, request["answer"]):
        if now.oid != then["oid"]:
            yield f"{now.oid}, was {then['oid']}"
        elif now.tag != _TAGS.get(then["type"], now.tag):
            yield f"{_name(then)} has type {type_name(now.tag)}, was {then['type']}"
        elif _is_compared(then, ignore) and not _is_same(now, then):
            yield f"{_name(then)} is {_value(now, then)}, was {then['value']}"


def _is_compared(binding: Dict[str, Any], ignore: Collection[str]) -> bool:
    """The agent's own objects (its up time, its counters) differ from moment to moment."""
    is_camera = any(binding["oid"].startswith(f"{subtree}.") for subtree in expected_tree.SUBTREES)
    return is_camera and binding["name"] not in ignore and binding["oid"] not in ignore


def _encoded(binding: Dict[str, Any]) -> "tuple[int, bytes]":
    tag, value = _TAGS.get(binding["type"]), binding["value"]
    if tag is None:
        raise CannotRepeat(f"{_name(binding)} has an unknown type, {binding['type']}")
    try:
        return tag, _content(tag, binding["name"], value)
    except ValueError:
        raise CannotRepeat(f"{_name(binding)}: {value!r} is no {binding['type']}") from None


def _content(tag: int, name: str, value: str) -> bytes:
    if tag in _NUMBERS:
        return bytes(ber.integer_octets(int(value)))
    if tag == ber.OID:
        return bytes(ber.oid_octets(value))
    if tag == ber.IP_ADDRESS and "." in value:
        return bytes(int(part) for part in value.split("."))
    return _octets(name, value)


def _octets(name: str, value: str) -> bytes:
    """The trace shows texts as they are, and all other octets in hexadecimal."""
    if _HEXADECIMAL.fullmatch(value):
        octets = bytes.fromhex(value)
        # Octets of a text object would not be in hexadecimal if they were a text.
        return value.encode() if is_text(name) and octets.decode(errors="replace").isprintable() else octets
    return value.encode()


def _is_same(now: Any, then: Dict[str, Any]) -> bool:
    tag, content = _encoded(then)
    if tag in _NUMBERS:
        return bool(now.value == int(then["value"]))
    return bool(now.octets == content)


def _value(now: Any, then: Dict[str, Any]) -> str:
    if isinstance(now.value, bytes):
        return now.value.decode(errors="replace") if is_text(then["name"]) else now.value.hex(" ")
    return str(now.value)
