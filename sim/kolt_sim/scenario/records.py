"""A scenario as the rest of the program sees it: checked, with every default filled in and every count expanded.

Times are seconds since the start of the run, rates and demands are Mbit/s, shares are percent.
"""
from dataclasses import dataclass

WIFI = ("2.4g", "5g", "5g_2")
PATH_TYPES = ("ethernet", "plc") + WIFI
INTERFACES = {"ethernet": "eth0", "plc": "plc0", "2.4g": "wlan0.1", "5g": "wlan1.1", "5g_2": "wlan2.1"}
LOCAL_PORTS = ("eth1", "wlan0-a", "wlan1-a", "wlan0-b.1", "wlan1-b.1")  # extenders further down hang on the last two
PLACES = ("uplink",) + LOCAL_PORTS + ("away",)
KINDS = ("download", "upload", "video", "small")


@dataclass(frozen=True)
class Fading:
    """How the PHY rate of a Wi-Fi path swings: up to `depth` percent down every `period` seconds, with `noise`."""
    depth: float = 0
    period: float = 60
    noise: float = 0


@dataclass(frozen=True)
class Path:
    """A backhaul path. `rate` is the PHY rate of Wi-Fi and the throughput of wired links."""
    type: str
    name: str
    up: bool
    rate: float
    neighbours: float
    efficiency: float
    fading: Fading


@dataclass(frozen=True)
class Client:
    """A device; `at` is where it is when the run starts: "uplink", a local port or "away"."""
    name: str
    at: str


@dataclass(frozen=True)
class Stream:
    """A flow between two clients. `on` and `off` are mean seconds of activity and silence; None: it never pauses."""
    name: str
    client: str
    peer: str
    kind: str
    demand: float
    start: float
    end: float | None
    on: float | None
    off: float | None


@dataclass(frozen=True)
class LinkEvent:
    """A path's link comes up or goes down."""
    at: float
    path: str
    up: bool


@dataclass(frozen=True)
class RateEvent:
    """A path's rate goes to `rate`, evenly over `over` seconds."""
    at: float
    path: str
    rate: float
    over: float


@dataclass(frozen=True)
class NeighboursEvent:
    """The neighbours' share of a Wi-Fi path's air time goes to `neighbours`, evenly over `over` seconds."""
    at: float
    path: str
    neighbours: float
    over: float


@dataclass(frozen=True)
class ClientEvent:
    """A client arrives, leaves or roams."""
    at: float
    client: str
    to: str


@dataclass(frozen=True)
class CpuEvent:
    """The load of the node's processor becomes `percent`."""
    at: float
    percent: float


Event = LinkEvent | RateEvent | NeighboursEvent | ClientEvent | CpuEvent


@dataclass(frozen=True)
class Expectation:
    """What the run must show; None where the scenario says nothing."""
    storm_without: bool
    gain: float | None = None
    of_ideal: float | None = None
    worst_client: float | None = None
    bounces: int | None = None
    calm: float | None = None
    relief: float | None = None
    moves_at_least: int | None = None
    moves_at_most: int | None = None
    settled_by: float | None = None


@dataclass(frozen=True)
class Scenario:
    """Everything a run needs. `paths` goes by type, `events` by time; `name` is the file's name without its suffix."""
    name: str
    title: str
    about: str
    duration: float
    tick: float
    seed: int
    default_path: str
    cpu: float
    parent_known: bool
    settings: dict[str, int | bool]
    paths: dict[str, Path]
    clients: list[Client]
    streams: list[Stream]
    events: list[Event]
    expect: Expectation
    notes: list[str]
