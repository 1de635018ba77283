"""What a run leaves behind: one frame a tick, and the result that reports, tables and files are made of."""
from dataclasses import dataclass, field
from typing import Any

RESULT_FORMAT = 1


@dataclass(frozen=True)
class Move:
    """A stream that the daemon moved to another path."""
    time: float
    stream: str
    client: str
    origin: str
    target: str


@dataclass(frozen=True)
class Placement:
    """A client that the daemon pinned to a path."""
    time: float
    client: str
    path: str


@dataclass
class PathFrame:
    """One backhaul path at one tick. Rates and goodput in Mbit/s, shares in percent of the air time."""
    name: str
    type: str
    up: bool
    rate: float
    neighbours: float
    utilisation: float
    quota: float | None  # what the daemon last gave the path; None before its first period and for wired paths
    goodput: float
    streams: int
    clients: int
    broadcast: bool


@dataclass
class Frame:
    """One tick: the paths, the sums with the daemon, without it and at best, and what happened."""
    time: float
    paths: list[PathFrame]
    demand: float
    goodput: float
    without: float
    ideal: float
    moves: list[Move] = field(default_factory=list)
    placements: list[Placement] = field(default_factory=list)
    events: list[str] = field(default_factory=list)
    storm: list[str] = field(default_factory=list)  # the ports of the loop
    storm_without: list[str] = field(default_factory=list)


PATH_SERIES = ("up", "rate", "neighbours", "utilisation", "quota", "goodput", "streams", "clients", "broadcast")
TOTAL_SERIES = ("demand", "goodput", "without", "ideal")


class Recorder:
    """Gathers the frames of a run as columns."""

    def __init__(self) -> None:
        self.time: list[float] = []
        self.paths: dict[str, dict[str, Any]] = {}
        self.total: dict[str, list[float]] = {name: [] for name in TOTAL_SERIES}
        self.storm: list[list[str]] = []
        self.storm_without: list[list[str]] = []
        self.moves: list[Move] = []
        self.placements: list[Placement] = []
        self.events: list[dict] = []

    def add(self, frame: Frame) -> None:
        """Takes in the next tick."""
        self.time.append(frame.time)
        for path in frame.paths:
            columns = self.paths.setdefault(path.name, {"type": path.type} | {name: [] for name in PATH_SERIES})
            for name in PATH_SERIES:
                columns[name].append(_plain(getattr(path, name)))
        for name in TOTAL_SERIES:
            self.total[name].append(_plain(getattr(frame, name)))
        self.storm.append(frame.storm)
        self.storm_without.append(frame.storm_without)
        self.moves += frame.moves
        self.placements += frame.placements
        self.events += [{"time": frame.time, "text": text} for text in frame.events]

    def series(self) -> dict:
        """The columns, one value a tick."""
        return {"time": self.time, "paths": self.paths, "total": self.total, "storm": self.storm,
                "storm_without": self.storm_without}


def _plain(value: Any) -> Any:
    """A number as it goes into a file: no more digits than mean something."""
    if value is None or isinstance(value, (bool, int)):
        return value
    return round(float(value), 2)
