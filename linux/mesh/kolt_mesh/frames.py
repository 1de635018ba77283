"""
Numbered frames to everybody: how many copies reach every host, and whether one passed a port of the mesh twice. A frame that
a bridge sends out of a port is seen there once and at the other end once; whatever circles is seen again.
"""
import contextlib
import ctypes
import itertools
import select
import socket
import struct
import time
from collections import Counter
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Self

from .lab import HOST_PORT
from .ports import BRIDGE

if TYPE_CHECKING:
    from .lab import Lab
    from .netns import NetNamespace

ETHERTYPE = 0x88B6  # for experiments on one's own network
ETH_P_ALL = 3
SO_ATTACH_FILTER, SO_RCVBUFFORCE = 26, 33
SOL_PACKET, PACKET_STATISTICS = 263, 6
BROADCAST = b"\xff" * 6
UNKNOWN = bytes.fromhex("02ee00000001")  # nobody's: a bridge floods it as well
FRAME = struct.Struct("!6s6sHIHI")  # target, source, type, run, host, number
LENGTH = 60
# Accept what has our type in the twelfth byte and drop all else: sorted out before it costs anything.
FILTER = [(0x28, 0, 0, 12), (0x15, 0, 1, ETHERTYPE), (0x06, 0, 0, 64), (0x06, 0, 0, 0)]
SETTLE = 0.15  # seconds after the last frame within which copies arrive
GAP = 0.002
HEARD = 0.06  # seconds in which frames of an idle mesh have arrived

Sent = tuple[str, int]  # the host that sent a frame and its number
_runs = iter(range(1, 1 << 31))


@dataclass
class Census:
    """Where numbered frames were seen: copies by host, passes by node and port."""
    sent: list[Sent] = field(default_factory=list)
    copies: dict[str, Counter] = field(default_factory=dict)
    passes: dict[tuple[str, str], Counter] = field(default_factory=dict)
    overrun: int = 0  # frames that came too fast to be counted

    def circled(self) -> dict[tuple[str, str], int]:
        """Ports that a frame passed more than once, with the most passes of one."""
        found = {port: max(seen.values()) for port, seen in self.passes.items() if seen}
        return {port: most for port, most in found.items() if most > 1}

    def copies_of(self, receiver: str, source: str | None = None) -> list[int]:
        """How many copies of each frame a host got, of those that another sent (default: all but its own)."""
        return [self.copies[receiver][one] for one in self.sent
                if one[0] != receiver and source in (None, one[0])]

    def duplicates(self) -> int:
        """Copies beyond the first, at all hosts."""
        return sum(count - 1 for seen in self.copies.values() for count in seen.values() if count > 1)

    def lost(self) -> int:
        return sum(count == 0 for host in self.copies for count in self.copies_of(host))

    def ways(self, source: str) -> set[frozenset[tuple[str, str]]]:
        """The sets of ports that carried frames of a host to all others. More than one: the way has changed."""
        return {frozenset(port for port, seen in self.passes.items() if seen[one]) for one in self.sent
                if one[0] == source and all(seen[one] for host, seen in self.copies.items() if host != source)}

    def unexplained(self) -> list[str]:
        """Frames that did not get everywhere though their host's way has not changed, with where they were last seen."""
        return [f"{one[0]}'s frame {one[1]} passed only {sorted(port for port in self.passes if self.passes[port][one])}"
                for host, seen in self.copies.items() for one in self.sent
                if one[0] != host and not seen[one] and len(self.ways(one[0])) == 1]

    def exactly_one(self) -> bool:
        """Whether every host got one copy of every frame, and nothing circled."""
        return not self.lost() and not self.duplicates() and not self.circled()


class Broadcasts:
    """Use as a context manager: sends numbered frames from hosts and sees what becomes of them."""

    def __init__(self, lab: "Lab") -> None:
        self._lab, self._run = lab, next(_runs)
        self._taps: dict[int, tuple[socket.socket, str, bool]] = {}
        self._senders: dict[str, socket.socket] = {}
        self._poll = select.poll()
        self._number = 0
        self.census = Census()

    def __enter__(self) -> Self:
        for host, place in self._lab.hosts.items():
            sender = place.namespace.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
            self._senders[host] = sender
            self._watch(place.namespace, host, True)
            self.census.copies[host] = Counter()
        for node, place in self._lab.nodes.items():
            self._watch(place.namespace, node, False)
        return self

    def __exit__(self, *_: object) -> None:
        for tap, _, _ in self._taps.values():
            self.census.overrun += struct.unpack("II", tap.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[1]
            tap.close()
        for sender in self._senders.values():
            sender.close()

    def _watch(self, space: "NetNamespace", name: str, host: bool) -> None:
        made = open_tap(space)
        self._taps[made.fileno()] = (made, name, host)
        self._poll.register(made, select.POLLIN)

    def send(self, host: str, target: bytes = BROADCAST) -> None:
        source = bytes.fromhex(self._lab.mac(host).replace(":", ""))
        frame = FRAME.pack(target, source, ETHERTYPE, self._run, list(self._lab.hosts).index(host), self._number)
        with contextlib.suppress(BlockingIOError, OSError):  # its link is down: then nobody gets it
            self._senders[host].sendto(frame.ljust(LENGTH, b"\0"), (HOST_PORT, ETHERTYPE))
        self.census.sent.append((host, self._number))
        self._number += 1

    def run(self, seconds: float, hosts: Iterable[str] = (), gap: float = GAP, target: bytes = BROADCAST) -> None:
        """Sends from the hosts in turn for some time, and takes in what arrives."""
        turn, number = list(hosts or self._lab.hosts), 0
        start = time.monotonic()
        while (now := time.monotonic()) < start + seconds:
            if now >= start + number * gap:
                self.send(turn[number % len(turn)], target)
                number += 1
            self._take(max(0.0, min(start + number * gap - time.monotonic(), gap)))

    def burst(self, host: str, count: int = 100, gap: float = GAP, target: bytes = BROADCAST) -> None:
        """A number of frames from one host, and whatever comes of them."""
        for _ in range(count):
            self.send(host, target)
            self.listen(gap)
        self.listen(SETTLE)

    def listen(self, seconds: float = SETTLE) -> None:
        """Takes in what arrives within that time."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self._take(left)

    def _take(self, seconds: float) -> None:
        for fd, _ in self._poll.poll(seconds * 1000):
            tap, name, host = self._taps[fd]
            with contextlib.suppress(BlockingIOError):
                for _ in range(1000):
                    self._note(*tap.recvfrom(LENGTH), name, host)

    def _note(self, frame: bytes, address: tuple, name: str, host: bool) -> None:
        if len(frame) < FRAME.size:
            return
        _, _, kind, run, number, sequence = FRAME.unpack_from(frame)
        if kind != ETHERTYPE or run != self._run:
            return
        one = (list(self._lab.hosts)[number], sequence)
        if not host:
            if address[0] != BRIDGE:
                self.census.passes.setdefault((name, address[0]), Counter())[one] += 1
        elif address[2] != socket.PACKET_OUTGOING:
            self.census.copies[name][one] += 1


def open_tap(space: "NetNamespace") -> socket.socket:
    """A socket that sees the numbered frames of all interfaces of a namespace, in both directions."""
    program = ctypes.create_string_buffer(b"".join(struct.pack("=HBBI", *line) for line in FILTER))
    made = space.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    made.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                    struct.pack("@HP", len(FILTER), ctypes.addressof(program)))
    made.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 1 << 22)
    made.setblocking(False)
    return made


def reachable(lab: "Lab", timeout: float = 0.0) -> bool:
    """
    Whether every host gets one copy of a frame from every other, sent to all and to it alone: where a host is known, or
    was, another way counts than for broadcasts. `timeout` is how long that may take to come true.
    """
    return _come_true(lab, timeout, lambda source, target: True)


def as_joined(lab: "Lab", timeout: float = 0.0) -> bool:
    """The same of hosts whose nodes are joined by links that work; between others nothing passes."""
    islands = lab.islands()
    return _come_true(lab, timeout, lambda source, target: islands[source] == islands[target])


Joined = Callable[[str, str], bool]


def _come_true(lab: "Lab", timeout: float, joined: Joined) -> bool:
    deadline = time.monotonic() + timeout
    while True:
        with Broadcasts(lab) as frames:
            if _all_are_told(lab, frames, joined) and _each_is_told(lab, frames, joined):
                return True
        lab.check()
        if time.monotonic() >= deadline:
            return False


def _all_are_told(lab: "Lab", frames: Broadcasts, joined: Joined) -> bool:
    for host in lab.hosts:
        frames.send(host)
    frames.listen(HEARD)
    census = frames.census
    return not census.circled() and all(census.copies[host][source, number] == joined(source, host)
                                        for host in lab.hosts for source, number in census.sent if source != host)


def _each_is_told(lab: "Lab", frames: Broadcasts, joined: Joined) -> bool:
    """Others may get a copy too: a bridge that has just forgotten where the host is asks everywhere."""
    meant = {}
    for source, target in itertools.permutations(lab.hosts, 2):
        if joined(source, target):
            frames.send(source, bytes.fromhex(lab.mac(target).replace(":", "")))
            meant[frames.census.sent[-1]] = target
    frames.listen(HEARD)
    census = frames.census
    return not census.circled() and all(census.copies[target][one] == 1 for one, target in meant.items())
