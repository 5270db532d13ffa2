"""The commands of the position objects (positionPan and its like): mode, speed and position in four octets."""

from __future__ import annotations


def _command(mode: int, speed: int, position: int) -> bytes:
    if not -128 <= speed <= 127:
        raise ValueError(f"a speed is from -128 to 127, not {speed}")
    if not 0 <= position <= 65535:
        raise ValueError(f"a position is from 0 to 65535, not {position}")
    return bytes([mode, speed & 0xFF]) + position.to_bytes(2, "big")


def stop() -> bytes:
    return _command(0, 0, 0)


def delta(distance: int, speed: int = 127) -> bytes:
    """Moves by `distance` in the object's unit (hundredths of a degree), backwards at a negative speed."""
    return _command(1, speed, distance)


def absolute(position: int, speed: int = 127) -> bytes:
    """Moves to `position` in the object's unit (hundredths of a degree; lenses 0 to 65535)."""
    return _command(2, speed, position)


def continuous(speed: int) -> bytes:
    """Moves until it is stopped."""
    return _command(3, speed, 0)
