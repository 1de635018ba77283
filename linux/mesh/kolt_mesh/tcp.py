"""TCP between two hosts over a number of streams at once, as a download is."""
import json
import socket
import subprocess
import time
from dataclasses import dataclass
from typing import TYPE_CHECKING, Self

from .netns import MeshError

if TYPE_CHECKING:
    from .lab import Lab

IPERF = "iperf3"
PORT = 5201
LISTEN = "0A"
START_TIMEOUT = 5.0
GRACE = 15.0  # seconds beyond its time that a run may take to come to its end


@dataclass(frozen=True)
class Second:
    """One interval of a run: when it began, and what came through, in bits a second."""
    time: float
    rate: float


@dataclass(frozen=True)
class Run:
    """`rate` in bits a second as the receiver counts; `broken` is why the run ended early, if it did."""
    rate: float
    seconds: list[Second]
    retransmits: int
    streams: int
    broken: str = ""


class Download:
    """Starts at once; use as a context manager. `source` sends to `target`; `omit` seconds are not counted."""

    def __init__(self, lab: "Lab", source: str, target: str, streams: int, seconds: float, *, omit: int = 0,
                 interval: float = 0.5, port: int = PORT) -> None:
        self._lab, self._streams = lab, streams
        sending, receiving = lab.hosts[source].namespace, lab.hosts[target].namespace
        with receiving.entered():
            self._server = subprocess.Popen([IPERF, "-s", "-1", "-p", str(port), "-B", lab.address(target), "-J"],
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._await_listener(receiving, port)
        with sending.entered():
            self._client = subprocess.Popen(
                [IPERF, "-c", lab.address(target), "-p", str(port), "-P", str(streams), "-t", f"{seconds:.0f}", "-J",
                 "-i", str(interval), "-O", str(omit), "--connect-timeout", "5000"],
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self._until = time.monotonic() + seconds + omit + GRACE

    def _await_listener(self, space, port: int) -> None:
        """iperf3 says nothing on its output before it is spoken to; the kernel knows when it listens."""
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            with space.entered(), open("/proc/thread-self/net/tcp", encoding="ascii") as file:
                words = [line.split() for line in file]
            if any(word[1].endswith(f":{port:04X}") and word[3] == LISTEN for word in words):
                return
            if self._server.poll() is not None:
                break
            time.sleep(0.01)
        raise MeshError(f"{IPERF} does not listen")

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        for process in (self._client, self._server):
            if process.poll() is None:
                process.kill()
            process.wait()
        self._client.stdout.close()
        self._client.stderr.close()

    def running(self) -> bool:
        return self._client.poll() is None

    def result(self) -> Run:
        """Waits for the end; the mesh is followed meanwhile."""
        output = ""
        while time.monotonic() < self._until:
            self._lab.check()
            self._lab.kind.follow(self._lab)
            try:
                output, _ = self._client.communicate(timeout=0.1)
                break
            except subprocess.TimeoutExpired:
                continue
        else:
            return Run(0.0, [], 0, self._streams, "it did not come to its end")
        return parse(output, self._streams)


def parse(text: str, streams: int) -> Run:
    """What iperf3 wrote as JSON."""
    try:
        told = json.loads(text)
    except ValueError:
        return Run(0.0, [], 0, streams, "it ended without a result")
    seconds = [Second(one["sum"]["start"], one["sum"]["bits_per_second"]) for one in told.get("intervals", [])
               if not one["sum"].get("omitted")]
    end = told.get("end", {})
    received, sent = end.get("sum_received", {}), end.get("sum_sent", {})
    return Run(received.get("bits_per_second", 0.0), seconds, sent.get("retransmits", 0), streams,
               told.get("error", ""))


def available() -> bool:
    try:
        return subprocess.run([IPERF, "--version"], capture_output=True, check=False).returncode == 0
    except OSError:
        return False


def free_port(lab: "Lab", host: str) -> int:
    """A port that nothing uses at a host, for runs side by side."""
    with lab.socket(host, socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.bind(("", 0))
        return probe.getsockname()[1]
