"""A simulated node whose daemon runs on the platform libraries for a stock kernel, with a kolt-bridged that answers them
from the node's files."""
from collections.abc import Callable
from pathlib import Path

from kolt_node import Node, Process
from path_scene import PathNode

SOCKET = "/run/kolt-bridged/socket"


class BridgedNode(PathNode):
    bridged: Process | None = None

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
