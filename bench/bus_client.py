"""A lasting connection to the bus of a simulated node, made from outside."""
import socket
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "platform/sim")]

import bus_send  # noqa: E402
from kolt_node import Node  # noqa: E402


class BusClient:
    def __init__(self, node: Node) -> None:
        self._bus = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._bus.settimeout(30)
        self._bus.connect(f"/proc/self/fd/{node.root_fd}/run/ubus/ubus.sock")
        bus_send.receive(self._bus)  # the greeting
        self._sequence = 0

    def send(self, name: str, attributes: dict[str, object]) -> None:
        """Sends an event, and returns when the broker has passed it on."""
        self._sequence = self._sequence % 65535 + 1
        bus_send.send(self._bus, self._sequence, name, attributes)

    def close(self) -> None:
        self._bus.close()
