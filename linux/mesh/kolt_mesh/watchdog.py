"""
The hard stop. A storm on veth runs at a million frames a second and takes the machine with it, so a process of its own, with
real-time priority, samples every port and takes all links down when one sees more frames than a bound.
"""
import ctypes
import gc
import json
import os
import signal
import time
from collections.abc import Sequence

from .netns import MeshError
from .route import Route

SAMPLE_SECONDS = 0.02
STRIKES = 2  # samples over the bound in a row: a queue that empties at once is no storm
PRIORITY = 40
PR_SET_PDEATHSIG = 1

_libc = ctypes.CDLL(None)


class Watchdog:
    """Runs from its making. `bound` is in frames a second, received and sent together."""

    def __init__(self, routes: Sequence[Route], bound: int) -> None:
        self._read, write = os.pipe()
        os.set_blocking(self._read, False)
        self._report: dict | None = None
        self.pid = os.fork()
        if self.pid == 0:
            _watch(routes, bound, write)
        os.close(write)

    @property
    def tripped(self) -> dict | None:
        """What it saw when it took everything down (rate, samples), or None."""
        if self._report is None and self._read >= 0:
            try:
                text = os.read(self._read, 65536)
            except BlockingIOError:
                return None
            if not text:
                raise MeshError("the watchdog has ended by itself")
            self._report = json.loads(text)
        return self._report

    def close(self) -> None:
        if self._read < 0:
            return
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self._read)
        self._read = -1


def _watch(routes: Sequence[Route], bound: int, report: int) -> None:
    """The process. It never returns."""
    try:
        _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        try:
            os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(PRIORITY))
        except OSError:
            pass  # without the right it is only later
        gc.disable()
        _sample(routes, bound, report)
    finally:
        os._exit(1)


def _sample(routes: Sequence[Route], bound: int, report: int) -> None:
    # The routes were made for the parent: sockets of its own keep their answers apart.
    own = [route.twin() for route in routes]
    files = [route.counter_file() for route in own]
    before = [_packets(file) for file in files]
    then, strikes = time.monotonic(), 0
    while True:
        time.sleep(SAMPLE_SECONDS)
        now, current = time.monotonic(), [_packets(file) for file in files]
        rate = max(map(_busiest, before, current)) / (now - then)
        strikes = strikes + 1 if rate > bound else 0
        before, then = current, now
        if strikes >= STRIKES:
            for route in own:
                for index in route.counters():
                    route.set_up(index, False)
            os.write(report, json.dumps({"rate": round(rate), "bound": bound}).encode())
            signal.pause()


def _packets(file: int) -> dict[bytes, int]:
    """Frames that each interface of a namespace has received and sent."""
    lines = [line.split() for line in os.pread(file, 1 << 16, 0).replace(b":", b": ").splitlines()[2:]]
    return {words[0]: int(words[2]) + int(words[10]) for words in lines}


def _busiest(before: dict[bytes, int], current: dict[bytes, int]) -> int:
    """The most frames that any interface of a namespace has passed in between."""
    return max((now - before[name] for name, now in current.items() if name in before), default=0)
