"""Frames that nobody means well with, made from real ones that were heard on a link."""
import random
import select
import socket
import time
from collections.abc import Iterator

from kolt_mesh.lab import Lab
from kolt_mesh.netns import NetNamespace

NEIGHBOURS = 0x88B5
NEIGHBOUR_ADDRESS = bytes.fromhex("0180c200000e")
LONGEST = 1514
ETHERTYPES = (NEIGHBOURS, 0x0800, 0x0806, 0x86DD, 0x8100, 0x88A8, 0x8808, 0x8863, 0x8864, 0x88CC, 0x0027)
TARGETS = [bytes.fromhex(mac) for mac in ("0180c2000000", "0180c200000e", "0180c2000001", "0180c2000003", "ffffffffffff",
                                          "01005e000001", "333300000001", "000000000000")]


def heard(lab: Lab, node: str, port: str, seconds: float = 0.5) -> list[bytes]:
    """The neighbours' frames that a port of a node sends and gets."""
    found = []
    with lab.nodes[node].namespace.socket(socket.AF_PACKET, socket.SOCK_RAW, 0) as tap:
        tap.bind((port, NEIGHBOURS))
        end = time.monotonic() + seconds
        while select.select([tap], [], [], max(0.0, end - time.monotonic()))[0] and time.monotonic() < end:
            found.append(tap.recv(LONGEST))
    return found


def altered(frame: bytes, chance: random.Random) -> bytes:
    """One that differs in some bytes, in its length, or in both; sometimes in neither."""
    data = bytearray(frame)
    for _ in range(chance.choice((0, 1, 1, 2, 8, 64))):
        data[chance.randrange(12, len(data))] = chance.choice((0, 1, 127, 128, 255, chance.randrange(256)))
    way = chance.randrange(4)
    if way == 0:
        del data[chance.randrange(14, len(data)):]
    elif way == 1:
        data += chance.randbytes(chance.randrange(1, LONGEST - len(data)))
    return bytes(data)


def of_any_kind(sources: list[bytes], chance: random.Random) -> bytes:
    """A frame of a random type, length and content, to a group or to an address in use."""
    head = chance.choice([*TARGETS, *sources]) + chance.choice([*sources, *TARGETS])
    body = chance.randbytes(chance.randrange(0, LONGEST - 14))
    if chance.randrange(2):
        body = b"\x45" + body
    return head + chance.choice(ETHERTYPES).to_bytes(2, "big") + body


def frames(real: list[bytes], seed: int) -> Iterator[bytes]:
    """Without an end; the same for the same seed."""
    chance = random.Random(seed)
    sources = sorted({frame[6:12] for frame in real})
    while True:
        yield altered(chance.choice(real), chance)
        yield of_any_kind(sources, chance)


class Attacker:
    """Sends what it is given out of one interface."""

    def __init__(self, space: NetNamespace, port: str) -> None:
        self._wire = space.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
        self._wire.bind((port, 0))

    def send(self, frame: bytes) -> None:
        try:
            self._wire.send(frame)
        except OSError:
            pass  # the port's queue is full, or the port refuses the frame: then it is lost

    def close(self) -> None:
        self._wire.close()
