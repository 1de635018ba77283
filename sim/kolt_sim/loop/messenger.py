"""Tells the daemon of what happened, over the same ways as a node's kernel and other daemons do."""
from kolt_node import Node
from kolt_node.messages import mac_bytes, wireless_event

from ..model.world import AWAY, UPLINK, Happening, World
from ..scenario.records import WIFI
from .tables import Tables

STATION_EVENT, PORT_JOINS, PORT_LEAVES = 5, 6, 7  # what the bridge reports
LINK_ATTRIBUTES = {"2.4g": "LINK_WIFI_2G", "5g": "LINK_WIFI_5G", "5g_2": "LINK_WIFI_5G_2", "plc": "LINK_PLC",
                   "ethernet": "LINK_ETH"}


class Messenger:
    """Knows where everybody was, to tell what is new."""

    def __init__(self, node: Node, world: World, tables: Tables) -> None:
        self._node, self._world, self._tables = node, world, tables
        self._places = dict(world.place)

    def tell(self, happened: list[Happening]) -> bool:
        """Sends what the happenings of one moment give rise to; true when anything was sent."""
        links = [one.subject for one in happened if one.kind == "link"]
        clients = [one.subject for one in happened if one.kind == "client"]
        for client in clients:
            self._tell_client(client)
        if links:
            self._tell_links(links)
        return bool(links or clients)

    def _tell_client(self, client: str) -> None:
        """The radio reports a station that is gone, the bridge one that it learns on a port."""
        left, place = self._places[client], self._world.place[client]
        self._places[client] = place
        if left.startswith("wlan") and place != left:
            self._node.send_link_notification(left.split(".")[0], wireless_event())
        if place == AWAY:
            return
        learnt = self._world.learnt_path()
        port = self._world.links[learnt].name if place == UPLINK and learnt >= 0 else place
        if port in self._tables.indexes:
            index = self._tables.indexes[port]
            mac = mac_bytes(self._tables.macs[self._world.clients.index(client)])
            self._node.send_bridge_event(STATION_EVENT, mac + bytes([index & 255]) + bytes(5) + bytes([index >> 8]))

    def _tell_links(self, changed: list[str]) -> None:
        """A wired port joins or leaves the bridge with its link; then the bus says how all links are."""
        ups = {link.type: link.up for link in self._world.links}
        for kind in changed:
            if kind not in WIFI:
                self._node.send_bridge_event(PORT_JOINS if ups[kind] else PORT_LEAVES)
        states = {name: int(ups.get(kind, False)) for kind, name in LINK_ATTRIBUTES.items()}
        self._node.event("kolt.link_state", states, settle=False)
