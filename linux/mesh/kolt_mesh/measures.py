"""What is measured of a mesh to compare what runs in it, each on a lab of its own."""
import time
from collections import Counter
from collections.abc import Callable
from dataclasses import dataclass, field

from . import frames, ports, tcp
from .frames import Broadcasts, Census
from .kinds import Kind
from .lab import Lab
from .netns import MeshError
from .stream import Seen, Stream
from .topology import Topology

OMITTED = 8  # seconds of a download that are not counted: streams find their links in that time
BEFORE = 0.4  # seconds of a stream before its link is lost
WAYS = {"cut": "carrier loss", "silence": "silent loss"}


@dataclass
class Contender:
    """
    Something to compare: how it is made, how long it may take to be whole, how long a lost link may stop it by each way, and
    how often a frame is sent to see that.
    """
    name: str
    make: Callable[[], Kind]
    settle: float
    outage: dict[str, float] = field(default_factory=dict)
    interval: float = 0.001




def settle(lab: Lab, contender: Contender) -> float:
    """Brings a lab up and waits until every host reaches every other one; how long that took."""
    began = time.monotonic()
    lab.up()
    lab.wait_carrier()
    if not frames.reachable(lab, contender.settle):
        lab.check()
        raise MeshError(f"{contender.name}: not whole after {contender.settle:g} s")
    return time.monotonic() - began


def settle_again(lab: Lab, contender: Contender) -> None:
    """Waits until a link's return has changed all that it changes."""
    lab.wait_carrier()
    lab.wait(lab.kind.settling)
    if not frames.reachable(lab, contender.settle):
        lab.check()
        raise MeshError(f"{contender.name}: not whole again after {contender.settle:g} s")


def throughput(lab: Lab, streams: int, seconds: int) -> float:
    """Mbit/s that a download from the first host to the last comes to."""
    source, *_, target = lab.hosts
    with tcp.Download(lab, source, target, streams, seconds, omit=OMITTED) as download:
        run = download.result()
    if run.broken:
        raise MeshError(f"a download over {streams} streams: {run.broken}")
    return run.rate / 1e6


@dataclass
class Spread:
    """Of a download, from its start on."""
    periods: int
    uneven: int  # at most so many in a row in which a link idled while another was over its high threshold


def spread(lab: Lab, streams: int, periods: int) -> Spread:
    """How soon the links share a download; a period is a second, as the daemon's in a mesh."""
    source, *_, target = lab.hosts
    found, in_a_row = Spread(periods, 0), 0
    param = ports.configuration(lab.topology, next(iter(lab.nodes)))["param"]
    rates = {link.name: link.rate for link in lab.topology.links}
    with tcp.Download(lab, source, target, streams, periods + 1) as download:
        before, then = carried(lab), time.monotonic()
        for _ in range(periods):
            lab.wait(1.0)
            after, now = carried(lab), time.monotonic()
            busy = [100 * 8 * (after[link] - before[link]) / (rates[link] * (now - then)) for link in after]
            is_uneven = min(busy) < param["idle_threshold"] and max(busy) > param["high_threshold"]
            in_a_row = in_a_row + 1 if is_uneven else 0
            found.uneven = max(found.uneven, in_a_row)
            before, then = after, now
        run = download.result()
    if run.broken:
        raise MeshError(f"a download over {streams} streams: {run.broken}")
    return found


def outage(lab: Lab, way: str, contender: Contender) -> Seen:
    """What a stream from the first host to the last sees of losing the link that it is on."""
    source, *_, target = lab.hosts
    with Stream(lab, source, target, contender.interval) as stream:
        lab.wait(BEFORE / 2)
        link = busiest_link(lab, BEFORE / 2)
        getattr(lab, way)(link)
        lab.wait(contender.outage[way] + BEFORE)
        seen = stream.end()
    lab.restore(link)
    return seen


def busiest_link(lab: Lab, seconds: float) -> str:
    """The link that carries the most frames in that time."""
    before = passed(lab)
    lab.wait(seconds)
    after = passed(lab)
    return max(after, key=lambda link: after[link] - before[link])


def passed(lab: Lab) -> dict[str, int]:
    """Frames that each link has carried so far."""
    return sums(lab, "tx_packets")


def carried(lab: Lab) -> dict[str, int]:
    """Bytes that each link has carried so far."""
    return sums(lab, "tx_bytes")


def sums(lab: Lab, counter: str) -> dict[str, int]:
    counters = {node: lab.counters(node) for node in lab.nodes}
    return {link: sum(getattr(counters[node][end.port.name], counter) for node, end in ends.items())
            for link, ends in lab.ends.items()}


def copies(lab: Lab, count: int = 100) -> Census:
    """What becomes of that many broadcasts of each host."""
    with Broadcasts(lab) as counting:
        for host in lab.hosts:
            counting.burst(host, count)
    return counting.census


@dataclass
class Moves:
    """Broadcasts around changes of the link that carries them."""
    rounds: int = 0
    sent: int = 0
    lost: int = 0
    duplicates: int = 0
    circled: int = 0

    def add(self, census: Census) -> None:
        self.sent += len(census.sent)
        self.lost += census.lost()
        self.duplicates += census.duplicates()
        self.circled += len(census.circled())


def moves(lab: Lab, rounds: int, during: float) -> dict[str, Moves]:
    """
    Broadcasts every millisecond while the link that carries them is cut, and while it comes back; `during` is how long each
    is watched.
    """
    told = {"cut": Moves(rounds), "restore": Moves(rounds)}
    for _ in range(rounds):
        link = ""
        for what, moved in told.items():
            with Broadcasts(lab) as counting:
                counting.run(0.2, gap=0.001)
                link = link or carrier_of_broadcasts(lab, counting.census)
                getattr(lab, what)(link)
                counting.run(during, gap=0.001)
                counting.listen()
            lab.check()
            moved.add(counting.census)
    return told


def carrier_of_broadcasts(lab: Lab, census: Census) -> str:
    """The link that most of them took."""
    count: Counter = Counter()
    for link, ends in lab.ends.items():
        for node, end in ends.items():
            count[link] += sum(census.passes.get((node, end.port.name), Counter()).values())
    if not count or not max(count.values()):
        raise MeshError("no link carries broadcasts")
    return count.most_common(1)[0][0]
