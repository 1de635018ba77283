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
from .node import MeshNode
from .stream import Seen, Stream
from .topology import Topology

OMITTED = 8  # seconds of a download that are not counted: streams find their links in that time
BEFORE = 0.4  # seconds of a stream before its link is lost
IDLE = 10.0  # percent of a link's rate below which nobody would say that it is used
MEASURED = "path_selection_init_path_quota"  # who says what was measured of a path
LONGEST_PERIOD = 10.0  # seconds
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


def spread(lab: Lab, streams: int, periods: int, phase: float = 0.0) -> Spread:
    """
    How soon the links share a download, in whole measuring periods of the daemon on the last node; `phase` is how many
    seconds into the first of them it begins.
    """
    source, *_, target = lab.hosts
    node = lab.kind.nodes[list(lab.nodes)[-1]]
    node.event("kolt.debug", {"dbg_level": 1}, settle=False)
    found, in_a_row = Spread(periods, 0), 0
    hot = ports.configuration(lab.topology, node.name)["param"]["high_threshold"]
    await_measurement(lab, node)
    before = busy_since(lab)
    lab.wait(phase)
    with tcp.Download(lab, source, target, streams, periods + 1) as download:
        for _ in range(periods):
            await_measurement(lab, node)
            busy, before = before(), busy_since(lab)
            in_a_row = in_a_row + 1 if min(busy) < IDLE and max(busy) > hot else 0
            found.uneven = max(found.uneven, in_a_row)
        run = download.result()
    if run.broken:
        raise MeshError(f"a download over {streams} streams: {run.broken}")
    return found


def await_measurement(lab: Lab, node: MeshNode) -> None:
    """Waits until kolt has measured its paths once more."""
    seen, deadline = len(node.log(function=MEASURED)), time.monotonic() + LONGEST_PERIOD
    while len(node.log(function=MEASURED)) == seen:
        if time.monotonic() > deadline:
            raise MeshError(f"{node.name}: kolt measures nothing: {node.recent(3)}")
        lab.wait(0.01)
    lab.wait(0.05)  # of all paths, one after the other


def busy_since(lab: Lab) -> Callable[[], list[float]]:
    """How busy each link was from now on until the result is called, in percent of its rate."""
    before, then = carried(lab), time.monotonic()
    rates = {link.name: link.rate for link in lab.topology.links}

    def busy() -> list[float]:
        after, spent = carried(lab), time.monotonic() - then
        return [100 * 8 * (after[link] - before[link]) / (rates[link] * spent) for link in after]
    return busy


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
