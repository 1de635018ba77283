"""Makes calls of the C library fail in a daemon with a shim preloaded, and tells how often each was made and failed."""
import mmap
import os
import struct

from kolt_node import Node

# The order of shim/faults.h.
CALLS = ("allocation", "socket", "bind", "connect", "poll", "recv", "read", "open", "fopen", "popen", "fcntl", "ioctl",
         "setsockopt", "sendto", "epoll_ctl", "if_nametoindex", "if_indextoname", "clock", "epoll_create1",
         "eventfd", "timer_create", "sendmsg", "fstat", "flock")
RULE = struct.Struct("=QQqQQ")  # first, last, error, calls, failed
TAIL = struct.Struct("=qQ96s")  # live and spared allocations, who asked for the last that failed
PLACE = "run/kolt-node/faults"


class Faults:
    """The file that a daemon started with `environment` looks at. It lasts as long as the node."""

    def __init__(self, node: Node) -> None:
        self.environment = {"LD_PRELOAD": str(node.build / "lib/libkolt-faults.so")}
        size = RULE.size * len(CALLS) + TAIL.size
        fd = os.open(PLACE, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644, dir_fd=node.root_fd)
        os.ftruncate(fd, size)
        self._memory = mmap.mmap(fd, size)
        os.close(fd)

    def close(self) -> None:
        self._memory.close()

    def fail(self, call: str, error: int, *, first: int = 1, last: int = 0) -> None:
        """Fails the calls from number `first` to `last` (0: all further ones), counted from now."""
        RULE.pack_into(self._memory, self._offset(call), first, last, error, 0, 0)

    def fail_one(self, call: str, error: int, number: int = 1) -> None:
        self.fail(call, error, first=number, last=number)

    def count(self, call: str) -> None:
        """Fails none and counts from now."""
        RULE.pack_into(self._memory, self._offset(call), 0, 0, 0, 0, 0)

    def calls(self, call: str) -> int:
        return RULE.unpack_from(self._memory, self._offset(call))[3]

    def failed(self, call: str) -> int:
        return RULE.unpack_from(self._memory, self._offset(call))[4]

    def clear(self) -> None:
        for call in CALLS:
            self.count(call)

    def forget_start(self) -> None:
        """Before a daemon is started: what an earlier one had allocated is gone with it."""
        self.clear()
        TAIL.pack_into(self._memory, RULE.size * len(CALLS), 0, 0, b"")

    @property
    def live(self) -> int:
        """Allocations that were not released yet."""
        return TAIL.unpack_from(self._memory, RULE.size * len(CALLS))[0]

    @property
    def spared(self) -> int:
        """Allocations that may not fail: the copies of names that json-c does not look at."""
        return TAIL.unpack_from(self._memory, RULE.size * len(CALLS))[1]

    @property
    def place(self) -> str:
        """Who asked for the last allocation that failed: the program or library, and its function if it has a name."""
        return TAIL.unpack_from(self._memory, RULE.size * len(CALLS))[2].partition(b"\0")[0].decode()

    @staticmethod
    def _offset(call: str) -> int:
        return RULE.size * CALLS.index(call)
