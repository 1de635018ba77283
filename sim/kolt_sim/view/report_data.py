"""What the plots of the report draw: the series of a run, thinned so that a page stays small, and spans of time."""
from bisect import bisect_right
from collections import Counter
from collections.abc import Iterable
from statistics import fmean

from . import words

MAX_ROWS = 1200  # points per series
MAX_EVENTS = 400  # that are told in words; a link that flaps for an hour has thousands

DASHES = {"ethernet": [16, 4], "plc": [2, 3], "2.4g": [7, 4], "5g": [], "5g_2": [11, 3, 2, 3]}
TOTALS = [("demand", "Demand", "demand", [], 1.2), ("ideal", "Ideal placement", "ideal", [2, 3], 1.8),
          ("without", "Without the daemon", "without", [8, 4], 1.8), ("goodput", "With the daemon", "with", [], 2.6)]

Column = list[float | None]


# Thinning

def stride(ticks: int) -> int:
    """How many ticks one row of the plots stands for."""
    return max(1, -(-ticks // MAX_ROWS))


def mean(column: Column, step: int) -> Column:
    """The mean of every `step` values: sums and areas stay right."""
    return [fmean(known) if (known := _known(chunk)) else None for chunk in _chunks(column, step)]


def last(column: Column, step: int) -> Column:
    """The last of every `step` values: for counts, of which a mean says nothing."""
    return [known[-1] if (known := _known(chunk)) else None for chunk in _chunks(column, step)]


def extremes(column: Column, step: int) -> Column:
    """The lowest and the highest value of every two rows, in the order in which they came: no peak gets lost."""
    if step == 1:
        return mean(column, 1)
    rows: Column = []
    for chunk in _chunks(column, 2 * step):
        known = [(value, index) for index, value in enumerate(chunk) if words.is_number(value)]
        low, high = (min(known), max(known)) if known else ((None, 0), (None, 0))
        pair = [low[0], high[0]] if low[1] <= high[1] else [high[0], low[0]]
        rows += pair if len(chunk) > step else [high[0]]
    return rows


THINNING = {"mean": mean, "last": last, "extremes": extremes}


def thin(column: Column, how: str) -> Column:
    """A column with at most MAX_ROWS values, with no more digits than a plot can show."""
    return [None if value is None else round(value, 2) for value in THINNING[how](column, stride(len(column)))]


def _chunks(column: Column, size: int) -> Iterable[Column]:
    return (column[start:start + size] for start in range(0, len(column), size))


def _known(values: Column) -> list[float]:
    return [value for value in values if words.is_number(value)]


# Time

def row_times(result: dict) -> list[float]:
    time = result["series"]["time"]
    return time[::stride(len(time))]


def end(result: dict) -> float:
    """When the last tick is over."""
    return max(result["series"]["time"], default=0.0) + result["scenario"]["tick"]


def window(result: dict) -> list[float]:
    """The time axis that all plots share: the whole run, even when the frames end early."""
    start = min([0.0, *result["series"]["time"][:1]])
    return [start, max(result["scenario"]["duration"], end(result))]


def spans(time: list[float], marks: list, over: float) -> list[list]:
    """When a mark holds, as [from, to, mark] for every run of equal true marks; a tick lasts until the next one."""
    found: list[list] = []
    for at, until, mark in zip(time, [*time[1:], over], marks):
        if not mark:
            continue
        if found and found[-1][2] == mark and found[-1][1] == at:
            found[-1][1] = until
        else:
            found.append([at, until, mark])
    return found


# Series

def path_series(result: dict, member: str, how: str, *, only_up: bool = False) -> list[dict]:
    """One series per path. With `only_up` a path that is down leaves a gap."""
    series = []
    for name, path in result["series"]["paths"].items():
        column = path[member]
        if only_up:
            column = [value if up else None for value, up in zip(column, path["up"])]
        series.append({"label": full_label(name, path["type"]), "colour": colour(path["type"]),
                       "dash": DASHES.get(path["type"], [5, 5]), "width": 1.8, "values": thin(column, how)})
    return series


def total_series(result: dict) -> list[dict]:
    """Goodput of the whole node: what was wanted, what came, and the two that it is measured against."""
    return [{"label": label, "colour": name, "dash": dash, "width": width,
             "values": thin(result["series"]["total"][member], "mean")} for member, label, name, dash, width in TOTALS]


def full_label(name: str, kind: str) -> str:
    return f"{words.PATH_LABELS.get(kind, kind)} ({name})"


def colour(kind: str) -> str:
    """The name of a path's colour in the style sheet."""
    return "path-" + kind.replace(".", "-").replace("_", "-") if kind in DASHES else "path-other"


# Marks

def names(result: dict) -> dict[str, dict]:
    """How moves name the paths: label and colour by interface."""
    return {name: {"label": words.path_label(name), "colour": colour(path["type"])}
            for name, path in result["series"]["paths"].items()}


def moves(result: dict) -> list[list]:
    """Moves of streams as [time, origin, target, count], summed over the ticks of a row."""
    time = row_times(result)
    count: Counter = Counter()
    for move in result["moves"]:
        row = max(0, bisect_right(time, move["time"]) - 1)
        count[time[row] if time else 0, move["origin"], move["target"]] += 1
    return [[at, origin, target, number] for (at, origin, target), number in sorted(count.items())]


def storms(result: dict, member: str) -> list[list]:
    """When there was a storm, as [from, to, ports]."""
    ports = [", ".join(ports) for ports in result["series"][member]]
    return spans(result["series"]["time"], ports, end(result))


def lanes(result: dict) -> list[dict]:
    """The strip chart: per path when it carries broadcast and when its link is down, and the storms."""
    series, over = result["series"], end(result)
    strips = []
    for name, path in series["paths"].items():
        states = ["down" if not up else "broadcast" if broadcast else ""
                  for up, broadcast in zip(path["up"], path["broadcast"])]
        circling = ["storm" if name in ports else "" for ports in series["storm"]]
        strips.append({"label": words.PATH_LABELS.get(path["type"], path["type"]), "detail": name,
                       "colour": colour(path["type"]),
                       "spans": spans(series["time"], states, over) + spans(series["time"], circling, over)})
    for detail, member in (("with daemon", "storm"), ("without it", "storm_without")):
        storm = [[start, until, "storm", ports] for start, until, ports in storms(result, member)]
        strips.append({"label": "Storm", "detail": detail, "colour": "alarm", "spans": storm})
    return strips
