"""The bridge's tables as bytes: forwarding entries, pinned clients, and the streams with their counters."""
from collections import deque

import numpy as np

from kolt_node.messages import fdb_entry, hd_entry, mac_bytes

from ..model.bridge import NOWHERE
from ..model.world import AWAY, UPLINK, World

STREAM_ENTRY = np.dtype({
    "names": ["hash", "src", "dst", "src_port", "dst_port", "kind", "port", "packets", "bytes", "flags"],
    "formats": ["<u2", ("u1", 6), ("u1", 6), "<u2", "<u2", "<u2", "<u4", "<u4", "<u4", "u1"],
    "offsets": [0, 2, 8, 20, 22, 24, 28, 60, 64, 88],
    "itemsize": 100,
})
REVERSE = 0x10  # the entry is the answer to another one
FIRST_PORT, FAR_PORT = 10000, 443
UINT32 = 0xFFFFFFFF


def client_mac(number: int) -> str:
    """The address of the client of that number, the same in every run."""
    return f"02:20:00:00:{number >> 8:02x}:{number & 255:02x}"


class Tables:
    """
    `indexes` gives the interface indexes by name. The counters of a stream hold what it carried in the last
    `window` seconds, which is what the daemon takes them for: it divides them by its period.
    """

    def __init__(self, world: World, indexes: dict[str, int], bridge_mac: str, window: float) -> None:
        self.world, self.indexes = world, indexes
        self.bridge_mac = bridge_mac
        self.macs = [client_mac(number) for number in range(len(world.clients))]
        self.numbers = {mac: number for number, mac in enumerate(self.macs)}
        self._mac_rows = np.array([list(mac_bytes(mac)) for mac in self.macs], dtype=np.uint8).reshape(-1, 6)
        self._path_index = np.array([indexes[link.name] for link in world.links] + [0], dtype=np.uint32)
        self._entries = np.zeros(world.traffic.count, dtype=int)  # as of the last tick
        self._born = tuple(np.zeros(world.traffic.count) for _ in range(4))  # the totals when an entry began
        self._past: deque[tuple[np.ndarray, ...]] = deque(maxlen=max(1, round(window / world.scenario.tick)) + 1)
        count = world.traffic.count
        number = np.arange(count)
        self._ports = (FIRST_PORT + number).astype(np.uint16)
        self._rows = np.zeros(2 * count, dtype=STREAM_ENTRY)
        self._rows["hash"] = np.concatenate((number, number + count)).astype(np.uint16)
        self._rows["kind"] = np.tile(world.traffic.is_udp.astype(np.uint16), 2)
        self._rows["flags"] = np.repeat(np.array([0, REVERSE], dtype=np.uint8), count)

    def is_forward_entry(self, number: int, given: dict) -> bool:
        """Whether a call names the entry of a stream's way out by all that identifies it."""
        row = self._rows[number]
        return (given["hash"] == int(row["hash"]) and given["stream_kind"] == int(row["kind"])
                and mac_bytes(given["src"]) == row["src"].tobytes() and mac_bytes(given["dst"]) == row["dst"].tobytes())

    def stream_of(self, near_port: int, far_port: int) -> int:
        """The number of the stream that has these two ports; NOWHERE for one that the table does not hold."""
        number = near_port - FIRST_PORT
        return number if 0 <= number < self.world.traffic.count and far_port == FAR_PORT else NOWHERE

    def forwarding(self) -> bytes:
        """The FDB: every client on its port, and the bridge itself."""
        world = self.world
        learnt = world.learnt_path()
        far_port = self.indexes[world.links[learnt].name] if learnt != NOWHERE else 0
        entries = []
        for number, name in enumerate(world.clients):
            place = world.place[name]
            port = far_port if place == UPLINK else self.indexes.get(place, 0)
            if place != AWAY and port:
                entries.append(fdb_entry(self.macs[number], port))
        entries.append(fdb_entry(self.bridge_mac, self.indexes["br-lan"], local=True))
        return b"".join(entries)

    def pinned_clients(self) -> bytes:
        """The HD table."""
        bridge = self.world.bridge
        return b"".join(hd_entry(self.macs[number], int(self._path_index[bridge.hd[number]]),
                                 second=bridge.hd_second[number])
                        for number in np.flatnonzero(bridge.hd != NOWHERE))

    def take_streams(self) -> bytes:
        """
        The HA table: both directions of every stream that has an entry. To be called once a tick, since it keeps the
        counters' past. An entry counts from its own beginning.
        """
        world, rows, count = self.world, self._rows, self.world.traffic.count
        totals = world.total_out, world.packets_out, world.total_in, world.packets_in
        renewed = world.bridge.entries != self._entries
        self._entries = world.bridge.entries.copy()
        if self._past:  # what a new entry has carried, it has carried in the tick that just ended
            for born, last in zip(self._born, self._past[-1]):
                born[renewed] = last[renewed]
        self._past.append(tuple(total.copy() for total in totals))
        bytes_out, packets_out, bytes_in, packets_in = (
            np.minimum(total - np.maximum(past, born), UINT32).astype(np.uint32)
            for total, past, born in zip(totals, self._past[0], self._born))
        near, far = self._mac_rows[world.near], self._mac_rows[world.far]
        ahead, behind = rows[:count], rows[count:]
        ahead["src"], ahead["dst"], behind["src"], behind["dst"] = near, far, far, near
        ahead["src_port"], ahead["dst_port"] = self._ports, FAR_PORT
        behind["src_port"], behind["dst_port"] = FAR_PORT, self._ports
        ahead["port"], behind["port"] = self._path_index[world.bridge.out], self._path_index[world.bridge.back]
        ahead["bytes"], ahead["packets"] = bytes_out, packets_out
        behind["bytes"], behind["packets"] = bytes_in, packets_in
        return rows[np.tile(world.bridge.pinned & world.crossing, 2)].tobytes()
