"""
A UDP stream with a numbered frame every millisecond between two hosts, and what is told from it: how long nothing came, what
was lost, what came twice or late. Sender and receiver are processes of their own, which the measuring one cannot delay.
"""
import array
import ctypes
import gc
import mmap
import os
import select
import signal
import socket
import struct
import time
from collections.abc import Callable
from dataclasses import dataclass
from typing import TYPE_CHECKING, Self

if TYPE_CHECKING:
    from .lab import Lab

PORT = 7007
PRIORITY = 30
PR_SET_PDEATHSIG = 1
MESSAGE = struct.Struct("=Qq")  # number, time of sending in ns
COUNT = struct.Struct("=q")
LENGTH = 64
LAST_ONES = 0.3  # seconds that the receiver still listens

_libc = ctypes.CDLL(None)


@dataclass(frozen=True)
class Seen:
    """What became of a stream. Times in seconds."""
    sent: int
    received: int
    lost: int
    duplicates: int
    reordered: int
    outage: float  # the longest time in which no frame that was sent came through
    at: float  # when that began, from the start of the stream
    open: bool = False  # it had not ended when the stream did


class Stream:
    """
    Use as a context manager; `end` gives what was seen. `interval` is between frames. Times are the sender's: a frame that
    did not come is missed from the moment at which it was sent. The receiver sends a tenth as many frames back, as whoever
    watches or listens does: bridges learn from them where it is.
    """

    def __init__(self, lab: "Lab", source: str, target: str, interval: float = 0.001, port: int = PORT) -> None:
        self._interval = interval
        receiver = lab.socket(target, socket.AF_INET, socket.SOCK_DGRAM)
        receiver.bind((lab.address(target), port))
        receiver.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        sender = lab.socket(source, socket.AF_INET, socket.SOCK_DGRAM)
        sender.bind((lab.address(source), port + 1))
        self._pipe, write = os.pipe()
        self._count = mmap.mmap(-1, COUNT.size)
        self._sender = fork(lambda: _send(sender, (lab.address(target), port), interval, self._count))
        self._answers = fork(lambda: _send(receiver, (lab.address(source), port + 1), 10 * interval, None))
        self._receiver = fork(lambda: _receive(receiver, write))
        for one in (sender, receiver):
            one.close()
        os.close(write)
        self._ended = False

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        if not self._ended:
            self.end()

    def end(self) -> Seen:
        """Stops the stream."""
        self._ended = True
        for sender in (self._sender, self._answers):
            os.kill(sender, signal.SIGTERM)
            os.waitpid(sender, 0)
        time.sleep(LAST_ONES)
        os.kill(self._receiver, signal.SIGTERM)
        data = bytearray()
        while chunk := os.read(self._pipe, 1 << 20):
            data += chunk
        os.close(self._pipe)
        os.waitpid(self._receiver, 0)
        numbers = array.array("q")
        numbers.frombytes(bytes(data[:len(data) // 16 * 16]))
        (sent,) = COUNT.unpack(self._count[:])
        self._count.close()
        return judge(list(zip(numbers[0::2], numbers[1::2])), self._interval, sent)


def judge(frames: list[tuple[int, int]], interval: float, sent: int) -> Seen:
    """What the received frames (number, time of sending) say; frames are numbered from 0, and `sent` were sent."""
    if not frames:
        return Seen(sent, 0, sent, 0, 0, sent * interval, 0.0, sent > 0)
    first: dict[int, int] = {}
    reordered, highest = 0, -1
    for number, when in frames:
        reordered += number < highest and number not in first
        highest = max(highest, number)
        first.setdefault(number, when)
    known = sorted(first.items())
    missing = sent - 1 - known[-1][0]
    start = known[0][1] - known[0][0] * interval * 1e9
    gaps = [((after - before) / 1e9 - interval, (before - start) / 1e9)
            for (one, before), (two, after) in zip(known, known[1:]) if two > one + 1]
    outage, at = max(gaps, default=(0.0, 0.0))
    still = missing > 0 and missing * interval > outage
    if still:
        outage, at = missing * interval, (known[-1][1] - start) / 1e9
    return Seen(sent, len(first), sent - len(first), len(frames) - len(first), reordered, max(0.0, outage), at,
                still)


def fork(work: Callable[[], None]) -> int:
    """A process that does one thing, with real-time priority where that is allowed, and ends with this one."""
    pid = os.fork()
    if pid:
        return pid
    try:
        _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        try:
            os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(PRIORITY))
        except OSError:
            pass
        gc.disable()
        work()
    finally:
        os._exit(0)


def _send(sender: socket.socket, target: tuple[str, int], interval: float, count: mmap.mmap | None) -> None:
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    number, start = 0, time.monotonic()
    filler = bytes(LENGTH - MESSAGE.size)
    while True:
        left = start + number * interval - time.monotonic()
        if left > 0:
            time.sleep(left)
        try:
            sender.sendto(MESSAGE.pack(number, time.monotonic_ns()) + filler, target)
        except OSError:
            pass  # nobody has the address at the moment: this one is lost
        number += 1
        if count is not None:
            COUNT.pack_into(count, 0, number)


def _receive(receiver: socket.socket, report: int) -> None:
    """Keeps what comes in memory and writes it all at the end."""
    seen = array.array("q")
    stop_read, stop_write = os.pipe()
    os.set_blocking(stop_write, False)
    signal.signal(signal.SIGTERM, lambda *_: os.write(stop_write, b"x"))
    receiver.setblocking(False)
    poll = select.poll()
    poll.register(receiver, select.POLLIN)
    poll.register(stop_read, select.POLLIN)
    while True:
        ready = {fd for fd, _ in poll.poll()}
        if receiver.fileno() in ready:
            try:
                for _ in range(100):
                    seen.extend(MESSAGE.unpack_from(receiver.recv(LENGTH)))
            except BlockingIOError:
                pass
        elif stop_read in ready:
            data = memoryview(seen.tobytes())
            while data:
                data = data[os.write(report, data[:65536]):]
            return
