"""
What the tests of failing calls share: a daemon in simulated time on the sample node, whose rounds are the same as long
as nothing fails. A round is every kind of event, then a period; what a fault left behind shows in the round after it.
"""
import os
import sys
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Self

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from bus_client import BusClient  # noqa: E402
from faults import Faults  # noqa: E402
from kolt_node import Node, sample, wireless_event  # noqa: E402
from kolt_node.clock import SimulatedClock  # noqa: E402
from kolt_node.state import NODE_DIR  # noqa: E402
import scene  # noqa: E402

PERIOD = 5
EVERY = "KOLT_EVERY_FAULT" in os.environ  # instead of a part of what takes long
EVENTS = ("configure", "debug", "all_down", "link_state", "bridge", "station", "neighbour", "route")
PAUSES = {"link_state": 1, "all_down": 2}  # seconds that these events take
LINKS = ("LINK_ETH", "LINK_PLC", "LINK_WIFI_2G", "LINK_WIFI_5G", "LINK_WIFI_5G_2")


def numbers(count: int, most: int) -> list[int]:
    """Which of so many calls fail, one at a time: all, or at most so many of them, evenly spread."""
    assert count > 0
    if EVERY or count <= most:
        return list(range(1, count + 1))
    return sorted({1 + at * (count - 1) // (most - 1) for at in range(most)})


class FaultScene:
    def __init__(self, node: Node) -> None:
        self.node = node
        sample.set_up(node)
        node.write_file("/proc/net/dev", "".join(f"{name}: {'0 ' * 16}\n" for name in sample.PORTS))
        node.write_file("/proc/stat", "cpu 100 0 100 800 0 0 0 0\n")
        node.start_broker()
        node.use_simulated_clock()
        self.bus = BusClient(node)
        self.clock = SimulatedClock(node)
        self.faults = Faults(node)
        self._port = node.ifindex("wlan0-b")
        self._station = bytes.fromhex("0230000000aa") + bytes([node.ifindex("eth0")]) + bytes(9)

    def close(self) -> None:
        self.bus.close()
        self.clock.close()
        self.faults.close()

    def lend(self) -> Iterator[Self]:
        """The body of a fixture: the node lasts, since it takes longer to make than most tests; a daemon does not."""
        self.node.use_simulated_clock()
        yield self
        self.faults.clear()
        if self.node.daemon is not None:
            self.node.stop_daemon()
            self.node.drain()
            for process in self.node.processes.values():
                assert not any(word in process.stderr for word in scene.SANITIZER_WORDS), process.stderr
        self.node.daemon = None
        self.node.processes = {pid: one for pid, one in self.node.processes.items() if one.status is None}

    def use_real_time(self) -> None:
        """For daemons that end on their own, which nobody then has to wait for."""
        self.node.remove_file(f"{NODE_DIR}/clock")

    def start(self, *, period: int = PERIOD) -> None:
        self.faults.forget_start()
        self.node.start_daemon(sample.config(period=period), ready=False, env=self.faults.environment)
        self.clock.attach()

    def send(self, kind: str) -> None:
        """Sends one event, has it handled, and lets what pauses it asks for pass."""
        match kind:
            case "configure":
                self.bus.send("kolt.configure", {"mode": "RE"})
            case "debug":
                self.bus.send("kolt.debug", {"dbg_level": 1})
            case "link_state":
                self.bus.send("kolt.link_state", dict.fromkeys(LINKS, 1))
            case "all_down":
                self.bus.send("kolt.link_state", dict.fromkeys(LINKS, 0))
            case "bridge":
                self.node.send_bridge_event(6)
            case "station":
                self.node.send_bridge_event(5, self._station)
            case "neighbour":
                self.node.send_neighbour(4, bytes(range(21)))
            case "route":
                self.node.send_link_notification(self._port, wireless_event())
        self.clock.settle()
        self.clock.advance(self.clock.now + PAUSES.get(kind, 0))

    def period(self) -> None:
        self.clock.advance(self.clock.now + PERIOD)

    def round(self) -> None:
        """Takes as long as a period, so that each round has one."""
        for kind in EVENTS:
            self.send(kind)
        self.clock.advance(self.clock.now + PERIOD - sum(PAUSES.values()))

    def reconnect(self) -> None:
        """A daemon that lost the bus has found it again after this."""
        self.period()

    def told(self, since: object = None) -> list[str]:
        """What the bridges were told, without what names the process."""
        return [line for line in scene.requests(self.node, since) if not line.startswith("SetEventInfo")]

    def lives(self) -> bool:
        """Takes in what is on its way; whether the daemon is there still and without a sanitizer's complaint."""
        self.node.drain()
        daemon = self.node.daemon
        assert daemon is not None
        return daemon.status is None and not any(word in daemon.stderr for word in scene.SANITIZER_WORDS)

    def hears(self, seconds: float = 5.0) -> bool:
        """Whether a daemon in real time acts on what bus and bridge tell; it may have to find the bus again first."""
        begin = scene.mark(self.node)
        self.node.send_bridge_event(6)
        self.node.wait_calls("bridgeFlushHATable", since=begin)
        self.node.wait_idle()
        begin = scene.mark(self.node)
        end = time.monotonic() + seconds
        while not any(line.startswith("SetBridgeMode") for line in self.told(begin)):
            if time.monotonic() > end:
                return False
            self.node.event("kolt.configure", {"mode": "AP"})
            self.node.drain()
        return True

    def children(self) -> list[str]:
        assert self.node.daemon is not None
        pid = self.node.daemon.pid
        return Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
