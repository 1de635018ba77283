"""A home for about a minute: everybody is reached, a download uses all links, a link fails, and nothing circles."""
import contextlib
import shutil
import time
from collections.abc import Callable
from dataclasses import dataclass

from . import frames, tcp
from .frames import Broadcasts, Census
from .lab import Lab
from .netns import MeshError
from .record import Expectation, Record, Recorder, uneven
from .stream import Seen, Stream
from .topology import Topology

TICK = 1.0
STATUS_EVERY = 3  # ticks
AFTER_EVENTS, WITHOUT_EVENTS = 14.0, 30.0  # seconds that a run goes on
CENSUS_GAP = 0.02
COUNTED = 100  # broadcasts from one host before the traffic
LONGEST_OUTAGE = 0.5  # that a person would not notice
BLOCKS = " ▁▂▃▄▅▆▇█"
WIDTH = 118


@dataclass
class Limits:
    """How long a mesh may take to be whole, in seconds, and whether its figures are judged."""
    settle: float
    judged: bool


class Show:
    """`say` gets each line."""

    def __init__(self, lab: Lab, limits: Limits, say: Callable[[str], None]) -> None:
        self._lab, self._topology, self._limits, self._say = lab, lab.topology, limits, say
        self._start = time.monotonic()
        self.record = Record(self._topology.name, self._topology.title, self._topology.about, lab.kind.title, TICK)

    def run(self) -> Record:
        self._come_up()
        self._count_copies()
        self._traffic()
        return self.record

    def _tell(self, text: str) -> None:
        seconds = int(time.monotonic() - self._start)
        self._say(f"{seconds // 60}:{seconds % 60:02}  {text}")

    def _expect(self, what: str, measured: str, met: bool) -> None:
        if self._limits.judged:
            self.record.expectations.append(Expectation(what, measured, bool(met)))

    # Before the traffic

    def _come_up(self) -> None:
        self._tell(f"{len(self._topology.nodes)} nodes with {self._lab.kind.title}; all links come up")
        self._lab.up()
        began = time.monotonic()
        if not frames.reachable(self._lab, self._limits.settle):
            self._lab.check()
            raise MeshError(f"after {self._limits.settle:g} s not every host reaches every other one exactly once")
        self._tell(f"every host reaches every other one, {time.monotonic() - began:.1f} s after the links came up")

    def _count_copies(self) -> None:
        source, *others = self._lab.hosts
        with Broadcasts(self._lab) as counting:
            counting.burst(source, COUNTED)
        census = counting.census
        for host in others:
            copies = census.copies_of(host)
            if set(copies) != {1}:
                self._tell(f"{host} got between {min(copies)} and {max(copies)} copies of {COUNTED} broadcasts")
        if census.exactly_one():
            self._tell(f"{COUNTED} broadcasts from {source}: exactly one copy of each at {', '.join(others)}")
        self._expect(f"one copy of each of {COUNTED} broadcasts at every host",
                     f"{census.lost()} lost, {census.duplicates()} twice", census.exactly_one())

    # The traffic and what happens meanwhile

    def _traffic(self) -> None:
        events = self._topology.events
        length = max((event["at"] + AFTER_EVENTS for event in events), default=WITHOUT_EVENTS)
        with contextlib.ExitStack() as stack:
            stream = stack.enter_context(Stream(self._lab, *self._stream_ends()))
            downloads = [stack.enter_context(tcp.Download(self._lab, one.source, one.target, one.streams, length,
                                                          port=tcp.PORT + number))
                         for number, one in enumerate(self._topology.traffic)]
            for one in self._topology.traffic:
                self._tell(f"download: {one.streams} streams from {one.source} to {one.target}")
            census = self._go(length)
            seen = stream.end()
            runs = [download.result() for download in downloads]
        self._judge(census, seen, runs)

    def _stream_ends(self) -> tuple[str, str]:
        if self._topology.traffic:
            return self._topology.traffic[0].source, self._topology.traffic[0].target
        hosts = list(self._lab.hosts)
        return hosts[0], hosts[-1]

    def _go(self, length: float) -> Census:
        """Samples the mesh every tick, makes the events happen, and sends broadcasts all the time."""
        recorder, start, ticks = Recorder(self._lab, self.record), time.monotonic(), 0
        due = list(self._topology.events)
        with Broadcasts(self._lab) as counting:
            while (now := time.monotonic() - start) < length:
                if due and now >= due[0]["at"]:
                    self._happen(due.pop(0), now)
                until = min([(ticks + 1) * TICK, *(event["at"] for event in due[:1])])
                counting.run(max(0.01, min(until - now, 0.25)), gap=CENSUS_GAP)
                self._lab.check()
                self._lab.kind.follow(self._lab)
                if time.monotonic() - start >= (ticks + 1) * TICK:
                    recorder.sample(ticks * TICK, counting.census)
                    ticks += 1
                    if ticks % STATUS_EVERY == 0:
                        self._status()
            counting.listen()
        return counting.census

    def _happen(self, event: dict, now: float) -> None:
        text = event_text(event)
        self._lab.obey(event)
        self.record.events.append((round(now, 2), text))
        self._tell(f"** {text}")

    def _status(self) -> None:
        """What arrives in all, and each link with a bar as high as it is busy."""
        parts = []
        for ends, bundle in self._topology.bundles().items():
            first = bundle[0].ends
            shown = "  ".join(f"{link.type} {self._bar(link.name)}" for link in bundle)
            parts.append(f"{first[0]}-{first[1]}  {shown}")
        width = min(WIDTH, shutil.get_terminal_size((WIDTH, 0)).columns) - 10  # for the time, and the rule before each part
        lines, line = [], f"{self.record.total[-1]:6.1f} Mbit/s"
        for part in parts:
            if len(line) + len(part) > width:
                lines.append(line)
                line = " " * 13
            line += f"  | {part}"
        for number, text in enumerate([*lines, line]):
            if number:
                self._say(" " * 6 + text)
            else:
                self._tell(text)

    def _bar(self, link: str) -> str:
        series = self.record.links[link]
        if series.state[-1] in ("cut", "unused"):
            return "down"
        level = min(len(BLOCKS) - 1, round(series.utilisation[-1] / 100 * (len(BLOCKS) - 1)))
        return f"{BLOCKS[level]}{series.mbit[-1]:3.0f}"

    # What it comes to

    def _judge(self, census: Census, seen: Seen, runs: list[tcp.Run]) -> None:
        first = min((at for at, _ in self.record.events), default=self.record.time[-1])
        idle = uneven(self._lab, self.record, first - 10, first)
        before = self.record.mean_total(first - 10, first)
        self.record.figures += [("arriving before the first event", f"{before:.1f} Mbit/s"),
                                ("longest time without a frame", f"{1000 * seen.outage:.1f} ms"),
                                ("lost in full queues and by the cut", f"{seen.lost} of {seen.sent} frames of a stream"),
                                ("broadcasts meanwhile", f"{len(census.sent)}, {census.lost()} copies lost likewise, "
                                                         f"{census.duplicates()} came twice")]
        for run in runs:
            self.record.figures.append((f"download over {run.streams} streams",
                                        run.broken or f"{run.rate / 1e6:.1f} Mbit/s, {run.retransmits} resent"))
        self._expect("no radio link idles while another beside it is busy", ", ".join(idle) or "none", not idle)
        self._expect(f"nobody waits longer than {LONGEST_OUTAGE:g} s when a link is lost",
                     f"{1000 * seen.outage:.1f} ms", seen.outage <= LONGEST_OUTAGE)
        self._expect("no connection is lost", ", ".join(run.broken for run in runs if run.broken) or "none",
                     not any(run.broken for run in runs))
        circled = census.circled()
        self._expect("no frame passes a port twice", ", ".join(" ".join(port) for port in circled) or "none",
                     not circled)
        self._expect("no broadcast arrives twice", str(census.duplicates()), not census.duplicates())


def event_text(event: dict) -> str:
    match event["do"]:
        case "cut":
            return f"{event['link']} is cut"
        case "silence":
            way = f" in what {event['end']} sends" if "end" in event else ""
            return f"{event['link']} loses every frame{way}, without a sign"
        case "slow":
            return f"{event['link']} becomes slower: {event['rate']}"
        case "restore":
            return f"{event['link']} is back"
        case "kill" | "start" as what:
            return f"{event['program']} of {event['node']} {'is killed' if what == 'kill' else 'starts again'}"
    return f"{event['node']} becomes a {event['mode']}"


def picture(topology: Topology) -> list[str]:
    """The home in words: its nodes and what joins them."""
    lines = [f"{topology.title}. {topology.about}".strip()]
    for bundle in topology.bundles().values():
        first, second = bundle[0].ends
        links = ", ".join(f"{link.type} {link.rate / 1e6:g} Mbit/s" if link.rate else link.type for link in bundle)
        lines.append(f"  {first} ({topology.nodes[first]}) -- {links} -- {second} ({topology.nodes[second]})")
    hosts = ", ".join(f"{host} at {node}" for host, node in topology.hosts.items())
    return [*lines, f"  hosts: {hosts}"]
