#!/usr/bin/python3
"""
Measures the daemon on a simulated node and sets each figure against its limit and against a daemon that does nothing.

The worst run counts, so a machine that is busy with other work can break a limit of time. Ends with
status 1 when a limit is broken.
"""
import argparse
import json
import os
import statistics
import sys
from collections.abc import Callable
from dataclasses import asdict, dataclass, field
from pathlib import Path

import telling
from measure import (EVENTS, REGISTRATION, Memory, Node, NodeError, binary_size, burst, idle_time, link_event,
                     link_notification, make_node, memory, send, start, stop)
from kolt_node.node import build_directory  # lies where `measure` looks

SILENT_RUNS = 3  # each costs the second that the daemon waits for an answer
BASELINE = "idle-daemon"


@dataclass
class Figure:
    """Values of one kind over the runs. A limit is kept by what is below it, an `inclusive` one also by itself."""
    name: str
    unit: str
    limit: float | None = None
    inclusive: bool = False
    values: list[float] = field(default_factory=list)
    baseline: list[float] = field(default_factory=list)

    @property
    def median(self) -> float:
        return statistics.median(self.values)

    @property
    def worst(self) -> float:
        return max(self.values)

    @property
    def kept(self) -> bool:
        if self.limit is None:
            return True
        return self.worst < self.limit or (self.inclusive and self.worst == self.limit)

    @property
    def ratio(self) -> float | None:
        """The median as a multiple of the do-nothing daemon's."""
        return self.median / statistics.median(self.baseline) if self.baseline else None


class Figures:
    """All that is measured, in the order of the table."""

    def __init__(self) -> None:
        self.start = Figure("start: exec to last programming call", "ms", 50)
        self.event = Figure("link event to first reprogramming call", "ms", 10)
        self.notification = Figure("link notification to first flush", "ms", 10)
        self.resident = Figure("resident memory after the start", "KiB", 4096)
        self.resident_later = Figure(f"resident memory after {EVENTS:,} events", "KiB", 4096)
        self.private = Figure("private memory after the start", "KiB", 1024)
        self.private_later = Figure(f"private memory after {EVENTS:,} events", "KiB", 1024)
        self.size = Figure("stripped binary", "bytes", 90000, inclusive=True)
        self.idle = Figure("processor time while idle", "us", 0, inclusive=True)
        self.silent = Figure("start, neighbour registration unanswered", "ms")

    def all(self) -> list[Figure]:
        return list(vars(self).values())


def note_memory(found: Memory, resident: list[float], private: list[float]) -> None:
    resident.append(found.resident)
    private.append(found.private)


def measure_daemon(node: Node, figures: Figures, idle_seconds: float) -> None:
    """One life of the daemon."""
    figures.start.values.append(start(node, "kolt"))
    note_memory(memory(node), figures.resident.values, figures.private.values)
    figures.event.values.append(link_event(node))
    figures.notification.values.append(link_notification(node))
    burst(node)
    note_memory(memory(node), figures.resident_later.values, figures.private_later.values)
    figures.idle.values.append(idle_time(node, idle_seconds))
    stop(node)


def measure_baseline(node: Node, figures: Figures) -> None:
    """One life of the daemon that does nothing; its events come over the bus alone."""
    figures.start.baseline.append(start(node, BASELINE, REGISTRATION))
    note_memory(memory(node), figures.resident.baseline, figures.private.baseline)
    send(node, "kolt.debug", {"dbg_level": 1}, EVENTS)
    node.wait_idle()
    note_memory(memory(node), figures.resident_later.baseline, figures.private_later.baseline)
    stop(node)


def measure_silent_start(node: Node, figures: Figures) -> None:
    node.answer_requests(silent=True)
    figures.silent.values.append(start(node, "kolt"))
    stop(node)
    node.answer_requests()


def measure(build: Path, runs: int, idle_seconds: float, progress: Callable[[str], None]) -> Figures:
    figures = Figures()
    figures.size.values.append(binary_size(build, "kolt"))
    figures.size.baseline.append(binary_size(build, BASELINE))
    with make_node(build) as node:
        for number in range(1, runs + 1):
            progress(f"run {number} of {runs}")
            measure_baseline(node, figures)
            measure_daemon(node, figures, idle_seconds)
        progress("starts without an answer")
        for _ in range(SILENT_RUNS):
            measure_silent_start(node, figures)
    return figures


def number(value: float | None, unit: str) -> str:
    if value is None:
        return "-"
    return f"{value:,.2f}" if unit == "ms" else f"{value:,.0f}"


def limit_text(figure: Figure) -> str:
    if figure.limit is None:
        return "-"
    if figure.limit == 0:
        return "none"
    return f"{'<=' if figure.inclusive else '<'} {figure.limit:,.0f}"


def as_limit(figure: Figure) -> telling.Limit:
    value, limit = (f"{text} {figure.unit}" for text in (number(figure.worst, figure.unit), limit_text(figure)))
    return telling.Limit(figure.name, value, "none" if figure.limit == 0 else limit, figure.kept)


def row(figure: Figure) -> list[str]:
    verdict = "-" if figure.limit is None else "yes" if figure.kept else "NO"
    base = statistics.median(figure.baseline) if figure.baseline else None
    ratio = "-" if figure.ratio is None else f"{figure.ratio:.2f}"
    return [figure.name, number(figure.median, figure.unit), number(figure.worst, figure.unit), figure.unit,
            limit_text(figure), verdict, number(base, figure.unit), ratio]


def table(figures: list[Figure]) -> str:
    rows = [["", "median", "worst", "", "limit", "kept", "do-nothing", "ratio"], *map(row, figures)]
    widths = [max(map(len, column)) for column in zip(*rows)]
    left = (0, 3)  # columns of words
    lines = [[cell.ljust(width) if place in left else cell.rjust(width)
              for place, (cell, width) in enumerate(zip(cells, widths))] for cells in rows]
    return "\n".join("  ".join(cells).rstrip() for cells in lines)


def write_json(path: Path, runs: int, figures: list[Figure]) -> None:
    entries = [asdict(figure) | {"median": figure.median, "worst": figure.worst, "kept": figure.kept,
                                 "ratio": figure.ratio} for figure in figures]
    path.write_text(json.dumps({"runs": runs, "figures": entries}, indent=2) + "\n")


def positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError("at least 1")
    return value


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=build_directory(), help="build directory (%(default)s)")
    parser.add_argument("--runs", type=positive, default=7, help="lives of the daemon (%(default)s)")
    parser.add_argument("--idle-seconds", type=float, default=2, help="how long each idles (%(default)s)")
    parser.add_argument("--report-only", action="store_true", help="end with status 0 whatever the figures are")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures there too")
    telling.add_option(parser)
    return parser.parse_args()


def take_precedence() -> None:
    """Keeps other work of the machine out of the figures where the system allows it; what is started inherits it."""
    try:
        os.setpriority(os.PRIO_PROCESS, 0, -20)
    except PermissionError:
        pass


def main() -> int:
    options = parse_arguments()
    take_precedence()
    try:
        figures = measure(options.build, options.runs, options.idle_seconds, telling.show_progress).all()
    except (NodeError, OSError) as error:
        print(f"footprint: {error}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130
    finally:
        telling.show_progress("")
    print(table(figures))
    if options.json:
        write_json(options.json, options.runs, figures)
    telling.note(options.limits, [as_limit(figure) for figure in figures if figure.limit is not None])
    return 0 if options.report_only or all(figure.kept for figure in figures) else 1


if __name__ == "__main__":
    sys.exit(main())
