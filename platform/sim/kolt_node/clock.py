"""Simulated time for a node's daemon: it passes when, and only as far as, the controlling side says.

    node.use_simulated_clock()
    node.start_daemon(config, ready=False)
    clock = SimulatedClock(node)
    clock.attach()
    clock.advance(clock.now + 60)
"""
import contextlib
import socket
import struct
import time
from typing import TYPE_CHECKING, Self

from .control import NodeError

if TYPE_CHECKING:
    from .node import Node

SECOND = 1_000_000_000
NEVER = (1 << 64) - 1
WAIT = struct.Struct("=QQQ")  # of the daemon: its time, when it wants to wake, the last grant's number
GRANT = struct.Struct("=QQ")  # of this side: the time, a number
CREDENTIALS = struct.Struct("=iII")  # pid, uid, gid


class SimulatedClock:
    """
    The time of the node's daemon, in seconds from an origin of its own; the daemon's calendar has a fixed date there.
    The daemon sees the time stand still while it works. Its log may be on its way still when it has come to rest:
    node.drain() brings it in. What the daemon says of the platform (the journal) is there at once.
    """

    def __init__(self, node: "Node", start: float = 1000.0) -> None:
        self._node = node
        self._socket: socket.socket | None = None
        self._now = round(start * SECOND)
        self._deadline = NEVER
        self._number = 0

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    @property
    def now(self) -> float:
        """The present time in seconds."""
        return self._now / SECOND

    @property
    def now_ns(self) -> int:
        return self._now

    @property
    def deadline(self) -> float | None:
        """When the daemon wanted to wake, in seconds, as of the last time that it came to rest; None for never."""
        return None if self._deadline == NEVER else self._deadline / SECOND

    @property
    def ended(self) -> bool:
        """Whether there is no daemon here that follows this clock (any more)."""
        if self._socket is not None:
            with contextlib.suppress(BlockingIOError):
                while self._receive(socket.MSG_DONTWAIT):
                    pass
        return self._socket is None

    def attach(self, timeout: float = 10.0) -> None:
        """
        Takes on the daemon that was just started, at the present time, and waits until it rests. A daemon that is
        started again later is attached again. Other programs that ask for the time are left to real time.
        """
        self.close()
        until = time.monotonic() + timeout
        while self._socket is None:
            self._socket = self._accept(until)
        self._node.clock = self
        self._grant(self._now, until)

    def settle(self, timeout: float = 10.0) -> None:
        """
        Waits until the daemon rests and has handled everything that was sent to it before this call. A daemon that
        pauses in the midst of its work rests too: `deadline` is then the end of the pause, and the remaining work
        waits for it.
        """
        self._grant(self._now, time.monotonic() + timeout)

    def advance(self, to: float, timeout: float = 10.0) -> None:
        """
        Lets time pass until `to` seconds: the daemon wakes at each moment that it asked for on the way, and rests in
        the end. What was sent to it just before should be settled first, or it may be handled at a later time.
        `timeout` is how many real seconds the daemon may take over each of its moments.
        """
        target = round(to * SECOND)
        if target < self._now:
            raise ValueError(f"time does not go back from {self.now} s to {to} s")
        while self._deadline < target:
            self._grant(self._deadline, time.monotonic() + timeout)
        self._grant(target, time.monotonic() + timeout)

    def skip(self, seconds: float, timeout: float = 10.0) -> None:
        """Lets so much time pass at once, as a machine's sleep does: the daemon finds itself late for all of it."""
        self._grant(self._now + round(seconds * SECOND), time.monotonic() + timeout)

    def wake(self) -> None:
        """Lets time pass until the daemon wants to wake, and leaves it at work: settle() waits until it rests again."""
        if self.ended or self._deadline == NEVER:
            raise NodeError("no daemon wants to wake")
        self._send_grant(self._deadline)

    def close(self) -> None:
        """Ends simulated time: the daemon goes on in real time from its last moment."""
        if self._socket is not None:
            self._socket.close()
        self._socket = None
        self._deadline = NEVER
        if self._node.clock is self:
            self._node.clock = None

    def _accept(self, until: float) -> socket.socket | None:
        """A connection of the daemon, or None for any other's, which is left to real time."""
        listener, daemon = self._node.clock_listener, self._node.daemon
        if listener is None:
            raise NodeError("the node is not running")
        if daemon is not None and daemon.status is not None:
            raise NodeError(f"the daemon ended before it followed the clock\n{self._obituary()}")
        if not self._is_readable(listener, until):
            return None
        connection, _ = listener.accept()
        pid, _, _ = CREDENTIALS.unpack(connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, CREDENTIALS.size))
        if daemon is not None and daemon.pid != pid:
            connection.close()
            return None
        return connection

    def _grant(self, now: int, until: float) -> None:
        """Tells the daemon the time and waits until it has taken note and rests."""
        self._send_grant(now)
        answered = 0
        while answered != self._number:
            if self._is_readable(self._socket, until):
                answered = self._receive()
            if self._socket is None:
                raise NodeError(f"the daemon ended\n{self._obituary()}")

    def _send_grant(self, now: int) -> None:
        if self._socket is None:
            raise NodeError("no daemon follows the simulated clock")
        self._now = now
        self._number += 1
        with contextlib.suppress(ConnectionError):  # its end is found by reading
            self._socket.send(GRANT.pack(now, self._number))

    def _is_readable(self, sock: socket.socket, until: float) -> bool:
        """Waits for something to read or for news of the node, which are taken in: was it the former?"""
        if self._node.wait_readable(sock, max(0.0, until - time.monotonic())):
            return True
        if time.monotonic() > until:
            raise NodeError(f"the daemon does not come to rest\n{self._node.recent()}")
        return False

    def _receive(self, flags: int = 0) -> int:
        """Takes one message of the daemon, and returns the number of the grant that it knows; 0 when it is gone."""
        assert self._socket is not None
        message = b""
        with contextlib.suppress(ConnectionError):
            message = self._socket.recv(WAIT.size, flags)
        if not message:
            self.close()
            return 0
        _, self._deadline, number = WAIT.unpack(message)
        return number

    def _obituary(self) -> str:
        """How the daemon ended, as far as it is known."""
        daemon = self._node.daemon
        if daemon is None:
            return ""
        with contextlib.suppress(NodeError):
            self._node.wait_for(lambda: daemon.status is not None, 2.0)
        self._node.drain()
        return f"status {daemon.status}\n{self._node.recent()}\n{daemon.stderr[-2000:]}"
