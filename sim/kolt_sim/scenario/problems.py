"""How the problems of a scenario file are put: one line each, `FILE: MEMBER: expected WHAT, found VALUE`."""
import json
from collections.abc import Iterable, Iterator
from itertools import islice
from typing import Any

LONGEST = 40  # characters of a value in a message
MOST = 100  # problems of one file that are listed
GATHERED = 1000  # problems of one file that are looked for: each may take a search for a name that is near

Place = tuple[str | int, ...]  # the way to a member: names in objects, indexes in arrays
Problem = tuple[Place, str]


class ScenarioError(Exception):
    """A file that is no valid scenario. `problems` holds a line for each thing that is wrong with it."""

    def __init__(self, problems: list[str]) -> None:
        super().__init__("\n".join(problems))
        self.problems = problems


class Refused:
    """Stands in a document for a number that JSON or this program cannot have, such as NaN."""

    def __init__(self, literal: str) -> None:
        self.literal = literal


def cut(text: str) -> str:
    return text if len(text) <= LONGEST else text[:LONGEST - 3] + "..."


def printable(text: str) -> str:
    """The text, with escapes where it would break a line or a terminal."""
    return "".join(letter if letter.isprintable() else json.dumps(letter)[1:-1] for letter in text)


def short(value: Any) -> str:
    """A value as JSON has it, cut to what a message can hold. It is not written out any further than that."""
    if isinstance(value, Refused):
        return cut(value.literal)
    if isinstance(value, float) and value.is_integer() and abs(value) < 1e15:
        value = int(value)
    text = ""
    for piece in json.JSONEncoder(ensure_ascii=False, default=lambda refused: refused.literal).iterencode(value):
        text += printable(piece[:LONGEST + 1])
        if len(text) > LONGEST:
            break
    return cut(text)


def listed(values: Iterable[Any]) -> str:
    return ", ".join(map(short, values))


def seconds(value: float) -> str:
    return f"{short(round(value, 3))} s"


def member(place: Place) -> str:
    """The way to a member as a person writes it: streams[2].demand, paths["2.4g"].rate."""
    text = ""
    for step in place:
        if isinstance(step, int):
            text += f"[{step}]"
        elif step.replace("_", "").replace("-", "").isalnum() and step.isascii() and len(step) <= LONGEST:
            text += f".{step}" if text else step
        else:
            text += f"[{short(step)}]"
    return text


def walk(document: Any) -> Iterator[tuple[Place, Any]]:
    """Every value of a document with its place, in the document's order. It does not mind how deep it goes."""
    waiting: list[tuple[Place, Any]] = [((), document)]
    while waiting:
        place, value = waiting.pop()
        yield place, value
        inner = value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ()
        waiting += reversed([(place + (step,), item) for step, item in inner])


def lines(file: str, document: Any, problems: Iterable[Problem]) -> list[str]:
    """The problems in the order of the document; a missing member comes where its object begins."""
    known = list(dict.fromkeys(islice(problems, GATHERED)))
    order = {place: number for number, (place, _) in enumerate(walk(document))} if known else {}
    known.sort(key=lambda problem: _rank(order, problem[0]))
    texts = [f"{file}: {member(place)}: {text}" if place else f"{file}: {text}" for place, text in known[:MOST]]
    return texts + ([f"{file}: and more problems"] if len(known) > MOST else [])


def _rank(order: dict[Place, int], place: Place) -> tuple[int, bool]:
    return (order[place], False) if place in order else (order.get(place[:-1], 0), True)
