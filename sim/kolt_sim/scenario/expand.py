"""From a checked document to records: counts become members, spreads become demands, flaps become link events."""
import random
from pathlib import Path as FilePath

from .records import (INTERFACES, PATH_TYPES, Client, ClientEvent, CpuEvent, Event, Expectation, Fading, LinkEvent,
                      NeighboursEvent, Path, RateEvent, Scenario, Stream)

WIRED_EFFICIENCY = 100.0  # the rate of a wired path is its throughput


def expand(path: str | FilePath, document: dict) -> Scenario:
    """The scenario of a document in which every default is filled in and which passed all checks."""
    named = clients_by_name(document["clients"])
    events = [event for entry in document["events"] for event in _events(entry, named)]
    plain = {member: document[member] for member in ("title", "about", "duration", "tick", "seed", "default_path",
                                                     "cpu", "parent_known", "settings", "notes")}
    return Scenario(
        name=FilePath(path).stem,
        paths={kind: _path(kind, document["paths"][kind]) for kind in PATH_TYPES if kind in document["paths"]},
        clients=[Client(name, group["at"]) for group in document["clients"] for name in members(group)],
        streams=[stream for group in document["streams"] for stream in _streams(group, named, document["seed"])],
        events=sorted(events, key=lambda event: event.at),
        expect=Expectation(**document["expect"]),
        **plain)


def members(group: dict) -> list[str]:
    """The names of a group's members: its own when there is one, else numbered from 1."""
    if group["count"] == 1:
        return [group["name"]]
    return [f"{group['name']}-{number}" for number in range(1, group["count"] + 1)]


def clients_by_name(groups: list[dict]) -> dict[str, list[str]]:
    """What each name of a client group or of a member stands for."""
    named = {}
    for group in groups:
        names = members(group)
        named |= {name: [name] for name in names} | {group["name"]: names}
    return named


def _path(kind: str, entry: dict) -> Path:
    return Path(kind, INTERFACES[kind], entry["up"], entry["rate"], entry.get("neighbours", 0.0),
                entry.get("efficiency", WIRED_EFFICIENCY), Fading(**entry.get("fading", {})))


def _streams(group: dict, named: dict[str, list[str]], seed: int) -> list[Stream]:
    """
    The streams of a group, round-robin over the clients and over the peers. Demands are drawn from numbers of the
    group's own: another group in the file changes nothing here.
    """
    clients, peers = named[group["client"]], named[group["peer"]]
    draw = random.Random(f"{seed} {group['name']}")
    streams = []
    for index, name in enumerate(members(group)):
        swing = 1.0 - 2.0 * draw.random()  # above -1, so that a spread of 100 leaves some demand
        demand = group["demand"] * (1.0 + swing * group["spread"] / 100.0)
        streams.append(Stream(name, clients[index % len(clients)], peers[index % len(peers)], group["kind"], demand,
                              group["start"], group.get("end"), group.get("on"), group.get("off")))
    return streams


def _events(entry: dict, named: dict[str, list[str]]) -> list[Event]:
    at = entry["at"]
    match entry:
        case {"link": path, "up": up}:
            return [LinkEvent(at, path, up)]
        case {"link": path, "flap": flap}:
            return [LinkEvent(time, path, up) for time, up in flap_changes(at, flap)]
        case {"path": path, "rate": rate, "over": over}:
            return [RateEvent(at, path, rate, over)]
        case {"path": path, "neighbours": neighbours, "over": over}:
            return [NeighboursEvent(at, path, neighbours, over)]
        case {"client": name, "to": place}:
            return [ClientEvent(at, client, place) for client in named[name]]
        case {"cpu": percent}:
            return [CpuEvent(at, percent)]
    raise ValueError(f"no kind of event has the members {sorted(entry)}")


def flap_changes(at: float, flap: dict) -> list[tuple[float, bool]]:
    """When a flapping link changes, and to what."""
    starts = [at + number * (flap["down"] + flap["up"]) for number in range(flap["times"])]
    return [change for start in starts for change in ((start, False), (start + flap["down"], True))]
