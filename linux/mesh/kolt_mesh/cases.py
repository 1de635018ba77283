"""
Cases of a mesh that is disturbed: every single event of a topology, pairs of them in both orders, and whether the mesh stands
them: at no time does a frame pass a port twice, and once it has settled all that working links join reach each other.
"""
import itertools
import random
import zlib
from collections.abc import Callable
from dataclasses import dataclass, field

from . import frames
from .frames import Broadcasts
from .lab import Lab
from .topology import PROGRAMS, Topology

AFTER = 0.6  # seconds that are watched after an event
BETWEEN = (0.0, 0.05, 0.15, 0.35)  # seconds from one event to the next
SETTLES = 20.0  # far beyond what it takes: a busy machine is no fault of the mesh
GAP = 0.004
SEED = 20

Events = tuple[dict, ...]


@dataclass
class Outcome:
    """What went wrong in a case; nothing did if it is empty."""
    events: Events
    problems: list[str] = field(default_factory=list)

    def __str__(self) -> str:
        return "; then ".join(map(describe, self.events)) + ": " + (", ".join(self.problems) or "stood")


def singles(topology: Topology) -> list[dict]:
    """Every event that can happen to a whole mesh."""
    links = [event for link in topology.links for event in (
        {"do": "cut", "link": link.name}, {"do": "silence", "link": link.name},
        *({"do": "silence", "link": link.name, "end": end} for end in link.ends))]
    killed = [{"do": "kill", "node": node, "program": program} for node in topology.nodes for program in PROGRAMS]
    modes = [{"do": "mode", "node": node, "mode": "RE" if mode != "RE" else "FAP"}
             for node, mode in topology.nodes.items()]
    return links + killed + modes


def pairs(topology: Topology) -> list[Events]:
    """Every two events that do not concern the same thing, in both orders, and each event with its own undoing."""
    events = singles(topology)
    made: list[Events] = [(one, two) for one, two in itertools.permutations(events, 2) if subject(one) != subject(two)]
    return made + [(one, undo) for one in events if (undo := undoing(topology, one))]


def sample(topology: Topology, count: int) -> list[Events]:
    """Always the same ones of the pairs, singles first."""
    chosen = [(event,) for event in singles(topology)]
    generator = random.Random(f"{SEED} {topology.name}")
    generator.shuffle(chosen)
    rest = pairs(topology)
    generator.shuffle(rest)
    return [*chosen[:count // 2], *rest[:count - min(len(chosen), count // 2)]]


def subject(event: dict) -> tuple:
    return (event.get("link"), event.get("node"), event.get("program"))


def undoing(topology: Topology, event: dict) -> dict:
    """What puts things back as they were."""
    match event["do"]:
        case "cut" | "silence" | "slow":
            return {"do": "restore", "link": event["link"]}
        case "kill":
            return {"do": "start", "node": event["node"], "program": event["program"]}
        case "mode":
            return {"do": "mode", "node": event["node"], "mode": topology.nodes[event["node"]]}
    return {}


def describe(event: dict) -> str:
    what = event.get("link") or f"{event['node']} {event.get('program') or event['mode']}"
    return f"{event['do']} {what}" + (f" at {event['end']}" if "end" in event else "")


def play(lab: Lab, events: Events, settles: float = SETTLES) -> Outcome:
    """Plays a case on a mesh that is whole, watches it all the time, and puts everything back."""
    outcome = Outcome(events)
    pause = BETWEEN[zlib.crc32(str(outcome).encode()) % len(BETWEEN)] if len(events) > 1 else AFTER
    undone = {subject(event) for event in events if event["do"] in ("restore", "start")}
    broken = [event for event in events if undoing(lab.topology, event) and subject(event) not in undone]
    _watch(lab, outcome, events, pause)
    frozen = any(event.get("program") == "kolt-bridged" for event in broken)
    if not frozen:  # a node whose kolt-bridged is dead stays as it is, whatever happens around it
        _await(lab, outcome, settles, "it did not settle")
    _watch(lab, outcome, tuple(undoing(lab.topology, event) for event in reversed(broken)), 0.0)
    _await(lab, outcome, settles, "it did not become whole again")
    return outcome


def _watch(lab: Lab, outcome: Outcome, events: Events, pause: float) -> None:
    if not events:
        return
    with Broadcasts(lab) as counting:
        counting.run(0.1, gap=GAP)
        for event in events:
            lab.obey(event)
            counting.run(pause, gap=GAP)
        counting.run(AFTER, gap=GAP)
        counting.listen()
    lab.check()
    for node, port in counting.census.circled():
        outcome.problems.append(f"a frame passed {port} of {node} twice")
    if counting.census.duplicates():
        outcome.problems.append(f"{counting.census.duplicates()} copies too many")


def _await(lab: Lab, outcome: Outcome, seconds: float, otherwise: str) -> None:
    if not frames.as_joined(lab, seconds):
        outcome.problems.append(otherwise)


def play_all(make: Callable[[], Lab], cases: list[Events], tell: Callable[[Outcome], None]) -> list[Outcome]:
    """Plays cases one after the other on one mesh, on a fresh one after each that did not stand; gives those."""
    failed = []
    todo = list(cases)
    while todo:
        with make() as lab:
            lab.up()
            lab.wait_carrier()
            start = Outcome(())
            _await(lab, start, SETTLES, "it did not become whole")
            if start.problems:
                return [*failed, start]
            while todo:
                outcome = play(lab, todo.pop(0))
                tell(outcome)
                if outcome.problems:
                    failed.append(outcome)
                    break
    return failed
