"""
What many live streams cost a node: kolt's period and kolt-bridged's share in it, reading and re-pointing them through
libduon-bridge, and whether their counters are the interfaces' own.
"""
import json
import os
import signal
import socket
import statistics
import struct
import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Self

from kolt_mesh import frames, ports, stream, topology
from kolt_mesh.kolt import Kolt
from kolt_mesh.lab import Lab
from kolt_mesh.netns import MeshError
from kolt_mesh.node import MeshNode

LIBRARY_CALLS = (ports.ROOT / "bench/library_calls.py").read_text(encoding="utf-8")
FIRST_PORT = 10000
REFRESH = 8.0  # seconds in which each stream is heard of once
READS = 21
PERIOD = 4  # seconds, of the daemons whose counters are compared


class Streams:
    """
    Use as a context manager: so many UDP streams from one host to another, a short frame of each in every `REFRESH` seconds.
    """

    def __init__(self, lab: Lab, source: str, target: str, count: int) -> None:
        wire = lab.socket(source, socket.AF_PACKET, socket.SOCK_RAW)
        wire.bind(("eth0", 0))
        all_of_them = [frame(lab, source, target, FIRST_PORT + number) for number in range(count)]
        self._sender = stream.fork(lambda: send(wire, all_of_them, REFRESH))
        wire.close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        os.kill(self._sender, signal.SIGKILL)
        os.waitpid(self._sender, 0)


def frame(lab: Lab, source: str, target: str, port: int, size: int = 60) -> bytes:
    """A UDP frame without a sum of its own."""
    macs = bytes.fromhex((lab.mac(target) + lab.mac(source)).replace(":", ""))
    addresses = socket.inet_aton(lab.address(source)) + socket.inet_aton(lab.address(target))
    ip = struct.pack(">BBHHHBBH", 0x45, 0, size - 14, 0, 0, 64, socket.IPPROTO_UDP, 0) + addresses
    words = sum(struct.unpack(">10H", ip))
    ip = ip[:10] + struct.pack(">H", 0xffff - (words % 0xffff)) + ip[12:]
    return (macs + b"\x08\x00" + ip + struct.pack(">HHHH", port, 9, size - 34, 0)).ljust(size, b"\0")


def send(wire: socket.socket, cycle: list[bytes], seconds: float) -> None:
    """All of them in that time, over and over, until the process is ended."""
    start, number = time.monotonic(), 0
    while True:
        left = start + number * seconds / len(cycle) - time.monotonic()
        if left > 0:
            time.sleep(left)
        wire.send(cycle[number % len(cycle)])
        number += 1


def library(node: MeshNode, *words: str) -> dict:
    done = node.run(["/usr/bin/python3", "-c", LIBRARY_CALLS, ports.BRIDGE, *words], timeout=30)
    if done.status != 0:
        raise MeshError(f"{words[0]}: {done.stderr.strip()}")
    return json.loads(done.stdout)


def run_time(node: MeshNode, pid: int) -> float:
    """Processor seconds."""
    return int(node.read_file(f"/proc/{pid}/schedstat").split()[0]) / 1e9


@dataclass
class Load:
    """Of a node with that many streams: processor seconds a period, and the library's times."""
    streams: int
    kolt: float
    bridged: float
    read: float = 0.0
    point: float = 0.0
    moved: int = 0


@dataclass
class Figures:
    idle_kolt: float = 0.0  # processor seconds a second without any stream
    idle_bridged: float = 0.0
    private_kib: int = 0  # of kolt-bridged, without streams
    full_kib: int = 0  # and with the most of them
    counted: float = 0.0  # bytes of the streams by their own counters, over those of the interfaces
    loads: list[Load] = field(default_factory=list)


class Node:
    """The extender of a pair of nodes, which places the streams of its host `h2` to `h1`."""

    def __init__(self, lab: Lab) -> None:
        assert isinstance(lab.kind, Kolt)
        self.lab, self.node = lab, lab.kind.nodes["b"]
        self.uplinks = [port.name for port in ports.backhaul_ports(lab.topology, "b")]

    @property
    def programs(self) -> tuple[int, int]:
        assert self.node.daemon is not None and self.node.bridged is not None
        return self.node.daemon.pid, self.node.bridged.pid

    def wait_for_client(self) -> None:
        """Until kolt has placed the host that the streams go to."""
        deadline = time.monotonic() + 6 * PERIOD
        with Streams(self.lab, "h1", "h2", 1), Streams(self.lab, "h2", "h1", 1):
            while library(self.node, "hd")["clients"] == 0:
                if time.monotonic() > deadline:
                    raise MeshError("no client was placed")
                self.lab.wait(0.5)

    def cost(self, seconds: float) -> tuple[float, float]:
        """Processor seconds a second of kolt and of kolt-bridged."""
        before = [run_time(self.node, pid) for pid in self.programs]
        began = time.monotonic()
        self.lab.wait(seconds)
        took = time.monotonic() - began
        kolt, bridged = ((run_time(self.node, pid) - was) / took for pid, was in zip(self.programs, before))
        return kolt, bridged

    def load(self, count: int, seconds: float) -> Load:
        with Streams(self.lab, "h2", "h1", count):
            self.lab.wait(REFRESH + 2)
            found = Load(count, *self.cost(seconds))
            daemon = self.node.daemon
            assert daemon is not None
            self.node.signal(daemon, signal.SIGSTOP)  # it would move them back
            try:
                table = library(self.node, "read", str(READS))
                found.streams, found.read = table["streams"], table["seconds"]
                told = [library(self.node, "point", *self.uplinks[:2]) for _ in range(5)]
            finally:
                self.node.signal(daemon, signal.SIGCONT)
            found.moved, found.point = told[0]["streams"], statistics.median(one["seconds"] for one in told)
            if any(one["failed"] for one in told):
                raise MeshError(f"{told[0]['failed']} streams could not be moved")
        return found

    def counted(self, seconds: float) -> float:
        """
        Bytes by the streams' counters over bytes by the interfaces', for long frames sent in that time, less what the
        interfaces carry anyway.
        """
        wire = self.lab.socket("h2", socket.AF_PACKET, socket.SOCK_RAW)
        wire.bind(("eth0", 0))
        long_ones = [frame(self.lab, "h2", "h1", FIRST_PORT + number, 1414) for number in range(64)]
        watched = seconds + 3 * PERIOD
        before = self.carried()
        self.lab.wait(watched)
        idle = self.carried() - before
        sender = stream.fork(lambda: send(wire, long_ones, len(long_ones) * 0.0005))
        sums, end, stop = [0], time.monotonic() + watched, time.monotonic() + seconds
        before = self.carried()
        while time.monotonic() < end:
            if sender and time.monotonic() > stop:
                os.kill(sender, signal.SIGKILL)
                os.waitpid(sender, 0)
                sender = 0
            sums.append(library(self.node, "read", "1")["bytes"])
            self.lab.wait(0.3)
        wire.close()
        # Each period's sums stand until the next one's.
        of_periods = sum(now for was, now in zip(sums, sums[1:]) if now != was)
        return of_periods / (self.carried() - before - idle)

    def carried(self) -> int:
        counters = self.lab.counters("b")
        return sum(counters[name].tx_bytes for name in self.uplinks)


def measure(build: Path, counts: tuple[int, ...], seconds: float) -> Figures:
    found = Figures()
    with Lab(topology.pair(2), Kolt(build)) as lab:
        up(lab)
        node = Node(lab)
        lab.wait(3)
        found.idle_kolt, found.idle_bridged = node.cost(seconds)
        found.private_kib = node.node.private_memory(node.programs[1])
        node.wait_for_client()
        found.loads = [node.load(count, seconds) for count in counts]
        found.full_kib = node.node.private_memory(node.programs[1])
    with Lab(topology.pair(2), Kolt(build, period=PERIOD)) as lab:
        up(lab)
        node = Node(lab)
        node.wait_for_client()
        found.counted = node.counted(1.5 * PERIOD)
    return found


def up(lab: Lab) -> None:
    lab.up()
    lab.wait_carrier()
    if not frames.reachable(lab, 15):
        lab.check()
        raise MeshError("not whole after 15 s")
