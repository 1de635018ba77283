"""How the views name and write things: paths, numbers, times and what happens."""
import math
from collections import Counter
from collections.abc import Iterable

from ..record import Move, Placement
from ..scenario.records import INTERFACES

NOTHING = "-"
PATH_LABELS = {"ethernet": "Ethernet", "plc": "Power line", "2.4g": "2.4 GHz", "5g": "5 GHz", "5g_2": "2nd 5 GHz"}
_TYPES = {name: kind for kind, name in INTERFACES.items()}
MANY = 3  # more than so many of a kind in one tick are told as one


def path_label(path: str) -> str:
    """The name of a path for a person, from its type or its interface; others stay as they are."""
    return PATH_LABELS.get(_TYPES.get(path, path), path)


def clean(text: str) -> str:
    """A text from a file as one line that cannot steer a terminal."""
    return "".join(letter if letter.isprintable() else " " for letter in text)


# Numbers

def is_number(value: float | None) -> bool:
    return value is not None and math.isfinite(value)


def mbit(value: float | None) -> str:
    if not is_number(value):
        return NOTHING
    return f"{value:.0f}" if abs(value) >= 999.95 else f"{value:.1f}"


def percent(value: float | None) -> str:
    return f"{value:.0f} %" if is_number(value) else NOTHING


def share(part: float, whole: float) -> str:
    return percent(100 * part / whole if whole > 0 else None)


def factor(value: float | None) -> str:
    return f"{value:.2f}" if is_number(value) else NOTHING


def seconds(value: float | None) -> str:
    """A duration in seconds, with a decimal only where there is one."""
    return f"{value:.1f}".removesuffix(".0") if is_number(value) else NOTHING


def whole(value: float | None) -> str:
    return f"{value:.0f}" if is_number(value) else NOTHING


def clock(time: float) -> str:
    """Simulated time as 4:07 or 1:04:07."""
    minutes, rest = divmod(int(time), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02}:{rest:02}" if hours else f"{minutes}:{rest:02}"


def count(number: int, thing: str) -> str:
    return f"{number} {thing}" if number == 1 else f"{number} {thing}s"


# What happens

def loop(ports: Iterable[str]) -> str:
    return f"{', '.join(ports)} form a loop"


def route(origin: str, target: str) -> str:
    return f"from {path_label(origin)} to {path_label(target)}" if origin else f"to {path_label(target)}"


def move_sentence(move: Move) -> str:
    return f"{move.stream} ({move.client}) {route(move.origin, move.target)}"


def move_sentences(moves: list[Move]) -> list[str]:
    """The moves of a tick; many on the same way become one sentence."""
    ways = Counter((move.origin, move.target) for move in moves)
    single = [move_sentence(move) for move in moves if ways[move.origin, move.target] <= MANY]
    return single + [f"{number} streams {route(*way)}" for way, number in ways.items() if number > MANY]


def placement_sentences(placements: list[Placement]) -> list[str]:
    """The placements of a tick; many to the same path become one sentence."""
    paths = Counter(placement.path for placement in placements)
    single = [f"{placement.client} to {path_label(placement.path)}" for placement in placements
              if paths[placement.path] <= MANY]
    return single + [f"{number} clients to {path_label(path)}" for path, number in paths.items() if number > MANY]
