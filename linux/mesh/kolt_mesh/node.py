"""A node of the mesh with the daemons in it: its files, its message bus, kolt-bridged and kolt."""
import contextlib
import json
import signal
import socket
import sys
from pathlib import Path
from typing import TYPE_CHECKING

from . import ports
from .netns import MeshError, NetNamespace
from .topology import Topology

sys.path.insert(0, str(ports.ROOT / "platform/sim"))

from kolt_node import Node, NodeError, Process  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402

if TYPE_CHECKING:
    from collections.abc import Iterable

BRIDGED_RUN, BRIDGED_PIN = "/run/kolt-bridged", "/sys/fs/bpf/kolt"
START_TIMEOUT = 10.0
NEEDED = ("bin/kolt", "bin/kolt-ubusd", "bin/kolt-event", "bin/kolt-bridged", "linux/lib/libduon-bridge.so",
          "linux/lib/libeth_encap.so")

__all__ = ["MeshNode", "NodeError", "build_directory", "missing"]


def missing(build: Path) -> list[str]:
    """What a build lacks for nodes with the daemons."""
    return [name for name in NEEDED if not (build / name).exists()]


class MeshNode(Node):
    """The daemons run in `namespace`, whose interfaces are there already."""

    agent = Path(__file__).resolve().parent / "inside.py"

    def __init__(self, topology: Topology, name: str, namespace: NetNamespace, build: Path, period: int) -> None:
        super().__init__(build)
        self.name, self.mode = name, topology.nodes[name]
        self.bridged: Process | None = None
        self._topology, self._namespace, self._period = topology, namespace, period
        self._options: list[str] = []

    def ways(self) -> list[list[str]]:
        return [["nsenter", f"--net={self._namespace.path}", "unshare", "-mp", "--fork", "--kill-child"]]

    def set_up(self, options: "Iterable[str]" = ()) -> None:
        """Writes what kolt-bridged does not: the configuration and what sibling daemons know."""
        self._options = list(options)
        self.write_json("/etc/kolt.json", ports.configuration(self._topology, self.name, period=self._period))
        self.set_uci(ports.wired_hints(self._topology, self.name))
        self.write_json("/tmp/sync-server/mesh_dev_list",
                        {node: {"mac": ports.node_mac(self._topology, node)} for node in self._topology.nodes})
        self.write_json("/tmp/client_mgmt/ap_client_list", [])
        self.write_json("/tmp/runtime_ip_info_lan", {"lan_gw": "10.77.0.254"})
        self.write_json("/tmp/lanwatch_recv_dhcp_if", {"recv_dhcp_if": ""})
        for port in ports.backhaul_ports(self._topology, self.name):
            if port.radio:
                self.set_driver_files(port.radio, port.link.type, [], 0)

    def start_bridged(self, through: "Iterable[str]" = ()) -> None:
        """Starts kolt-bridged, by the program `through` when given, and waits until it takes connections."""
        self.bridged = self.spawn([*through, self.build / "bin/kolt-bridged", "-c", "/etc/kolt.json", "--run",
                                   BRIDGED_RUN, "--pin", BRIDGED_PIN, "--mode", self.mode, *self._options])
        daemon = self.bridged
        self.wait_for(lambda: daemon.status is not None or
                      self.call("accepts", path=f"{BRIDGED_RUN}/socket", kind=int(socket.SOCK_SEQPACKET)),
                      START_TIMEOUT, "kolt-bridged")
        if daemon.status is not None:
            raise MeshError(f"{self.name}: kolt-bridged ended with status {daemon.status}: "
                            f"{daemon.stderr.strip() or self.recent(3)}")

    def start_kolt(self) -> None:
        self.start_daemon(argv0="kolt", ready=False)

    def start_program(self, program: str) -> None:
        """Starts a program unless it runs: a change of the mode has started kolt-bridged already."""
        if self._runs(program):
            return
        if program == "kolt":
            self.start_kolt()
        else:
            self.start_bridged()

    def kill_program(self, program: str, number: int = signal.SIGKILL) -> int | None:
        """Ends a program and waits for it; what does not run is fine."""
        if not self._runs(program):
            return None
        process = self._process(program)
        self.signal(process, number)
        return self.wait_exit(process)

    def _process(self, program: str) -> Process | None:
        return self.daemon if program == "kolt" else self.bridged

    def _runs(self, program: str) -> bool:
        process = self._process(program)
        return process is not None and process.status is None

    def change_mode(self, mode: str) -> None:
        """What the node's management does: kolt-bridged under the new mode, and an event for kolt."""
        self.mode = mode
        self.kill_program("kolt-bridged", signal.SIGTERM)
        self.start_bridged()
        self.event("kolt.configure", {"mode": mode}, settle=False)

    def cpu_ticks(self, process: Process) -> int:
        """Processor time that a program of the node has used, in clock ticks."""
        with contextlib.suppress(OSError):
            fields = self.read_file(f"/proc/{process.pid}/stat").rpartition(b")")[2].split()
            return int(fields[11]) + int(fields[12])
        return 0

    def private_memory(self, pid: int) -> int:
        """KiB of a program of the node that no other process shares."""
        lines = self.read_file(f"/proc/{pid}/smaps_rollup").decode().splitlines()
        return sum(int(line.split()[1]) for line in lines if line.startswith(("Private_Clean", "Private_Dirty")))

    def diagnosis(self) -> str:
        """The last lines of the log and the errors, for a person who wants to know what went wrong."""
        errors = [process.stderr.strip() for process in self.processes.values() if process.stderr.strip()]
        return json.dumps({"node": self.name, "log": self.recent(20).splitlines(), "errors": errors[-3:]}, indent=1)

    def _environment(self, extra: dict[str, str] | None) -> dict[str, str]:
        return super()._environment(extra) | {"LD_LIBRARY_PATH": str(self.build / "linux/lib")}
