"""A manager of one camera: objects by name, values as Python's own."""

from __future__ import annotations

from typing import Any, Dict, Optional, Union

from orvex_camera.errors import NoAnswer, NotServed, SnmpError
from orvex_camera.shared import ber, error_name, expected_tree, link, promises, usm

Value = Union[int, str, bytes]
_ROWS: Dict[str, Any] = {row.name: row for row in expected_tree.ROWS}
_EXCEPTIONS = {ber.NO_SUCH_OBJECT: "no such object", ber.NO_SUCH_INSTANCE: "no such instance",
               ber.END_OF_MIB_VIEW: "end of the view"}


def oid_of(name: str) -> str:
    """The OID of an object of the desk camera by its name ("positionPan", "relayState.2"), or a dotted OID as it is."""
    if name in _ROWS:
        return str(_ROWS[name].oid)
    if name.strip(".").replace(".", "").isdigit():
        return name.strip(".")
    # A table may have more rows than a fresh camera's.
    column, _, row = name.rpartition(".")
    if f"{column}.1" in _ROWS and row.isdigit():
        return f"{str(_ROWS[f'{column}.1'].oid).rpartition('.')[0]}.{row}"
    raise NotServed(f"{name}: no object of a camera has this name; docs/objects.md lists them")


def row_of(name: str) -> Any:
    """The expected row of an object, or None for an OID."""
    return _ROWS.get(name) or _ROWS.get(f"{name.rpartition('.')[0]}.1")


def is_text(name: str) -> bool:
    row = row_of(name)
    if row is None or row.tag != ber.OCTET_STRING:
        return False
    if promises.is_constant(row):
        return bool(row.value.isascii() and row.value.decode().isprintable())
    return promises.promise(row) is promises.ANY_TEXT


def encoded(name: str, value: Value) -> "tuple[int, bytes]":
    """The value's tag and octets in the object's type. Raises TypeError for a value that this type cannot have."""
    row = row_of(name)
    tag = row.tag if row else ber.INTEGER if isinstance(value, int) else ber.OCTET_STRING
    if tag == ber.OCTET_STRING:
        if isinstance(value, str) and (row is None or is_text(name)):
            return tag, value.encode()
        if not isinstance(value, (bytes, bytearray)):
            raise TypeError(f"{name} takes octets (bytes), not {value!r}; for a position see orvex_camera.absolute()")
        return tag, bytes(value)
    if not isinstance(value, int):
        raise TypeError(f"{name} takes a number (int), not {value!r}")
    return tag, ber.integer_octets(int(value))


def connect(host: str, port: int, timeout: float) -> Any:
    """A link.Link without retries. Raises NoAnswer for a host that cannot be reached."""
    try:
        return link.Link(host, port, timeout=timeout, retries=0, may_set=True)
    except link.Unreachable as error:
        raise NoAnswer(str(error)) from None


class Manager:
    """A manager in SNMPv2c. Use it in one thread. It never repeats a request: a SET may move the camera."""

    def __init__(self, host: str, port: int, community: str = "public", write_community: str = "private",
                 timeout: float = 5.0) -> None:
        """Raises NoAnswer."""
        self.link = connect(host, port, timeout)
        self.reader = link.Access(link.V2C, community)
        self.writer = link.Access(link.V2C, write_community)

    def close(self) -> None:
        self.link.close()

    def get(self, name: str) -> Value:
        """An int, a str for a text, or bytes. Raises SnmpError, NotServed or NoAnswer."""
        binding = self._ask(f"GET {name}", self.reader, ber.GET, [(oid_of(name), ber.NULL, b"")])
        if binding.tag in _EXCEPTIONS:
            raise NotServed(f"GET {name}: {_EXCEPTIONS[binding.tag]}")
        value = binding.value
        return value.decode(errors="replace") if isinstance(value, bytes) and is_text(name) else value

    def set(self, name: str, value: Value) -> None:
        """Returns when the SET is answered: a move has only begun. Raises SnmpError, NoAnswer or TypeError."""
        shown = value.hex(" ") if isinstance(value, (bytes, bytearray)) else value
        self._ask(f"SET {name} = {shown}", self.writer, ber.SET, [(oid_of(name), *encoded(name, value))])

    def answers(self, timeout: Optional[float] = None) -> bool:
        """Whether the agent answers at all."""
        try:
            self.link.get(self.reader, "1.3.6.1.2.1.1.3.0", timeout=timeout)
            return True
        except (link.Silent, link.Gone, link.Unreachable):
            return False

    def _ask(self, what: str, access: Any, kind: int, bindings: Any) -> Any:
        try:
            answer = self.link.ask(access, kind, bindings)
        except (link.Silent, link.Gone, link.Unreachable) as silence:
            raise NoAnswer(f"{what}: {silence}") from None
        if answer.pdu == usm.REPORT or answer.error != ber.NO_ERROR:
            raise SnmpError(what, error_name(answer.error), answer.index)
        return answer.binding
