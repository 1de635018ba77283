"""Questions and acts on the interfaces of a network namespace that must be quick: counters, up and down."""
import os
import socket
import struct
from typing import NamedTuple

from .netns import MeshError, NetNamespace

RTM_NEWLINK, RTM_GETLINK, RTM_SETLINK, RTM_NEWSTATS, RTM_GETSTATS = 16, 18, 19, 92, 94
NLMSG_ERROR, NLMSG_DONE = 2, 3
NLM_F_REQUEST, NLM_F_ACK, NLM_F_DUMP = 1, 4, 0x300
IFLA_IFNAME, IFLA_STATS_LINK_64 = 3, 1
IFF_UP, IFF_RUNNING = 1, 0x40
STATS_FILTER = 1 << (IFLA_STATS_LINK_64 - 1)


class Counters(NamedTuple):
    rx_packets: int
    tx_packets: int
    rx_bytes: int
    tx_bytes: int


class Route:
    """A route netlink socket in one namespace."""

    def __init__(self, namespace: NetNamespace) -> None:
        self._namespace = namespace
        self._socket = namespace.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self._socket.bind((0, 0))
        self._sequence = 0

    def twin(self) -> "Route":
        """A socket of its own in the same namespace, for another process."""
        return Route(self._namespace)

    def close(self) -> None:
        self._socket.close()

    def counter_file(self) -> int:
        """A descriptor of the counters as text: reading it waits for no lock, whatever goes on in the kernel."""
        with self._namespace.entered():
            return os.open("/proc/thread-self/net/dev", os.O_RDONLY | os.O_CLOEXEC)

    def set_up(self, index: int, up: bool) -> None:
        body = struct.pack("=BxHiII", socket.AF_UNSPEC, 0, index, IFF_UP if up else 0, IFF_UP)
        self._send(RTM_SETLINK, NLM_F_ACK, body)
        reply = self._socket.recv(65536)
        (error,) = struct.unpack_from("=i", reply, 16)
        if error != 0:
            raise MeshError(f"setting an interface {'up' if up else 'down'}: {os.strerror(-error)}")

    def counters(self) -> dict[int, Counters]:
        """Of every interface, by its index."""
        found = {}
        for kind, message in self._dump(RTM_GETSTATS, struct.pack("=BxHII", 0, 0, 0, STATS_FILTER)):
            if kind == RTM_NEWSTATS:
                (index,) = struct.unpack_from("=I", message, 20)
                found[index] = Counters(*struct.unpack_from("=4Q", message, 32))
        return found

    def interfaces(self) -> dict[str, tuple[int, int]]:
        """Index and flags of every interface, by its name."""
        found = {}
        for kind, message in self._dump(RTM_GETLINK, struct.pack("=BxHiII", 0, 0, 0, 0, 0)):
            if kind == RTM_NEWLINK:
                index, flags = struct.unpack_from("=iI", message, 20)
                found[_name(message[32:])] = (index, flags)
        return found

    def _send(self, kind: int, flags: int, body: bytes) -> None:
        self._sequence += 1
        head = struct.pack("=IHHII", 16 + len(body), kind, NLM_F_REQUEST | flags, self._sequence, 0)
        self._socket.sendto(head + body, (0, 0))

    def _dump(self, kind: int, body: bytes) -> list[tuple[int, bytes]]:
        self._send(kind, NLM_F_DUMP, body)
        messages: list[tuple[int, bytes]] = []
        while True:
            data = self._socket.recv(1 << 18)
            at = 0
            while at < len(data):
                length, number = struct.unpack_from("=IH", data, at)
                if number == NLMSG_DONE:
                    return messages
                if number == NLMSG_ERROR:
                    raise MeshError(f"interfaces: {os.strerror(-struct.unpack_from('=i', data, at + 16)[0])}")
                messages.append((number, data[at:at + length]))
                at += (length + 3) & ~3


def _name(attributes: bytes) -> str:
    at = 0
    while at + 4 <= len(attributes):
        length, kind = struct.unpack_from("=HH", attributes, at)
        if kind == IFLA_IFNAME:
            return attributes[at + 4:at + length].rstrip(b"\0").decode()
        at += max(4, (length + 3) & ~3)
    return ""
