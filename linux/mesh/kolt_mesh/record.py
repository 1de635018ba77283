"""What a run of a mesh was, second by second, and what it comes to."""
from collections import Counter
from dataclasses import asdict, dataclass, field
from statistics import fmean
from typing import TYPE_CHECKING

from .radio import Air

if TYPE_CHECKING:
    from .frames import Census
    from .lab import Lab

BUSY, USED = 50.0, 30.0  # percent: a link of a bundle is busy, and the others of that bundle take their part


@dataclass
class LinkSeries:
    type: str
    rate: float  # Mbit/s, 0 for no limit
    mbit: list[float] = field(default_factory=list)
    utilisation: list[float] = field(default_factory=list)
    broadcast: list[bool] = field(default_factory=list)
    state: list[str] = field(default_factory=list)


@dataclass
class Expectation:
    what: str
    measured: str
    met: bool


@dataclass
class Record:
    """Times in seconds from the start of the traffic."""
    name: str
    title: str
    about: str
    kind: str
    tick: float
    time: list[float] = field(default_factory=list)
    total: list[float] = field(default_factory=list)  # Mbit/s that arrive at the hosts
    links: dict[str, LinkSeries] = field(default_factory=dict)
    events: list[tuple[float, str]] = field(default_factory=list)
    expectations: list[Expectation] = field(default_factory=list)
    figures: list[tuple[str, str]] = field(default_factory=list)

    def as_data(self) -> dict:
        return asdict(self)

    def mean_utilisation(self, link: str, start: float, end: float) -> float:
        values = [value for at, value in zip(self.time, self.links[link].utilisation) if start <= at < end]
        return fmean(values) if values else 0.0

    def mean_total(self, start: float, end: float) -> float:
        values = [value for at, value in zip(self.time, self.total) if start <= at < end]
        return fmean(values) if values else 0.0


class Recorder:
    """Takes a sample of a lab now and then."""

    def __init__(self, lab: "Lab", record: Record) -> None:
        self._lab, self._record, self._air = lab, record, Air(lab)
        self._hosts = self._host_bytes()
        self._passed: Counter = Counter()
        for link in lab.topology.links:
            record.links[link.name] = LinkSeries(link.type, link.rate / 1e6)

    def sample(self, at: float, census: "Census") -> None:
        """Of the tick that began then and has just ended."""
        spent = self._air.measure()
        hosts = self._host_bytes()
        self._record.time.append(round(at, 2))
        self._record.total.append(round(8 * (hosts - self._hosts) / spent / 1e6, 2))
        self._hosts = hosts
        passed = Counter({port: sum(seen.values()) for port, seen in census.passes.items()})
        for name, series in self._record.links.items():
            series.mbit.append(round(self._air.carried[name] / 1e6, 2))
            series.utilisation.append(round(self._air.utilisation(name), 1))
            series.state.append(self._lab.state[name])
            series.broadcast.append(any(passed[port] > self._passed[port] for port in self._ports(name)))
        self._passed = passed

    def _ports(self, link: str) -> list[tuple[str, str]]:
        return [(node, end.port.name) for node, end in self._lab.ends[link].items()]

    def _host_bytes(self) -> int:
        """All that hosts have received."""
        return sum(sum(counted.rx_bytes for counted in place.route.counters().values())
                   for place in self._lab.hosts.values())


def uneven(lab: "Lab", record: Record, start: float, end: float) -> list[str]:
    """Radio links that idled in that time while another between the same two nodes was busy."""
    idle = []
    for bundle in lab.topology.bundles().values():
        radios = [link.name for link in bundle if link.type not in ("ethernet", "plc")]
        busy = {name: record.mean_utilisation(name, start, end) for name in radios}
        if busy and max(busy.values()) >= BUSY:
            idle += [name for name, value in busy.items() if value < USED]
    return idle
