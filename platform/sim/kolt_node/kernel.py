"""The kernel side of the node's netlink protocols, which the platform library maps to datagram sockets."""
import os
import socket
import struct
import time
from collections.abc import Callable

REQUESTS = 52
NLMSG_ERROR = 2


def address(protocol: int, port: int) -> str:
    return f"\0kolt-node.{protocol}.{port}"


class Kernel:
    ACKNOWLEDGE = b"acknowledge"  # not a message: stands for an answer made for each request

    def __init__(self, report: Callable[[dict], None]) -> None:
        self._report = report
        self.reply: bytes | None = self.ACKNOWLEDGE
        self._requests = self._open(address(REQUESTS, 0))
        self._route = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self._route.bind((0, 0))
        self._route.setblocking(False)

    @staticmethod
    def _open(name: str) -> socket.socket:
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        sock.bind(name)
        sock.setblocking(False)
        return sock

    def fileno(self) -> int:
        return self._requests.fileno()

    def answer(self) -> None:
        """Takes every waiting request and answers it as scripted: acknowledged, with given bytes, or not at all."""
        while True:
            try:
                request, sender = self._requests.recvfrom(65536)
            except BlockingIOError:
                return
            if self.reply is not None and sender:
                self._reply(request, sender)
            self._report({"news": "request", "time": time.monotonic_ns(), "data": request.hex()})

    def _reply(self, request: bytes, sender: str) -> None:
        reply = self.reply
        if reply is self.ACKNOWLEDGE:
            head = request[:16].ljust(16, b"\0")
            reply = struct.pack("=IHHII", 36, NLMSG_ERROR, 0, *struct.unpack_from("=II", head, 8)) + bytes(4) + head
        try:
            self._requests.sendto(reply, sender)
        except OSError:
            pass  # it went away without waiting

    def send(self, protocol: int, port: int, data: bytes, count: int) -> int:
        """Sends a datagram up to `count` times to a port; returns how many it took before its queue was full."""
        sent = 0
        try:
            while sent < count:
                if protocol == 0:
                    self._route.sendto(data, (port, 0))
                else:
                    self._requests.sendto(data, address(protocol, port))
                sent += 1
        except BlockingIOError:
            pass
        except ConnectionRefusedError as error:
            raise OSError(error.errno, f"nobody listens on protocol {protocol} as port {port}") from None
        os.sched_yield()
        return sent
