"""Takes over what the daemon did since the last look: its calls become the bridge's state, its log gives the quotas."""
import re
import struct
from dataclasses import dataclass, field

from kolt_node import Node
from kolt_node.control import Mark

from ..model.bridge import NOWHERE, Port
from ..model.world import World
from ..record import Move, Placement
from ..scenario.records import PATH_TYPES
from .publish import BRIDGE
from .tables import Tables

QUOTA = re.compile(r"path: (\S+), .*quota: (-?\d+), rx_tx_factor")
NOTIFY_PROTOCOL, NOTIFY_TYPE = 52, 14
PATH_CODES = dict(enumerate(PATH_TYPES))
NOTIFY = struct.Struct("=6s2x6s6sHHIB3x")  # parent, source, destination, ports, protocol, path type


@dataclass
class Reaction:
    """What the daemon did at one moment."""
    moves: list[Move] = field(default_factory=list)
    placements: list[Placement] = field(default_factory=list)
    quotas: dict[str, float] | None = None  # percent by interface name; None when no period ran


class Follower:
    """Reads the node's journal and log from where it last stopped."""

    def __init__(self, node: Node, world: World, tables: Tables) -> None:
        self._node, self._world, self._tables = node, world, tables
        self._mark = Mark(0, 0, 0)
        self._reaction = Reaction()

    def follow(self, time: float) -> Reaction:
        """Applies the calls made since the last time, in their order."""
        self._reaction = Reaction()
        calls = self._node.journal(self._mark)
        if calls:
            self._node.drain()  # the log comes another way than the calls
        records = self._node.log(self._mark)
        self._mark = Mark(self._mark.journal + len(calls), self._mark.log + len(records), 0)
        for call in calls:
            self._apply(call, time)
        quotas = [found for record in records if record.function == "path_selection_init_path_quota"
                  and (found := QUOTA.match(record.text))]
        if quotas:
            self._reaction.quotas = {found[1]: int(found[2]) / 100.0 for found in quotas}
        return self._reaction

    def _apply(self, call: dict, time: float) -> None:
        given, handler = call["args"], HANDLERS.get(call["call"])
        if call["call"] == "sendto" and call["result"] >= 0:
            self._hear(given)
        elif handler is not None and given["bridge"] == BRIDGE and call["result"] == 0:
            handler(self, given, time)

    def _port(self, given: dict) -> Port | None:
        """The backhaul port that a call is about; None for a port of this node's own clients."""
        port = self._world.bridge.ports.get(given["ifname"])
        if port is not None:
            port.programmed = True
        return port

    def _set_broadcast(self, given: dict, _: float) -> None:
        if port := self._port(given):
            port.broadcast = given["allow"] != 0

    def _set_class(self, given: dict, _: float) -> None:
        if port := self._port(given):
            port.class_ = given["bcast_class"]

    def _set_needs_ha(self, given: dict, _: float) -> None:
        if port := self._port(given):
            port.needs_ha = given["needha"] != 0

    def _set_follow(self, given: dict, _: float) -> None:
        self._world.bridge.follows = given["value"] != 0

    def _flush_clients(self, given: dict, _: float) -> None:
        self._world.bridge.flush_clients()

    def _flush_streams(self, given: dict, _: float) -> None:
        self._world.bridge.flush_streams()

    def _pin_client(self, given: dict, time: float) -> None:
        number = self._tables.numbers.get(given["client_mac"].lower(), NOWHERE)
        if number == NOWHERE:
            return
        second = bytes.fromhex(given["second_mac"].replace(":", ""))
        before = self._world.bridge.hd[number]
        self._world.bridge.pin_client(number, given["ifname"], second)
        if self._world.bridge.hd[number] not in (before, NOWHERE):
            self._reaction.placements.append(Placement(time, self._world.clients[number], given["ifname"]))

    def _pin_stream(self, given: dict, time: float) -> None:
        bridge = self._world.bridge
        number = self._tables.stream_of(given["src_port"], given["dst_port"])
        if number == NOWHERE or given["ifname"] not in bridge.index or not self._tables.is_forward_entry(number, given):
            return
        before = bridge.out[number]
        bridge.pin_stream(number, given["ifname"])
        if bridge.out[number] != before:
            client = self._world.clients[self._world.far[number]]
            origin = bridge.paths[before] if before != NOWHERE else ""
            self._reaction.moves.append(Move(time, self._world.traffic.names[number], client, origin, given["ifname"]))

    def _hear(self, given: dict) -> None:
        """The parent is told of a move and sends the answers the same way."""
        if given["protocol"] != NOTIFY_PROTOCOL or given.get("type") != NOTIFY_TYPE:
            return
        *_, near_port, far_port, _, kind = NOTIFY.unpack_from(bytes.fromhex(given["payload"]))
        number = self._tables.stream_of(near_port, far_port)
        target = self._world.by_type.get(PATH_CODES.get(kind, ""), NOWHERE)
        if NOWHERE not in (number, target):
            self._world.bridge.back[number] = target


HANDLERS = {
    "bridgeSetIFBroadcast": Follower._set_broadcast,
    "bridgeSetIFClass": Follower._set_class,
    "bridgeSetNeedha": Follower._set_needs_ha,
    "bridgeSetFollowRE": Follower._set_follow,
    "bridgeFlushHDTable": Follower._flush_clients,
    "bridgeFlushHATable": Follower._flush_streams,
    "bridgeAddHDTableEntries": Follower._pin_client,
    "bridgeSetHATableEntries": Follower._pin_stream,
}
