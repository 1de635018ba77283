#!/usr/bin/python3
"""
Floods a daemon from all sides at once and prints, as JSON, what was taken of it and how long that took:

  flood.py PORT COUNT BUS_SOCKET INDEX...
  flood.py --bus SECONDS BUS_SOCKET LOG

COUNT messages each over the bridge's and the neighbours' netlink socket of the process PORT, half as many over the bus,
and a tenth over its route netlink socket. The last arguments are the indexes of the interfaces that lose stations. A
program of its own because it has to run inside the node. Who finds no room waits: everything is taken, once and in
order. With --bus only the bus is flooded, for as long as said, with events that nothing comes of.
"""
import json
import os
import random
import socket
import struct
import sys
import time
from threading import Thread
from typing import BinaryIO

import bus_send

AHEAD = 4000  # bus events that the daemon has still to handle; the broker keeps some five times as many
WINDOW = 64  # bus events that wait for the broker's answer
EXPIRED = struct.pack("=HH", 24, 0x8C04) + bytes(20)
HEARD = b"unknown subtype"  # what the daemon says of an event that only a name tells apart
MODES = ("RE", "FAP")
SEED = 7
ROUTE_SHARE = 10  # a link notification costs the daemon more than others: one in so many of another socket's
HELLOS = 20  # bus events that only a name tells apart, for one that the bridge is told of


def netlink(kind: int, payload: bytes) -> bytes:
    return struct.pack("=IHHII", 16 + len(payload), kind, 0, 0, 0) + payload


def station(number: int) -> bytes:
    return netlink(5, struct.pack(">HI", 0x0200, number) + bytes(10))


def flow(number: int) -> bytes:
    return netlink(4, struct.pack(">HI", 0x0200, number) + bytes(15))


def expiry(index: int) -> bytes:
    body = struct.pack("=BxHiII", 0, 1, index, 0, 0) + struct.pack("=HH", 4 + len(EXPIRED), 11) + EXPIRED
    return netlink(16, body)


def choices(count: int, of: int) -> list[int]:
    """The same on both sides: which interface, or which mode, each message is about."""
    chance = random.Random(SEED)
    return [chance.randrange(of) for _ in range(count)]


class Side(Thread):
    """One socket with its messages, of which `sent` were taken so far. It waits where there is no room."""

    def __init__(self, messages: list[bytes]) -> None:
        super().__init__(daemon=True)
        self.messages, self.sent = messages, 0

    def run(self) -> None:
        for message in self.messages:
            self.send(message)
            self.sent += 1


class Datagrams(Side):
    def __init__(self, where: object, family: int, messages: list[bytes]) -> None:
        super().__init__(messages)
        kind = socket.SOCK_RAW if family == socket.AF_NETLINK else socket.SOCK_DGRAM
        self._socket, self._where = socket.socket(family, kind), where

    def send(self, message: bytes) -> None:
        self._socket.sendto(message, self._where)


class Bus(Side):
    def __init__(self, path: str, messages: list[bytes]) -> None:
        super().__init__(messages)
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(path)
        bus_send.receive(self._socket)
        self._answered = 0

    def run(self) -> None:
        super().run()
        while self._answered < self.sent:
            self._take()

    def send(self, message: bytes) -> None:
        while self.sent - self._answered >= WINDOW:
            self._take()
        self._socket.sendall(message)

    def _take(self) -> None:
        kind, _ = bus_send.receive(self._socket)
        self._answered += kind == bus_send.STATUS


def bus_events(count: int) -> list[bytes]:
    modes = iter(choices(count, len(MODES)))
    events = [("kolt.hello", {"at": number}) if number % HELLOS else ("kolt.configure", {"mode": MODES[next(modes)]})
              for number in range(count)]
    return [bus_send.request(number % 65535 + 1, *event) for number, event in enumerate(events)]


class Handled:
    """How many events of the bus the daemon has handled: it writes a line for each, and others in between."""

    def __init__(self, log: BinaryIO) -> None:
        self._log, self._rest, self._count = log, b"", 0

    def count(self) -> int:
        lines, _, self._rest = (self._rest + self._log.read()).rpartition(b"\n")
        self._count += lines.count(HEARD)
        return self._count


def flood_bus(seconds: float, path: str, said: str) -> None:
    """No further ahead of the daemon than the broker keeps for it."""
    side = Bus(path, [bus_send.request(number % 65535 + 1, "kolt.hello", {"at": number}) for number in range(WINDOW)])
    begin = time.monotonic_ns()
    with open(said, "rb") as log:
        handled = Handled(log)
        while time.monotonic_ns() < begin + seconds * 1e9:
            side.run()
            while side.sent - handled.count() > AHEAD:
                time.sleep(0.001)
    print(json.dumps({"begin": begin, "end": time.monotonic_ns(), "sent": side.sent}))


def main() -> None:
    if sys.argv[1] == "--bus":
        flood_bus(float(sys.argv[2]), *sys.argv[3:])
        return
    port, count, path = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
    indexes = [int(word) for word in sys.argv[4:]]
    numbers = range(count)
    sides = {"bridge": Datagrams(f"\0kolt-node.39.{port}", socket.AF_UNIX, [station(number) for number in numbers]),
             "neighbour": Datagrams(f"\0kolt-node.53.{port}", socket.AF_UNIX, [flow(number) for number in numbers]),
             "route": Datagrams((port, 0), socket.AF_NETLINK,
                                [expiry(indexes[one]) for one in choices(count // ROUTE_SHARE, len(indexes))]),
             "bus": Bus(path, bus_events(count // 2))}
    begin = time.monotonic_ns()
    for side in sides.values():
        side.start()
    sides["bus"].join(1.0)
    first_second = sum(side.sent for side in sides.values())
    for side in sides.values():
        side.join()
    print(json.dumps({"begin": begin, "end": time.monotonic_ns(), "first_second": first_second,
                      "sent": {name: side.sent for name, side in sides.items()}}))


if __name__ == "__main__":
    main()
