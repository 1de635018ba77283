"""
A topology made real: a network namespace for each node with its bridge and for each host, veth pairs as links. What runs in
the nodes is a `kinds.Kind`. Everything is down until `up`, so that whatever guards a port is there before its first frame.
"""
import contextlib
import socket
import time
from dataclasses import dataclass
from typing import TYPE_CHECKING, Self

from . import ports
from .netns import MeshError, NetNamespace, batch
from .ports import BRIDGE, Port
from .route import IFF_RUNNING, IFF_UP, Counters, Route
from .topology import Link, Topology, parse_rate
from .watchdog import Watchdog

if TYPE_CHECKING:
    from .kinds import Kind

# A link with a rate queues as a driver does: frames of the network's own control go first. With frames that are no longer than
# two segments the queue is at most 50 ms of 50 Mbit/s.
BURST, LATENCY, QUEUE, SEGMENTS = 20480, "200ms", 100, 2
MOST_FRAMES = 40000  # a second at one port: more than downloads over three links make, less than any storm
HOST_PORT = "eth0"
FIRST_INDEX = 100  # of the first node's interfaces; the second's begin at twice that
NETWORK = "10.77.0."
NETWORK_6 = "fd77::"


class Storm(MeshError):
    """The watchdog has taken everything down."""


@dataclass
class Place:
    """A namespace and the socket to ask it about its interfaces."""
    namespace: NetNamespace
    route: Route
    index: dict[str, int]


@dataclass(frozen=True)
class End:
    port: Port
    place: Place
    index: int


class Lab:
    """Use as a context manager. `watch` is the highest number of frames a second that a port may see (0: no watchdog)."""

    def __init__(self, topology: Topology, kind: "Kind", watch: int = MOST_FRAMES) -> None:
        self.topology, self.kind = topology, kind
        self.nodes: dict[str, Place] = {}
        self.hosts: dict[str, Place] = {}
        self.ends: dict[str, dict[str, End]] = {}  # by link and node
        self.state: dict[str, str] = {}  # by link: up, cut, silent, slow, unused
        self.rates = {link.name: link.rate for link in topology.links}  # bits a second, 0 for no limit
        self.watchdog: Watchdog | None = None
        self._watch = watch
        self._numbers: dict[str, int] = {}
        self._stack = contextlib.ExitStack()

    def __enter__(self) -> Self:
        with contextlib.ExitStack() as undo:
            undo.callback(self.close)
            self._build()
            undo.pop_all()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends everything: what ran in the nodes, then the namespaces with their links."""
        self._stack.close()

    # Building

    def _build(self) -> None:
        for name in self.topology.nodes:
            self.nodes[name] = self._place(ipv6=False)
        for name in self.topology.hosts:
            self.hosts[name] = self._place(ipv6=True)
        self._make_bridges()
        for link in self.topology.links:
            self._make_link(link)
        for host in self.topology.hosts:
            self._make_host(host)
        self._take_indexes()
        if self._watch:
            self.watchdog = Watchdog([place.route for place in self.nodes.values()], self._watch)
            self._stack.callback(self.watchdog.close)
        self._stack.callback(self.kind.close)
        self.kind.prepare(self)

    def _places(self) -> list[Place]:
        return [*self.nodes.values(), *self.hosts.values()]

    def _place(self, *, ipv6: bool) -> Place:
        namespace = NetNamespace()
        self._stack.callback(namespace.close)
        for which in ("default", "all"):
            namespace.sysctl(f"ipv6/conf/{which}/disable_ipv6", int(not ipv6))
            namespace.sysctl(f"ipv6/conf/{which}/accept_dad", 0)
            namespace.sysctl(f"ipv6/conf/{which}/router_solicitations", 0)
        route = Route(namespace)
        self._stack.callback(route.close)
        return Place(namespace, route, {})

    def _make_bridges(self) -> None:
        for node, place in self.nodes.items():
            mac = ports.node_mac(self.topology, node)
            batch("ip", place.namespace, [
                "link set lo up",
                f"link add {BRIDGE} address {mac} type bridge {self.kind.bridge_options(self, node)}"])

    def _make_link(self, link: Link) -> None:
        first, second = ({port.link.name: port for port in ports.backhaul_ports(self.topology, node)}[link.name]
                         for node in link.ends)
        ours, theirs = self.nodes[first.node].namespace, self.nodes[second.node].namespace
        batch("ip", ours, [f"link add {first.name} index {self._number(first.node)} address {first.mac} type veth peer "
                           f"name {second.name} index {self._number(second.node)} address {second.mac} "
                           f"netns {theirs.path}",
                           f"link set {first.name} master {BRIDGE}"])
        batch("ip", theirs, [f"link set {second.name} master {BRIDGE}"])
        for port, namespace in ((first, ours), (second, theirs)):
            batch("ip", namespace, [f"link set {port.name} txqueuelen {QUEUE}"])
            batch("tc", namespace, shaping(port.name, link.rate))
        self.state[link.name] = "up" if self.kind.uses(self, link) else "unused"

    def _number(self, node: str) -> int:
        """
        The next interface index of a node. No two nodes share one: a veth whose peer has its own number looks like a plain
        device, whose change of carrier the kernel tells up to a second late.
        """
        self._numbers[node] = self._numbers.get(node, FIRST_INDEX * (1 + list(self.topology.nodes).index(node))) + 1
        return self._numbers[node]

    def _make_host(self, host: str) -> None:
        """Hosts know each other's addresses: an outage is to be the mesh's, not the time until somebody asks again."""
        node, port = self.nodes[self.topology.hosts[host]].namespace, ports.access_port(self.topology, host)
        number = list(self.topology.hosts).index(host) + 1
        space = self.hosts[host].namespace
        batch("ip", node, [f"link add {port} index {self._number(self.topology.hosts[host])} type veth peer "
                           f"name {HOST_PORT} address {host_mac(number)} netns {space.path}",
                           f"link set {port} master {BRIDGE}"])
        others = [other for other in range(1, len(self.topology.hosts) + 1) if other != number]
        batch("ip", space, ["link set lo up", f"link set {HOST_PORT} gso_max_segs {SEGMENTS}",
                            f"address add {NETWORK}{number}/24 dev {HOST_PORT}",
                            f"address add {NETWORK_6}{number:x}/64 dev {HOST_PORT}",
                            *(f"neighbour add {NETWORK}{other} lladdr {host_mac(other)} dev {HOST_PORT}"
                              for other in others)])

    def _take_indexes(self) -> None:
        for place in self._places():
            place.index = {name: index for name, (index, _) in place.route.interfaces().items()}
        for link in self.topology.links:
            self.ends[link.name] = {}
            for node in link.ends:
                port = next(one for one in ports.backhaul_ports(self.topology, node) if one.link == link)
                self.ends[link.name][node] = End(port, self.nodes[node], self.nodes[node].index[port.name])

    # Life

    def up(self) -> None:
        """Brings everything up: hosts first, the links between nodes last."""
        for host, place in self.hosts.items():
            place.route.set_up(place.index[HOST_PORT], True)
            node = self.nodes[self.topology.hosts[host]]
            node.route.set_up(node.index[ports.access_port(self.topology, host)], True)
        for place in self.nodes.values():
            place.route.set_up(place.index[BRIDGE], True)
        for link in self.topology.links:
            if self.state[link.name] == "up":
                for end in self.ends[link.name].values():
                    end.place.route.set_up(end.index, True)

    def address(self, host: str) -> str:
        return f"{NETWORK}{list(self.topology.hosts).index(host) + 1}"

    def mac(self, host: str) -> str:
        return host_mac(list(self.topology.hosts).index(host) + 1)

    def socket(self, host: str, family: int, kind: int, protocol: int = 0) -> socket.socket:
        return self.hosts[host].namespace.socket(family, kind, protocol)

    def counters(self, node: str) -> dict[str, Counters]:
        place = self.nodes[node]
        read = place.route.counters()
        return {name: read[index] for name, index in place.index.items() if index in read}

    def islands(self) -> dict[str, frozenset[str]]:
        """By host, the nodes that its own is joined with by links that work."""
        working = [link for link in self.topology.links if self.state[link.name] in ("up", "slow")]
        return {host: frozenset(self.topology.reach(node, links=working)) for host, node in self.topology.hosts.items()}

    def carrier(self, link: str) -> bool:
        """Whether both ends of a link are up and see each other."""
        wanted = IFF_UP | IFF_RUNNING
        return all(end.place.route.interfaces()[end.port.name][1] & wanted == wanted for end in self.ends[link].values())

    def wait_carrier(self, timeout: float = 5.0) -> None:
        """The stack shows a carrier some time after a link was set up."""
        deadline = time.monotonic() + timeout
        links = [name for name, state in self.state.items() if state not in ("cut", "unused")]
        while not all(map(self.carrier, links)) and time.monotonic() < deadline:
            time.sleep(0.005)

    def wait(self, seconds: float) -> None:
        """Lets time pass while what runs in the nodes is followed. MeshError when the watchdog ended a storm."""
        end = time.monotonic() + seconds
        while True:
            self.check()
            self.kind.follow(self)
            left = end - time.monotonic()
            if left <= 0:
                return
            time.sleep(min(left, 0.1))

    def check(self) -> None:
        if self.watchdog is not None and (seen := self.watchdog.tripped):
            raise Storm(f"a storm: {seen['rate']} frames a second at one port; all links were taken down")

    # What happens to links

    def cut(self, link: str, end: str = "") -> None:
        """Takes the carrier away: one end goes down, by default that of the node nearer to a root."""
        self._end(link, end).place.route.set_up(self._end(link, end).index, False)
        self.state[link] = "cut"

    def silence(self, link: str, end: str = "") -> None:
        """Loses every frame without a sign: of both directions, or only of what leaves by one end."""
        ends = [self.ends[link][end]] if end else self.ends[link].values()
        for one in ends:
            batch("tc", one.place.namespace, [f"qdisc replace dev {one.port.name} root blackhole"])
        self.state[link] = "silent"

    def slow(self, link: str, rate: str) -> None:
        for one in self.ends[link].values():
            batch("tc", one.place.namespace, shaping(one.port.name, parse_rate(rate)))
        self.rates[link], self.state[link] = parse_rate(rate), "slow"

    def restore(self, link: str) -> None:
        """The link as it was at the start."""
        whole = self.topology.link(link)
        for one in self.ends[link].values():
            lines = shaping(one.port.name, whole.rate)
            batch("tc", one.place.namespace, lines or [f"qdisc replace dev {one.port.name} root noqueue"])
            one.place.route.set_up(one.index, True)
        self.rates[link], self.state[link] = whole.rate, "up"

    def obey(self, event: dict) -> None:
        """Does what an event of a topology says."""
        match event["do"]:
            case "cut" | "silence" as what:
                getattr(self, what)(event["link"], event.get("end", ""))
            case "slow":
                self.slow(event["link"], event["rate"])
            case "restore":
                self.restore(event["link"])
            case _:
                self.kind.obey(self, event)

    def _end(self, link: str, node: str) -> End:
        ends = self.ends[link]
        if node:
            return ends[node]
        return next((end for end in ends.values() if not end.port.upwards), next(iter(ends.values())))


def host_mac(number: int) -> str:
    return f"02:20:00:00:00:{number:02x}"


def shaping(port: str, rate: float) -> list[str]:
    """The queue of a port with a rate; none where there is no limit."""
    if not rate:
        return []
    return [f"qdisc replace dev {port} root handle 1: tbf rate {rate:.0f}bit burst {BURST} latency {LATENCY}",
            f"qdisc replace dev {port} parent 1:1 handle 2: pfifo_fast"]
