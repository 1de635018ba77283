"""
What a period does to one bridge, in the plainest form: when the streams are let go, which clients get an entry, which
streams move. It remembers what the daemon remembers, so that several bridges and periods can follow one another.
"""
from dataclasses import dataclass, field

import plain_ranking
from kolt_node import ha_entry

WORD = 0xFFFFFFFF
NONE = 5  # no path
WIFI = (2, 3, 4)
NOT_PINNED = 65535
CLIENTS, ENTRIES = 255, 256
SAMPLES, CHOICES = 15, 20
BUSY = 3000000


@dataclass
class Param:
    high_threshold: int = 70
    delta_threshold: int = 10
    reserved_ratio: int = 0
    adjusted_streams: int = 1
    adjusted_ratio: int = 50
    rate_abnormal_threshold: int = 13
    wifi_rate_check: bool = True
    estimate_ack_enable: bool = False
    cpu_limit: bool = False


@dataclass
class Interface:
    """A port as configured; `rate` is its station's, None without one, and `util` what its driver says."""
    name: str
    type: int
    index: int
    relay: bool = False
    path: bool = True
    cls: int = 0
    priority: int = 0
    rate: int | None = None
    util: int = 0

    @property
    def base(self) -> str:
        return self.name.split(".")[0]


@dataclass
class Stream:
    src: str
    dst: str
    port: int
    hash: int
    src_port: int
    dst_port: int
    packets: int
    bytes: int
    flags: int = 0


@dataclass
class Bridge:
    """What the kernel says: the ports, (MAC, port, is local) of the forwarding table, (MAC, port) of the pinned."""
    name: str
    ports: list[Interface]
    fdb: list[tuple[str, int, bool]]
    pinned: list[tuple[str, int]]
    streams: list[Stream]


@dataclass
class World:
    """What all bridges share: interface indexes, link states by type, counters (bytes and packets in, then out)."""
    indexes: dict[str, int]
    links: list[bool]
    counters: dict[str, tuple[int, int, int, int]]

    def name(self, index: int) -> str | None:
        return next((name for name, number in self.indexes.items() if number == index), None)


@dataclass
class History:
    index: int = 0
    counters: tuple[int, ...] = (0, 0, 0, 0)
    factor: int = 0
    size: int = 0
    received: bool = False
    samples: list[int] = field(default_factory=lambda: [0] * SAMPLES)
    newest: int = 0
    data_rate: list[int] = field(default_factory=lambda: [0] * 5)

    def add_rate(self, sent: int, received: int) -> int:
        """The value a third of the way down the samples that are not 0."""
        if self.samples[self.newest]:
            self.newest = (self.newest + 1) % SAMPLES
        slow = min(sent, received) < 21
        self.samples[self.newest] = max(sent, received) if slow else (received if self.received else sent)
        ranked = sorted((rate for rate in self.samples if rate), reverse=True)
        return ranked[len(ranked) // 3] if ranked else 0

    def count(self, now: tuple[int, ...]) -> None:
        received, packets, sent, packets_sent = ((new - old) & WORD for new, old in zip(now, self.counters))
        self.counters = now
        self.factor = (packets or 1) // (packets_sent or 1) & 255 or 1
        self.size = received // (packets or 1)
        self.received = sent < received
        self.data_rate = [(received + sent) & WORD, *self.data_rate[2:], self.data_rate[4]]


@dataclass
class Path:
    name: str
    type: int
    util: int
    priority: int = 0
    rate: int = 0
    quota: int = 0


@dataclass
class RankedStream:
    hash: int
    port: int
    src_port: int
    packets: int
    bytes: int


@dataclass
class Client:
    mac: str
    type: int
    relay: bool
    port: int
    pinned: int = NOT_PINNED
    streams: list[RankedStream] = field(default_factory=list)


class Model:
    """A daemon: what it remembers between periods and bridges."""

    def __init__(self, param: Param) -> None:
        self.param = param
        self.histories = [History() for _ in range(5)]
        self.choices: list[int] = [NONE] * CHOICES
        self.next_choice = 0
        self.adjusted = True
        self.calls: list[tuple] = []
        self.balanced: list[tuple[int, int, int]] = []  # the hash, bytes and packets of the streams looked at

    def period(self, bridge: Bridge, world: World) -> list[tuple]:
        """("flush",), ("hd", MAC, interface) and ("ha", hash, source port, interface), in the order of the calls."""
        self.calls, self.balanced = [], []
        clients = client_list(bridge)
        paths = self._measure(bridge, world)
        adjusting = self._overloaded(paths) and not self._full(paths)
        for path in paths.values():
            path.quota = 100 * max(0, 100 - self.param.reserved_ratio - path.util)
        if adjusting:
            rank_streams(clients, bridge)
            if self.param.estimate_ack_enable and self._count(paths, world):
                self._estimate(clients)
        for number, client in enumerate(clients):
            best = None if client.relay else best_path(paths)
            if best is None:
                continue
            target = self._majority(paths, best, number == 0) if self.param.cpu_limit else best
            if self._pin(client, target.name, world) and adjusting and self.adjusted:
                self._balance(client, best, paths, world)
        self.adjusted = adjusting
        return self.calls

    def _measure(self, bridge: Bridge, world: World) -> dict[int, Path]:
        paths: dict[int, Path] = {}
        healthy = False
        limit = self.param.rate_abnormal_threshold
        for port in bridge.ports:
            if not port.path or port.relay or port.type not in WIFI or port.cls == 1 or not world.links[port.type]:
                continue
            if port.rate is None:
                continue
            healthy = healthy or port.type == 2 and port.rate >= limit
            util = port.util if 0 <= port.util <= 100 else 0
            path = paths.setdefault(port.type, Path(f"{port.base}.1"[:15], port.type, util))
            path.priority = port.priority
            if self.param.wifi_rate_check and healthy and port.type != 2 and port.rate < limit:
                path.rate = 0
                self.calls.append(("flush",))
            else:
                path.rate = self.histories[port.type].add_rate(port.rate, port.rate)
        return dict(sorted(paths.items()))

    def _overloaded(self, paths: dict[int, Path]) -> bool:
        return any(path.util > self.param.high_threshold for path in paths.values())

    def _full(self, paths: dict[int, Path]) -> bool:
        usable = [path for path in paths.values() if path.rate]
        return bool(usable) and all(
            one.util > self.param.high_threshold and one.util - other.util <= self.param.delta_threshold
            for one in usable for other in usable)

    def _count(self, paths: dict[int, Path], world: World) -> bool:
        for path in paths.values():
            now = world.counters.get(path.name)
            if now is None:
                return False
            self.histories[path.type].index = world.indexes.get(path.name, 0)
            self.histories[path.type].count(now)
        return True

    def _estimate(self, clients: list[Client]) -> None:
        for stream in (stream for client in clients for stream in client.streams):
            history = next((one for one in self.histories if one.index == stream.port), None)
            if history is None:
                continue
            mean, worth = stream.bytes // stream.packets, history.factor * history.size & WORD
            if stream.bytes < 30000000 and mean < 200 and worth > mean:
                stream.bytes = stream.packets * worth & WORD

    def _majority(self, paths: dict[int, Path], best: Path, record: bool) -> Path:
        if record:
            self.choices[self.next_choice] = best.type
            self.next_choice = (self.next_choice + 1) % CHOICES
        known = self.choices[:self.choices.index(NONE)] if NONE in self.choices else self.choices
        most = max(range(5), key=lambda type: (known.count(type), type))
        return paths.get(most, best)

    def _busy(self) -> bool:
        return any(sum(history.data_rate[slot] for history in self.histories) & WORD > BUSY for slot in range(5))

    def _pin(self, client: Client, target: str, world: World) -> bool:
        """Whether the client is where it should be, or is to stay where it is."""
        if client.pinned == world.indexes.get(target, 0) or self.param.cpu_limit and self._busy():
            return True
        if client.type == 1:
            return False
        self.calls.append(("hd", client.mac, target))
        return True

    def _need(self, stream: RankedStream, best: Path) -> int:
        return ((stream.bytes // 1000 >> 6) * 10000 & WORD) // best.rate

    def _balance(self, client: Client, best: Path, paths: dict[int, Path], world: World) -> None:
        self.balanced += [(stream.hash, stream.bytes, stream.packets) for stream in client.streams]
        if best.quota <= 0:
            return
        target = world.indexes.get(best.name, 0)
        budget, count = self.param.adjusted_ratio * best.quota // 100, 0
        for stream in client.streams:
            if budget < 1:
                break
            if stream.port != target:
                if self._need(stream, best) == 0:
                    break
                budget -= self._need(stream, best)
                count += 1
        moved = 0
        for stream in client.streams:
            if moved >= min(self.param.adjusted_streams, count):
                break
            path = next((path for path in paths.values() if path.name == world.name(stream.port)), None)
            hot = path is not None and path.util > self.param.high_threshold \
                and path.util - best.util > self.param.delta_threshold
            if not hot or stream.port == target:
                continue
            need = self._need(stream, best)
            if need == 0:
                break
            if need < best.quota:
                self.calls.append(("ha", stream.hash, stream.src_port, best.name))
                best.quota -= need
                moved += 1


def best_path(paths: dict[int, Path]) -> Path | None:
    """The first of those with the highest score."""
    return max((path for path in paths.values() if path.rate), default=None,
               key=lambda path: (100 + 20 * path.priority) * (path.quota * path.rate // 100))


def client_list(bridge: Bridge) -> list[Client]:
    clients = [Client(mac, port.type, port.relay, index) for mac, index, local in bridge.fdb[:ENTRIES] if not local
               for port in bridge.ports if port.index == index][:CLIENTS]
    for client in clients:
        client.pinned = next((port for mac, port in bridge.pinned if mac == client.mac), NOT_PINNED)
    return clients


def rank_streams(clients: list[Client], bridge: Bridge) -> None:
    """The busiest streams of each pinned client. What flows back counts with a stream, and stays added to it."""
    entries = [ha_entry(stream.src, stream.dst, stream.port, hash=stream.hash, src_port=stream.src_port,
                        dst_port=stream.dst_port, packets=stream.packets, bytes_=stream.bytes, flags=stream.flags)
               for stream in bridge.streams]
    ranked = plain_ranking.rank(entries,
                                [plain_ranking.RankedClient(client.mac, client.relay, client.pinned)
                                 for client in clients],
                                [port.index for port in bridge.ports if not port.relay])
    for client, streams in zip(clients, ranked):
        client.streams = [RankedStream(stream.hash, stream.port, stream.src_port, stream.packets, stream.bytes)
                          for stream in streams]
