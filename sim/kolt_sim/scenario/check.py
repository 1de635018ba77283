"""What the schema cannot say: that the parts of a scenario fit each other. Defaults are filled in by then."""
import difflib
from collections.abc import Iterator
from fractions import Fraction

from .expand import clients_by_name, flap_changes, members
from .problems import Place, Problem, listed, seconds, short
from .records import PATH_TYPES

MOST_CLIENTS = 256
MOST_STREAMS = 20_000
MOST_EVENTS = 100_000
MOST_TICKS = 100_000
PACKAGED_PERIOD = 5  # seconds, of a daemon whose settings do not say otherwise


def problems(document: dict) -> Iterator[Problem]:
    """What is wrong between the members of a document that suits the schema."""
    amounts = list(_amounts(document))
    yield from amounts
    yield from _run(document)
    if amounts:  # then the rest would expand what is too much
        return
    named = clients_by_name(document["clients"])
    yield from _names(document["clients"], "clients")
    yield from _names(document["streams"], "streams")
    yield from _streams(document, named)
    yield from _events(document, named)


def _amounts(document: dict) -> Iterator[Problem]:
    clients = sum(group["count"] for group in document["clients"])
    if clients > MOST_CLIENTS:
        yield ("clients",), (f"expected at most {MOST_CLIENTS} clients in all (the daemon sees no more entries of a "
                             f"bridge), found {clients}")
    streams = sum(group["count"] for group in document["streams"])
    if streams > MOST_STREAMS:
        yield ("streams",), f"expected at most {MOST_STREAMS} streams in all, found {streams}"
    events = sum(2 * event["flap"]["times"] if "flap" in event else 1 for event in document["events"])
    if events > MOST_EVENTS:
        yield ("events",), f"expected at most {MOST_EVENTS} events in all, found {events}"


def _run(document: dict) -> Iterator[Problem]:
    duration, tick = document["duration"], document["tick"]
    if duration / tick > MOST_TICKS:
        yield ("duration",), f"expected at most {MOST_TICKS} ticks of {seconds(tick)}, found {short(duration / tick)}"
    if tick > duration:
        yield ("tick",), f"expected at most the duration ({seconds(duration)}), found {short(tick)}"
    yield from _steps(tick, document["settings"].get("period", PACKAGED_PERIOD))
    yield from _path(document, ("default_path",), document["default_path"])
    expect = document["expect"]
    for name in ("relief", "settled_by"):
        if expect.get(name, 0) > duration:
            yield ("expect", name), f"expected at most the duration ({seconds(duration)}), found {short(expect[name])}"
    least, most = expect.get("moves_at_least", 0), expect.get("moves_at_most")
    if most is not None and most < least:
        yield ("expect", "moves_at_most"), f"expected at least moves_at_least ({least}), found {most}"


def _steps(tick: float, period: int) -> Iterator[Problem]:
    """A period must be made of whole ticks, since the daemon takes a stream's counters for a period's bytes."""
    if (period / Fraction(str(tick))).denominator != 1:  # the decimals as they are written: 0.1 divides 5
        yield ("tick",), f"expected a divisor of the daemon's period ({seconds(period)}), found {short(tick)}"


def _path(document: dict, place: Place, kind: str) -> Iterator[Problem]:
    if kind not in document["paths"]:
        there = [kind for kind in PATH_TYPES if kind in document["paths"]]
        yield place, f"expected a path of this scenario ({listed(there)}), found {short(kind)}"


def _names(groups: list[dict], array: str) -> Iterator[Problem]:
    """No name may stand for two things, be it a group's or a member's."""
    owner: dict[str, int] = {}
    for index, group in enumerate(groups):
        own = dict.fromkeys([group["name"], *members(group)])
        taken = next((name for name in own if name in owner), None)
        if taken is None:
            owner |= dict.fromkeys(own, index)
            continue
        whose = f"{array}[{owner[taken]}]"
        what = "another name" if taken == group["name"] else f"a name whose members are not in {whose}"
        yield (array, index, "name"), f"expected {what}, found {short(taken)}, which {whose} has"


def _streams(document: dict, named: dict[str, list[str]]) -> Iterator[Problem]:
    for index, group in enumerate(document["streams"]):
        place = ("streams", index)
        unknown = [name for name in ("client", "peer") if group[name] not in named]
        for name in unknown:
            yield place + (name,), _unknown_client(group[name], named)
        if not unknown:
            yield from _ends(place + ("peer",), group, named)
        yield from _times(place, group, document["duration"])


def _unknown_client(name: str, named: dict[str, list[str]]) -> str:
    near = difflib.get_close_matches(name[:100], named, 1)
    hint = f"; did you mean {short(near[0])}?" if near else ""
    return f"expected the name of a client group or member, found {short(name)}{hint}"


def _ends(place: Place, group: dict, named: dict[str, list[str]]) -> Iterator[Problem]:
    if group["client"] == group["peer"]:
        yield place, f"expected another client than the stream's own, found {short(group['peer'])}"
        return
    clients, peers = named[group["client"]], named[group["peer"]]
    for number in range(group["count"]):
        name = clients[number % len(clients)]
        if name == peers[number % len(peers)]:
            yield place, (f"expected two clients for each stream, found {short(name)} at both ends of stream "
                          f"{number + 1}")
            return


def _times(place: Place, group: dict, duration: float) -> Iterator[Problem]:
    start, end = group["start"], group.get("end")
    if start >= duration:
        yield place + ("start",), _before_the_end(duration, start)
    if end is None:
        return
    if end <= start:
        yield place + ("end",), f"expected a time after the start ({seconds(start)}), found {short(end)}"
    elif end > duration:
        yield place + ("end",), f"expected at most the duration ({seconds(duration)}), found {short(end)}"


def _before_the_end(duration: float, found: float) -> str:
    return f"expected a time before the end of the run ({seconds(duration)}), found {short(found)}"


def _events(document: dict, named: dict[str, list[str]]) -> Iterator[Problem]:
    duration = document["duration"]
    for index, event in enumerate(document["events"]):
        place = ("events", index)
        for name in ("link", "path"):
            if name in event:
                yield from _path(document, place + (name,), event[name])
        if "client" in event and event["client"] not in named:
            yield place + ("client",), _unknown_client(event["client"], named)
        if event["at"] >= duration:
            yield place + ("at",), _before_the_end(duration, event["at"])
        elif "flap" in event:
            last, _ = flap_changes(event["at"], event["flap"])[-1]
            if last >= duration:
                yield place + ("flap",), (f"expected the last change before the end of the run ({seconds(duration)}), "
                                          f"found it at {seconds(last)}")
