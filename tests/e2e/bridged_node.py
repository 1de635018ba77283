"""A simulated node whose daemon runs on the platform libraries for a stock kernel, with a kolt-bridged that answers them
from the node's files."""
import signal
from collections.abc import Callable
from pathlib import Path

import path_scene as paths
import scene
from kolt_node import Node, NodeError, Process
from path_scene import PathNode, Period

PERIOD = 2  # seconds; what a test does before the first one and after each other takes a fraction of them
SOCKET = "/run/kolt-bridged/socket"


class BridgedNode(PathNode):
    """Simulated time is in the libraries that this node does without: here the daemon stands still by a signal."""
    bridged: Process | None = None

    def begin(self, configuration: dict | None = None, *, level: int = 2, **how: object) -> None:
        """Starts the daemon and stops it before its first period."""
        scene.start(self, configuration or paths.config(period=PERIOD), level=level, **how)
        self.signal(self.daemon, signal.SIGSTOP)
        self._seen = scene.mark(self)
        if self.journal(call="bridgeTableAction"):
            raise NodeError("the first period came before the test was ready for it")

    def period(self) -> Period:
        """Lets one period pass and stops the daemon again."""
        begin = self._seen
        self.signal(self.daemon, signal.SIGCONT)
        self.wait_calls("netlink_msg", since=begin, timeout=10)
        self.wait_idle()
        self.signal(self.daemon, signal.SIGSTOP)
        return self._end_period()

    def stop_daemon(self, *how: object, **named: object) -> int:
        if self.daemon is not None:
            self.signal(self.daemon, signal.SIGCONT)
        return super().stop_daemon(*how, **named)

    def start_bridged(self) -> Process:
        stub = self.spawn([self.build / "bin/kolt-bridged-stub"])
        self.wait_for(lambda: "ready" in stub.stdout, 5, "kolt-bridged")
        self.bridged = stub
        return stub

    def stop_bridged(self, number: int) -> None:
        assert self.bridged is not None
        self.signal(self.bridged, number)
        self.wait_exit(self.bridged)

    def _environment(self, extra: dict[str, str] | None) -> dict[str, str]:
        libraries = f"{self.build / 'linux/lib'}:{self.build / 'lib'}"
        return super()._environment(extra) | {"LD_LIBRARY_PATH": libraries}

    def settles(self, condition: Callable[[], object], what: str) -> None:
        """An event takes a way round by kolt-bridged: that the daemon rests does not mean that it has come."""
        self.wait_for(condition, 10, what)
        self.wait_idle()


def libraries_of(node: Node) -> set[Path]:
    """The platform libraries that the daemon has loaded."""
    assert node.daemon is not None
    maps = Path(f"/proc/{node.daemon.pid}/maps").read_text().splitlines()
    mapped = {Path(line.split()[-1]) for line in maps if line.endswith(".so")}
    return {path for path in mapped if path.name in ("libduon-bridge.so", "libeth_encap.so")}
