"""Where the plots of a long run open: on the part where most happens, which a whole run shows in a few pixels."""
from collections import Counter
from collections.abc import Iterable

LONG = 120.0  # seconds; what is shorter is shown whole
LARGEST = 0.6  # of the run: a part that is larger is not worth leaving the rest out
QUIET = 0.1  # of the run: a pause as long ends a part
MARGIN, LEAST = 0.25, 0.08  # of the part, on both sides; of the run
# How much each thing that happens says, and how much all of a kind at one moment may.
EVENT, MOVE, PLACEMENT, STORM = 2.0, 1.0, 0.25, 5.0
MOST_AT_ONCE = 3.0

Happening = tuple[float, float]  # when, and how much it says


def opening(happenings: Iterable[Happening], window: list[float]) -> list[float] | None:
    """The part of the time axis to begin with; None for all of it."""
    length = window[1] - window[0]
    known = sorted(happenings)
    if length < LONG or not known:
        return None
    part = max(_parts(known, QUIET * length), key=lambda one: sum(weight for _, weight in one))
    start, end = part[0][0], part[-1][0]
    margin = max(MARGIN * (end - start), (LEAST * length - (end - start)) / 2)
    start, end = max(window[0], start - margin), min(window[1], end + margin)
    return [round(start, 2), round(end, 2)] if end - start <= LARGEST * length else None


def _parts(known: list[Happening], pause: float) -> list[list[Happening]]:
    """What happens, in groups with a pause between them."""
    parts = [[known[0]]]
    for before, one in zip(known, known[1:]):
        if one[0] - before[0] > pause:
            parts.append([])
        parts[-1].append(one)
    return parts


def happenings(result: dict) -> list[Happening]:
    """What happened in a modelled run, to the home and by the daemon."""
    kinds = [(EVENT, (one["time"] for one in result["events"])), (MOVE, (one["time"] for one in result["moves"])),
             (PLACEMENT, (one["time"] for one in result["placements"])), (STORM, _storm_edges(result))]
    return [(at, min(count * weight, max(weight, MOST_AT_ONCE))) for weight, times in kinds
            for at, count in Counter(times).items()]


def _storm_edges(result: dict) -> list[float]:
    """When a storm with the daemon began or ended."""
    storm = [bool(ports) for ports in result["series"]["storm"]]
    return [at for at, before, now in zip(result["series"]["time"], [False, *storm], storm) if now != before]
