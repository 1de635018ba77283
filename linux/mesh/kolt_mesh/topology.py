"""
Topologies: nodes, the links between them, hosts, traffic and timed events, as a JSON file or made in a program.

    {"title": "...", "about": "...",
     "nodes":   {"a": {"mode": "FAP"}, "b": {"mode": "RE"}},
     "links":   [{"between": ["a", "b"], "type": "5g", "rate": "50mbit"}],
     "hosts":   {"h1": "a", "h2": "b"},
     "traffic": [{"from": "h1", "to": "h2", "streams": 6}],
     "events":  [{"at": 20, "do": "cut", "link": "a-b 5g"}]}

A link is called by its ends and its type, "a-b 5g"; a second one of the same kind is "a-b 5g #2". Without a rate it is as
fast as the machine.
"""
import difflib
import json
import re
from collections import Counter
from collections.abc import Iterable
from dataclasses import dataclass, field
from pathlib import Path

TYPES = ("ethernet", "plc", "2.4g", "5g", "5g_2")
MODES = ("RE", "FAP", "AP", "HAP")
# What an event may do, with the members that it has besides "at" and "do"; those with a mark may be missing.
EVENTS = {"cut": {"link", "end?"}, "silence": {"link", "end?"}, "slow": {"link", "rate"}, "restore": {"link"},
          "kill": {"node", "program"}, "start": {"node", "program"}, "mode": {"node", "mode"}}
PROGRAMS = ("kolt", "kolt-bridged")
SHELF = Path(__file__).resolve().parent.parent / "topologies"
MOST_HOSTS = 60  # each knows every other one
LONGEST_NAME = 10

_NAME = re.compile(r"[a-z][a-z0-9]*")
_RATE = re.compile(r"(\d+(?:\.\d+)?)([kmg])bit")
_UNITS = {"k": 1e3, "m": 1e6, "g": 1e9}


class TopologyError(Exception):
    """The topology is not one; the text says why."""


@dataclass(frozen=True)
class Link:
    """`rate` is in bits a second, 0 for no limit."""
    name: str
    ends: tuple[str, str]
    type: str
    rate: float = 0.0

    def other(self, node: str) -> str:
        return self.ends[1] if node == self.ends[0] else self.ends[0]


@dataclass(frozen=True)
class Traffic:
    """TCP streams that run all the time, from one host to another."""
    source: str
    target: str
    streams: int


@dataclass
class Topology:
    name: str
    nodes: dict[str, str]  # name -> mode
    links: list[Link]
    hosts: dict[str, str]  # name -> node
    title: str = ""
    about: str = ""
    traffic: list[Traffic] = field(default_factory=list)
    events: list[dict] = field(default_factory=list)

    def link(self, name: str) -> Link:
        for one in self.links:
            if one.name == name:
                return one
        raise TopologyError(f"there is no link {name}")

    def links_of(self, node: str) -> list[Link]:
        return [link for link in self.links if node in link.ends]

    def bundles(self) -> dict[frozenset[str], list[Link]]:
        """All links between the same two nodes, by those nodes."""
        made: dict[frozenset[str], list[Link]] = {}
        for link in self.links:
            made.setdefault(frozenset(link.ends), []).append(link)
        return made

    def roots(self) -> set[str]:
        return {name for name, mode in self.nodes.items() if mode != "RE"}

    def leads_to_root(self, node: str, link: Link) -> bool:
        """Whether a link can ever be a node's way up: some root is behind it without coming back through the node."""
        if node in self.roots():
            return False
        return bool(self.reach(link.other(node), without={node}) & self.roots())

    def reach(self, start: str, without: Iterable[str] = (), links: Iterable[Link] | None = None) -> set[str]:
        """The nodes that can be reached from one, itself included."""
        usable = list(self.links if links is None else links)
        seen, todo = {start, *without}, [start]
        found = {start}
        while todo:
            node = todo.pop()
            for link in usable:
                if node in link.ends and link.other(node) not in seen:
                    seen.add(link.other(node))
                    found.add(link.other(node))
                    todo.append(link.other(node))
        return found

    def spanning_links(self) -> list[Link]:
        """One link to each node, from the first root on: what a mesh without any daemon could afford."""
        start = next((name for name in self.nodes if name in self.roots()), next(iter(self.nodes)))
        seen, todo, chosen = {start}, [start], []
        while todo:
            node = todo.pop(0)
            for link in self.links_of(node):
                if link.other(node) not in seen:
                    seen.add(link.other(node))
                    todo.append(link.other(node))
                    chosen.append(link)
        return chosen


def parse_rate(text: object) -> float:
    """Bits a second from a text such as "50mbit"."""
    match = _RATE.fullmatch(text) if isinstance(text, str) else None
    if match is None:
        raise TopologyError(f"{text!r} is not a rate such as \"50mbit\"")
    return float(match[1]) * _UNITS[match[2]]


def parse(data: object, name: str) -> Topology:
    """A topology from what stands in its file; TopologyError says what is wrong with it."""
    whole = _object(data, "a topology", {"nodes", "links", "hosts", "title?", "about?", "traffic?", "events?"})
    nodes = {_name(key): _mode(value) for key, value in _object(whole["nodes"], "nodes").items()}
    hosts = {_name(key): _one_of(value, nodes, f"the node of {key}")
             for key, value in _object(whole["hosts"], "hosts").items()}
    if not nodes or len(hosts) > MOST_HOSTS:
        raise TopologyError(f"there must be a node and no more than {MOST_HOSTS} hosts")
    if both := set(nodes) & set(hosts):
        raise TopologyError(f"{min(both)} is both a node and a host")
    made = Topology(name, nodes, _links(_list(whole["links"], "links"), nodes), hosts,
                    str(whole.get("title", name)), str(whole.get("about", "")))
    made.traffic = [_traffic(one, hosts) for one in _list(whole.get("traffic", []), "traffic")]
    made.events = sorted((_event(one, made) for one in _list(whole.get("events", []), "events")),
                         key=lambda event: event["at"])
    return made


def load(which: str | Path) -> Topology:
    """A topology from a file, or a shipped one by its name."""
    path = SHELF / f"{which}.json" if re.fullmatch(r"[\w-]+", str(which)) else Path(which)
    try:
        return parse(json.loads(path.read_text(encoding="utf-8")), path.stem)
    except OSError as error:
        raise TopologyError(f"{which}: {error.strerror}{_hint(str(which))}") from error
    except ValueError as error:
        raise TopologyError(f"{which}: not JSON: {error}") from error
    except TopologyError as error:
        raise TopologyError(f"{which}: {error}") from error


def _hint(word: str) -> str:
    """Names the shipped topology that a word is close to, if any."""
    names = sorted(path.stem for path in SHELF.glob("*.json"))
    meant = [name for name in names if name.startswith(word.lower())] or difflib.get_close_matches(word, names, 1)
    return f"; did you mean {meant[0]}?" if meant else "; --list names the shipped ones" if "/" not in word else ""


def shipped() -> list[Topology]:
    return [load(path) for path in sorted(SHELF.glob("*.json"))]


def pair(links: int, rate: str = "50mbit", types: tuple[str, ...] = ("5g", "5g_2", "2.4g")) -> Topology:
    """Two nodes with a host each and up to three equal links between them."""
    return parse({"nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}}, "hosts": {"h1": "a", "h2": "b"},
                  "links": [{"between": ["a", "b"], "type": kind, "rate": rate} for kind in types[:links]]},
                 f"pair of {links}")


# What a file holds

def _object(value: object, what: str, members: set[str] | None = None) -> dict:
    if not isinstance(value, dict):
        raise TopologyError(f"{what} must be an object")
    if members is None:
        return value
    if unknown := value.keys() - {member.rstrip("?") for member in members}:
        raise TopologyError(f"{what}: nothing is known about {min(unknown)!r}")
    if missing := {member for member in members if not member.endswith("?")} - value.keys():
        raise TopologyError(f"{what}: {min(missing)!r} is missing")
    return value


def _list(value: object, what: str) -> list:
    if not isinstance(value, list):
        raise TopologyError(f"{what} must be a list")
    return value


def _name(text: str) -> str:
    if not _NAME.fullmatch(text) or len(text) > LONGEST_NAME:
        raise TopologyError(f"{text!r} is no name: a letter, then letters and digits, {LONGEST_NAME} at most")
    return text


def _one_of(value: object, known: Iterable, what: str) -> str:
    if value not in list(known):
        raise TopologyError(f"{what}: {value!r} is none of {', '.join(known)}")
    return str(value)


def _mode(value: object) -> str:
    return _one_of(_object(value, "a node", {"mode"})["mode"], MODES, "a node's mode")


def _links(listed: list, nodes: dict[str, str]) -> list[Link]:
    made, count = [], Counter()
    for one in listed:
        _object(one, "a link", {"between", "type", "rate?"})
        ends = _list(one["between"], "a link's ends")
        if len(ends) != 2 or ends[0] == ends[1]:
            raise TopologyError("a link is between two nodes")
        first, second = (_one_of(end, nodes, "a link's end") for end in ends)
        kind = _one_of(one["type"], TYPES, "a link's type")
        count[frozenset(ends), kind] += 1
        number = count[frozenset(ends), kind]
        name = f"{first}-{second} {kind}" + (f" #{number}" if number > 1 else "")
        made.append(Link(name, (first, second), kind, parse_rate(one["rate"]) if "rate" in one else 0.0))
    return made


def _traffic(one: object, hosts: dict[str, str]) -> Traffic:
    asked = _object(one, "traffic", {"from", "to", "streams"})
    if not isinstance(asked["streams"], int) or not 1 <= asked["streams"] <= 128:
        raise TopologyError("traffic has 1 to 128 streams")
    return Traffic(_one_of(asked["from"], hosts, "a sender"), _one_of(asked["to"], hosts, "a receiver"),
                   asked["streams"])


def _event(one: object, topology: Topology) -> dict:
    kind = _one_of(_object(one, "an event").get("do"), EVENTS, "an event")
    event = _object(one, f"an event {kind!r}", {"at", "do"} | EVENTS[kind])
    if not isinstance(event["at"], (int, float)) or event["at"] < 0:
        raise TopologyError("an event's time is in seconds from the start")
    if "link" in event:
        link = topology.link(event["link"])
        if "end" in event:
            _one_of(event["end"], link.ends, "an event's end")
    if "node" in event:
        _one_of(event["node"], topology.nodes, "an event's node")
    if "program" in event:
        _one_of(event["program"], PROGRAMS, "an event's program")
    if "rate" in event:
        parse_rate(event["rate"])
    if "mode" in event:
        _one_of(event["mode"], MODES, "an event's mode")
    return dict(event)
