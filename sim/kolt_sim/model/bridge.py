"""The kernel bridge as the daemon programs it: what each port may do, the HD and HA tables, and where frames go."""
from collections.abc import Iterable
from dataclasses import dataclass

import numpy as np

NOWHERE = -1
MESH, NODE = "mesh", "node"


@dataclass
class Port:
    """
    What the bridge library was told about a port. An unprogrammed port is one of a plain bridge: it floods, and frames
    that leave through it are not followed stream by stream.
    """
    broadcast: bool = True
    needs_ha: bool = False
    class_: int = 0
    programmed: bool = False


@dataclass(frozen=True)
class Edge:
    """A port over which flooded frames travel between two parts of the network."""
    port: str
    one: str
    other: str


def find_loop(edges: Iterable[Edge]) -> list[str]:
    """The ports of a circle among the edges, or nothing. A frame that is flooded into a circle never dies."""
    reached: dict[str, list[tuple[str, str]]] = {}
    for edge in edges:
        way = _way(reached, edge.one, edge.other)
        if way is not None:
            return [*way, edge.port]
        reached.setdefault(edge.one, []).append((edge.other, edge.port))
        reached.setdefault(edge.other, []).append((edge.one, edge.port))
    return []


def _way(reached: dict[str, list[tuple[str, str]]], start: str, goal: str) -> list[str] | None:
    """The ports on the way between two places of a network without circles; None when there is no way."""
    waiting, seen = [(start, [])], {start}
    while waiting:
        place, ports = waiting.pop()
        if place == goal:
            return ports
        for following, port in reached.get(place, []):
            if following not in seen:
                seen.add(following)
                waiting.append((following, [*ports, port]))
    return None


class Bridge:
    """
    Paths are numbered as the scenario's links are. `hd` holds the path of each client's HD entry, `out` and `back` the
    paths of each stream's two directions, `pinned` whether the stream has an HA entry that holds it there, `entries`
    how many entries it has had.
    """

    def __init__(self, paths: list[str], clients: int, streams: int) -> None:
        self.paths = paths
        self.index = {name: index for index, name in enumerate(paths)}
        self.ports: dict[str, Port] = {name: Port() for name in paths}
        self.follows = False  # the parent sends a stream's answers the way that the stream came
        self.hd = np.full(clients, NOWHERE)
        self.hd_second: dict[int, bytes] = {}
        self.out = np.full(streams, NOWHERE)
        self.back = np.full(streams, NOWHERE)
        self.pinned = np.zeros(streams, dtype=bool)
        self.entries = np.zeros(streams, dtype=int)

    def remove_port(self, name: str) -> None:
        """A port that leaves the bridge takes its settings with it."""
        self.ports[name] = Port()

    def flood_edges(self, up: Iterable[str]) -> list[Edge]:
        """The backhaul ports that carry broadcast; each class is a network of its own."""
        edges = []
        for name in up:
            port = self.ports[name]
            if port.broadcast:
                edges.append(Edge(name, f"{NODE}/{port.class_}", f"{MESH}/{port.class_}"))
        return edges

    def flush_streams(self) -> None:
        """Empties the HA table."""
        self.pinned[:] = False

    def flush_clients(self) -> None:
        """Empties the HD table."""
        self.hd[:] = NOWHERE
        self.hd_second.clear()

    def pin_client(self, client: int, ifname: str, second: bytes) -> None:
        """An entry that names no port of the bridge pins the client nowhere."""
        self.hd[client] = self.index.get(ifname, NOWHERE)
        self.hd_second[client] = second

    def pin_stream(self, stream: int, ifname: str) -> None:
        """Re-points a stream's HA entry, or makes one; a name that is no path changes nothing."""
        if ifname in self.index:
            self.out[stream] = self.index[ifname]
            self.entries[stream] += not self.pinned[stream]
            self.pinned[stream] = True

    def place(self, crossing: np.ndarray, remote: np.ndarray, learnt: int) -> None:
        """
        Finds the path of every crossing stream. `remote` is the client of each stream on the far side, `learnt` the
        path on which the far side's clients were learnt. A stream with an HA entry stays where that says; another goes
        where its client is pinned, or else where the client was learnt, and gets an entry if that port wants one.
        Entries know nothing of links: until they are flushed or re-pointed they lead into a dead link as well.
        """
        self.pinned &= crossing
        free = crossing & ~self.pinned
        home = np.where(self.hd[remote] != NOWHERE, self.hd[remote], learnt)
        self.out = np.where(free, home, np.where(crossing, self.out, NOWHERE))
        # The parent's side follows this node's choice for new streams, and later what it is notified of.
        answer = self.out if self.follows else np.full_like(self.out, learnt)
        self.back = np.where(free, answer, np.where(crossing, self.back, NOWHERE))
        wants = np.append([self.ports[name].needs_ha for name in self.paths], False)  # the last stands for NOWHERE
        fresh = free & wants[self.out]
        self.pinned |= fresh
        self.entries += fresh
