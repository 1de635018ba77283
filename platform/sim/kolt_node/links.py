"""Network interfaces of a node, made by talking route netlink directly: a process per interface would be slow."""
import os
import socket
import struct

RTM_NEWLINK, RTM_DELLINK, RTM_SETLINK = 16, 17, 19
NLMSG_ERROR = 2
NLM_F_REQUEST, NLM_F_ACK, NLM_F_EXCL, NLM_F_CREATE = 1, 4, 0x200, 0x400
IFLA_ADDRESS, IFLA_IFNAME, IFLA_MASTER, IFLA_LINKINFO = 1, 3, 10, 18
IFLA_INFO_KIND, IFLA_INFO_DATA, VETH_INFO_PEER = 1, 2, 1
IFF_UP = 1


def attribute(kind: int, data: bytes) -> bytes:
    length = 4 + len(data)
    return struct.pack("=HH", length, kind) + data + bytes(-length % 4)


def _text(kind: int, text: str) -> bytes:
    return attribute(kind, text.encode() + b"\0")


def _link_header(index: int, up: bool) -> bytes:
    flags = IFF_UP if up else 0
    return struct.pack("=BxHiII", socket.AF_UNSPEC, 0, index, flags, IFF_UP)


class Links:
    """The interfaces of this network namespace."""

    def __init__(self) -> None:
        self._socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self._socket.bind((0, 0))
        self._peers = 0

    def _request(self, kind: int, flags: int, body: bytes) -> None:
        header = struct.pack("=IHHII", 16 + len(body), kind, NLM_F_REQUEST | NLM_F_ACK | flags, 0, 0)
        self._socket.sendto(header + body, (0, 0))
        reply = self._socket.recv(65536)
        (kind,) = struct.unpack_from("=H", reply, 4)
        (error,) = struct.unpack_from("=i", reply, 16)
        if kind == NLMSG_ERROR and error != 0:
            raise OSError(-error, os.strerror(-error))

    def add(self, name: str, kind: str, index: int, mac: str, up: bool) -> int:
        """Makes a bridge, or one end of a veth pair whose other end reads as peerN. Neither end can start as up."""
        data = b""
        if kind == "veth":
            self._peers += 1
            peer = _link_header(0, False) + _text(IFLA_IFNAME, f"peer{self._peers}")
            data = attribute(IFLA_INFO_DATA, attribute(VETH_INFO_PEER, peer))
        body = _link_header(index, False) + _text(IFLA_IFNAME, name)
        if mac:
            body += attribute(IFLA_ADDRESS, bytes.fromhex(mac.replace(":", "")))
        body += attribute(IFLA_LINKINFO, attribute(IFLA_INFO_KIND, kind.encode()) + data)
        try:
            self._request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, body)
        except OSError as error:
            raise OSError(error.errno, f"cannot make the {kind} interface {name}: {error.strerror}") from None
        if kind == "veth":
            self.set_up(f"peer{self._peers}", True)
        if up:
            self.set_up(name, True)
        return socket.if_nametoindex(name)

    def remove(self, name: str) -> None:
        self._request(RTM_DELLINK, 0, _link_header(socket.if_nametoindex(name), False))

    def set_up(self, name: str, up: bool) -> None:
        self._request(RTM_SETLINK, 0, _link_header(socket.if_nametoindex(name), up))
