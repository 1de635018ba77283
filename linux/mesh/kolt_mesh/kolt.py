"""Nodes with the daemons in them: broker, kolt-bridged and kolt on each."""
import contextlib
import time
from pathlib import Path
from typing import TYPE_CHECKING

from . import node as nodes
from .kinds import Kind
from .netns import MeshError
from .radio import Air

if TYPE_CHECKING:
    from .lab import Lab

AIR_SECONDS = 0.25  # between two looks at the air


class Kolt(Kind):
    """`period` is kolt's in seconds; `options` go to every kolt-bridged; with `kolt` false only that runs."""
    name = "kolt"
    title = "kolt"
    settling = 2.0

    def __init__(self, build: Path | None = None, *, period: int = 1, options: tuple[str, ...] = (),
                 kolt: bool = True) -> None:
        self.build = build or nodes.build_directory()
        if lacking := nodes.missing(self.build):
            raise MeshError(f"{self.build} holds no build of the open platform: {lacking[0]} is missing")
        self.nodes: dict[str, nodes.MeshNode] = {}
        self.air: Air | None = None
        self._period, self._options, self._kolt = period, options, kolt
        self._looked = 0.0

    def prepare(self, lab: "Lab") -> None:
        for name, place in lab.nodes.items():
            made = nodes.MeshNode(lab.topology, name, place.namespace, self.build, self._period)
            self.nodes[name] = made
            made.start()
            made.set_up(self._options)
            made.start_broker()
            made.start_bridged()
            if self._kolt:
                made.start_kolt()
        self.air = Air(lab)

    def follow(self, lab: "Lab") -> None:
        """Measures the air and writes what the drivers show of it."""
        if self.air is not None and time.monotonic() >= self._looked + AIR_SECONDS:
            self._looked = time.monotonic()
            self.air.measure()
            self.air.publish(self.nodes)

    def obey(self, lab: "Lab", event: dict) -> None:
        node = self.nodes[event["node"]]
        match event["do"]:
            case "kill":
                node.kill_program(event["program"])
            case "start":
                node.start_program(event["program"])
            case "mode":
                node.change_mode(event["mode"])

    def close(self) -> None:
        for node in self.nodes.values():
            with contextlib.suppress(nodes.NodeError, OSError):
                node.close()
        self.nodes = {}
