"""One home with this node in it: links, clients, streams and the bridge between them, tick by tick."""
from dataclasses import dataclass

import numpy as np

from ..scenario.records import PATH_TYPES, ClientEvent, CpuEvent, LinkEvent, NeighboursEvent, RateEvent, Scenario
from .air import Link, share_fairly
from .bridge import NOWHERE, Bridge, find_loop
from .ideal import ideal_payload, usable
from .traffic import ACK_SHARE, MBIT, Traffic

FALLBACK = ("5g_2", "5g", "2.4g", "plc")  # where a plain bridge learns clients when the default link is down
UPLINK, AWAY = "uplink", "away"


@dataclass
class Happening:
    """A scenario event that was due. `subject` is a link's type or a client's name; empty for the others."""
    kind: str  # "link", "client" or "other"
    subject: str
    text: str


class World:
    """
    Deterministic: the same scenario gives the same world. Only `bridge` differs, by what a daemon programs. Between
    `begin` and `flow` of a tick the daemon may react.
    """

    def __init__(self, scenario: Scenario) -> None:
        self.scenario = scenario
        present = [kind for kind in PATH_TYPES if kind in scenario.paths]
        self.links = [Link(scenario.paths[kind], scenario.seed) for kind in present]
        self.by_type = {link.type: index for index, link in enumerate(self.links)}
        self.clients = [client.name for client in scenario.clients]
        self.place = {client.name: client.at for client in scenario.clients}
        self.traffic = Traffic(scenario)
        self.bridge = Bridge([link.name for link in self.links], len(self.clients), self.traffic.count)
        self.cpu = self.load = scenario.cpu  # now, and in the last tick, percent
        self.changes = 0  # how often a stream that goes on has changed its path, for whatever reason
        self.time = 0.0
        self._stale = True  # somebody went elsewhere since the columns of `_locate` were made
        self._last_out = self.bridge.out.copy()
        self._pending = list(scenario.events)
        streams = self.traffic.count
        self.outward = np.zeros(streams)  # what each stream carries now, Mbit/s, away from the node's clients
        self.inward = np.zeros(streams)
        self.payload = np.zeros(streams)
        self.wanted = np.zeros(streams)  # the payload that each would like to carry
        self.total_out = np.zeros(streams)  # bytes so far
        self.total_in = np.zeros(streams)
        self.packets_out = np.zeros(streams)
        self.packets_in = np.zeros(streams)
        self.carried = np.zeros(len(self.links))  # by each link in the last tick, Mbit/s
        self.busy = np.array([link.utilisation(0.0) for link in self.links])  # the air time that it took, percent
        self.link_out = np.zeros((len(self.links), 2))  # bytes and packets so far
        self.link_in = np.zeros((len(self.links), 2))

    # The beginning of a tick

    def begin(self, time: float) -> list[Happening]:
        """Lets the events that are due happen, and air and traffic change. Returns what happened."""
        self.time = time
        happened = []
        while self._pending and self._pending[0].at <= time:
            happened.append(self._happen(self._pending.pop(0)))
        for link in self.links:
            link.update(time)
        self.traffic.update(time)
        self._locate()
        return happened

    def _happen(self, event: object) -> Happening:
        match event:
            case LinkEvent(path=kind, up=up):
                link = self.links[self.by_type[kind]]
                link.up = up
                if not up and not link.is_wifi:
                    self.bridge.remove_port(link.name)
                return Happening("link", kind, f"link {kind} {'up' if up else 'down'}")
            case RateEvent(path=kind, rate=rate, over=over):
                self.links[self.by_type[kind]].set_rate(self.time, rate, over)
                return Happening("other", "", f"rate of {kind} goes to {rate:g} Mbit/s")
            case NeighboursEvent(path=kind, neighbours=percent, over=over):
                self.links[self.by_type[kind]].set_neighbours(self.time, percent, over)
                return Happening("other", "", f"neighbours of {kind} go to {percent:g} %")
            case ClientEvent(client=name, to=place):
                self.place[name] = place
                self._stale = True
                text = f"client {name} leaves" if place == AWAY else f"client {name} to {place}"
                return Happening("client", name, text)
            case CpuEvent(percent=percent):
                self.cpu = percent
                return Happening("other", "", f"processor load {percent:g} %")
        raise TypeError(f"unknown event {event!r}")

    def _locate(self) -> None:
        """Who is on which side, and whose streams cross; anew when somebody has moved."""
        if self._stale:
            places = np.array([self.place[name] for name in self.clients], dtype=object)
            at_uplink, present = places == UPLINK, places != AWAY
            traffic = self.traffic
            self.client_far = at_uplink[traffic.client]
            both = present[traffic.client] & present[traffic.peer]
            self._crosses = both & (self.client_far != at_uplink[traffic.peer])
            self.far = np.where(self.client_far, traffic.client, traffic.peer)
            self.near = np.where(self.client_far, traffic.peer, traffic.client)
            self._stale = False
        self.crossing = self._crosses & self.traffic.active

    # The bridge

    def learnt_path(self) -> int:
        """The path on which the far side's clients are learnt: where their broadcast comes in, or the default link."""
        ports = [self.bridge.ports[link.name] for link in self.links]
        for index, (link, port) in enumerate(zip(self.links, ports)):
            if link.up and port.programmed and port.broadcast and port.class_ == 0:
                return index
        if any(port.programmed for port in ports):
            return NOWHERE
        for kind in ("ethernet", self.scenario.default_path, *FALLBACK):  # a cable beats what it replaces
            index = self.by_type.get(kind, NOWHERE)
            if index != NOWHERE and self.links[index].up:
                return index
        return NOWHERE

    def storm(self) -> list[str]:
        """The ports of a loop in which a flooded frame would circle, or nothing."""
        return find_loop(self.bridge.flood_edges(link.name for link in self.links if link.up))

    def broadcast_ports(self) -> set[str]:
        """The backhaul ports that carry broadcast now."""
        return {edge.port for edge in self.bridge.flood_edges(link.name for link in self.links if link.up)}

    # The traffic of a tick

    def flow(self, seconds: float) -> None:
        """Places every stream as the bridge is programmed now and carries what fits."""
        self.bridge.place(self.crossing, self.far, self.learnt_path())
        goes_on = (self._last_out != NOWHERE) & (self.bridge.out != NOWHERE)
        self.changes += int((goes_on & (self._last_out != self.bridge.out)).sum())
        self._last_out = self.bridge.out.copy()
        self.load = self.cpu
        towards, away = self.traffic.wanted(True), self.traffic.wanted(False)
        towards, away, payload = self.traffic.settle(*self._turn(*self._share(*self._turn(towards, away))))
        self.inward, self.outward = self._turn(towards, away)
        self.payload = payload
        self.wanted = np.where(self.crossing, self.traffic.demand, 0.0)
        self._count(seconds)

    def _turn(self, one: np.ndarray, other: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        """
        From (towards the streams' clients, away from them) to (into the node, out of it), and back: for a client on
        the far side the two are the other way round.
        """
        return np.where(self.client_far, other, one), np.where(self.client_far, one, other)

    def _share(self, wish_in: np.ndarray, wish_out: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        """
        What each direction of each stream gets. Both directions on one link are shared out as one, since data and
        acknowledgements only come together; on two links each stands for itself.
        """
        got_in, got_out = np.zeros_like(wish_in), np.zeros_like(wish_out)
        whole = self.crossing & (self.bridge.out != NOWHERE) & (self.bridge.back != NOWHERE)
        together = whole & (self.bridge.out == self.bridge.back)
        for index, link in enumerate(self.links):
            both = np.flatnonzero(together & (self.bridge.out == index))
            only_in = np.flatnonzero(whole & ~together & (self.bridge.back == index))
            only_out = np.flatnonzero(whole & ~together & (self.bridge.out == index))
            wishes = wish_in[both] + wish_out[both]
            shares = share_fairly(np.concatenate((wishes, wish_in[only_in], wish_out[only_out])), link.capacity)
            part = shares[:both.size] / wishes
            got_in[both], got_out[both] = wish_in[both] * part, wish_out[both] * part
            got_in[only_in], got_out[only_out] = np.split(shares[both.size:], [only_in.size])
        return got_in, got_out

    def _count(self, seconds: float) -> None:
        towards, away = self._turn(self.inward, self.outward)
        fresh_in, fresh_out = self._turn(self.traffic.packets(True, towards) * seconds,
                                         self.traffic.packets(False, away) * seconds)
        self.total_in += self.inward * MBIT * seconds
        self.total_out += self.outward * MBIT * seconds
        self.packets_in += fresh_in
        self.packets_out += fresh_out
        for index in range(len(self.links)):
            mine_in, mine_out = self.bridge.back == index, self.bridge.out == index
            carried = self.inward[mine_in].sum(), self.outward[mine_out].sum()
            self.carried[index] = sum(carried)
            self.busy[index] = self.links[index].utilisation(self.carried[index])
            self.link_in[index] += carried[0] * MBIT * seconds, fresh_in[mine_in].sum()
            self.link_out[index] += carried[1] * MBIT * seconds, fresh_out[mine_out].sum()

    # What would be possible

    def ideal(self, forbidden: frozenset[str], learnt: int) -> np.ndarray:
        """
        The payload of each stream at best, Mbit/s, on Wi-Fi links that are not of a `forbidden` type and on the link
        where a daemon had the far side learnt.
        """
        overhead = np.where(self.traffic.is_udp, 0.0, ACK_SHARE)
        return ideal_payload(self.wanted, overhead, usable(self.links, forbidden, learnt))
