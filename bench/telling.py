"""What all measurements tell in one way: how far they are, and which limits were kept."""
import json
import os
import sys
from argparse import ArgumentParser
from dataclasses import asdict, dataclass
from pathlib import Path


@dataclass
class Limit:
    """A figure and its limit, as they are to be read: "1.34 ms", "< 2 ms"."""
    what: str
    value: str
    limit: str
    kept: bool


def add_option(parser: ArgumentParser) -> None:
    parser.add_argument("--limits", type=Path, metavar="FILE", help="append what became of each limit there")


def note(path: Path | None, limits: list[Limit]) -> None:
    if path is not None:
        with path.open("a", encoding="utf-8") as file:
            file.writelines(json.dumps(asdict(limit)) + "\n" for limit in limits)


def noted(path: Path) -> list[Limit]:
    return [Limit(**json.loads(line)) for line in path.read_text(encoding="utf-8").splitlines()]


def verdict(limits: list[Limit], unable: list[str]) -> tuple[str, int]:
    """One line on all that was measured, and the exit status: 1 for a broken limit, 2 when something could not be measured."""
    broken = [f"{one.what}: {one.value}, limit {one.limit}" for one in limits if not one.kept]
    parts = [f"could not measure {' and '.join(unable)}"] if unable else []
    if broken:
        parts.append(f"{len(broken)} of {len(limits)} limits BROKEN: " + "; ".join(broken) + busy())
    elif limits:
        parts.append(f"all {len(limits)} limits kept" if len(limits) > 1 else f"the limit is kept, {limits[0].what}")
    return "verdict: " + ("; ".join(parts) or "nothing here has a limit"), 2 if unable else 1 if broken else 0


def busy() -> str:
    """What a person should know who sees a limit of time broken."""
    load, processors = os.getloadavg()[0], len(os.sched_getaffinity(0))
    return f" (the machine was busy: load {load:.1f} on {processors} cores)" if load > processors + 0.5 else ""


def show_progress(text: str) -> None:
    """On a terminal, a line that the next one takes the place of; nothing clears it."""
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)
