"""
What the Wi-Fi driver of a node would show of links that play radio: who is at the other end, and how busy the air is. Busy is
what the link carries in its busier direction, measured at the interfaces, as a part of its rate.
"""
import time
from typing import TYPE_CHECKING

from . import ports
from .route import Counters

if TYPE_CHECKING:
    from .lab import Lab
    from .node import MeshNode

RSSI = 45
UNLIMITED = 1000  # Mbit/s that a link without a limit shows


class Air:
    """Follows the load of a mesh's links."""

    def __init__(self, lab: "Lab") -> None:
        self._lab = lab
        self._before = {node: lab.counters(node) for node in lab.nodes}
        self._then = time.monotonic()
        self.carried = dict.fromkeys(lab.ends, 0.0)  # bits a second, the busier direction
        self.both = dict(self.carried)  # both directions together

    def measure(self) -> float:
        """Takes the load since the last time; the seconds that it was."""
        now = time.monotonic()
        current = {node: self._lab.counters(node) for node in self._lab.nodes}
        spent = max(1e-3, now - self._then)
        for link, ends in self._lab.ends.items():
            node, end = next(iter(ends.items()))
            name = end.port.name
            up, down = difference(self._before[node][name], current[node][name])
            self.carried[link] = 8 * max(up, down) / spent
            self.both[link] = 8 * (up + down) / spent
        self._before, self._then = current, now
        return spent

    def utilisation(self, link: str) -> float:
        """Percent, of a link with a rate."""
        rate = self._lab.rates[link]
        return min(100.0, 100.0 * self.carried[link] / rate) if rate else 0.0

    def publish(self, nodes: dict[str, "MeshNode"]) -> None:
        """Writes every radio's driver files as last measured."""
        for name, node in nodes.items():
            for port in ports.backhaul_ports(self._lab.topology, name):
                if port.radio:
                    self._publish(node, port)

    def _publish(self, node: "MeshNode", port: ports.Port) -> None:
        link = port.link.name
        peer = self._lab.ends[link][port.link.other(port.node)].port
        rate = round(self._lab.rates[link] / 1e6) or UNLIMITED
        there = self._lab.state[link] not in ("cut", "unused")
        stations = [{"mac": peer.mac, "tx": rate, "rssi": RSSI}] if there else []
        node.set_driver_files(port.radio, port.link.type, stations, round(self.utilisation(link)))


def difference(before: Counters, now: Counters) -> tuple[int, int]:
    """Bytes received and sent in between."""
    return now.rx_bytes - before.rx_bytes, now.tx_bytes - before.tx_bytes
