#!/usr/bin/python3
"""The same service in Python, with Debian's python3-dbus-fast, without libtavos."""

import asyncio
import math
import os
import time

from dbus_fast import BusType, DBusError, NameFlag, RequestNameReply
from dbus_fast.aio import MessageBus
from dbus_fast.service import ServiceInterface, method

TURN, MAX_SPEED, DEFAULT_SPEED = 360000, 100000, 0.5  # thousandths of a degree, those a second, a fraction of them


class Pan(ServiceInterface):
    start, velocity, seconds, since = 0.0, 0.0, 0.0, time.monotonic()

    def driven(self):
        return min(time.monotonic() - self.since, self.seconds)

    def drive(self, velocity, seconds):  # your motor's
        self.start, self.velocity, self.seconds, self.since = self.position(), velocity, seconds, time.monotonic()

    def position(self):  # your motor's
        return (self.start + self.velocity * self.driven()) % TURN

    def check(self, fraction, limit):
        if not abs(fraction) <= 1 or limit < 0:
            raise DBusError("org.tavos.Error.Failed", f"speed {fraction} or time limit {limit} is out of range")

    @method()
    def SetPosition(self, position: "i", timeLimit: "i"):
        self.move(position, DEFAULT_SPEED, timeLimit)

    @method()
    def SetPositionAtSpeed(self, position: "i", speed: "d", timeLimit: "i"):
        self.move(position, speed or DEFAULT_SPEED, timeLimit)

    def move(self, position, speed, limit):
        self.check(speed, limit)
        distance = (position - self.position() + TURN / 2) % TURN - TURN / 2  # the shorter direction
        velocity = math.copysign(MAX_SPEED * speed, distance)
        self.drive(velocity, min(abs(distance / velocity), limit))

    @method()
    def SetRelativeVelocity(self, velocity: "d", timeLimit: "i"):
        self.check(velocity, timeLimit)
        self.drive(MAX_SPEED * velocity, timeLimit)

    @method()
    def GetRelativeVelocity(self) -> "d":
        return self.velocity / MAX_SPEED if self.driven() < self.seconds else 0.0

    @method()
    def GetPosition(self) -> "u":
        return round(self.position()) % TURN

    @method()
    def GetMinPosition(self) -> "u":
        return 0

    @method()
    def GetMaxPosition(self) -> "u":
        return TURN - 1


async def main():
    bus = await MessageBus(os.environ.get("TAVOS_BUS_ADDRESS"), BusType.SYSTEM).connect()
    bus.export("/org/tavos/Pan1", Pan("org.tavos.Pan1"))
    if await bus.request_name("org.tavos.Pan1", NameFlag.DO_NOT_QUEUE) != RequestNameReply.PRIMARY_OWNER:
        raise SystemExit("another process owns org.tavos.Pan1")
    print("ready", flush=True)
    await bus.wait_for_disconnect()  # then systemd starts it again


asyncio.run(main())
